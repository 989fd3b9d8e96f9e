// The other process of a measurement: a function in a fork of this one.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>

namespace lumsar::bench {

using Nanoseconds = std::chrono::nanoseconds;

// What a process has used of the processors, its ended threads included; of this one for 0.
Nanoseconds processorTime(pid_t process = 0);

// Killed with the object, or with its parent.
class Child {
 public:
  explicit Child(const std::function<void()>& work);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t id() const { return m_id; }
  Nanoseconds used() const { return processorTime(m_id); }
  // Until its work is done.
  void wait();

 private:
  pid_t m_id;
};

}  // namespace lumsar::bench
