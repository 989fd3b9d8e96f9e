#include "port/vm_identity.h"

#include <algorithm>
#include <array>

#include "base/text/format.h"
#include "base/text/utf8.h"

namespace lumsar::viewer {

namespace {

std::string textOf(SpiceSession* session, const char* property) {
  g_autofree char* value = nullptr;
  g_object_get(session, property, &value, nullptr);
  return value != nullptr ? value : "";
}

// Empty when the server has none, which then is all zeros.
std::string uuidOf(SpiceSession* session) {
  const unsigned char* uuid = nullptr;
  g_object_get(session, "uuid", &uuid, nullptr);
  constexpr int kSize = 16;
  if (uuid == nullptr || std::all_of(uuid, uuid + kSize, [](auto byte) { return byte == 0; })) {
    return {};
  }
  std::string digits;
  for (int i = 0; i < kSize; ++i) digits += base::text("{:02x}", uuid[i]);
  return digits;
}

}  // namespace

VmIdentity identify(SpiceChannel* channel) {
  SpiceSession* session = nullptr;
  g_object_get(channel, "spice-session", &session, nullptr);
  const std::string host = textOf(session, "host");
  const std::string path = textOf(session, "unix-path");
  std::string port = textOf(session, "port");
  if (port.empty()) port = textOf(session, "tls-port");
  const std::string name = base::clean(textOf(session, "name"));
  const std::string uuid = uuidOf(session);
  g_object_unref(session);

  std::string address = path;
  // A connection that was handed over ready has no port, and a host that means nothing.
  if (address.empty() && !port.empty()) address = base::text("{}:{}", host, port);
  // A VM's port may change from start to start, its server does not. Without a UUID the next VM may
  // be at the same address.
  std::string key;
  if (!uuid.empty()) key = base::text("{} {}", host, uuid);
  if (uuid.empty() && !address.empty() && !name.empty()) key = base::text("{} {}", address, name);
  if (!name.empty()) return {name, key};
  return {address.empty() ? "VM" : base::clean(address), key};
}

}  // namespace lumsar::viewer
