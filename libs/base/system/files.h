// Writing all bytes, and writing a file that appears only when it is complete.
#pragma once

#include <string>

#include "base/system/fd.h"
#include "base/text/bytes.h"

namespace lumsar::base {

// False with errno set when not all bytes could be written; a full disk is ENOSPC.
bool writeAll(int fd, Bytes bytes);
// The same over a socket, without SIGPIPE.
bool sendAll(int socket, Bytes bytes);

// Opens a file of mode 0600 and empties it. None without a descriptor and with errno set; a
// symbolic link (ELOOP) and another user's file (EPERM) are left alone.
UniqueFd openForWriting(const std::string& path);

// Replaces the file at `path` by one of mode 0600 with this content. On failure false with errno
// set; the previous file then remains, and no temporary one.
bool replaceFile(const std::string& path, Bytes content);

// Where the user's file of this name is: below $XDG_CONFIG_HOME/lumsar, else ~/.config/lumsar.
// Empty when there is neither.
std::string userConfigFile(const std::string& name);

}  // namespace lumsar::base
