// Builds the camera data messages that the service sends to VMs (lumsar/camera_data.h), each in the
// one buffer that is written to the socket. Called on the main thread; reentrant.
#ifndef LUMSAR_CAMERA_SERVICE_LINKS_RECORDS_H
#define LUMSAR_CAMERA_SERVICE_LINKS_RECORDS_H

#include <string_view>

#include "camera/camera_info.h"
#include "capture/capture.h"
#include "ipc/server/outgoing.h"

namespace lumsar::service {

// `type` is the message's type: IPC_MSG_DATA through a host, MSG_DATA straight to a VM.
ipc::Message announcedRecord(std::uint32_t type, const Camera& camera, const CapturePlan& plan);
ipc::Message goneRecord(std::uint32_t type, std::uint32_t camera, std::string_view why);
ipc::Message frameRecord(std::uint32_t type, std::uint32_t camera, const CapturedFrame& frame);

// Numbers a frame, as late as when it leaves: frames dropped before leave no gap.
void setSequence(ipc::Message& frame, std::uint32_t sequence);

}  // namespace lumsar::service

#endif
