// The guest agent from the bytes of a connection to its table of cameras. No input makes it crash.
#include "protocol/hello.h"
#include "session/camera_table.h"
#include "session/endpoint.h"

namespace {

using namespace lumsar::agent;

class Receiver : public EndpointEvents {
 public:
  void send(Bytes /*message*/) override {}
  void established(const lumsar::RedirMsgHeader& /*header*/, std::uint16_t /*token*/) override {}
  void takeRecord(Bytes record) override { m_cameras.takeRecord(record); }
  void unredirectAll() override { m_cameras.dropAll("unshared", false); }
  void streamFault() override { m_cameras.dropAll("fault", true); }

  void receive(Bytes bytes) {
    m_endpoint.opened();
    while (!bytes.empty()) {
      const auto room = m_endpoint.room();
      const std::size_t size = std::min({room.size(), bytes.size(), kPiece});
      std::copy_n(bytes.begin(), size, room.begin());
      m_endpoint.received(size);
      m_cameras.update(Clock::now());
      bytes = bytes.subspan(size);
    }
    m_endpoint.dropStalled();
    m_endpoint.closed();
    m_gallery.finish(std::chrono::seconds(1));
  }

 private:
  static constexpr std::size_t kPiece = 97;

  Gallery m_gallery{{}, [] {}};
  CameraTable m_cameras{m_gallery, [](Bytes) {}};
  Endpoint m_endpoint{EndpointSettings{}, *this, "host"};
};

// So that the fuzzer does not have to find the handshake.
std::vector<unsigned char> handshake() {
  const auto hello = lumsar::protocol::helloMessage(1);
  return {hello.bytes().begin(), hello.bytes().end()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  auto stream = handshake();
  stream.insert(stream.end(), data, data + size);
  Receiver().receive(stream);
  return 0;
}
