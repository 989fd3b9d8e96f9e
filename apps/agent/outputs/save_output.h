// SaveOutput: saves frames in a directory, one file each or one growing file per camera. Each sink
// writes on its own thread.
#pragma once

#include "outputs/sink.h"

namespace lumsar::agent {

enum class SaveAs {
  Images,     // LABEL-000001.jpg, …
  VideoFile,  // LABEL.mjpeg
};
// Frames that are not JPEG always become one file, LABEL.h264.

class SaveOutput : public SinkFactory {
 public:
  // Creates the directory. Throws base::Failure if that is not possible.
  SaveOutput(std::string directory, SaveAs how);

  std::unique_ptr<Sink> open(const protocol::Announcement& camera, int handle,
                             const std::string& label, std::function<void()> changed) override;

 private:
  std::string m_directory;
  SaveAs m_how;
};

}  // namespace lumsar::agent
