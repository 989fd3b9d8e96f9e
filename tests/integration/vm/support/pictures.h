// Comparing the pictures that a program has read with those that a camera service has sent.
#pragma once

#include <string>
#include <vector>

namespace lumsar::test {

// The hashes in lines "picture NUMBER SIZE HASH".
std::vector<std::string> pictureHashes(const std::string& text);

// Expects each frame read to be one that was sent, in their order; some may have been left out.
void expectInOrder(const std::vector<std::string>& read, const std::vector<std::string>& sent);

}  // namespace lumsar::test
