#include "integration/rdp/rdp_server.h"

#include <freerdp/channels/channels.h>
#include <freerdp/channels/wtsvc.h>
#include <freerdp/freerdp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <winpr/ssl.h>
#include <winpr/synch.h>
#include <winpr/tools/makecert.h>
#include <winpr/wlog.h>
#include <winpr/wtsapi.h>

#include <array>
#include <csignal>

namespace lumsar::test {

namespace {

constexpr char kChannel[] = "lumsar";
// No more than fits into one update: the library's server cannot cut them.
constexpr int kPaintedAtOnce = 400;
constexpr DWORD kTick = 5;  // how often a test's wishes are looked at, ms

void startLibrary() {
  static const bool done = [] {
    std::signal(SIGPIPE, SIG_IGN);
    WLog_SetLogLevel(WLog_GetRoot(), WLOG_OFF);
    winpr_InitializeSSL(WINPR_SSL_INIT_DEFAULT);
    WTSRegisterWtsApiFunctionTable(FreeRDP_InitWtsApi());
    return true;
  }();
  static_cast<void>(done);
}

char* copy(const std::string& text) {
  return text.empty() ? nullptr : strdup(text.c_str());
}

}  // namespace

struct RdpServer::Context {
  rdpContext base;
  HANDLE manager;
  HANDLE channel;
  MessageAssembler* assembler;
};

void makeCertificate(const std::string& directory, const std::string& name) {
  startLibrary();
  MAKECERT_CONTEXT* maker = makecert_context_new();
  std::array<std::string, 8> words{"makecert", "-rdp", "-live", "-silent",
                                   "-y",       "5",    "-n",    "test.invalid"};
  std::array<char*, words.size()> arguments{};
  for (std::size_t i = 0; i < words.size(); ++i) arguments[i] = words[i].data();
  std::string path = directory;
  std::string file = name;
  const bool made =
      makecert_context_process(maker, static_cast<int>(words.size()), arguments.data()) >= 0 &&
      makecert_context_set_output_file_name(maker, file.data()) == 1 &&
      makecert_context_output_certificate_file(maker, path.data()) == 1 &&
      makecert_context_output_private_key_file(maker, path.data()) == 1;
  makecert_context_free(maker);
  if (!made) throw std::runtime_error("cannot make a certificate in " + directory);
}

RdpServer::RdpServer(RdpServerSetup setup) : m_setup(std::move(setup)), m_listener(m_setup.socket) {
  startLibrary();
  m_wantChannel = m_setup.opensChannel;
  m_thread = std::thread([this] { run(); });
}

RdpServer::~RdpServer() {
  m_stopping = true;
  m_thread.join();
  unlink(m_setup.socket.c_str());
}

void RdpServer::send(Bytes bytes) {
  const std::lock_guard lock(m_mutex);
  m_outgoing.push_back(std::move(bytes));
}

bool RdpServer::waitForBytes(int size) {
  return eventually([&] {
    int waiting = 0;
    return ioctl(m_socket, FIONREAD, &waiting) == 0 && waiting >= size;
  });
}

void RdpServer::run() {
  while (!m_stopping) {
    const RawPeer client = m_listener.accept(milliseconds(20));
    if (client.connected()) serve(client);
  }
}

void RdpServer::serve(const RawPeer& client) {
  ++m_connections;
  m_socket = client.fd();
  m_dropClient = false;
  MessageAssembler assembler;
  freerdp_peer* peer = freerdp_peer_new(dup(client.fd()));
  peer->ContextSize = sizeof(Context);
  peer->ContextExtra = this;
  peer->ContextNew = newContext;
  peer->ContextFree = freeContext;
  freerdp_peer_context_new(peer);
  reinterpret_cast<Context*>(peer->context)->assembler = &assembler;
  configure(peer);
  if (peer->Initialize(peer) == TRUE) talk(peer);
  m_activated = false;
  shutdown(client.fd(), SHUT_RDWR);  // without a disconnect message
  peer->Disconnect(peer);
  freerdp_peer_context_free(peer);
  freerdp_peer_free(peer);
}

BOOL RdpServer::newContext(freerdp_peer* /*peer*/, rdpContext* context) {
  auto& own = *reinterpret_cast<Context*>(context);
  own.manager = WTSOpenServerA(reinterpret_cast<LPSTR>(context));
  own.channel = nullptr;
  return own.manager != nullptr && own.manager != INVALID_HANDLE_VALUE ? TRUE : FALSE;
}

void RdpServer::freeContext(freerdp_peer* /*peer*/, rdpContext* context) {
  auto& own = *reinterpret_cast<Context*>(context);
  if (own.channel != nullptr) WTSVirtualChannelClose(own.channel);
  WTSCloseServer(own.manager);
}

BOOL RdpServer::accept(freerdp_peer* peer) {
  auto& server = *static_cast<RdpServer*>(peer->ContextExtra);
  server.adjustChannel(*reinterpret_cast<Context*>(peer->context));
  server.m_activated = true;
  ++server.m_clients;
  return TRUE;
}

void RdpServer::configure(freerdp_peer* peer) {
  rdpSettings& settings = *peer->settings;
  settings.CertificateFile = copy(m_setup.certificate);
  settings.PrivateKeyFile = copy(m_setup.key);
  settings.RdpKeyFile = copy(m_setup.key);
  settings.RdpSecurity = FALSE;
  settings.TlsSecurity = m_setup.users.empty() ? TRUE : FALSE;
  settings.NlaSecurity = m_setup.users.empty() ? FALSE : TRUE;
  settings.NtlmSamFile = copy(m_setup.users);
  settings.EncryptionLevel = ENCRYPTION_LEVEL_CLIENT_COMPATIBLE;
  settings.ColorDepth = 16;
  settings.SuppressOutput = TRUE;
  // Both ends would block in writing otherwise.
  settings.WaitForOutputBufferFlush = FALSE;
  peer->PostConnect = accept;
  peer->Activate = [](freerdp_peer*) -> BOOL { return TRUE; };
}

void RdpServer::talk(freerdp_peer* peer) {
  auto& context = *reinterpret_cast<Context*>(peer->context);
  for (; !m_stopping && !m_dropClient; ++m_rounds) {
    if (m_stalled) {
      std::this_thread::sleep_for(milliseconds(kTick));
      continue;
    }
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> events{};
    DWORD count = peer->GetEventHandles(peer, events.data(), MAXIMUM_WAIT_OBJECTS - 1);
    if (count == 0) return;
    events[count++] = WTSVirtualChannelManagerGetEventHandle(context.manager);
    WaitForMultipleObjects(count, events.data(), FALSE, kTick);
    if (peer->CheckFileDescriptor(peer) != TRUE) return;
    if (m_activated) adjustChannel(context);
    receive(context);
    do {
      if (peer->IsWriteBlocked(peer) == TRUE && peer->DrainOutputBuffer(peer) < 0) return;
      if (peer->IsWriteBlocked(peer) == TRUE) break;
      if (WTSVirtualChannelManagerCheckFileDescriptor(context.manager) != TRUE) return;
    } while (sendSome(context));
    if (m_activated && !adjustDesktop(peer)) return;
    while (m_activated && m_toPaint > 0 && peer->IsWriteBlocked(peer) != TRUE) paintSome(peer);
  }
}

bool RdpServer::adjustDesktop(freerdp_peer* peer) {
  const UINT32 width = m_width;
  const UINT32 height = m_height;
  if (width == 0 || (peer->settings->DesktopWidth == width)) return true;
  peer->settings->DesktopWidth = width;
  peer->settings->DesktopHeight = height;
  return peer->update->DesktopResize(peer->context) == TRUE;
}

void RdpServer::paintSome(freerdp_peer* peer) {
  rdpUpdate& update = *peer->update;
  update.BeginPaint(peer->context);
  for (int i = 0; i < kPaintedAtOnce; ++i) {
    OPAQUE_RECT_ORDER rectangle{};
    rectangle.nLeftRect = i % 500;
    rectangle.nTopRect = i % 400;
    rectangle.nWidth = rectangle.nHeight = 3;
    rectangle.color = static_cast<UINT32>(i);
    update.primary->OpaqueRect(peer->context, &rectangle);
  }
  update.EndPaint(peer->context);
  m_toPaint -= kPaintedAtOnce;
}

void RdpServer::adjustChannel(Context& context) {
  if (m_wantChannel == (context.channel != nullptr)) return;
  if (m_wantChannel) {
    std::string name = kChannel;
    context.channel = WTSVirtualChannelOpen(context.manager, WTS_CURRENT_SESSION, name.data());
  } else {
    WTSVirtualChannelClose(context.channel);
    context.channel = nullptr;
    context.assembler->clear();
  }
}

// True when there was something to send.
bool RdpServer::sendSome(Context& context) {
  Bytes bytes;
  {
    const std::lock_guard lock(m_mutex);
    if (m_outgoing.empty() || context.channel == nullptr) return false;
    bytes = std::move(m_outgoing.front());
    m_outgoing.pop_front();
  }
  ULONG written = 0;
  WTSVirtualChannelWrite(context.channel, reinterpret_cast<PCHAR>(bytes.data()),
                         static_cast<ULONG>(bytes.size()), &written);
  return true;
}

void RdpServer::receive(Context& context) {
  std::array<char, 64 * 1024> buffer{};
  ULONG size = 0;
  while (context.channel != nullptr &&
         WTSVirtualChannelRead(context.channel, 0, buffer.data(), buffer.size(), &size) == TRUE &&
         size > 0) {
    m_largestPiece = std::max<std::size_t>(m_largestPiece, size);
    auto& assembler = *context.assembler;
    assembler.append({reinterpret_cast<const unsigned char*>(buffer.data()), size});
    while (assembler.fault() != MessageAssembler::Fault::None) {
      m_strayBytes += assembler.skipFault();
    }
    for (auto bytes = assembler.next(); !bytes.empty(); bytes = assembler.next()) {
      m_messages.put(bytes);
    }
  }
}

}  // namespace lumsar::test
