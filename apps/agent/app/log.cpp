// The log's single writer, and the cleaning of texts that came from a peer.
// Called by everything here.
// Thread-safe: each line is one write to stderr.
#include "app/log.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>

namespace lumsar::agent {
namespace {

std::atomic<bool> g_verbose{false};

// Bytes of the UTF-8 sequence at the front of `text`, 0 if it is not valid.
std::size_t sequenceLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
  }
  const unsigned char second = byte(1);
  const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool outside = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
  return overlong || outside ? 0 : length;
}

bool isControl(std::string_view sequence) {
  const auto first = static_cast<unsigned char>(sequence[0]);
  if (sequence.size() == 1) return first < 0x20 || first == 0x7F;
  return first == 0xC2 && static_cast<unsigned char>(sequence[1]) < 0xA0;
}

}  // namespace

void setVerbose(bool verbose) {
  g_verbose = verbose;
}
bool isVerbose() {
  return g_verbose;
}

void writeLogLine(std::string_view level, std::string_view line) {
  std::string whole = "lumsar-agent: ";
  whole.append(level).append(line).push_back('\n');
  if (write(STDERR_FILENO, whole.data(), whole.size()) < 0) return;  // nobody left to tell
}

std::string systemError() {
  return std::system_category().message(errno);
}

std::string clean(std::string_view peerText, std::size_t longest) {
  std::string result;
  while (!peerText.empty()) {
    const std::size_t length = sequenceLength(peerText);
    const std::string_view sequence = peerText.substr(0, length == 0 ? 1 : length);
    const bool good = length != 0 && !isControl(sequence);
    if (result.size() + sequence.size() > longest) break;
    result.append(good ? sequence : "?");
    peerText.remove_prefix(sequence.size());
  }
  return result;
}

}  // namespace lumsar::agent
