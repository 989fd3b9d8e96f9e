// CameraStream: one camera as a node of PipeWire, as long as this object lives. Bound to the loop's
// thread; all of its owner's functions are called there.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "outputs/frame.h"
#include "outputs/pipewire/formats.h"
#include "outputs/pipewire/handles.h"

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
  // Frames that are not of the offered format are dropped.
  void send(FramePtr frame);

 private:
  static const pw_stream_events kEvents;

  void stateChanged(pw_stream_state state, const char* error);
  void formatChanged(const spa_pod* format);
  void bufferRemoved(const pw_buffer* buffer);
  void process();
  bool fits(const Frame& frame) const;
  bool isDecodable(const Frame& frame) const;
  pw_buffer* freeBuffer();
  std::size_t fill(std::span<unsigned char> buffer, const Frame& frame, std::string& why);
  void stamp(spa_buffer& buffer);

  CameraStreamOwner& m_owner;
  OfferedFormat m_offered;
  std::optional<ChosenFormat> m_chosen;  // nothing without a consumer
  FramePtr m_frame;                      // the one that is being sent
  std::optional<std::uint32_t> m_next;   // in the numbering of frames; nothing before the first
  pw_buffer* m_buffer = nullptr;         // taken from PipeWire and not yet filled
  std::uint64_t m_sequence = 0;
  bool m_isConsumed = false;
  std::unique_ptr<JpegDecoder> m_decoder;  // once a consumer has needed it
  spa_hook m_listener = {};
  Handle<pw_stream, pw_stream_destroy> m_stream;
};

}  // namespace lumsar::agent
