#include <asio/steady_timer.hpp>
#include <list>

#include "base/system/frame_memory.h"
#include "feeds/flow.h"
#include "ipc/server/server.h"
#include "lumsar/ipc_transport.h"
#include "protocol/camera_record.h"
#include "support/messages.h"

namespace lumsar::bench {
namespace {

constexpr std::uint16_t kWidth = 1280;
constexpr std::uint16_t kHeight = 720;

// As many frames as may be under way are kept; without a limit of those, as many as by a real
// service.
ipc::ServerLimits limitsOf(const Pace& pace) {
  ipc::ServerLimits limits;
  if (pace.ahead != Pace{}.ahead) limits.queue.frames = pace.ahead;
  return limits;
}

class FrameService : public ipc::IpcServerEvents {
 public:
  FrameService(const std::string& path, Pace pace, Flow& flow)
      : m_server(
            m_io,
            base::SocketListener::at({path, {}, 0}, base::SocketListener::Directory::MakePrivate),
            *this, limitsOf(pace)),
        m_pace(pace),
        m_flow(flow),
        m_jpeg(test::blankJpeg(pace.size)) {}
  void run() { m_io.run(); }

  void onClient(ipc::ClientId, const std::string&) override {}
  void onClientGone(ipc::ClientId, const std::string&) override {}
  void onWarning(const std::string&) override {}
  void onMessage(ipc::ClientId client, std::span<unsigned char> message) override {
    const RedirMsgHeader header = readHeader(message.data());
    if (callNumber(header) != 0) {
      m_server.reply(client, header, protocol::Message(header.type));
    } else if (header.type == IPC_MSG_SHARE) {
      announce(client);
    } else if (test::kindOf(message) == CameraDataKind::Start && header.type == IPC_MSG_DATA) {
      base::Bytes record = message.subspan(kHeaderSize);
      start(client, take<CameraDataHeader>(record)->camera);
    } else {
      noteReceived(message, m_flow);
    }
  }

 private:
  struct Stream {
    ipc::ClientId client;
    std::uint32_t camera;
    asio::steady_timer timer;
    std::uint32_t sequence = 0;
  };

  void announce(ipc::ClientId client) {
    for (int number = 1; number <= m_pace.cameras; ++number) {
      const std::string name = "bench" + std::to_string(number);
      protocol::Announcement camera{static_cast<std::uint32_t>(number), {}, name, name};
      camera.format.width = kWidth;
      camera.format.height = kHeight;
      camera.format.encoding = kEncodingMjpg;
      m_server.send(client, {protocol::announcedMessage(IPC_MSG_DATA, camera)});
    }
  }

  // Each stream a little later than the one before, as those of real cameras.
  void start(ipc::ClientId client, std::uint32_t camera) {
    Stream& stream = m_streams.emplace_back(Stream{client, camera, asio::steady_timer(m_io)});
    stream.timer.expires_after(interval() / 8 * m_streams.size());
    waitForNext(stream);
  }
  void waitForNext(Stream& stream) {
    stream.timer.async_wait([this, &stream](asio::error_code stopped) {
      if (!stopped) sendNext(stream);
    });
  }
  void sendNext(Stream& stream) {
    if (m_flow.sent - m_flow.received < m_pace.ahead) sendFrame(stream);
    if (m_flow.sent >= m_pace.frames) return;
    stream.timer.expires_at(stream.timer.expiry() + interval());
    waitForNext(stream);
  }
  void sendFrame(Stream& stream) {
    const CameraFrame fields{stream.sequence++, kWidth, kHeight, kEncodingMjpg, kFrameIsKey};
    ipc::Outgoing frame{protocol::frameMessage(IPC_MSG_DATA, stream.camera, cameraClock(), fields),
                        true};
    frame.rest.bytes = m_jpeg;
    frame.message.announceRest(m_jpeg.size());
    m_server.send(stream.client, std::move(frame));
    ++m_flow.sent;
  }
  std::chrono::nanoseconds interval() const {
    return std::chrono::nanoseconds(std::nano::den) / m_pace.perSecond;
  }

  asio::io_context m_io{1};
  ipc::IpcServer m_server;
  const Pace m_pace;
  Flow& m_flow;
  const test::Bytes m_jpeg;
  std::list<Stream> m_streams;
};

}  // namespace

void serveFrames(const std::string& path, Pace pace, Flow& flow) {
  base::keepFrameMemory();
  FrameService(path, pace, flow).run();
}

}  // namespace lumsar::bench
