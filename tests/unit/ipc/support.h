// Helpers of the transport's tests: temporary folders, waiting, counting what a process holds.
// Used by all tests here and in tests/unit/camera-service; test's main thread.
#ifndef LUMSAR_TESTS_UNIT_IPC_SUPPORT_H
#define LUMSAR_TESTS_UNIT_IPC_SUPPORT_H

#include <stdlib.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lumsar/ipc_transport.h"

namespace lumsar::test {

using Bytes = std::vector<unsigned char>;
using std::chrono::milliseconds;

class TempDir {
 public:
  TempDir() {
    char name[] = "/tmp/lumsar-test-XXXXXX";
    m_path = ::mkdtemp(name);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return m_path; }
  std::string operator/(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

// Generous, for machines under load; a test that passes never waits that long.
inline constexpr milliseconds kPatience{15000};

template <class Condition>
bool waitUntil(Condition condition, milliseconds limit = kPatience) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

inline std::size_t entriesIn(const char* directory) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) ++count;
  return count;
}
inline std::size_t openDescriptors() {
  return entriesIn("/proc/self/fd");
}
inline std::size_t threads() {
  return entriesIn("/proc/self/task");
}
// Sanitizers start a thread of their own together with the first other one. A thread that has been
// joined may be listed for a moment more.
inline std::size_t threadsAtRest() {
  std::thread([] {}).join();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  return threads();
}

inline std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

inline Bytes message(std::uint32_t type, std::string_view payload = {}, std::uint64_t call = 0) {
  RedirMsgHeader header;
  header.type = type;
  header.length = static_cast<std::uint32_t>(payload.size());
  setCallNumber(header, call);
  Bytes bytes(kHeaderSize + payload.size());
  std::memcpy(bytes.data(), &header, kHeaderSize);
  if (!payload.empty()) std::memcpy(bytes.data() + kHeaderSize, payload.data(), payload.size());
  return bytes;
}

inline std::string payloadOf(const Bytes& bytes) {
  return {bytes.begin() + static_cast<std::ptrdiff_t>(kHeaderSize), bytes.end()};
}

}  // namespace lumsar::test

#endif
