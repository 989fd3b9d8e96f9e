#include "protocol/access_token.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "base/errors.h"
#include "base/text/format.h"

namespace lumsar::protocol {
namespace {

constexpr std::string_view kBegin = "LUMSAR-ACCESS ";
constexpr std::size_t kShortest = 16;
constexpr std::size_t kLongest = 256;

[[noreturn]] void refuse(const std::string& file, const std::string& why) {
  throw base::Failure(base::text(
      "cannot use the token file {}: {}; make one by (umask 077; openssl rand -hex 32 >FILE)", file,
      why));
}

bool isVisible(char c) {
  return c > ' ' && c <= '~';
}

}  // namespace

std::string readAccessLine(const std::string& tokenFile) {
  if (tokenFile.empty()) return {};
  struct stat status {};
  std::ifstream file(tokenFile);
  if (!file || stat(tokenFile.c_str(), &status) != 0) refuse(tokenFile, base::systemError());
  if ((status.st_mode & 077U) != 0) refuse(tokenFile, "other users have access to it");
  std::string token(kLongest + 2, '\0');
  file.read(token.data(), static_cast<std::streamsize>(token.size()));
  token.resize(static_cast<std::size_t>(file.gcount()));
  while (!token.empty() && (token.back() == '\n' || token.back() == '\r' || token.back() == ' ')) {
    token.pop_back();
  }
  if (token.size() < kShortest || token.size() > kLongest ||
      !std::ranges::all_of(token, isVisible)) {
    refuse(tokenFile, base::text("it must hold {} to {} visible characters", kShortest, kLongest));
  }
  return base::text("{}{}\n", kBegin, token);
}

// The time that it takes tells nothing about the token.
AccessCheck::Result AccessCheck::take(Bytes& bytes) {
  const Bytes expected = base::bytesOf(m_expected).subspan(m_seen);
  const std::size_t size = std::min(bytes.size(), expected.size());
  for (std::size_t i = 0; i < size; ++i) {
    const unsigned difference = bytes[i] ^ expected[i];
    if (difference != 0 && m_seen + i < kBegin.size()) return Result::Refused;  // no token at all
    m_difference |= difference;
  }
  m_seen += size;
  bytes = bytes.subspan(size);
  if (m_seen < m_expected.size()) return Result::Incomplete;
  return m_difference == 0 ? Result::Granted : Result::Refused;
}

}  // namespace lumsar::protocol
