// The access token: a secret that a peer sends once on a TCP connection, before its first message,
// where the guest agent asks for one.
//
//   "LUMSAR-ACCESS " TOKEN "\n"
#pragma once

#include <string>

#include "protocol/message.h"

namespace lumsar::protocol {

// What is sent, with the token from this file; empty for no file. Throws base::Failure unless the
// file is the user's alone and holds 16 to 256 visible characters, and white space at the end.
std::string readAccessLine(const std::string& tokenFile);

// Finds `expected` at the beginning of a connection's bytes, however they are cut. When it is
// empty, there is nothing to find.
class AccessCheck {
 public:
  enum class Result { Incomplete, Granted, Refused };

  AccessCheck() = default;
  explicit AccessCheck(std::string expected) : m_expected(std::move(expected)) {}

  // Removes from `bytes` what belongs to the token.
  Result take(Bytes& bytes);

 private:
  std::string m_expected;
  std::size_t m_seen = 0;
  unsigned m_difference = 0;
};

}  // namespace lumsar::protocol
