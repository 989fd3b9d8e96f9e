#include "port/port_transport.h"

#include <utility>

#include "spice/on_glib.h"

namespace lumsar::viewer {

namespace {

constexpr const char* kPortClosed = "no program in the VM has the port open";

}  // namespace

const char* textOf(PortEnd end) {
  return end == PortEnd::TooMuch ? "the VM sends more than the camera service takes; port closed"
                                 : "the viewer's connection to the VM has ended";
}

std::shared_ptr<PortTransport> PortTransport::watch(SpicePortChannel* port, bool isOpen,
                                                    OnEnded onEnded) {
  std::shared_ptr<PortTransport> transport(new PortTransport(port, isOpen, std::move(onEnded)));
  transport->connectSignals();
  return transport;
}

PortTransport::PortTransport(SpicePortChannel* port, bool isOpen, OnEnded onEnded)
    : m_port(port), m_open(isOpen), m_onEnded(std::move(onEnded)) {}

void PortTransport::connectSignals() {
  g_signal_connect(m_port, "port-event",
                   G_CALLBACK(+[](SpicePortChannel*, int event, gpointer self) {
                     static_cast<PortTransport*>(self)->guestDid(event);
                   }),
                   this);
  g_signal_connect(m_port, "port-data",
                   G_CALLBACK(+[](SpicePortChannel*, void* bytes, int size, gpointer self) {
                     static_cast<PortTransport*>(self)->received(bytes, size);
                   }),
                   this);
  g_signal_connect(m_port, "channel-event",
                   G_CALLBACK(+[](SpiceChannel*, SpiceChannelEvent event, gpointer self) {
                     static_cast<PortTransport*>(self)->channelEvent(event);
                   }),
                   this);
  // Not every viewer lets go of a port when its connection ends, nor tells of its end before.
  g_object_weak_ref(G_OBJECT(m_port), freed, this);
}

void PortTransport::freed(gpointer data, GObject*) {
  auto& self = *static_cast<PortTransport*>(data);
  self.m_port = nullptr;
  self.end(PortEnd::ConnectionEnded);
}

void PortTransport::detach() {
  m_onEnded = nullptr;
  if (m_writer) m_writer->close();
  m_writer.reset();
  m_queue = nullptr;
  if (m_port == nullptr) return;
  g_signal_handlers_disconnect_by_data(m_port, this);
  g_object_weak_unref(G_OBJECT(m_port), freed, this);
  m_port = nullptr;
}

template <class Call>
void PortTransport::post(Call call) {
  host::onGlib([weak = weak_from_this(), call] {
    if (const auto self = weak.lock()) call(*self);
  });
}

void PortTransport::serve(host::SendQueue& queue, host::Inbox& inbox) {
  m_inbox = inbox.shared_from_this();
  post([queue = &queue](PortTransport& self) { self.m_queue = queue; });
}

void PortTransport::start() {
  post([](PortTransport& self) { self.begin(); });
}

// Any number of messages, one turn of GTK's loop.
void PortTransport::wake() {
  if (m_drainPosted.exchange(true)) return;
  post([](PortTransport& self) {
    self.m_drainPosted = false;
    if (self.m_writer) self.m_writer->drain();
  });
}

void PortTransport::begin() {
  // It may have been detached in the meantime.
  if (m_port == nullptr || m_queue == nullptr) return;
  m_writer = std::make_shared<host::PortWriter>(*m_queue);
  if (m_open) return tellOpen();
  m_inbox->unavailable(kPortClosed);
}

void PortTransport::guestDid(int event) {
  if (event == SPICE_PORT_EVENT_OPENED) setOpen(true, {});
  if (event == SPICE_PORT_EVENT_CLOSED) setOpen(false, kPortClosed);
}

void PortTransport::channelEvent(SpiceChannelEvent event) {
  if (event == SPICE_CHANNEL_OPENED || event == SPICE_CHANNEL_NONE) return;
  // A VM that migrates keeps its channels.
  if (event != SPICE_CHANNEL_SWITCHING) return end(PortEnd::ConnectionEnded);
  setOpen(false, textOf(PortEnd::ConnectionEnded));
}

void PortTransport::received(const void* bytes, int size) {
  if (!m_writer || !m_open) return;
  const auto* data = static_cast<const unsigned char*>(bytes);
  if (m_inbox->tryReceived({data, static_cast<std::size_t>(size)})) return;
  setOpen(false, textOf(PortEnd::TooMuch));
  spice_channel_disconnect(SPICE_CHANNEL(m_port), SPICE_CHANNEL_NONE);
  end(PortEnd::TooMuch);
}

void PortTransport::setOpen(bool open, const std::string& why) {
  if (open == m_open) return;
  m_open = open;
  if (!m_writer) return;
  if (open) return tellOpen();
  m_writer->close();
  m_queue->close();
  m_inbox->closed(why);
}

void PortTransport::tellOpen() {
  m_inbox->opened();
  m_writer->open(m_port);
}

void PortTransport::end(PortEnd why) {
  setOpen(false, textOf(why));
  if (const auto onEnded = std::exchange(m_onEnded, nullptr)) onEnded(why);
}

}  // namespace lumsar::viewer
