// For comparison: the same payloads through the packet path of usbredir's parser, a library that
// redirects USB devices in a like way. The floor is that of the IPC library.
#include <poll.h>
#include <sys/socket.h>
#include <usbredirparser.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <stdexcept>

#include "harness/child.h"
#include "harness/raw_stream.h"
#include "harness/rows.h"

namespace lumsar::bench {
namespace {

using Micros = std::chrono::duration<double, std::micro>;

constexpr std::size_t kPayload = 100'000;
constexpr int kWarmUp = 500;
constexpr int kCount = 5000;
constexpr std::uint8_t kEndpointOut = 2;

// One end of a connection, blocking.
class Parser {
 public:
  Parser(const RawStream& stream, int flags) : m_stream(stream), m_parser(usbredirparser_create()) {
    m_parser->priv = this;
    m_parser->log_func = [](void*, int, const char*) {};
    // The parser reads until there is nothing left.
    m_parser->read_func = [](void* self, std::uint8_t* data, int size) {
      const ssize_t got = ::recv(fdOf(self), data, static_cast<std::size_t>(size), MSG_DONTWAIT);
      return got < 0 && errno == EAGAIN ? 0 : result(got);
    };
    m_parser->write_func = [](void* self, std::uint8_t* data, int size) {
      return result(::send(fdOf(self), data, static_cast<std::size_t>(size), MSG_NOSIGNAL));
    };
    m_parser->hello_func = [](void*, usb_redir_hello_header*) {};
    m_parser->bulk_packet_func = [](void* data, std::uint64_t, usb_redir_bulk_packet_header*,
                                    std::uint8_t* bytes, int) {
      auto& self = *static_cast<Parser*>(data);
      ++self.m_received;
      usbredirparser_free_packet_data(self.m_parser.get(), bytes);
    };
    std::uint32_t capabilities[USB_REDIR_CAPS_SIZE] = {};
    usbredirparser_caps_set_cap(capabilities, usb_redir_cap_32bits_bulk_length);
    usbredirparser_init(m_parser.get(), "bench", capabilities, USB_REDIR_CAPS_SIZE, flags);
    usbredirparser_do_write(m_parser.get());  // its hello
  }

  void receive(int packets) {
    for (m_received = 0; m_received < packets;) readSome();
  }
  void readHello() {
    while (usbredirparser_have_peer_caps(m_parser.get()) == 0) readSome();
  }
  void send(std::vector<unsigned char>& payload) {
    usb_redir_bulk_packet_header header{};
    header.endpoint = kEndpointOut;
    header.length = static_cast<std::uint16_t>(payload.size());
    header.length_high = static_cast<std::uint16_t>(payload.size() >> 16U);
    usbredirparser_send_bulk_packet(m_parser.get(), m_sent++, &header, payload.data(),
                                    static_cast<int>(payload.size()));
    if (usbredirparser_do_write(m_parser.get()) != 0) throw std::runtime_error("usbredir: write");
  }

 private:
  struct Destroy {
    void operator()(usbredirparser* parser) const { usbredirparser_destroy(parser); }
  };
  void readSome() {
    pollfd readable{m_stream.fd(), POLLIN, 0};
    ::poll(&readable, 1, -1);
    if (usbredirparser_do_read(m_parser.get()) != 0) throw std::runtime_error("usbredir: read");
  }
  static int fdOf(void* self) { return static_cast<Parser*>(self)->m_stream.fd(); }
  static int result(ssize_t size) { return size > 0 ? static_cast<int>(size) : -1; }

  const RawStream& m_stream;
  const std::unique_ptr<usbredirparser, Destroy> m_parser;
  std::uint64_t m_sent = 0;
  int m_received = 0;
};

double parsed() {
  auto [ours, theirs] = rawStreams();
  const Child sender([&theirs = theirs] {
    Parser guest(theirs, 0);
    guest.readHello();
    for (std::vector<unsigned char> payload(kPayload, 0x5A);;) guest.send(payload);
  });
  Parser host(ours, usbredirparser_fl_usb_host);
  host.receive(kWarmUp);
  const Nanoseconds begin = processorTime() + sender.used();
  host.receive(kCount);
  return Micros(processorTime() + sender.used() - begin).count() / kCount;
}

double bare() {
  auto [ours, theirs] = rawStreams();
  const Child sender([&theirs = theirs] {
    for (const auto message = messageOf(kPayload, 0);;) theirs.send(message);
  });
  std::vector<unsigned char> buffer;
  for (int left = kWarmUp; left > 0; --left) ours.receive(buffer);
  const Nanoseconds begin = processorTime() + sender.used();
  for (int left = kCount; left > 0; --left) ours.receive(buffer);
  return Micros(processorTime() + sender.used() - begin).count() / kCount;
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  using namespace lumsar::bench;
  return runRows(argc, argv,
                 {{"beside: usbredir's parser, packet of 100 KB", "us CPU", bare, parsed}});
}
