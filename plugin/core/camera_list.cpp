// The "list" command: asks the camera service for its cameras and leaves its text in the host's
// buffer. Called by HandleCommand with m_mutex held, on the host's thread.
#include <QDebug>
#include <cstring>

#include "core/lengths.h"
#include "core/lumsar.h"
#include "core/relaxed.h"
#include "lumsar/message.h"

int Lumsar::HandleGetCameraListCmd(char* output, int& outputSize) {
  auto replySize = static_cast<unsigned int>(outputSize);
  qInfo("HandleGetCameraListCmd: Enter!");
  storeRelaxed(m_replyArrived, false);
  qInfo() << "HandleGetCameraListCmd: Try to get camera list! Output buffer:"
          << QString::fromUtf8(output) << ", size:" << outputSize;

  int status = IpcSyncCall(lumsar::IPC_MSG_CAMERA_LIST, nullptr, 0,
                           reinterpret_cast<unsigned char*>(output), &replySize);
  if (status != lumsar::STATUS_OK && status != lumsar::STATUS_REPLY_TOO_LARGE) {
    qWarning() << "HandleGetCameraListCmd: IpcSyncCall failed!!! err:" << status;
    return lumsar::STATUS_LIST_CALL_FAILED;
  }
  qInfo() << "HandleGetCameraListCmd: buffer return:" << replySize
          << ", Output buffer size:" << outputSize;
  if (static_cast<unsigned int>(outputSize) < replySize || output == nullptr) {
    // 0 is intentional: the host knows a buffer that is too small by the size having grown.
    outputSize = static_cast<int>(replySize);
    qWarning() << "HandleGetCameraListCmd: Output buffer too small! need size:" << replySize;
    return lumsar::STATUS_OK;
  }

  if (!isComplete("HandleGetCameraListCmd", output, replySize)) {
    return lumsar::STATUS_LIST_CALL_FAILED;
  }
  const std::uint32_t type = lumsar::readField(output, offsetof(lumsar::RedirMsgHeader, type));
  const std::uint32_t length = lumsar::readField(output, offsetof(lumsar::RedirMsgHeader, length));
  const std::uint32_t code = lumsar::readField(output, offsetof(lumsar::RedirMsgHeader, param));
  qInfo() << "HandleGetCameraListCmd: Result: type:" << type << ", size: " << length
          << ", code:" << code;
  if (code != 0) {
    // The list is delivered all the same.
    qWarning() << "HandleGetCameraListCmd: Get camera list failed! err:" << code;
    status = lumsar::STATUS_LIST_ERROR;
  }
  outputSize = static_cast<int>(length);
  std::memmove(output, output + lumsar::kHeaderSize, length);
  output[length] = '\0';
  qInfo() << "HandleGetCameraListCmd: ====Camera list:\n" << QString::fromUtf8(output);
  qInfo("HandleGetCameraListCmd: Leave!");
  return status;
}
