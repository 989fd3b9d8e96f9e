// RdpServer: a small RDP server for tests, on FreeRDP's library, whose desktop is empty and whose
// only use is the channel "lumsar". The test plays the VM: it sends bytes and takes messages.
//
// The server's thread serves one client at a time; all members are thread-safe.
#pragma once

#include <freerdp/peer.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "lumsar/assembler.h"
#include "support/message_queue.h"
#include "support/raw_peer.h"

namespace lumsar::test {

struct RdpServerSetup {
  std::string socket;       // path to listen at
  std::string certificate;  // PEM files
  std::string key;
  std::string users;         // file of users; network level authentication if given
  bool opensChannel = true;  // its end, as soon as a client is there
};

class RdpServer {
 public:
  explicit RdpServer(RdpServerSetup setup);
  ~RdpServer();  // a killed server: the connection just ends
  RdpServer(const RdpServer&) = delete;
  RdpServer& operator=(const RdpServer&) = delete;

  MessageQueue& messages() { return m_messages; }
  void send(Bytes bytes);
  bool waitForClient(milliseconds limit = kTimeout) {
    return eventually([this] { return m_activated.load(); }, limit);
  }
  // Until it has done all that it was told before.
  bool settle() {
    const int rounds = m_rounds;
    return eventually([&] { return m_rounds >= rounds + 2; });
  }
  // So many bytes wait to be taken, while it is stalled.
  bool waitForBytes(int size);

  void dropClient() { m_dropClient = true; }
  void stall(bool stalled) { m_stalled = stalled; }
  // Closes this server's end of the channel, which no client can see, or opens it again.
  void openChannel(bool open) { m_wantChannel = open; }

  // Paints so many small rectangles, a few pixels within the desktop.
  void paint(int rectangles) { m_toPaint = rectangles; }
  bool waitUntilPainted() {
    return eventually([this] { return m_toPaint <= 0; });
  }
  void resizeDesktop(UINT32 width, UINT32 height) {
    m_width = width;
    m_height = height;
  }

  int clients() const { return m_clients; }
  int connections() const { return m_connections; }  // also of those who did not become clients
  std::size_t largestPiece() const { return m_largestPiece; }
  std::size_t strayBytes() const { return m_strayBytes; }

 private:
  struct Context;

  void run();
  void serve(const RawPeer& client);
  void configure(freerdp_peer* peer);
  void talk(freerdp_peer* peer);
  void adjustChannel(Context& context);
  bool sendSome(Context& context);
  void receive(Context& context);
  bool adjustDesktop(freerdp_peer* peer);
  void paintSome(freerdp_peer* peer);

  static BOOL newContext(freerdp_peer* peer, rdpContext* context);
  static void freeContext(freerdp_peer* peer, rdpContext* context);
  static BOOL accept(freerdp_peer* peer);

  RdpServerSetup m_setup;
  RawListener m_listener;
  MessageQueue m_messages;
  std::mutex m_mutex;
  std::deque<Bytes> m_outgoing;
  std::atomic<bool> m_stopping{false};
  std::atomic<bool> m_dropClient{false};
  std::atomic<bool> m_stalled{false};
  std::atomic<bool> m_wantChannel{true};
  std::atomic<bool> m_activated{false};
  std::atomic<int> m_clients{0};
  std::atomic<int> m_connections{0};
  std::atomic<int> m_toPaint{0};
  std::atomic<int> m_rounds{0};
  std::atomic<int> m_socket{-1};
  std::atomic<UINT32> m_width{0};  // of the desktop, as the test wants it; 0 for the client's
  std::atomic<UINT32> m_height{0};
  std::atomic<std::size_t> m_largestPiece{0};
  std::atomic<std::size_t> m_strayBytes{0};
  std::thread m_thread;
};

// Makes NAME.crt and NAME.key in `directory`; returns the SHA-256 fingerprint.
void makeCertificate(const std::string& directory, const std::string& name);

}  // namespace lumsar::test
