// Sink: consumes the frames of one camera; SinkFactory: one output, which makes a sink per camera.
// Both are called on the channel thread. No call may block, so what is slow has its own thread.
//
//   Camera --deliver()----> Sink: queue, newest wins --> its thread --> disk, device, browser
//          <-hasConsumer()- (changed() wakes the channel thread when the answer changes)
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "decode/raw_format.h"
#include "frames/frame.h"
#include "protocol/camera_record.h"

namespace lumsar::agent {

struct SinkReport {
  std::uint64_t delivered = 0;  // frames that have arrived at the consumer
  std::uint64_t dropped = 0;    // frames that have not
  std::uint64_t files = 0;      // completely written
  std::string path;             // of the files
  std::string device;
  std::string error;  // why this sink failed
};

class Sink {
 public:
  // Waits for the sink's thread, which is about to end once closed() is true.
  virtual ~Sink() = default;
  virtual bool hasConsumer() const = 0;
  // Whether frames are of no use to its consumer before one that is independently decodable.
  virtual bool needsKeyFrame() const { return false; }
  // The size that its consumer has asked for; nothing where it takes the camera's.
  virtual std::optional<FrameSize> wantedSize() const { return std::nullopt; }
  // Only while there is a consumer. The frame is complete.
  virtual void deliver(FramePtr frame) = 0;
  // The camera has been removed: finish what was begun. Does not wait for it.
  virtual void close() = 0;
  virtual bool closed() const = 0;
  virtual SinkReport report() const = 0;
};

class SinkFactory {
 public:
  virtual ~SinkFactory() = default;
  // Whether its consumers can show H.264; nothing where it does not matter.
  virtual std::optional<bool> showsH264() const { return false; }
  // `handle` is this run's number of the camera, `label` a unique name fit for files. `changed` may
  // be called from any thread, as long as the sink lives.
  virtual std::unique_ptr<Sink> open(const protocol::Announcement& camera, int handle,
                                     const std::string& label, std::function<void()> changed) = 0;
};

}  // namespace lumsar::agent
