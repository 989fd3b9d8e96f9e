// Sink: one way in which one camera is shown or kept; Output: makes them, one for each camera.
// Called by Camera on the channel's thread; no call may block, so what is slow has its own thread.
//
//   Camera --show()--> Sink: queue, newest wins --> its thread --> disk, device, browser
//          <-wanted()-  (changed() wakes the channel's thread when the answer changes)
#ifndef LUMSAR_AGENT_OUTPUTS_SINK_H
#define LUMSAR_AGENT_OUTPUTS_SINK_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "outputs/frame.h"
#include "outputs/record.h"

namespace lumsar::agent {

struct SinkReport {
  std::uint64_t taken = 0;    // pictures that went where they should
  std::uint64_t dropped = 0;  // pictures that did not
  std::uint64_t files = 0;    // written whole
  std::string path;           // of the files
  std::string device;
  std::string error;  // why this sink gave up
};

class Sink {
 public:
  // May wait for the sink's thread, briefly once closed() is true.
  virtual ~Sink() = default;
  // Does somebody look?
  virtual bool wanted() const = 0;
  // Only while wanted. The frame is a whole picture.
  virtual void show(FramePtr frame) = 0;
  // The camera is gone: finish what was begun. Does not wait for it.
  virtual void close() = 0;
  virtual bool closed() const = 0;
  virtual SinkReport report() const = 0;
};

class Output {
 public:
  virtual ~Output() = default;
  // `handle` is this run's number of the camera, `label` a unique name fit for files. `changed` may
  // be called from any thread, as long as the sink lives.
  virtual std::unique_ptr<Sink> open(const CameraInfo& camera, int handle, const std::string& label,
                                     std::function<void()> changed) = 0;
};

}  // namespace lumsar::agent

#endif
