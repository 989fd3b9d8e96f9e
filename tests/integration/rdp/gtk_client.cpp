// gtk_client: an RDP client with a window of GTK 3, and with the add-in in each connection, as
// Remmina is. It reads what to do: "connect SERVER", "close" for its oldest connection, "texts" for
// all that is to be read in its windows, "quit".
// Usage: gtk_client STATE-DIRECTORY ADD-IN-WORD...
#include <gtk/gtk.h>

#include <cstdio>
#include <future>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "integration/rdp/addin_client.h"

namespace {

using Connection = std::future<std::unique_ptr<lumsar::test::AddInClient>>;

std::string stateDirectory;
std::vector<std::string> words;
std::list<Connection> connections;

void printTexts(GtkWidget* widget, gpointer) {
  if (gtk_widget_get_visible(widget) == FALSE) return;
  if (GTK_IS_LABEL(widget)) std::printf("text %s\n", gtk_label_get_text(GTK_LABEL(widget)));
  if (GTK_IS_CONTAINER(widget)) gtk_container_forall(GTK_CONTAINER(widget), printTexts, nullptr);
}

void printAllTexts() {
  GList* windows = gtk_window_list_toplevels();
  g_list_foreach(
      windows, [](gpointer window, gpointer) { printTexts(GTK_WIDGET(window), nullptr); }, nullptr);
  g_list_free(windows);
}

void obey(const std::string& line) {
  if (line == "quit") gtk_main_quit();
  if (line == "close") connections.pop_front();
  if (line == "texts") printAllTexts();
  if (!line.starts_with("connect ")) return;
  // GTK's thread does not wait for a server.
  connections.push_back(std::async(std::launch::async, [server = line.substr(8)] {
    return std::make_unique<lumsar::test::AddInClient>(server, stateDirectory, words);
  }));
}

gboolean lineCame(GIOChannel* input, GIOCondition, gpointer) {
  g_autofree char* line = nullptr;
  const GIOStatus status = g_io_channel_read_line(input, &line, nullptr, nullptr, nullptr);
  if (status == G_IO_STATUS_EOF || status == G_IO_STATUS_ERROR) gtk_main_quit();
  if (line == nullptr) return status == G_IO_STATUS_AGAIN ? TRUE : FALSE;
  obey(g_strchomp(line));
  return TRUE;
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  gtk_init(&argc, &argv);
  stateDirectory = argv[1];
  words.assign(argv + 2, argv + argc);
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(window), "Desktop");
  gtk_window_set_default_size(GTK_WINDOW(window), 600, 400);
  gtk_widget_show_all(window);
  GIOChannel* input = g_io_channel_unix_new(0);
  g_io_channel_set_flags(input, G_IO_FLAG_NONBLOCK, nullptr);
  g_io_add_watch(input, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), lineCame, nullptr);
  gtk_main();
  // Like a program that is closed with its connections: they last until its end.
  static auto* const rest = new std::list<Connection>(std::move(connections));
  static_cast<void>(rest);
  return 0;
}
