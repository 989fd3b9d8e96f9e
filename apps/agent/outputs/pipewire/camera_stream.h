// CameraStream: one camera as a node of PipeWire, as long as this object lives. Bound to the loop's
// thread; all of its owner's functions are called there.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "frames/continuity.h"
#include "outputs/pipewire/formats.h"
#include "outputs/pipewire/handles.h"
#include "outputs/placard.h"

namespace lumsar::agent {

struct NodeIdentity {
  std::string name;         // what programs remember a camera by
  std::string description;  // what their users see
};

class CameraStreamOwner {
 public:
  virtual ~CameraStreamOwner() = default;
  // Whether a program takes frames. Not told by the destructor.
  virtual void consumed(bool isConsumed) = 0;
  // What the frames are to be like; nothing while no program wants any.
  virtual void chosen(const std::optional<ChosenFormat>& format) = 0;
  // What has become of a frame. A reason is given unless the consumer is just slow.
  virtual void sent() = 0;
  virtual void dropped(const std::string& reason = {}) = 0;
  // What comes before the next key frame will be dropped.
  virtual void keyFrameNeeded() = 0;
  // The node is of no use any more. This object may not be destroyed in this call.
  virtual void failed(const std::string& why) = 0;
};

class CameraStream {
 public:
  // Throws base::Failure.
  CameraStream(pw_core& core, const NodeIdentity& identity, const OfferedFormat& format,
               CameraStreamOwner& owner);
  CameraStream(const CameraStream&) = delete;
  CameraStream& operator=(const CameraStream&) = delete;
  ~CameraStream();

  // Of the frames from now on. Consumers are told and choose again.
  void offer(const OfferedFormat& format);
  // Frames that are not of the chosen format are dropped.
  void send(FramePtr frame);
  // Of the chosen format, for which there has to be one. The owner is told nothing of it.
  void sendPlacard(Notice notice);

 private:
  static const pw_stream_events kEvents;

  void stateChanged(pw_stream_state state, const char* error);
  void formatChanged(const spa_pod* format);
  void bufferRemoved(const pw_buffer* buffer);
  void process();
  bool fits(const Frame& frame) const;
  void dropFrame(const std::string& reason = {});
  pw_buffer* freeBuffer();
  void stamp(spa_buffer& buffer);

  CameraStreamOwner& m_owner;
  std::optional<ChosenFormat> m_chosen;  // nothing without a consumer
  FramePtr m_frame;                      // the one that is being sent
  bool m_isPlacard = false;              // that is one
  Continuity m_continuity;
  pw_buffer* m_buffer = nullptr;  // taken from PipeWire and not yet filled
  std::uint64_t m_sequence = 0;
  bool m_isConsumed = false;
  spa_hook m_listener = {};
  Handle<pw_stream, pw_stream_destroy> m_stream;
};

}  // namespace lumsar::agent
