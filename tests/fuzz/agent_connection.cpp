// The VM's side from the bytes of a connection to its table of cameras. No input makes it crash.
#include "lumsar/message.h"
#include "session/camera_table.h"
#include "session/vm_connection.h"

namespace {

using namespace lumsar::agent;

class Receiver : public LinkOwner {
 public:
  void send(Bytes /*message*/) override {}
  void greeted(const lumsar::RedirMsgHeader& /*header*/, std::uint16_t /*token*/) override {}
  void takeRecord(Bytes record) override { m_cameras.takeRecord(record); }
  void unredirectAll() override { m_cameras.dropAll("withdrawn", false); }
  void streamFault() override { m_cameras.dropAll("fault", true); }

  void receive(Bytes bytes) {
    m_link.opened();
    while (!bytes.empty()) {
      const auto room = m_link.room();
      const std::size_t size = std::min({room.size(), bytes.size(), kPiece});
      std::copy_n(bytes.begin(), size, room.begin());
      m_link.received(size);
      m_cameras.update(Clock::now());
      bytes = bytes.subspan(size);
    }
    m_link.stalled();
    m_link.closed();
    m_gallery.finish();
  }

 private:
  static constexpr std::size_t kPiece = 97;

  Gallery m_gallery{{}, [] {}};
  CameraTable m_cameras{m_gallery, [](Bytes) {}};
  Link m_link{LinkSettings{}, *this, "host"};
};

// A greeted connection, so that the fuzzer need not find the way in.
std::vector<unsigned char> greeting() {
  auto hello = headerMessage(lumsar::MSG_HELLO);
  hello[8] = 4;
  hello.insert(hello.end(), {1, 0, 1, 0});
  return hello;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  auto stream = greeting();
  stream.insert(stream.end(), data, data + size);
  Receiver().receive(stream);
  return 0;
}
