// The smallest SPICE host: shares one camera with one VM until the VM ends.
// Usage: spice_host PLUGIN IPC-DIRECTORY SOCKET CAMERA
#include <lumsar/plugin.h>
#include <lumsar/relative_path.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <utility>

#include "channel.h"

namespace {

// What the main loop, which alone calls the plug-in, has to do.
std::vector<std::function<void()>> tasks;
std::mutex mutex;
const int wake = eventfd(0, EFD_CLOEXEC);

// The plug-in calls back on threads of its own and of the IPC library. These must not wait and must
// not call the plug-in, so each call leaves a task. A slow VM misses frames: only they are so many.
int post(std::function<void()> task) {
  const std::lock_guard lock(mutex);
  if (tasks.size() >= 64) return -1;
  tasks.push_back(std::move(task));
  return eventfd_write(wake, 1);
}

std::vector<std::function<void()>> takeTasks() {
  eventfd_t ignored = 0;
  eventfd_read(wake, &ignored);
  const std::lock_guard lock(mutex);
  return std::exchange(tasks, {});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const lumsar::Plugin plugin(argv[1]);
  const int channel = openChannel(argv[3]);
  const std::string share = R"({"command": "share", "deviceId": ")" + std::string(argv[4]) + "\"}";
  bool isServiceLost = false;

  const auto send = [&](unsigned char* data, int length) {  // one complete message
    return post([&, bytes = std::string(reinterpret_cast<char*>(data), std::size_t(length))] {
      writeChannel(channel, bytes.data(), bytes.size());
    });
  };
  const auto onEvent = [&](lumsar::RedirEvent event, char* /*data*/, int /*length*/) {
    post([&, event] {
      int none = 0;  // only the command "list" has an answer
      if (event == lumsar::REDIR_EVENT_READY) plugin.Ctrl(share, nullptr, none);
      if (event == lumsar::REDIR_EVENT_IPC_CLOSED) isServiceLost = true;
    });
  };
  const std::string directory = lumsar::relativePathTo(argv[2]);
  const int status = plugin.Init(
      send, onEvent, "vm-7",
      R"({"ipc_name": "lumsar", "encode_type": "MJPG", "relative_path": ")" + directory + "\"}");
  if (status != lumsar::STATUS_OK) return std::fprintf(stderr, "Init: status %d\n", status), 1;

  plugin.Event(lumsar::CHANNEL_EVENT_OPENED);  // the plug-in begins the handshake
  lumsar::MessageAssembler assembler;
  pollfd ready[] = {{channel, POLLIN, 0}, {wake, POLLIN, 0}};
  while (!isServiceLost && poll(ready, 2, -1) > 0) {
    if (ready[1].revents != 0)
      for (const auto& task : takeTasks()) task();
    if (ready[0].revents != 0 && !readChannel(channel, assembler)) break;
    for (auto message = assembler.next(); !message.empty(); message = assembler.next())
      plugin.Handler(message.data(), static_cast<int>(message.size()));
  }
  plugin.Event(lumsar::CHANNEL_EVENT_CLOSED);
  plugin.DeInit();
  std::quick_exit(isServiceLost ? 1 : 0);  // a thread of the plug-in may still use the tasks
}
