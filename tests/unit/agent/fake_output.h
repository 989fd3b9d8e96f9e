// A SinkFactory whose sinks want what the test says and remember what they were shown.
// Used by the tests of lumsar-agent, on one thread.
#pragma once

#include "outputs/sink.h"

namespace lumsar::test {

using namespace agent;

struct FakeSinkState {
  bool wanted = false;
  bool needsKey = false;
  std::optional<FrameSize> wantedSize;
  bool closing = false;
  bool closed = true;  // once closing
  std::string label;
  std::vector<FramePtr> shown;
  SinkReport report;
};

class FakeSink : public Sink {
 public:
  explicit FakeSink(std::shared_ptr<FakeSinkState> state) : m_state(std::move(state)) {}
  bool hasConsumer() const override { return m_state->wanted; }
  bool needsKeyFrame() const override { return m_state->needsKey; }
  std::optional<FrameSize> wantedSize() const override { return m_state->wantedSize; }
  void deliver(FramePtr frame) override {
    m_state->shown.push_back(std::move(frame));
    ++m_state->report.delivered;
  }
  void close() override { m_state->closing = true; }
  bool closed() const override { return m_state->closing && m_state->closed; }
  SinkReport report() const override { return m_state->report; }

 private:
  std::shared_ptr<FakeSinkState> m_state;
};

class FakeOutput : public SinkFactory {
 public:
  explicit FakeOutput(bool wanted = false, std::optional<bool> h264 = false)
      : m_wanted(wanted), m_h264(h264) {}
  std::optional<bool> showsH264() const override { return m_h264; }
  std::unique_ptr<Sink> open(const protocol::Announcement& /*camera*/, int /*handle*/,
                             const std::string& label, std::function<void()>) override {
    auto state = std::make_shared<FakeSinkState>();
    state->wanted = m_wanted;
    state->label = label;
    sinks.push_back(state);
    return std::make_unique<FakeSink>(state);
  }
  std::vector<std::shared_ptr<FakeSinkState>> sinks;  // in the order of their opening

 private:
  bool m_wanted;
  std::optional<bool> m_h264;
};

}  // namespace lumsar::test
