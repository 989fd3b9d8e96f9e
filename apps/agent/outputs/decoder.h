// Decoder: a camera's frames as raw ones of one format, made by a process in a sandbox,
// lumsar-decoder, since what is decoded comes from another machine. It is started with the first
// frame, and again after it has ended. Bound to one thread, but for cancel().
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <string>

#include "base/back_off.h"
#include "base/system/event_fd.h"
#include "base/system/fd.h"
#include "decode/decoder_messages.h"
#include "decode/raw_format.h"
#include "frames/frame.h"

namespace lumsar::agent {

class Decoder {
 public:
  // Where lumsar-decoder is looked for.
  static std::string path();
  // Whether it is there and decodes. Tried once, with the first call.
  static bool isUsable();
  // Decoders that are made later may use hardware for H.264, if there is any, which is returned.
  static bool useHardware();

  enum class Hardware { No, IfThere };
  // With hardware as useHardware() has found.
  explicit Decoder(const RawFormat& format);
  Decoder(const RawFormat& format, Hardware hardware);
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  ~Decoder();

  const RawFormat& format() const { return m_format; }
  // Null where there is no frame, with the reason unless more frames have to come first.
  FramePtr decode(const Frame& frame, std::string& why);
  // Thread-safe. Frames are not decoded any more, and the one that is being decoded is left.
  void cancel();

 private:
  // Memory that the process has as well. It cannot change its size.
  class Memory {
   public:
    Memory() = default;
    explicit Memory(std::size_t size);
    Memory(Memory&& other) noexcept;
    Memory& operator=(Memory&& other) noexcept;
    ~Memory();
    int descriptor() const { return m_file.get(); }
    unsigned char* data() const { return m_data; }

   private:
    base::UniqueFd m_file;
    unsigned char* m_data = nullptr;
    std::size_t m_size = 0;
  };

  bool start(std::string& why);
  void stop();
  bool spawn(int socket, std::string& why);
  bool ask(const Frame& frame, DecodeReply& reply, std::string& why);
  bool waitForReply();
  void leaveHardware(std::string& why);
  bool decodesAnImage();
  FramePtr rawFrame(const Frame& frame) const;

  const RawFormat m_format;
  bool m_mayUseHardware;
  bool m_hasHardware = false;
  Memory m_encoded;
  Memory m_raw;
  base::UniqueFd m_socket;
  pid_t m_process = -1;
  base::BackOff m_backOff;
  std::chrono::steady_clock::time_point m_nextStart;
  base::EventFd m_wakeUp;
  std::atomic<bool> m_cancelled{false};
};

}  // namespace lumsar::agent
