#include <asio/steady_timer.hpp>

#include "base/frame_memory.h"
#include "harness/flow.h"
#include "ipc/server/server.h"
#include "lumsar/ipc_transport.h"
#include "protocol/camera_record.h"
#include "support/messages.h"

namespace lumsar::bench {
namespace {

constexpr std::uint32_t kCamera = 1;
constexpr std::uint16_t kWidth = 1280;
constexpr std::uint16_t kHeight = 720;

class FrameService : public ipc::IpcServerEvents {
 public:
  FrameService(const std::string& path, Pace pace, Flow& flow)
      : m_server(
            m_io,
            base::SocketListener::at({path, {}, 0}, base::SocketListener::Directory::MakePrivate),
            *this),
        m_timer(m_io),
        m_pace(pace),
        m_flow(flow),
        m_jpeg(test::blankJpeg(pace.size)) {}
  void run() { m_io.run(); }

  void onClient(ipc::ClientId, const std::string&) override {}
  void onClientGone(ipc::ClientId, const std::string&) override {}
  void onWarning(const std::string&) override {}
  void onMessage(ipc::ClientId client, std::span<unsigned char> message) override {
    const RedirMsgHeader header = readHeader(message.data());
    if (callNumber(header) != 0) {
      m_server.reply(client, header, protocol::Message(header.type));
    } else if (header.type == IPC_MSG_SHARE) {
      announce(client);
    } else if (test::kindOf(message) == CameraDataKind::Start && header.type == IPC_MSG_DATA) {
      m_timer.expires_after(std::chrono::seconds(0));
      sendNext(client);
    }
  }

 private:
  void announce(ipc::ClientId client) {
    protocol::Announcement camera{kCamera, {}, "bench", "bench"};
    camera.format.width = kWidth;
    camera.format.height = kHeight;
    camera.format.encoding = kEncodingMjpg;
    m_server.send(client, {protocol::announcedMessage(IPC_MSG_DATA, camera)});
  }

  void sendNext(ipc::ClientId client) {
    const CameraFrame fields{m_sequence++, kWidth, kHeight, kEncodingMjpg, kFrameIsKey};
    m_server.send(
        client,
        {protocol::frameMessage(IPC_MSG_DATA, kCamera, cameraClock(), fields, m_jpeg), true});
    if (++m_flow.sent == m_pace.frames) return;
    m_timer.expires_at(m_timer.expiry() +
                       std::chrono::nanoseconds(std::nano::den) / m_pace.perSecond);
    m_timer.async_wait([this, client](asio::error_code stopped) {
      if (!stopped) sendNext(client);
    });
  }

  asio::io_context m_io{1};
  ipc::IpcServer m_server;
  asio::steady_timer m_timer;
  const Pace m_pace;
  Flow& m_flow;
  const test::Bytes m_jpeg;
  std::uint32_t m_sequence = 0;
};

}  // namespace

void serveFrames(const std::string& path, Pace pace, Flow& flow) {
  base::keepFrameMemory();
  FrameService(path, pace, flow).run();
}

}  // namespace lumsar::bench
