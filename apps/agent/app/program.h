// Program: the whole of lumsar-agent: peers in, outputs out, one loop that polls them.
// Made and run by main. Bound to the channel's thread, except stop(), which any thread may call.
#ifndef LUMSAR_AGENT_APP_PROGRAM_H
#define LUMSAR_AGENT_APP_PROGRAM_H

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "app/agent_options.h"
#include "outputs/web/viewer.h"
#include "session/gallery.h"
#include "session/peer.h"
#include "transport/wakeup.h"

namespace lumsar::agent {

class Program {
 public:
  // Opens everything that was asked for. Throws Failure.
  // `host` is the way to the host, where the options do not name one.
  explicit Program(Options options, std::unique_ptr<Transport> host = nullptr);
  ~Program();

  // Returns when stop() was called, the time is over, or `endSignal` (a signalfd, or -1) is
  // readable. Then everything is written and the status is final. False when a disk does not take
  // what is left to write: a thread hangs there, so that this object cannot be destroyed.
  bool run(int endSignal = -1);
  void stop();

  std::string statusJson() const;
  // Where it can be reached; empty or 0 if it was not asked for.
  std::string directAddress() const { return m_direct ? localAddress(m_direct.get()) : ""; }
  std::uint16_t viewPort() const { return m_viewer ? m_viewer->port() : std::uint16_t{0}; }

 private:
  std::vector<std::unique_ptr<Output>> openOutputs();
  std::unique_ptr<Transport> openTransport() const;
  bool turn(int endSignal);
  void acceptDirect();
  void update();
  void writeStatusFile();
  int waitMs() const;

  const Options m_options;
  const Clock::time_point m_begin = Clock::now();
  Wakeup m_wakeup;
  std::atomic<bool> m_stop{false};
  const std::shared_ptr<ViewHub> m_hub = std::make_shared<ViewHub>();
  Gallery m_gallery;
  std::vector<std::unique_ptr<Peer>> m_peers;
  std::unique_ptr<Viewer> m_viewer;
  base::UniqueFd m_direct;
  int m_directCount = 0;
  Clock::time_point m_shown;
  Clock::time_point m_written;
  bool m_saidStatusFails = false;
};

}  // namespace lumsar::agent

#endif
