// Stands for the channel to the VM: a Unix socket of the guest agent. A client has its own.
#pragma once

#include <lumsar/assembler.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

inline int openChannel(const std::string& path) {
  const int channel = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (connect(channel, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error(path + ": " + std::strerror(errno));
  return channel;
}

// Adds the bytes that have come; false at the end of the channel.
inline bool readChannel(int channel, lumsar::MessageAssembler& assembler) {
  const auto space = assembler.prepare(65536);
  const ssize_t count = recv(channel, space.data(), space.size(), 0);
  if (count > 0) assembler.commit(static_cast<std::size_t>(count));
  return count > 0;
}

inline int writeChannel(int channel, const void* data, std::size_t size) {
  return send(channel, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size) ? 0 : -1;
}
