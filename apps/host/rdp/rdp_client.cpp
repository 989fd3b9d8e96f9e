#include "rdp/rdp_client.h"

#include <freerdp/channels/channels.h>
#include <freerdp/client/channels.h>
#include <freerdp/error.h>
#include <freerdp/gdi/gdi.h>

#include <array>
#include <stdexcept>

#include "rdp/socket_cut.h"

namespace lumsar::host {

namespace {

// The smallest desktop that servers accept; it is not shown.
constexpr UINT32 kWidth = 640;
constexpr UINT32 kHeight = 480;
// A server may stall this long while bytes wait for it.
constexpr UINT32 kStallMs = 30000;
// What ends sooner than this is not a success, and the back-off keeps growing.
constexpr std::chrono::seconds kLasting{10};

void assign(char*& setting, const std::string& value) {
  std::free(setting);
  setting = value.empty() ? nullptr : strdup(value.c_str());
}

BOOL enterChannel(PCHANNEL_ENTRY_POINTS_EX points, PVOID initHandle) {
  const auto& entry = *reinterpret_cast<CHANNEL_ENTRY_POINTS_FREERDP_EX*>(points);
  return static_cast<RdpChannel*>(entry.pExtendedData)->enter(entry, initHandle) ? TRUE : FALSE;
}

// The library notes each painted area for its user, who has to forget them.
BOOL forgetPainted(rdpContext* context) {
  GDI_WND& window = *context->gdi->primary->hdc->hwnd;
  window.invalid->null = TRUE;
  window.ninvalid = 0;
  return TRUE;
}

BOOL resize(rdpContext* context) {
  return gdi_resize(context->gdi, context->settings->DesktopWidth,
                    context->settings->DesktopHeight);
}

std::string textOr(const char* text, const char* otherwise) {
  return text != nullptr ? text : otherwise;
}

bool isPermanent(UINT32 error) {
  switch (error) {
    case FREERDP_ERROR_AUTHENTICATION_FAILED:
    case FREERDP_ERROR_CONNECT_LOGON_FAILURE:
    case FREERDP_ERROR_CONNECT_WRONG_PASSWORD:
    case FREERDP_ERROR_CONNECT_ACCESS_DENIED:
    case FREERDP_ERROR_CONNECT_ACCOUNT_DISABLED:
    case FREERDP_ERROR_CONNECT_ACCOUNT_EXPIRED:
    case FREERDP_ERROR_CONNECT_ACCOUNT_LOCKED_OUT:
    case FREERDP_ERROR_CONNECT_ACCOUNT_RESTRICTION:
    case FREERDP_ERROR_CONNECT_LOGON_TYPE_NOT_GRANTED:
    case FREERDP_ERROR_CONNECT_NO_OR_MISSING_CREDENTIALS:
    case FREERDP_ERROR_CONNECT_PASSWORD_EXPIRED:
    case FREERDP_ERROR_CONNECT_PASSWORD_CERTAINLY_EXPIRED:
    case FREERDP_ERROR_CONNECT_PASSWORD_MUST_CHANGE:
    case FREERDP_ERROR_INSUFFICIENT_PRIVILEGES:
      return true;
    default:
      return false;
  }
}

// By another client of the same session, or by its user: intentional.
bool isTakenAway(UINT32 error) {
  return error == FREERDP_ERROR_DISCONNECTED_BY_OTHER_CONNECTION ||
         error == FREERDP_ERROR_LOGOFF_BY_USER;
}

}  // namespace

struct RdpClient::Context {
  rdpContext base;
  RdpClient* client;
};

RdpClient::RdpClient(const RdpTarget& target, RdpChannel& channel, std::function<void()> onWaiting)
    : m_target(target),
      m_channel(channel),
      m_onWaiting(std::move(onWaiting)),
      m_wake(CreateEventA(nullptr, TRUE, FALSE, nullptr)),
      m_instance(freerdp_new()) {
  if (m_wake == nullptr || m_instance == nullptr) throw std::bad_alloc();
  m_instance->ContextSize = sizeof(Context);
  if (freerdp_context_new(m_instance) == FALSE) {
    freerdp_free(m_instance);
    throw std::runtime_error("the RDP library cannot start; is HOME set?");
  }
  reinterpret_cast<Context*>(m_instance->context)->client = this;
  m_instance->PreConnect = preConnect;
  m_instance->PostConnect = postConnect;
  m_instance->PostDisconnect = postDisconnect;
  m_instance->VerifyCertificateEx = verifyCertificate;
  watchState();
  configure();
}

RdpClient::~RdpClient() {
  freerdp_context_free(m_instance);
  freerdp_free(m_instance);
}

RdpClient& RdpClient::of(freerdp* instance) {
  return *reinterpret_cast<Context*>(instance->context)->client;
}

void RdpClient::configure() {
  rdpSettings& settings = *m_instance->settings;
  assign(settings.ServerHostname, m_target.host);
  settings.ServerPort = m_target.port;
  // The proxy of the environment is for the web, and the library does not stop waiting for one.
  settings.ProxyType = PROXY_TYPE_IGNORE;
  assign(settings.CertificateName, m_target.serverName);
  assign(settings.Username, m_target.user);
  assign(settings.Domain, m_target.domain);
  assign(settings.Password, m_target.password);
  // Own and empty: what other programs have once been told to trust is not ours to trust.
  assign(settings.ConfigPath, m_target.stateDirectory);
  settings.TlsSecurity = TRUE;
  settings.NlaSecurity = !m_target.user.empty();
  settings.RdpSecurity = FALSE;
  settings.IgnoreCertificate = m_target.ignoreCertificate;
  if (!m_target.acceptedFingerprint.empty()) {
    assign(settings.CertificateAcceptedFingerprints, "sha256:" + m_target.acceptedFingerprint);
  }
  settings.AutoLogonEnabled = !m_target.password.empty();
  settings.DesktopWidth = kWidth;
  settings.DesktopHeight = kHeight;
  settings.ColorDepth = 16;
  settings.SoftwareGdi = TRUE;
  settings.DeviceRedirection = FALSE;
  settings.SupportDynamicChannels = FALSE;
  settings.NetworkAutoDetect = FALSE;
  settings.AutoReconnectionEnabled = FALSE;
  settings.TcpAckTimeout = kStallMs;
}

// The library reports this event and leaves it to others to add it to those that are reported.
void RdpClient::watchState() {
  wEventType event[] = {DEFINE_EVENT_ENTRY(ConnectionStateChange)};
  wPubSub* events = m_instance->context->pubSub;
  PubSub_AddEventTypes(events, event, 1);
  PubSub_SubscribeConnectionStateChange(events, stateChanged);
}

void RdpClient::stateChanged(void* context, ConnectionStateChangeEventArgs* change) {
  RdpClient& client = *static_cast<Context*>(context)->client;
  const bool active = change->active == TRUE;
  // In this order, for endIfSilent() may look in between.
  const bool waits = client.m_active && !active;
  if (waits) client.m_waitingSince = Clock::now();
  client.m_active = active;
  if (waits) client.m_onWaiting();
  if (change->state == CONNECTION_STATE_INITIAL && !client.m_wasConnected) client.attemptFailed();
}

// When a server hangs up, the library tries once more at once, with the same password. It does not
// when the attempt was cancelled.
void RdpClient::attemptFailed() {
  if (freerdp_get_last_error(m_instance->context) != FREERDP_ERROR_CONNECT_TRANSPORT_FAILED) return;
  m_failure = FREERDP_ERROR_CONNECT_TRANSPORT_FAILED;
  freerdp_set_last_error(m_instance->context, FREERDP_ERROR_CONNECT_CANCELLED);
}

BOOL RdpClient::preConnect(freerdp* instance) {
  RdpClient& client = of(instance);
  return freerdp_channels_client_load_ex(instance->context->channels, instance->settings,
                                         enterChannel, &client.m_channel) == 0
             ? TRUE
             : FALSE;
}

BOOL RdpClient::postConnect(freerdp* instance) {
  if (gdi_init(instance, PIXEL_FORMAT_RGB16) == FALSE) return FALSE;
  rdpUpdate* update = instance->update;
  update->BeginPaint = forgetPainted;
  update->EndPaint = forgetPainted;
  update->DesktopResize = resize;
  return TRUE;
}

void RdpClient::postDisconnect(freerdp* instance) {
  gdi_free(instance);
}

// Called only for a certificate that is neither vouched for nor named by the user.
DWORD RdpClient::verifyCertificate(freerdp* instance, const char* host, UINT16 /*port*/,
                                   const char* commonName, const char* /*subject*/,
                                   const char* issuer, const char* fingerprint, DWORD flags) {
  std::string& why = of(instance).m_refusedCertificate;
  try {
    why =
        "the server's certificate is not trusted: it was issued by \"" + textOr(issuer, "") + "\"";
    if ((flags & VERIFY_CERT_FLAG_MISMATCH) != 0) {
      why += " for \"" + textOr(commonName, "") + "\", not for \"" + textOr(host, "") + "\"";
    }
    why += ". If that is your server, add --accept-certificate " + textOr(fingerprint, "SHA256");
  } catch (const std::exception&) {
    // Out of memory: it is refused all the same.
  }
  return 0;
}

RdpClient::Outcome RdpClient::run() noexcept {
  m_wasConnected = freerdp_connect(m_instance) == TRUE;
  if (m_wasConnected) {
    const auto begun = Clock::now();
    rdpUpdate* update = m_instance->update;
    if (update->SuppressOutput != nullptr) update->SuppressOutput(m_instance->context, 0, nullptr);
    stayConnected();
    m_connectedFor = Clock::now() - begun;
  }
  Outcome result = outcome();
  freerdp_disconnect(m_instance);
  return result;
}

void RdpClient::stayConnected() {
  rdpContext* context = m_instance->context;
  while (freerdp_shall_disconnect(m_instance) == FALSE) {
    ResetEvent(m_wake.get());
    m_channel.drain();
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> events{};
    DWORD count = freerdp_get_event_handles(context, events.data(), MAXIMUM_WAIT_OBJECTS - 2);
    if (count == 0) return;
    events[count++] = context->abortEvent;
    events[count++] = m_wake.get();
    if (WaitForMultipleObjects(count, events.data(), FALSE, INFINITE) == WAIT_FAILED) return;
    if (freerdp_check_event_handles(context) == FALSE) return;
  }
}

RdpClient::Outcome RdpClient::outcome() const {
  Outcome result;
  result.wasConnected = m_wasConnected;
  const UINT32 error = freerdp_get_last_error(m_instance->context);
  result.lasted = m_connectedFor >= kLasting && !isTakenAway(error);
  result.atLogOn = perhapsRefused();
  result.permanent = !m_refusedCertificate.empty() || isPermanent(error);
  result.why = m_refusedCertificate.empty() ? lastError() : m_refusedCertificate;
  return result;
}

// The server has hung up after it had agreed on how to log on.
bool RdpClient::perhapsRefused() const {
  return m_failure == FREERDP_ERROR_CONNECT_TRANSPORT_FAILED && !m_target.user.empty() &&
         m_instance->settings->SelectedProtocol != 0 && !m_wasSilent;
}

std::string RdpClient::server() const {
  return m_target.host.front() == '/' ? m_target.host
                                      : m_target.host + ":" + std::to_string(m_target.port);
}

std::string RdpClient::lastError() const {
  if (m_wasSilent) {
    return server() + " has not answered within " + std::to_string(m_target.answerLimit.count()) +
           " s";
  }
  const UINT32 error =
      m_failure != FREERDP_ERROR_SUCCESS ? m_failure : freerdp_get_last_error(m_instance->context);
  if (error == FREERDP_ERROR_SUCCESS) return server() + " ended the connection";
  if (isPermanent(error)) {
    return server() + " refused " +
           (m_target.user.empty() ? "a log-on without a user name"
                                  : "user \"" + m_target.user + "\"") +
           ": " + freerdp_get_last_error_string(error);
  }
  std::string why = server() + ": " + freerdp_get_last_error_string(error);
  if (perhapsRefused()) {
    why += " Perhaps it does not know user \"" + m_target.user +
           "\" with this password, or allows no channels.";
  }
  if (error == FREERDP_ERROR_SECURITY_NEGO_CONNECT_FAILED && m_target.user.empty()) {
    why += " It may require a user: add --credentials FILE.";
  }
  return why;
}

std::optional<RdpClient::Clock::time_point> RdpClient::answerDeadline() const {
  if (m_active) return std::nullopt;
  return m_waitingSince.load() + m_target.answerLimit;
}

void RdpClient::endIfSilent() {
  const auto deadline = answerDeadline();
  if (!deadline || Clock::now() < *deadline) return;
  m_wasSilent = true;
  end();
}

// As freerdp_abort_connect() does it, which also logs: the library's list of logs has no lock, and
// the thread that connects may be extending it.
void RdpClient::end() {
  rdpContext& context = *m_instance->context;
  if (context.LastError == FREERDP_ERROR_SUCCESS) {
    context.LastError = FREERDP_ERROR_CONNECT_CANCELLED;
  }
  SetEvent(context.abortEvent);
  // The library waits indefinitely for a silent server and for one that reads nothing.
  cutSockets(m_target.host, m_target.port);
}

}  // namespace lumsar::host
