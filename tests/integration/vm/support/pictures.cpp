#include "integration/vm/support/pictures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace lumsar::test {

std::vector<std::string> pictureHashes(const std::string& text) {
  std::vector<std::string> hashes;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word, number, size, hash;
    if (words >> word >> number >> size >> hash && word == "picture") hashes.push_back(hash);
  }
  return hashes;
}

void expectInOrder(const std::vector<std::string>& read, const std::vector<std::string>& sent) {
  // The device may begin with a frame that it still holds.
  auto picture = read.begin();
  while (picture != read.end() && std::ranges::find(sent, *picture) == sent.end()) ++picture;
  EXPECT_LE(picture - read.begin(), 2) << "frames that were never sent";
  auto from = sent.begin();
  for (; picture != read.end(); ++picture) {
    const auto found = std::find(from, sent.end(), *picture);
    ASSERT_NE(found, sent.end()) << "frame " << picture - read.begin() + 1 << " of " << read.size()
                                 << ", " << *picture << ", is torn or too late";
    from = found + 1;
  }
}

}  // namespace lumsar::test
