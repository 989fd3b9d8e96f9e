#include "integration/viewer/screen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "support/text.h"

namespace lumsar::test {

namespace {

constexpr std::size_t kPixels = std::size_t{1280} * 900;

}  // namespace

// Without -noreset it resets itself when its last client goes, and refuses one that comes just
// then.
Screen::Screen()
    : m_server({"Xvfb", "-displayfd", "1", "-screen", "0", "1280x900x24", "-nolisten", "tcp",
                "-noreset", "-fbdir", m_memory.path()},
               {.errorsApart = true}) {}

bool Screen::isUp() {
  // Its number alone, as it also says which ones are taken.
  const bool isThere = eventually([this] { return has(m_server.output(), "\n"); });
  const std::string& number = m_server.output();
  m_display = ":" + number.substr(0, number.find('\n'));
  return isThere;
}

std::map<std::string, std::string> Screen::environment(
    const std::filesystem::path& directory) const {
  const std::filesystem::path home = directory / "home";
  std::filesystem::create_directories(home / "virt-viewer");
  // One question less at the end.
  std::ofstream(home / "virt-viewer" / "settings") << "[virt-viewer]\nask-quit=false\n";
  return {{"DISPLAY", m_display},
          {"GDK_BACKEND", "x11"},
          {"WAYLAND_DISPLAY", ""},
          {"XAUTHORITY", ""},
          {"HOME", home},
          {"XDG_CONFIG_HOME", home},
          {"XDG_CACHE_HOME", home},
          {"XDG_DATA_HOME", home},
          {"XDG_RUNTIME_DIR", home},
          {"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
          {"GSETTINGS_BACKEND", "memory"},
          // Where its buttons are is known.
          {"GTK_THEME", "Adwaita"},
          {"NO_AT_BRIDGE", "1"},
          {"LC_ALL", "C.UTF-8"}};
}

Screen::Answer Screen::ask(std::vector<std::string> words) {
  words.insert(words.begin(), "xdotool");
  Process process(words, {.environment = {{"DISPLAY", m_display}}});
  const int status = process.wait();
  return {status, process.output()};
}

bool Screen::hasWindow(const std::string& how, const std::string& pattern) {
  return ask({"search", "--onlyvisible", how, pattern}).status == 0;
}

std::string Screen::window(const std::string& how, const std::string& pattern) {
  Answer answer{1, {}};
  const bool found = eventually([&] {
    answer = ask({"search", "--onlyvisible", how, pattern});
    return answer.status == 0;
  });
  EXPECT_TRUE(found) << "no window " << how << " " << pattern;
  return answer.output.substr(0, answer.output.find('\n'));
}

bool Screen::press(const std::string& window, const std::string& keys) {
  return ask({"windowfocus", window, "key", keys}).status == 0;
}

std::string Screen::picture() const {
  return readFile(m_memory.path() + "/Xvfb_screen0");
}

std::size_t Screen::differs(const std::string& before) const {
  const std::string now = picture();
  if (now.size() != before.size()) return now.size();
  std::size_t count = 0;
  for (std::size_t i = 0; i < now.size(); ++i) count += now[i] != before[i] ? 1U : 0U;
  return count;
}

// Four bytes each, at the end of the picture.
std::size_t Screen::count(int red, int green, int blue) const {
  constexpr int kMostOff = 12;
  const std::string all = picture();
  const auto isLike = [&](std::size_t at, int wanted) {
    return std::abs(static_cast<unsigned char>(all[at]) - wanted) <= kMostOff;
  };
  std::size_t count = 0;
  const std::size_t first = all.size() - std::min(all.size(), kPixels * 4);
  for (std::size_t at = first; at + 3 < all.size(); at += 4) {
    count += isLike(at, blue) && isLike(at + 1, green) && isLike(at + 2, red) ? 1U : 0U;
  }
  return count;
}

void Screen::movePointer(int x, int y) {
  EXPECT_EQ(ask({"mousemove", std::to_string(x), std::to_string(y)}).status, 0);
}

void Screen::click(const std::string& window, int fromRight, int fromTop) {
  const std::string geometry = ask({"getwindowgeometry", "--shell", window}).output;
  const auto found = geometry.find("WIDTH=");
  const int width = found == std::string::npos ? 0 : std::atoi(geometry.c_str() + found + 6);
  const Answer answer = ask({"mousemove", "--window", window, std::to_string(width - fromRight),
                             std::to_string(fromTop), "click", "1"});
  EXPECT_EQ(answer.status, 0) << answer.output << geometry;
}

}  // namespace lumsar::test
