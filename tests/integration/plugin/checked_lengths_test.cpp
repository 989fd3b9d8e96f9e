// The plug-in built with LUMSAR_CHECK_LENGTHS: what it got less of than the header says is dropped.
// Complete messages are treated as ever, which the model shows in the same program.
#include <sys/mman.h>
#include <unistd.h>

#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

// Bytes at whose end the readable memory ends: who reads on, crashes.
class Edge {
 public:
  explicit Edge(const Bytes& bytes) : m_size(bytes.size()) {
    m_pages = static_cast<unsigned char*>(
        mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(m_pages + kPage, kPage, PROT_NONE);
    std::ranges::copy(bytes, data());
  }
  ~Edge() { munmap(m_pages, 2 * kPage); }
  Edge(const Edge&) = delete;
  Edge& operator=(const Edge&) = delete;

  unsigned char* data() const { return m_pages + kPage - m_size; }
  int size() const { return static_cast<int>(m_size); }

 private:
  static constexpr std::size_t kPage = 4096;
  std::size_t m_size;
  unsigned char* m_pages;
};

Bytes first(const Bytes& bytes, std::size_t size) {
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

std::string dropped(const std::string& function, std::size_t claimed, std::size_t delivered) {
  return critical("[" + function + "] Message of " + std::to_string(claimed) +
                  " bytes delivered as " + std::to_string(delivered) + "! Dropped!");
}

class CheckedLengths : public PluginTest {
 protected:
  void handleAtEdge(const Bytes& bytes) const {
    const Edge edge(bytes);
    plugin.Handler(edge.data(), edge.size());
  }
  int receiveAtEdge(const Bytes& bytes) const {
    const Edge edge(bytes);
    return ipc.receiveHere(edge.data(), edge.size());
  }
};

TEST_F(CheckedLengths, MessageOfTheVmThatIsTooShort) {
  startRdp();
  const Bytes whole = message(1, pattern(100));
  for (const std::size_t size : {1U, 3U, 31U}) {
    handleAtEdge(first(whole, size));
    EXPECT_EQ(log.take(), Lines{dropped("Handler", 32, size)});
  }
  for (const std::size_t size : {32U, 131U}) {
    handleAtEdge(first(whole, size));
    EXPECT_EQ(log.take(), Lines{dropped("Handler", 132, size)});
  }
  EXPECT_EQ(ipc.take(), Lines{});
  handleAtEdge(whole);
  EXPECT_EQ(ipc.take(), Lines{sendOf(6, pattern(100))});
}

TEST_F(CheckedLengths, LargestLength) {
  startRdp();
  Bytes whole = message(1, pattern(100));
  std::fill(whole.begin() + 8, whole.begin() + 12, static_cast<unsigned char>(0xFF));
  handleAtEdge(whole);
  EXPECT_EQ(log.take(), Lines{dropped("Handler", 0xFFFFFFFFU + 32ULL, 132)});
}

TEST_F(CheckedLengths, HelloHasFourBytesWhateverItSays) {
  startRdp();
  Bytes hello = message(VmHello{.token = 0xFFFF});
  hello[8] = 0;
  for (const std::size_t size : {32U, 35U}) {
    handleAtEdge(first(hello, size));
    EXPECT_EQ(log.take(), Lines{dropped("Handler", 36, size)});
  }
  handleAtEdge(hello);
  EXPECT_EQ(log.take().size(), 2U) << "read, and refused for its token";
}

TEST_F(CheckedLengths, MessageOfTheServiceThatIsTooShort) {
  startSpice();
  openSpiceChannel();
  const Bytes whole = message(8, pattern(100));
  for (const std::size_t size : {0U, 31U}) {
    EXPECT_EQ(receiveAtEdge(first(whole, size)), 2);
    EXPECT_EQ(log.take(), Lines{dropped("OnReceive", 32, size)});
  }
  EXPECT_EQ(receiveAtEdge(first(whole, 131)), 2);
  EXPECT_EQ(log.take(), Lines{dropped("OnReceive", 132, 131)});
  const Bytes data = message(6, pattern(100));
  EXPECT_EQ(receiveAtEdge(first(data, 131)), 2);
  EXPECT_EQ(log.take(), Lines{dropped("OnReceive", 132, 131)});
  EXPECT_EQ(receiveAtEdge(data), 0);
  EXPECT_EQ(host.takeBytes(), std::vector<Bytes>{message(1, pattern(100))});
}

TEST_F(CheckedLengths, CameraListThatIsTooShort) {
  startSpice();
  std::vector<char> buffer(64);
  int size = 64;
  ipc.syncReply = message(1, "[]");
  ipc.syncReply[8] = 200;
  EXPECT_EQ(plugin.Ctrl(R"({"command":"list"})", buffer.data(), size), 35);
  EXPECT_EQ(size, 64);
  const Lines lines = log.take();
  EXPECT_NE(std::ranges::find(lines, dropped("HandleGetCameraListCmd", 232, 34)), lines.end());
  ipc.take();
}

}  // namespace
}  // namespace lumsar::test
