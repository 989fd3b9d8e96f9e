// CameraVm: the fixture of tests in which a camera of the user's machine is in the VM.
#pragma once

#include "integration/vm/support/spice_vm.h"

namespace lumsar::test {

class CameraVm : public SpiceVm {
 protected:
  // Everything up to a camera that is there in the guest.
  void share(const std::string& format = "320x240@10", const std::string& address = {});
  // Frames are sent whatever the line takes, and pile up in front of it.
  void ignoreTheLine();
  void startAgent();

  std::string device() { return guest().run("guest_reader /dev/video20 0").output; }
  bool cameraIsThere();
  // As long as a program has it open, a device remains what it was, without frames.
  bool cameraIsGone();

  // Reads in the background, until it is killed.
  void startReader() { guest().start("reader", "guest_reader /dev/video20 1000000"); }
  bool reading();
  void stopReader() { guest().run("killall guest_reader; true"); }

  // Reads `count` frames as a guest's program and compares them with those that were sent.
  void expectPictures(std::size_t count);

 private:
  std::size_t picturesRead();
};

}  // namespace lumsar::test
