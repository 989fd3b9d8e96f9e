// DiscardOutput: consumes every camera and only counts its frames, for measurements.
#pragma once

#include "outputs/sink.h"

namespace lumsar::agent {

class DiscardOutput : public SinkFactory {
 public:
  std::optional<bool> showsH264() const override { return std::nullopt; }
  std::unique_ptr<Sink> open(const protocol::Announcement& /*camera*/, int /*handle*/,
                             const std::string& /*label*/,
                             std::function<void()> /*changed*/) override {
    return std::make_unique<DiscardSink>();
  }

 private:
  class DiscardSink : public Sink {
   public:
    bool hasConsumer() const override { return true; }
    void deliver(FramePtr /*frame*/) override { ++m_report.delivered; }
    void close() override {}
    bool closed() const override { return true; }
    SinkReport report() const override { return m_report; }

   private:
    SinkReport m_report;
  };
};

}  // namespace lumsar::agent
