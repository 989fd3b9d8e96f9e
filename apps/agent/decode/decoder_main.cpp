// lumsar-decoder: decodes the frames of one camera for lumsar-agent, which starts it. What it reads
// comes from another machine, so it runs in a sandbox.
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <string_view>
#include <utility>

#include "base/command_line.h"
#include "base/errors.h"
#include "base/text/format.h"
#include "decode/frame_decoder.h"
#include "decode/sandbox.h"

extern "C" {
#include <libavutil/log.h>
}

namespace lumsar::agent {
namespace {

std::span<unsigned char> mapped(int descriptor, std::size_t bytes, int access) {
  struct stat file = {};
  if (fstat(descriptor, &file) != 0 || static_cast<std::size_t>(file.st_size) != bytes) {
    throw base::Failure("must be started by lumsar-agent");
  }
  void* const memory = mmap(nullptr, bytes, access, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) throw base::Failure("cannot map memory: " + base::systemError());
  return {static_cast<unsigned char*>(memory), bytes};
}

// ENCODING WIDTH HEIGHT RANGE of the raw frames, and whether hardware may be used.
RawFormat readFormat(int argc, const char* const* argv) {
  if (argc != 6) throw base::UsageError("must be started by lumsar-agent");
  RawFormat format;
  base::convert(argv[1], format.encoding);
  base::convert(argv[2], format.size.width);
  base::convert(argv[3], format.size.height);
  std::uint16_t range = 0;
  base::convert(argv[4], range);
  format.fullRange = range != 0;
  if (!isRaw(format.encoding) || !isDecodable(format.size)) {
    throw base::UsageError("the requested format is not supported");
  }
  return format;
}

DecodeResult decode(FrameDecoder& decoder, const DecodeRequest& request, base::Bytes encoded,
                    std::span<unsigned char> raw) {
  try {
    return decoder.decode(request, encoded, raw);
  } catch (const std::exception&) {
    return DecodeResult::Damaged;  // above all of memory
  }
}

// Until the agent closes its end.
void serve(const RawFormat& format, bool mayUseHardware) {
  const base::Bytes encoded = mapped(kDecoderEncoded, kMaxEncodedBytes, PROT_READ);
  const auto raw =
      mapped(kDecoderRaw, rawBytes(format.encoding, format.size), PROT_READ | PROT_WRITE);
  av_log_set_level(AV_LOG_QUIET);
  // In the sandbox no device can be opened.
  auto hardware = mayUseHardware ? video::Hardware::open() : video::Hardware();
  const bool hasHardware = hardware.isThere();
  FrameDecoder decoder(format, std::move(hardware));
  enterSandbox(kDecoderSocket, hasHardware ? Devices::Graphics : Devices::None);
  DecodeRequest request;
  while (read(kDecoderSocket, &request, sizeof request) == sizeof request) {
    const DecodeReply reply{decode(decoder, request, encoded, raw), hasHardware ? 1U : 0U};
    if (write(kDecoderSocket, &reply, sizeof reply) != sizeof reply) break;
  }
}

int run(int argc, const char* const* argv) {
  // A signal that ends the agent reaches this process, too; it ends when its socket is closed.
  std::signal(SIGINT, SIG_IGN);
  std::signal(SIGTERM, SIG_IGN);
  std::signal(SIGHUP, SIG_IGN);
  const RawFormat format = readFormat(argc, argv);
  serve(format, std::string_view(argv[5]) == kUseHardware);
  return 0;
}

}  // namespace
}  // namespace lumsar::agent

int main(int argc, char** argv) {
  return lumsar::base::runProgram("lumsar-decoder", [&] { return lumsar::agent::run(argc, argv); });
}
