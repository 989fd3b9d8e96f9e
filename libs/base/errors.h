// The two errors that end a program with a text for its user.
#pragma once

#include <stdexcept>

namespace lumsar::base {

// The command line is wrong: exit status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The program cannot do what it was asked to do: exit status 1.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace lumsar::base
