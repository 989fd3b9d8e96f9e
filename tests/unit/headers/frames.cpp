// The headers' own replacement for std::span, as a host in C++17 uses it: 0 when a message that
// comes in two fragments is complete.
#include <lumsar/assembler.h>
#include <lumsar/camera_data.h>

int main() {
  lumsar::RedirMsgHeader header;
  header.type = lumsar::MSG_DATA;
  header.length = sizeof(lumsar::CameraStatistics);
  std::vector<unsigned char> bytes(lumsar::kHeaderSize + header.length);
  std::memcpy(bytes.data(), &header, sizeof header);
  lumsar::MessageAssembler assembler;
  const lumsar::Span<const unsigned char> all(bytes);
  assembler.append(all.first(10));
  if (!assembler.next().empty()) return 1;
  assembler.append(all.subspan(10));
  const lumsar::Span<unsigned char> message = assembler.next();
  lumsar::Span<const unsigned char> body = lumsar::Span<const unsigned char>(message).subspan(32);
  return message.size() == bytes.size() && lumsar::take<lumsar::CameraStatistics>(body) &&
                 body.empty()
             ? 0
             : 2;
}
