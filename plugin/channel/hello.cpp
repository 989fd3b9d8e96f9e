// Tokens, and the RDP host's HELLO. Called by Event and Handler on the host's threads.
#include "channel/hello.h"

#include <QDebug>
#include <QTime>

#include "core/lumsar.h"
#include "core/relaxed.h"

unsigned short Lumsar::GenerateToken() {
  const QTime now = QTime::currentTime();
  QT_WARNING_PUSH
  // Tokens come from this generator, seeded by the clock; its successor gives other sequences.
  QT_WARNING_DISABLE_DEPRECATED
  qsrand(static_cast<uint>(now.second() * 1000 + now.msec()));
  const auto token = static_cast<std::uint16_t>(qrand() % 10000);
  QT_WARNING_POP
  storeRelaxed(m_token, token);
  return token;
}

void Lumsar::RdpSendHello() {
  qInfo("RdpSendHello: Enter!");
  const unsigned short token = GenerateToken();
  lumsar::HelloMessage hello =
      makeHello(lumsar::CAP_BASE_1 | lumsar::CAP_BASE_2 | lumsar::CAP_SHARE_ALL, token);
  if (m_rdpSendFunc != nullptr) {
    const int size = sizeof hello;
    const int result = m_rdpSendFunc(bytesOf(hello), size);
    qInfo() << "RdpSendHello: Send hello to remote VM! ret:" << result << ", token:" << token
            << ", Version[" << int{lumsar::kProtocolMajor} << "." << int{lumsar::kProtocolMinor}
            << "]"
            << ", message size:" << size;
    storeRelaxed(m_channelOpened, true);
  } else {
    qCritical("RdpSendHello: RDP send data callback is NULL!!!");
    storeRelaxed(m_channelOpened, false);
  }
  qInfo("RdpSendHello: Leave!");
}
