// Screen: an X server without a monitor, and a hand at its keyboard and mouse. Bound to the test's
// thread.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/temporary_directory.h"

namespace lumsar::test {

class Screen {
 public:
  Screen();
  ~Screen() { m_server.stop(15); }

  // Whether it is there.
  bool isUp();
  // For programs that show themselves on it, with a home of their own in `directory`.
  std::map<std::string, std::string> environment(const std::filesystem::path& directory) const;

  // A window's number, once a visible one matches: "--class remote-viewer", "--name ^Cameras$".
  std::string window(const std::string& how, const std::string& pattern);
  bool hasWindow(const std::string& how, const std::string& pattern);
  // Types into a window: "ctrl+alt+c", "space". False when it is not there any more.
  bool press(const std::string& window, const std::string& keys);
  void movePointer(int x, int y);
  // All that is on the screen, and how many bytes of it are others than in `before`.
  std::string picture() const;
  std::size_t differs(const std::string& before) const;
  // How many pixels have about this colour.
  std::size_t count(int red, int green, int blue) const;
  // So far from its right edge and from its top.
  void click(const std::string& window, int fromRight, int fromTop);

 private:
  struct Answer {
    int status;
    std::string output;
  };
  Answer ask(std::vector<std::string> words);

  TemporaryDirectory m_memory;  // the server's
  Process m_server;
  std::string m_display;
};

}  // namespace lumsar::test
