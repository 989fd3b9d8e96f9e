// What a process holds over time, at the beginning and at the end of a soak.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <span>
#include <string>
#include <vector>

namespace lumsar::test {

class Usage {
 public:
  Usage(std::string name, pid_t process) : m_name(std::move(name)), m_process(process) {}

  void sample();
  // What has grown beyond its limit, or nothing.
  std::string wrong() const;
  std::string summary() const;

 private:
  enum Quantity { Memory, Threads, Descriptors, kQuantities };
  using Sample = std::array<long, kQuantities>;
  // The least in the first and the last third of the time: how many cameras are on differs from
  // moment to moment, and what is held with none of them must not grow.
  Sample first() const;
  Sample last() const;
  static Sample least(std::span<const Sample> samples);

  std::string m_name;
  pid_t m_process;
  std::vector<Sample> m_samples;  // one a second
};

}  // namespace lumsar::test
