// include/lumsar/assembler.h: however a stream is cut into pieces, the same messages come out of it
// as out of the whole stream.
#include "lumsar/assembler.h"

#include <cstdio>
#include <cstdlib>

namespace {

using Bytes = std::span<const unsigned char>;
using Messages = std::vector<std::vector<unsigned char>>;

constexpr std::uint32_t kMostPayload = 300;

bool isMessage(Bytes bytes) {
  if (bytes.size() < lumsar::kHeaderSize) return false;
  const lumsar::RedirMsgHeader header = lumsar::readHeader(bytes.data());
  return header.magic == lumsar::kMagic && header.length <= kMostPayload &&
         bytes.size() - lumsar::kHeaderSize >= header.length;
}

// A header that announces more than has come holds up everything behind it.
bool holdsUp(Bytes bytes) {
  if (bytes.size() < lumsar::kHeaderSize) return false;
  const lumsar::RedirMsgHeader header = lumsar::readHeader(bytes.data());
  return header.magic == lumsar::kMagic && header.length <= kMostPayload && !isMessage(bytes);
}

Messages inOneLook(Bytes stream) {
  Messages messages;
  while (!stream.empty() && !holdsUp(stream)) {
    std::size_t size = 1;
    if (isMessage(stream)) {
      size = lumsar::kHeaderSize + lumsar::readHeader(stream.data()).length;
      messages.emplace_back(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size));
    }
    stream = stream.subspan(size);
  }
  return messages;
}

Messages inPieces(Bytes stream, std::size_t piece) {
  Messages messages;
  lumsar::MessageAssembler assembler(kMostPayload);
  while (!stream.empty()) {
    const std::size_t size = std::min(piece, stream.size());
    assembler.append(stream.first(size));
    stream = stream.subspan(size);
    do {
      for (auto next = assembler.next(); !next.empty(); next = assembler.next()) {
        messages.emplace_back(next.begin(), next.end());
      }
    } while (assembler.fault() != lumsar::MessageAssembler::Fault::None &&
             assembler.skipFault() > 0);
  }
  return messages;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t piece = 1U + data[0];
  const Bytes stream(data + 1, size - 1);
  if (inPieces(stream, piece) != inOneLook(stream)) {
    std::fprintf(stderr, "pieces of %zu bytes make other messages\n", piece);
    std::abort();
  }
  return 0;
}
