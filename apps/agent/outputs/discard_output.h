// DiscardOutput: wants every camera and only counts its pictures, for measuring the way to here.
// Called by Gallery and Camera on the channel's thread.
#ifndef LUMSAR_AGENT_OUTPUTS_DISCARD_OUTPUT_H
#define LUMSAR_AGENT_OUTPUTS_DISCARD_OUTPUT_H

#include "outputs/sink.h"

namespace lumsar::agent {

class DiscardOutput : public Output {
 public:
  std::unique_ptr<Sink> open(const CameraInfo& /*camera*/, int /*handle*/,
                             const std::string& /*label*/,
                             std::function<void()> /*changed*/) override {
    return std::make_unique<DiscardSink>();
  }

 private:
  class DiscardSink : public Sink {
   public:
    bool wanted() const override { return true; }
    void show(FramePtr /*frame*/) override { ++m_report.taken; }
    void close() override {}
    bool closed() const override { return true; }
    SinkReport report() const override { return m_report; }

   private:
    SinkReport m_report;
  };
};

}  // namespace lumsar::agent

#endif
