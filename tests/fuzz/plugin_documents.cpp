// The plug-in's JSON: a host's configuration and commands, and the service's list of cameras.
// Whatever the texts, what the plug-in makes of them for the service is JSON.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "core/exports.h"
#include "core/lumsar.h"
#include "fuzz/input.h"
#include "fuzz/qt_json.h"
#include "ipc/ipc_settings.h"
#include "support/messages.h"

namespace {

using namespace lumsar;
using fuzz::Input;
using fuzz::require;
using test::View;

test::Bytes listReply;

QJsonObject readJson(View text) {
  const auto* data = reinterpret_cast<const char*>(text.data());
  const auto document = QJsonDocument::fromJson(QByteArray(data, static_cast<int>(text.size())));
  return document.object();
}

int sendToService(void*, const unsigned char* data, int length) {
  const View message(data, static_cast<std::size_t>(length));
  const RedirMsgHeader header = readHeader(data);
  View payload = message.subspan(kHeaderSize);
  require(header.magic == kMagic && header.length == payload.size(), "its header is true");
  if (header.type == IPC_MSG_POLICY) {
    require(!payload.empty() && payload.back() == 0, "a policy ends with a zero byte");
    payload = payload.first(payload.size() - 1);
  }
  const QJsonObject command = readJson(payload);
  require(command.contains("command"), "a command is JSON");
  require(header.type != IPC_MSG_SHARE || command["vmId"] == "vm-7", "a share names the VM");
  require(header.type != IPC_MSG_POLICY || command["vm_id"] == "vm-7", "a policy names the VM");
  // A success would be followed by 200 ms of waiting.
  return header.type == IPC_MSG_CONNECT_VM ? STATUS_NOT_CONNECTED : STATUS_OK;
}

int askService(void*, const unsigned char*, unsigned int, unsigned char* reply,
               unsigned int* replyLength) {
  const unsigned int capacity = reply == nullptr ? 0 : *replyLength;
  *replyLength = static_cast<unsigned int>(listReply.size());
  if (capacity < listReply.size()) return kIpcReplyTooLarge;
  std::ranges::copy(listReply, reply);
  return 0;
}

Lumsar& object() {
  static Lumsar* const self = [] {
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    Lumsar* made = Lumsar::GetInstance();
    made->m_ipcClient = &listReply;
    made->m_initialized = true;
    made->m_vmId = "vm-7";
    made->m_ipcClientSendData = sendToService;
    made->m_ipcClientSyncCall = askService;
    made->m_isIpcClientConnected = [](void*) { return true; };
    return made;
  }();
  return *self;
}

void command(Input& input) {
  const int capacity = input.byte() * 4;
  listReply = test::message(IPC_MSG_CAMERA_LIST, input.piece(), input.byte() % 2);
  const std::string text = test::textOf(input.rest());
  std::vector<char> output(static_cast<std::size_t>(capacity));
  int size = capacity;
  const int status = Ctrl(text, output.empty() ? nullptr : output.data(), size);
  require(status != STATUS_OK || size >= 0, "a length is not negative");
  const bool list = status == STATUS_OK && readJson(test::bytesOf(text))["command"] == "list";
  if (!list || size > capacity) return;
  const View payload = View(listReply).subspan(kHeaderSize);
  require(std::ranges::equal(View(test::bytesOf({output.data(), payload.size()})), payload),
          "the host gets the service's list");
}

void configuration(Input& input) {
  Lumsar& self = object();
  self.m_policyJson.clear();
  const unsigned char version = input.byte();
  const std::string text = test::textOf(input.rest());
  const bool good = self.SetConfigAndPolicy(QString::fromStdString(text));
  require(good != self.m_policyJson.isEmpty(), "a policy is made of JSON only");
  self.UpdatePolicy(version, version);
  if (!good) return require(self.m_policyJson.isEmpty(), "no policy is made of none");
  const QByteArray policy = self.m_policyJson.toUtf8();
  const QJsonObject object = QJsonDocument::fromJson(policy).object();
  require(object["policy"].toArray().size() == 1, "the policy has one rule");
  require(object["version"] == QString("%1.%1").arg(version), "and the VM's version");
}

void settings(Input& input) {
  QString name = "lumsar";
  QString directory = "/usr/lib";
  const bool both = ParseConfigJson(test::textOf(input.rest()), &name, &directory);
  require(!name.isEmpty(), "an empty name leaves the one before");
  require(directory.startsWith("/usr/lib"), "the path is appended");
  require(both || directory == "/usr/lib", "nothing is appended by half a configuration");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  object();
  switch (input.byte() % 3) {
    case 0:
      command(input);
      break;
    case 1:
      configuration(input);
      break;
    default:
      settings(input);
  }
  return 0;
}
