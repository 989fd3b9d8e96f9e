// sessions_program: a GTK program with SPICE connections, and nothing to show for them. It connects
// to each address that it reads, prints the names of ports, and ends its oldest connection for an
// empty line and itself for "quit".
#include <gtk/gtk.h>
#include <spice-client.h>

#include <cstdio>
#include <cstring>
#include <list>

namespace {

std::list<SpiceSession*> sessions;

void channelAppeared(SpiceSession*, SpiceChannel* channel) {
  // The main channel asks for the others.
  if (SPICE_IS_MAIN_CHANNEL(channel)) spice_channel_connect(channel);
  if (!SPICE_IS_PORT_CHANNEL(channel)) return;
  g_signal_connect(channel, "notify::port-name", G_CALLBACK(+[](GObject* port) {
                     g_autofree char* name = nullptr;
                     g_object_get(port, "port-name", &name, nullptr);
                     std::printf("port %s\n", name);
                   }),
                   nullptr);
}

void connectTo(const char* address) {
  SpiceSession* session = spice_session_new();
  g_object_set(session, "uri", address, nullptr);
  g_signal_connect(session, "channel-new", G_CALLBACK(channelAppeared), nullptr);
  spice_session_connect(session);
  sessions.push_back(session);
}

gboolean lineCame(GIOChannel* input, GIOCondition, gpointer) {
  g_autofree char* line = nullptr;
  const GIOStatus status = g_io_channel_read_line(input, &line, nullptr, nullptr, nullptr);
  if (status == G_IO_STATUS_EOF || status == G_IO_STATUS_ERROR) gtk_main_quit();
  if (line == nullptr) return status == G_IO_STATUS_AGAIN ? TRUE : FALSE;
  g_strchomp(line);
  if (std::strcmp(line, "quit") == 0) {
    gtk_main_quit();
  } else if (std::strlen(line) > 0) {
    connectTo(line);
  } else {
    spice_session_disconnect(sessions.front());
    sessions.pop_front();
  }
  return TRUE;
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  gtk_init(&argc, &argv);
  GIOChannel* input = g_io_channel_unix_new(0);
  g_io_channel_set_flags(input, G_IO_FLAG_NONBLOCK, nullptr);
  g_io_add_watch(input, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), lineCame, nullptr);
  gtk_main();
  return 0;
}
