// guest_agent: an agent that does what it is told, right or wrong. Runs in the guest of the
// tests.
//   guest_agent PORT-NAME STEP...
// Steps: hello           wait for a HELLO and print it in hex
//        answer[:A.B]    answer the latest HELLO, as version A.B (default 1.1)
//        answers:COUNT   answer it so many times
//        serve           behave: answer each HELLO, indefinitely
//        wrong           answer it with another token
//        hex:BYTES       send these bytes
//        random:COUNT:N  send so many bytes that are not a message, N times
//        data:LENGTH:N   announce a message with LENGTH bytes of payload, send N of them
//        message         wait for one more message and print its type and length
//        sink:COUNT      behave: start each camera, count frames, tell of each COUNT of them
//        close, open     the port
//        sleep:MS
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "lumsar/assembler.h"
#include "lumsar/message.h"
#include "support/messages.h"

namespace {

using namespace lumsar;
using Bytes = std::vector<unsigned char>;

class Agent {
 public:
  explicit Agent(std::string_view name) : m_device(deviceOf(name)) { open(); }

  void step(std::string_view text) {
    const auto colon = text.find(':');
    const std::string_view verb = text.substr(0, colon);
    std::string_view rest = colon == std::string_view::npos ? "" : text.substr(colon + 1);
    if (verb == "hello") return hello();
    if (verb == "serve") return serve();
    if (verb == "message") return message();
    if (verb == "sink") return sink(number(rest));
    if (verb == "answer") return answer(rest, 0);
    if (verb == "wrong") return answer(rest, 1);
    if (verb == "answers") {
      for (auto i = number(rest); i > 0; --i) answer("", 0);
      return;
    }
    if (verb == "hex") return send(fromHex(rest));
    if (verb == "random") return random(number(rest), number(rest.substr(rest.find(':') + 1)));
    if (verb == "data") return data(rest);
    if (verb == "open") return open();
    if (verb == "close") return close();
    if (verb == "sleep") return pause(number(rest));
    fail("unknown step", text);
  }

 private:
  [[noreturn]] static void fail(const char* what, std::string_view detail) {
    std::printf("%s: %.*s\n", what, static_cast<int>(detail.size()), detail.data());
    std::exit(1);
  }

  static std::string deviceOf(std::string_view name) {
    for (const auto& port : std::filesystem::directory_iterator("/sys/class/virtio-ports")) {
      std::string found;
      std::getline(std::ifstream(port.path() / "name"), found);
      if (found == name) return "/dev/" + port.path().filename().string();
    }
    fail("no such port", name);
  }

  static unsigned long number(std::string_view text) {
    unsigned long value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
  }

  static Bytes fromHex(std::string_view text) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
      unsigned char byte = 0;
      std::from_chars(text.data() + i, text.data() + i + 2, byte, 16);
      bytes.push_back(byte);
    }
    return bytes;
  }

  static void pause(unsigned long milliseconds) {
    usleep(static_cast<useconds_t>(milliseconds * 1000));
  }

  void open() {
    m_port = ::open(m_device.c_str(), O_RDWR);
    if (m_port < 0) fail("cannot open", m_device);
  }

  void close() {
    ::close(m_port);
    m_assembler.clear();
  }

  void send(const Bytes& bytes) const {
    for (std::size_t done = 0; done < bytes.size();) {
      const ssize_t size = write(m_port, bytes.data() + done, bytes.size() - done);
      if (size < 0) fail("cannot write", m_device);
      done += static_cast<std::size_t>(size);
    }
  }

  // With nobody at the other end, a read gives nothing.
  std::span<unsigned char> next() {
    while (true) {
      if (const auto message = m_assembler.next(); !message.empty()) return message;
      if (m_assembler.fault() != MessageAssembler::Fault::None) {
        m_assembler.skipFault();
        continue;
      }
      const auto room = m_assembler.prepare(4096);
      const ssize_t size = read(m_port, room.data(), room.size());
      m_assembler.commit(size > 0 ? static_cast<std::size_t>(size) : 0);
      if (size <= 0) pause(10);
    }
  }

  void hello() {
    auto message = next();
    while (readHeader(message.data()).type != MSG_HELLO) message = next();
    std::memcpy(&m_hello, message.data(), sizeof m_hello);
    std::printf("hello ");
    for (const unsigned char byte : message) std::printf("%02x", byte);
    std::puts("");
  }

  [[noreturn]] void serve() {
    while (true) {
      hello();
      answer("", 0);
    }
  }

  [[noreturn]] void sink(std::uint64_t count) {
    for (std::uint64_t frames = 0;;) {
      std::span<const unsigned char> message = next();
      if (readHeader(message.data()).type == MSG_HELLO) {
        std::memcpy(&m_hello, message.data(), sizeof m_hello);
        answer("", 0);
      }
      message = message.subspan(kHeaderSize);
      const auto record = take<CameraDataHeader>(message);
      if (!record) continue;
      if (CameraDataKind(record->kind) == CameraDataKind::Announced) {
        sendRecord(CameraDataKind::Start, record->camera, {});
      } else if (CameraDataKind(record->kind) == CameraDataKind::Frame && ++frames % count == 0) {
        sendRecord(CameraDataKind::Statistics, record->camera,
                   test::bytesOf(CameraStatistics{.frames = frames}));
      }
    }
  }

  void sendRecord(CameraDataKind kind, std::uint32_t camera, const Bytes& body) const {
    send(test::message(MSG_DATA, test::record(kind, camera, body)));
  }

  void message() {
    const RedirMsgHeader header = readHeader(next().data());
    std::printf("message type %u, %u bytes\n", header.type, header.length);
  }

  void answer(std::string_view version, int wrong) const {
    HelloMessage reply = m_hello;
    reply.header.vmMajor = reply.header.vmMinor = 1;
    if (version.size() == 3) {
      reply.header.vmMajor = static_cast<std::uint8_t>(version[0] - '0');
      reply.header.vmMinor = static_cast<std::uint8_t>(version[2] - '0');
    }
    reply.payload.token = static_cast<std::uint16_t>(reply.payload.token + wrong);
    reply.payload.vmSession = 1;
    Bytes bytes(sizeof reply);
    std::memcpy(bytes.data(), &reply, sizeof reply);
    send(bytes);
  }

  void random(unsigned long count, unsigned long times) const {
    std::mt19937 generator(4711);
    Bytes bytes(count);
    for (auto& byte : bytes) byte = static_cast<unsigned char>(generator());
    for (; times > 0; --times) send(bytes);
  }

  void data(std::string_view text) const {
    RedirMsgHeader header;
    header.type = MSG_DATA;
    header.length = static_cast<std::uint32_t>(number(text));
    Bytes bytes(kHeaderSize + number(text.substr(text.find(':') + 1)), 0x4d);
    std::memcpy(bytes.data(), &header, kHeaderSize);
    send(bytes);
  }

  std::string m_device;
  int m_port = -1;
  MessageAssembler m_assembler;
  HelloMessage m_hello;
};

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (argc < 2) return 2;
  Agent agent(argv[1]);
  for (int i = 2; i < argc; ++i) agent.step(argv[i]);
  std::puts("done");
  return 0;
}
