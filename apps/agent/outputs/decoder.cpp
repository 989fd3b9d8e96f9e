#include "outputs/decoder.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/deadline.h"
#include "base/text/bytes.h"
#include "base/text/format.h"
#include "outputs/placard.h"

namespace lumsar::agent {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Far more than any frame takes, also on a busy machine.
constexpr auto kDecodeTimeout = 5s;
constexpr auto kFirstRestart = 100ms;
constexpr auto kLongestRestart = 10s;
constexpr RawFormat kTrialFormat = {kRawI420, {16, 16}, false};

auto usedHardware = Decoder::Hardware::No;

int checked(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

struct FileActions {
  FileActions() { posix_spawn_file_actions_init(&actions); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  posix_spawn_file_actions_t actions;
};

// Without the signals that this program blocks, and in a process group of its own.
struct Attributes {
  Attributes() {
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  }
  ~Attributes() { posix_spawnattr_destroy(&attributes); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  posix_spawnattr_t attributes;
};

}  // namespace

Decoder::Memory::Memory(std::size_t size)
    : m_file(checked(memfd_create("lumsar-decoder", MFD_CLOEXEC | MFD_ALLOW_SEALING), "memory")),
      m_size(size) {
  checked(ftruncate(m_file.get(), static_cast<off_t>(size)), "memory for frames");
  checked(fcntl(m_file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL), "seal");
  void* const mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, m_file.get(), 0);
  if (mapped == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mapping");
  m_data = static_cast<unsigned char*>(mapped);
}

Decoder::Memory::Memory(Memory&& other) noexcept
    : m_file(std::move(other.m_file)),
      m_data(std::exchange(other.m_data, nullptr)),
      m_size(other.m_size) {}

Decoder::Memory& Decoder::Memory::operator=(Memory&& other) noexcept {
  std::swap(m_file, other.m_file);
  std::swap(m_data, other.m_data);
  std::swap(m_size, other.m_size);
  return *this;
}

Decoder::Memory::~Memory() {
  if (m_data != nullptr) munmap(m_data, m_size);
}

// From where this program is, so that both can be moved together.
std::string Decoder::path() {
  std::error_code none;
  const auto own = std::filesystem::read_symlink("/proc/self/exe", none).parent_path();
  return (own / LUMSAR_DECODER_FROM_BIN).lexically_normal();
}

bool Decoder::decodesAnImage() {
  Frame frame;
  frame.format = {0, m_format.size.width, m_format.size.height, kEncodingMjpg, kFrameIsKey};
  frame.data = placard(Notice::CameraStarts, kEncodingMjpg, m_format.size);
  std::string why;
  return decode(frame, why) != nullptr;
}

// That the program is there says little of where it is allowed to run.
bool Decoder::isUsable() {
  static const bool usable =
      access(path().c_str(), X_OK) == 0 && Decoder(kTrialFormat).decodesAnImage();
  return usable;
}

bool Decoder::useHardware() {
  Decoder trial(kTrialFormat, Hardware::IfThere);
  const bool isThere = trial.decodesAnImage() && trial.m_hasHardware;
  usedHardware = isThere ? Hardware::IfThere : Hardware::No;
  return isThere;
}

Decoder::Decoder(const RawFormat& format) : Decoder(format, usedHardware) {}

Decoder::Decoder(const RawFormat& format, Hardware hardware)
    : m_format(format),
      m_mayUseHardware(hardware == Hardware::IfThere),
      m_backOff(kFirstRestart, kLongestRestart) {}

Decoder::~Decoder() {
  stop();
}

void Decoder::cancel() {
  m_cancelled = true;
  m_wakeUp.wake();
}

void Decoder::stop() {
  m_socket.reset();
  if (m_process < 0) return;
  kill(m_process, SIGKILL);
  while (waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
  }
  m_process = -1;
}

bool Decoder::start(std::string& why) {
  if (m_process >= 0) return true;
  if (Clock::now() < m_nextStart) {
    why = "its decoder has failed and will be started again";
    return false;
  }
  m_nextStart = Clock::now() + m_backOff.next();
  try {
    m_encoded = Memory(kMaxEncodedBytes);
    m_raw = Memory(rawBytes(m_format.encoding, m_format.size));
    std::array<int, 2> ends{};
    checked(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), "socketpair");
    m_socket.reset(ends[0]);
    const base::UniqueFd other(ends[1]);
    return spawn(other.get(), why);
  } catch (const std::system_error& error) {
    why = base::text("its decoder cannot be started: {}", error.what());
    return false;
  }
}

bool Decoder::spawn(int socket, std::string& why) {
  FileActions files;
  // First to numbers that are not in the way of one another.
  const int high = std::max({socket, m_encoded.descriptor(), m_raw.descriptor(), kDecoderRaw}) + 1;
  const std::array<std::pair<int, int>, 3> given = {{{socket, kDecoderSocket},
                                                     {m_encoded.descriptor(), kDecoderEncoded},
                                                     {m_raw.descriptor(), kDecoderRaw}}};
  int free = high;
  for (const auto& [own, number] : given) {
    posix_spawn_file_actions_adddup2(&files.actions, own, free++);
  }
  free = high;
  for (const auto& [own, number] : given) {
    posix_spawn_file_actions_adddup2(&files.actions, free++, number);
  }
  posix_spawn_file_actions_addopen(&files.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files.actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  // No terminal is left to a driver's system calls.
  if (m_mayUseHardware) {
    posix_spawn_file_actions_addopen(&files.actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_addclosefrom_np(&files.actions, kDecoderRaw + 1);
  const std::string program = path();
  std::array<std::string, 6> words = {program,
                                      base::text("{}", m_format.encoding),
                                      base::text("{}", m_format.size.width),
                                      base::text("{}", m_format.size.height),
                                      m_format.fullRange ? "1" : "0",
                                      m_mayUseHardware ? kUseHardware : "processor"};
  std::array<char*, 7> arguments{};
  std::ranges::transform(words, arguments.begin(), [](std::string& word) { return word.data(); });
  const Attributes attributes;
  std::array<char*, 1> environment{};
  const int result = posix_spawn(&m_process, program.c_str(), &files.actions,
                                 &attributes.attributes, arguments.data(), environment.data());
  if (result == 0) return true;
  m_process = -1;
  errno = result;
  why = base::text("{} cannot be started: {}", program, base::systemError());
  return false;
}

FramePtr Decoder::decode(const Frame& frame, std::string& why) {
  why.clear();
  if (m_cancelled) return nullptr;
  if (frame.data.size() > kMaxEncodedBytes) {
    why = base::text("a frame is larger than {} bytes and is not decoded", kMaxEncodedBytes);
    return nullptr;
  }
  DecodeReply reply;
  if (!start(why) || !ask(frame, reply, why)) return nullptr;
  if (reply.result == DecodeResult::Decoded) {
    m_backOff.reset();
    return rawFrame(frame);
  }
  if (reply.result != DecodeResult::NotYet) {
    why = frame.format.encoding == kEncodingMjpg
              ? "a JPEG is damaged or does not have the announced size"
              : "a frame cannot be decoded";
  }
  return nullptr;
}

bool Decoder::ask(const Frame& frame, DecodeReply& reply, std::string& why) {
  base::copyBytes(frame.data, m_encoded.data());
  const DecodeRequest request{frame.format.encoding, frame.format.width, frame.format.height,
                              frame.format.flags, static_cast<std::uint32_t>(frame.data.size())};
  constexpr auto kSize = static_cast<ssize_t>(sizeof reply);
  if (send(m_socket.get(), &request, sizeof request, MSG_NOSIGNAL) == sizeof request) {
    if (!waitForReply()) {
      why = m_cancelled ? "" : "its decoder takes too long and is started again";
    } else if (recv(m_socket.get(), &reply, sizeof reply, 0) == kSize) {
      m_hasHardware = reply.hasHardware != 0;
      return true;
    } else {
      why = "its decoder has ended over a frame and is started again";
    }
  } else {
    why = "its decoder has ended and is started again";
  }
  stop();
  leaveHardware(why);
  return false;
}

// A driver is the likeliest reason for a decoder to end or to hang.
void Decoder::leaveHardware(std::string& why) {
  if (!m_mayUseHardware || m_cancelled) return;
  m_mayUseHardware = false;
  why += ", without its hardware";
}

bool Decoder::waitForReply() {
  pollfd fds[] = {{m_socket.get(), POLLIN, 0}, {m_wakeUp.get(), POLLIN, 0}};
  const auto deadline = Clock::now() + kDecodeTimeout;
  int ready = 0;
  do {
    ready = poll(fds, 2, base::pollTimeout(deadline));
  } while (ready < 0 && errno == EINTR);
  return ready > 0 && !m_cancelled;
}

FramePtr Decoder::rawFrame(const Frame& frame) const {
  auto raw = std::make_shared<Frame>();
  raw->format = frame.format;
  raw->format.encoding = m_format.encoding;
  raw->format.width = m_format.size.width;
  raw->format.height = m_format.size.height;
  raw->captured = frame.captured;
  raw->arrived = frame.arrived;
  raw->data.assign(m_raw.data(), m_raw.data() + rawBytes(m_format.encoding, m_format.size));
  return raw;
}

}  // namespace lumsar::agent
