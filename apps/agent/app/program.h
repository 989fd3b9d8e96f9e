// Program: all of lumsar-agent. One loop on one thread, the channel thread, polls the
// connections and handles what they bring; outputs that may be slow have their own threads.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "app/agent_options.h"
#include "app/status.h"
#include "base/system/event_fd.h"
#include "outputs/web/viewer.h"
#include "session/connection.h"
#include "session/gallery.h"
#include "transport/peer_listener.h"

namespace lumsar::agent {

class Program {
 public:
  // Opens everything that was asked for. `host` is the transport to the host where the options do
  // not name one; `pipewire` is an output that not every program has. Throws base::Failure or
  // base::UsageError.
  explicit Program(Options options, std::unique_ptr<Transport> host = nullptr,
                   std::unique_ptr<SinkFactory> pipewire = nullptr);
  ~Program();

  // Returns when stop() was called, the time is over, or `endSignal` (a signalfd, or -1) is
  // readable. By then everything is written and the status is final. False when a disk
  // hangs: its thread still runs, so this object cannot be destroyed.
  bool run(int endSignal = -1);
  void stop();  // thread-safe

  Status status() const;
  std::string statusJson() const { return toJson(status()); }
  // Where it can be reached; empty or 0 if it was not asked for.
  std::string directAddress() const { return m_direct ? m_direct->name() : ""; }
  std::uint16_t viewPort() const { return m_viewer ? m_viewer->port() : std::uint16_t{0}; }

 private:
  std::vector<std::unique_ptr<SinkFactory>> openOutputs(std::unique_ptr<SinkFactory> pipewire);
  std::unique_ptr<Transport> openTransport() const;
  bool turn(int endSignal);
  void acceptDirect();
  bool hasPlaceFor(const std::string& host) const;
  void update();
  Clock::time_point due() const;
  void writeStatusFile();

  const Options m_options;
  const std::string m_accessLine;
  const Clock::time_point m_begin = Clock::now();
  const Clock::time_point m_end;
  base::EventFd m_wakeUp;
  std::atomic<bool> m_stop{false};
  const std::shared_ptr<ViewHub> m_hub = std::make_shared<ViewHub>([this] { m_wakeUp.wake(); });
  Gallery m_gallery;
  std::vector<std::unique_ptr<Connection>> m_connections;
  std::unique_ptr<Viewer> m_viewer;
  std::optional<PeerListener> m_direct;
  int m_directCount = 0;
  Clock::time_point m_fileWritten;
  bool m_loggedFileError = false;
};

}  // namespace lumsar::agent
