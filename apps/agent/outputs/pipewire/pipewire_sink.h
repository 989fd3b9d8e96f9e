// PipewireSink: the frames of one camera on their way to PipeWire, the newest of which the loop's
// thread sends. The sink has a consumer while a program takes
// frames of the camera's node.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>

#include "outputs/newest_frame.h"
#include "outputs/pipewire/camera_stream.h"
#include "outputs/pipewire/node_names.h"
#include "outputs/pipewire/pipewire_loop.h"
#include "outputs/placard.h"
#include "outputs/sink.h"

namespace lumsar::agent {

class PipewireSink final : public Sink, private PipewireClient, private CameraStreamOwner {
 public:
  PipewireSink(PipewireLoop& loop, NodeNames& names, const protocol::Announcement& camera,
               std::function<void()> changed);
  ~PipewireSink() override;

  bool hasConsumer() const override { return m_hasConsumer; }
  bool needsKeyFrame() const override { return m_needsKey || m_frames.needsKeyFrame(); }
  std::optional<FrameSize> wantedSize() const override { return m_frames.rawSize(); }
  void deliver(FramePtr frame) override { m_frames.put(std::move(frame)); }
  void close() override;
  bool closed() const override;
  SinkReport report() const override;

 private:
  void update(pw_core* core) override;
  bool isEnding() const override { return m_closing; }
  void ended() override;

  void consumed(bool isConsumed) override;
  void chosen(const std::optional<ChosenFormat>& format) override;
  void sent() override;
  void dropped(const std::string& reason) override;
  void keyFrameNeeded() override { m_needsKey = true; }
  void failed(const std::string& why) override;

  bool isRawChosen() const { return m_chosen && isRaw(m_chosen->encoding); }
  void createStream(pw_core& core);
  void endStream();
  void destroyStream();
  void followFormat();
  void checkSignal();
  void reportProblem(const std::string& problem);
  void clearError();

  PipewireLoop& m_loop;
  NodeNames& m_names;
  const NodeIdentity m_identity;
  const std::function<void()> m_changed;
  std::atomic<bool> m_hasConsumer{false};
  std::atomic<bool> m_needsKey{false};
  std::atomic<bool> m_closing{false};
  std::atomic<std::uint64_t> m_delivered{0};
  std::atomic<std::uint64_t> m_dropped{0};
  NewestFrame m_frames;
  mutable std::mutex m_mutex;  // for the next three
  std::condition_variable m_hasEnded;
  std::string m_error;
  bool m_closed = false;

  // Used by the loop's thread only.
  OfferedFormat m_format;                // by the announcement or the latest frame
  std::optional<ChosenFormat> m_chosen;  // by the consumer
  Notice m_notice = Notice::CameraStarts;
  std::chrono::steady_clock::time_point m_lastShown;  // to the consumer, or when it came
  std::unique_ptr<CameraStream> m_stream;
  std::chrono::steady_clock::time_point m_lastOffer;
  std::string m_failure;                              // of the stream
  std::chrono::steady_clock::time_point m_retryTime;  // before it there is no other stream
  std::set<std::string> m_loggedProblems;             // of this consumer
  bool m_loggedName = false;
};

}  // namespace lumsar::agent
