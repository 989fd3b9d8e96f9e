#include "base/text/utf8.h"

#include <cstdint>

#include "base/text/format.h"

namespace lumsar::base {
namespace {

unsigned char byteAt(std::string_view text, std::size_t i) {
  return static_cast<unsigned char>(text[i]);
}

bool isContinuation(unsigned char byte) {
  return (byte & 0xC0U) == 0x80;
}

bool isLetterOrDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Of a valid sequence.
std::uint32_t codePoint(std::string_view sequence) {
  std::uint32_t code = byteAt(sequence, 0);
  if (sequence.size() > 1) code &= 0x7FU >> sequence.size();
  for (const char c : sequence.substr(1)) code = code << 6U | (static_cast<unsigned>(c) & 0x3FU);
  return code;
}

// C0, DEL and C1; the line separators; and what changes the direction of the text around it, so
// that a person reads something else than what is there.
bool isControl(std::string_view sequence) {
  const std::uint32_t code = codePoint(sequence);
  const auto in = [code](std::uint32_t first, std::uint32_t last) {
    return code >= first && code <= last;
  };
  return code < 0x20 || in(0x7F, 0x9F) || code == 0x61C || in(0x200E, 0x200F) ||
         in(0x2028, 0x202E) || in(0x2066, 0x2069);
}

}  // namespace

std::size_t sequenceLength(std::string_view text) {
  if (text.empty()) return 0;
  const unsigned char first = byteAt(text, 0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if (!isContinuation(byteAt(text, i))) return 0;
  }
  const unsigned char second = byteAt(text, 1);
  const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool outside = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
  return overlong || outside ? 0 : length;
}

std::string clean(std::string_view peerText, std::size_t longest, char control) {
  std::string result;
  while (!peerText.empty()) {
    const std::size_t length = sequenceLength(peerText);
    const std::string_view sequence = peerText.substr(0, length == 0 ? 1 : length);
    if (result.size() + sequence.size() > longest) break;
    if (length == 0) {
      result += '?';
    } else if (isControl(sequence)) {
      result += control;
    } else {
      result += sequence;
    }
    peerText.remove_prefix(sequence.size());
  }
  return result;
}

std::string fileName(std::string_view peerText, std::size_t longest) {
  std::string name;
  for (const char c : peerText.substr(0, longest)) {
    if (isLetterOrDigit(c) || c == '_') {
      name += c;
    } else if (!name.empty() && (c == '-' || name.back() != '-')) {
      name += '-';
    }
  }
  while (!name.empty() && name.back() == '-') name.pop_back();
  return name;
}

std::string escapeInvalid(std::string_view bytes) {
  std::string result;
  while (!bytes.empty()) {
    const std::size_t length = sequenceLength(bytes);
    if (length == 0) {
      result += text("%{:02X}", byteAt(bytes, 0));
    } else {
      result += bytes.substr(0, length);
    }
    bytes.remove_prefix(length == 0 ? 1 : length);
  }
  return result;
}

std::string_view shortened(std::string_view text, std::size_t longest) {
  if (text.size() <= longest) return text;
  while (longest > 0 && isContinuation(byteAt(text, longest))) --longest;
  return text.substr(0, longest);
}

}  // namespace lumsar::base
