// PipewireOutput: makes each camera a node of PipeWire, which programs of the session open as a
// camera, without a kernel module.
#pragma once

#include "outputs/pipewire/pipewire_sink.h"

namespace lumsar::agent {

class PipewireOutput : public SinkFactory {
 public:
  std::optional<bool> showsH264() const override { return Decoder::isUsable(); }
  std::unique_ptr<Sink> open(const protocol::Announcement& camera, int /*handle*/,
                             const std::string& /*label*/, std::function<void()> changed) override {
    return std::make_unique<PipewireSink>(m_loop, m_names, camera, std::move(changed));
  }

 private:
  PipewireLoop m_loop;
  NodeNames m_names;
};

}  // namespace lumsar::agent
