// Texts from outside: checked, cleaned, shortened.
#pragma once

#include <string>
#include <string_view>

namespace lumsar::base {

// Bytes of the UTF-8 sequence at the front of `text`, 0 if there is none or it is not valid.
std::size_t sequenceLength(std::string_view text);

// As much of a peer's text, such as a camera's name, as a person gets to read.
inline constexpr std::size_t kMaxPeerText = 200;

// A peer's text made harmless for a person's eyes and terminal: valid UTF-8, no control characters
// and none that reorder text, at most `longest` bytes. What is not valid becomes '?', and a control
// character becomes `control`.
std::string clean(std::string_view peerText, std::size_t longest = kMaxPeerText,
                  char control = '?');

// A peer's text as part of a file name: letters, digits, '_' and inner '-' only, the rest becomes
// '-'; of the first `longest` bytes. May be empty.
std::string fileName(std::string_view peerText, std::size_t longest = 60);

// File names are any bytes: those that are not valid UTF-8 become %XX.
std::string escapeInvalid(std::string_view bytes);

// The first `longest` bytes at most, cut where a character begins.
std::string_view shortened(std::string_view text, std::size_t longest);

}  // namespace lumsar::base
