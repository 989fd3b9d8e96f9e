// What is done to a part of the chain, and how it is undone.
#pragma once

#include <string>
#include <vector>

#include "chain/chain.h"

namespace lumsar::test {

struct Fault {
  const char* name;
  std::vector<Part> parts;  // to which it can be done
  void (*begin)(Chain&, Part);
  milliseconds lasts;
  void (*end)(Chain&, Part);
  bool needsDisk = false;     // a small file system at Chain::disk()
  bool needsPreload = false;  // the preloaded library
  bool mayCrash = false;      // libraries end the process when they cannot allocate
};

const std::vector<Fault>& faults();

// Creates what the preloaded library reads; before the parts are started.
void prepareOrders(const Chain& chain);

// Lets this program mount file systems that nobody else sees. Before any thread is started; why
// not, if it cannot.
std::string prepareMounts();

// A file system of a few MiB at the chain's disk(), for as long as it lives.
class SmallDisk {
 public:
  explicit SmallDisk(const Chain& chain);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

 private:
  const std::string m_path;
};

}  // namespace lumsar::test
