// gtk_program: a GTK program that has nothing to do with SPICE. Shows a window, and prints which of
// these libraries are loaded then, and how many threads it has.
#include <gtk/gtk.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

int main(int argc, char** argv) {
  gtk_init(&argc, &argv);
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_widget_show_all(window);
  while (gtk_events_pending() == TRUE) gtk_main_iteration();
  std::ifstream file("/proc/self/maps");
  const std::string maps(std::istreambuf_iterator<char>(file), {});
  constexpr std::array kLibraries = {"liblumsar-gtk.so", "liblumsar-viewer.so", "liblumsar.so",
                                     "libQt5Core.so"};
  for (const char* library : kLibraries) {
    if (maps.find(library) != std::string::npos) std::printf("loaded %s\n", library);
  }
  const auto threads = std::filesystem::directory_iterator("/proc/self/task");
  std::printf("threads %td\n", std::distance(begin(threads), end(threads)));
  return 0;
}
