// SaveOutput: keeps pictures in a folder, as one file each or as one growing file per camera.
// Called by Gallery and Camera on the channel's thread; each sink writes on a thread of its own.
#ifndef LUMSAR_AGENT_OUTPUTS_SAVE_OUTPUT_H
#define LUMSAR_AGENT_OUTPUTS_SAVE_OUTPUT_H

#include "outputs/sink.h"

namespace lumsar::agent {

enum class SaveAs {
  Pictures,  // LABEL-000001.jpg, …
  Movie,     // LABEL.mjpeg
};
// Video that is not JPEG always becomes one file, LABEL.h264.

class SaveOutput : public Output {
 public:
  // Makes the folder. Throws Failure if that is not possible.
  SaveOutput(std::string folder, SaveAs how);

  std::unique_ptr<Sink> open(const CameraInfo& camera, int handle, const std::string& label,
                             std::function<void()> changed) override;

 private:
  std::string m_folder;
  SaveAs m_how;
};

}  // namespace lumsar::agent

#endif
