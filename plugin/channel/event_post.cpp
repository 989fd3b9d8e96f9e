// Raised on the IPC library's threads (device change) and the host's (ready).
#include "channel/event_post.h"

#include <QDebug>
#include <thread>

#include "core/guard.h"
#include "core/lumsar.h"
#include "core/relaxed.h"

namespace {

// Calls the host's event function of the current kind of host, std::function or plain pointer.
template <class Function>
void post(const Function& function, lumsar::RedirEvent event, char* data, int length) {
  if (function) {
    function(event, data, length);
  } else {
    qWarning("[%s] Post event function is NULL! Ignore this post!", "PostEventToSpice");
  }
}

}  // namespace

void RaiseEvent(lumsar::RedirEvent event, std::unique_ptr<char[]> data, int length) {
  std::thread(PostEventToSpice, event, data.get(), length).detach();
  static_cast<void>(data.release());
}

void PostEventToSpice(lumsar::RedirEvent event, char* data, int length) {
  guarded("PostEventToSpice", [=] {
    std::unique_ptr<char[]> owned(data);
    Lumsar& self = *Lumsar::GetInstance();
    qInfo("PostEventToSpice: Enter!");
    const int channel = loadRelaxed(self.m_dataChannel);
    switch (channel) {
      case DATA_CHANNEL_SPICE:
        post(self.m_spicePostEventFunc, event, data, length);
        break;
      case DATA_CHANNEL_RDP:
        post(loadRelaxed(self.m_rdpPostEventFunc), event, data, length);
        break;
      default:
        qWarning("[%s] >>>>Unknown data channel[%d]<<<<", "PostEventToSpice", channel);
    }
    owned.reset();
    qInfo("PostEventToSpice: Leave!");
    return lumsar::STATUS_OK;
  });
}
