#include "feeds/flow.h"

#include <sys/mman.h>

#include <cerrno>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "harness/raw_stream.h"
#include "support/messages.h"

namespace lumsar::bench {
namespace {

using Buffer = std::vector<unsigned char>;

void sendFrames(const RawStream& to, Pace pace, Flow& flow) {
  Buffer message = messageOf(sizeof(CameraDataHeader) + pace.size, MSG_DATA);
  auto next = std::chrono::steady_clock::now();
  for (; flow.sent < pace.frames; ++flow.sent) {
    const CameraDataHeader record{.time = cameraClock()};
    std::memcpy(message.data() + kHeaderSize, &record, sizeof record);
    to.send(message);
    next += std::chrono::nanoseconds(std::nano::den) / pace.perSecond;
    std::this_thread::sleep_until(next);
  }
}

void relay(const RawStream& from, const RawStream& to) {
  for (Buffer buffer; from.receive(buffer);) to.send(buffer);
}

void takeFrames(const RawStream& from, Flow& flow) {
  for (Buffer buffer; from.receive(buffer); ++flow.received) {
    const std::size_t index = flow.received;
    if (index >= Flow::kLatencies) continue;
    CameraDataHeader record;
    std::memcpy(&record, buffer.data() + kHeaderSize, sizeof record);
    flow.latency[index] = cameraClock() - record.time;
  }
}

}  // namespace

void noteReceived(std::span<const unsigned char> message, Flow& flow) {
  if (test::kindOf(message) != CameraDataKind::Statistics) return;
  message = message.subspan(kHeaderSize + sizeof(CameraDataHeader));
  if (const auto statistics = take<CameraStatistics>(message)) flow.received = statistics->frames;
}

SharedFlow::SharedFlow() {
  void* memory =
      ::mmap(nullptr, sizeof(Flow), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
  m_flow = new (memory) Flow;
}

SharedFlow::~SharedFlow() {
  ::munmap(m_flow, sizeof(Flow));
}

BareHops::BareHops(Pace pace) {
  auto [sender, relayIn] = rawStreams();
  auto [relayOut, receiver] = rawStreams();
  const auto start = [this](const std::function<void()>& work) {
    m_children.push_back(std::make_unique<Child>(work));
  };
  start([&, &to = receiver] { takeFrames(to, *m_flow); });
  start([&, &from = relayIn, &to = relayOut] { relay(from, to); });
  start([&, &to = sender] { sendFrames(to, pace, *m_flow); });
}

Nanoseconds BareHops::used() const {
  Nanoseconds sum{};
  for (const auto& child : m_children) sum += child->used();
  return sum;
}

}  // namespace lumsar::bench
