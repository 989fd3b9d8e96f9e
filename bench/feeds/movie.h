// What a 720p MJPG camera of quality 85 sees, as a video file: a view with detail of all sizes that
// moves.
#pragma once

#include <string>

namespace lumsar::bench {

// At least so many frames, 30 a second: `directory`/movie.avi, its path.
std::string makeMovie(const std::string& directory, int frames);

}  // namespace lumsar::bench
