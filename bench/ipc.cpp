// What does a message cost between the camera service and the host, through libvdi_ipc.so and the
// service's end of the connection? The floor is a loop of send and recv over such a socket.
#include <sched.h>

#include <atomic>
#include <memory>
#include <span>
#include <stdexcept>

#include "base/system/temporary_directory.h"
#include "feeds/ipc_service.h"
#include "harness/child.h"
#include "harness/raw_stream.h"
#include "harness/rows.h"
#include "unit/ipc/vdi_library.h"

namespace lumsar::bench {
namespace {

using Buffer = std::vector<unsigned char>;
using Seconds = std::chrono::duration<double>;
using Micros = std::chrono::duration<double, std::micro>;
using Clock = std::chrono::steady_clock;

// Enough of them that a measurement takes some tenths of a second.
int countFor(std::size_t size) {
  return static_cast<int>(std::clamp<std::size_t>((512U << 20U) / size, 60, 200'000));
}
int warmUpFor(std::size_t size) {
  return countFor(size) / 10;
}

double each(Micros used, int count) {
  return used.count() / count;
}

// A client of the library, connected to a service in a child.
class Client {
 public:
  explicit Client(const std::function<void(const std::string& path)>& service)
      : m_child([&] { service(m_directory / "s.sock"); }) {}
  ~Client() {
    if (m_client != nullptr) m_library.destroy(m_client);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  IpcClientParams params;

  void connect() {
    m_client = m_library.create(&params);
    const std::string path = m_directory / "s.sock";
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    while (m_library.connect(m_client, path.c_str()) != 0) {
      if (Clock::now() > deadline) throw std::runtime_error("the service did not start");
      usleep(1000);
    }
  }
  void send(const Buffer& message) const {
    if (m_library.send(m_client, message.data(), static_cast<int>(message.size())) != 0) {
      throw std::runtime_error("the message was not sent");
    }
  }
  void call(const Buffer& request, Buffer& reply) const {
    auto size = static_cast<unsigned int>(reply.size());
    const auto length = static_cast<unsigned int>(request.size());
    if (m_library.call(m_client, request.data(), length, reply.data(), &size) != 0) {
      throw std::runtime_error("the call was not answered");
    }
  }
  // Of both processes.
  Nanoseconds used() const { return processorTime() + m_child.used(); }

 private:
  const base::TemporaryDirectory m_directory;
  const test::VdiLibrary m_library;
  const Child m_child;
  void* m_client = nullptr;
};

// Counts what the library delivers; takes the times of the first that counts and of the last.
struct Receiver {
  const Client* client = nullptr;
  int left = 0;
  int count = 0;
  Nanoseconds begin{};
  Nanoseconds end{};
  std::atomic<bool> done = false;

  static int receive(int, unsigned char*, int, void* data) {
    auto& self = *static_cast<Receiver*>(data);
    if (self.left == self.count) self.begin = self.client->used();
    if (self.left-- == 0) {
      self.end = self.client->used();
      self.done = true;
      self.done.notify_all();
    }
    return 0;
  }
};

double toLibrary(std::size_t size) {
  Client client([size](const std::string& path) { floodClient(path, size); });
  Receiver receiver{
      .client = &client, .left = countFor(size) + warmUpFor(size), .count = countFor(size)};
  client.params.onReceive = Receiver::receive;
  client.params.userData = &receiver;
  client.connect();
  client.send(messageOf(0, IPC_MSG_DATA));
  receiver.done.wait(false);
  return each(receiver.end - receiver.begin, receiver.count);
}

double toRawReceiver(std::size_t size) {
  auto [ours, theirs] = rawStreams();
  const Child sender([&theirs = theirs, size] {
    for (const Buffer message = messageOf(size, IPC_MSG_DATA);;) theirs.send(message);
  });
  Buffer buffer;
  for (int left = warmUpFor(size); left > 0; --left) ours.receive(buffer);
  const Nanoseconds begin = processorTime() + sender.used();
  for (int left = countFor(size); left > 0; --left) ours.receive(buffer);
  return each(processorTime() + sender.used() - begin, countFor(size));
}

double toService(std::size_t size, IpcOnSend onSend) {
  Client client(answerCalls);
  client.params.onSend = onSend;
  client.connect();
  const Buffer message = messageOf(size, IPC_MSG_DATA);
  // Its answer comes when all that was sent before has been received.
  const Buffer empty = messageOf(0, IPC_MSG_DATA);
  Buffer answer(kHeaderSize);
  for (int left = warmUpFor(size); left > 0; --left) client.send(message);
  client.call(empty, answer);
  const Nanoseconds begin = client.used();
  for (int left = countFor(size); left > 0; --left) client.send(message);
  client.call(empty, answer);
  return each(client.used() - begin, countFor(size));
}

double toRawService(std::size_t size) {
  auto [ours, theirs] = rawStreams();
  const Child receiver([&theirs = theirs] {
    for (Buffer buffer; theirs.receive(buffer);) {
      if (readHeader(buffer.data()).length == 0) theirs.send(messageOf(0, IPC_MSG_DATA));
    }
  });
  const Buffer message = messageOf(size, IPC_MSG_DATA);
  const Buffer empty = messageOf(0, IPC_MSG_DATA);
  Buffer answer;
  for (int left = warmUpFor(size); left > 0; --left) ours.send(message);
  ours.send(empty);
  ours.receive(answer);
  const Nanoseconds begin = processorTime() + receiver.used();
  for (int left = countFor(size); left > 0; --left) ours.send(message);
  ours.send(empty);
  ours.receive(answer);
  return each(processorTime() + receiver.used() - begin, countFor(size));
}

constexpr int kCalls = 5000;

double call(std::size_t size) {
  Client client(answerCalls);
  client.connect();
  const Buffer request = messageOf(size, IPC_MSG_CAMERA_LIST);
  Buffer reply(request.size());
  for (int left = kCalls / 10; left > 0; --left) client.call(request, reply);
  const auto begin = Clock::now();
  for (int left = kCalls; left > 0; --left) client.call(request, reply);
  return each(Clock::now() - begin, kCalls);
}

double rawCall(std::size_t size) {
  auto [ours, theirs] = rawStreams();
  const Child service([&theirs = theirs, size] {
    const Buffer reply = messageOf(size, IPC_MSG_CAMERA_LIST);
    for (Buffer request; theirs.receive(request);) theirs.send(reply);
  });
  const Buffer request = messageOf(size, IPC_MSG_CAMERA_LIST);
  Buffer reply;
  const auto exchange = [&, &ours = ours] {
    ours.send(request);
    ours.receive(reply);
  };
  for (int left = kCalls / 10; left > 0; --left) exchange();
  const auto begin = Clock::now();
  for (int left = kCalls; left > 0; --left) exchange();
  return each(Clock::now() - begin, kCalls);
}

// This process and its children on one processor, so that no wake-up of another one is measured.
class OneProcessor {
 public:
  OneProcessor() {
    sched_getaffinity(0, sizeof m_before, &m_before);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof one, &one);
  }
  ~OneProcessor() { sched_setaffinity(0, sizeof m_before, &m_before); }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  cpu_set_t m_before = {};
};

int onSend(int, void*) {
  return 0;
}

constexpr std::size_t kSmall = 64;
constexpr std::size_t kFrame = 100'000;
constexpr std::size_t kLarge = 1'000'000;

std::vector<Row> rows() {
  const auto down = [](const char* name, std::size_t size, double limit) {
    return Row{name, "us CPU", [=] { return toRawReceiver(size); }, [=] { return toLibrary(size); },
               limit};
  };
  const auto up = [](const char* name, std::size_t size, IpcOnSend callback, double limit) {
    return Row{name, "us CPU", [=] { return toRawService(size); },
               [=] { return toService(size, callback); }, limit};
  };
  const auto both = [](const char* name, std::size_t size, double limit) {
    return Row{name, "us", [=] { return rawCall(size); }, [=] { return call(size); }, limit};
  };
  const auto onOne = [](Row row) {
    const auto alone = [](const Measure& measure) {
      return [=] {
        const OneProcessor one;
        return measure();
      };
    };
    row.name += ", one processor";
    row.floor = alone(row.floor);
    row.here = alone(row.here);
    return row;
  };
  return {
      down("IPC: service to library, 64 B", kSmall, 1.3),
      down("IPC: service to library, 100 KB", kFrame, 1.1),
      down("IPC: service to library, 1 MB", kLarge, 1.1),
      up("IPC: library to service, 64 B", kSmall, nullptr, 1.3),
      up("IPC: library to service, 64 B, onSend set", kSmall, onSend, 1.3),
      up("IPC: library to service, 100 KB", kFrame, nullptr, 1.1),
      both("IPC: synchronous call, 64 B", kSmall, 1.6),
      both("IPC: synchronous call, 100 KB", kFrame, 1.4),
      onOne(both("IPC: synchronous call, 100 KB", kFrame, 1.4)),
      down("growth: service to library, 4 MB", 4 * kLarge, 1.1),
      down("growth: service to library, 16 MB", 16 * kLarge, 1.1),
  };
}

}  // namespace
}  // namespace lumsar::bench

int main(int argc, char** argv) {
  return lumsar::bench::runRows(argc, argv, lumsar::bench::rows());
}
