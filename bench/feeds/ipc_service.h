// The camera service's end of the transport, in a process of its own, with nothing behind it.
#pragma once

#include <cstddef>
#include <string>

namespace lumsar::bench {

// Sends messages of `size` bytes without end once the first message has come.
void floodClient(const std::string& path, std::size_t size);
// Answers calls with as many bytes as they have; takes everything else.
void answerCalls(const std::string& path);

}  // namespace lumsar::bench
