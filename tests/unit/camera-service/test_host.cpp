// The tests' service and hosts: see test_host.h.
#include "unit/camera-service/test_host.h"

#include <algorithm>

#include "base/text/bytes.h"
#include "json/json.h"
#include "protocol/camera_record.h"

namespace lumsar::test {

Record parseRecord(std::span<const unsigned char> payload) {
  Record record;
  record.arrival = cameraClock();
  const auto header = take<CameraDataHeader>(payload);
  if (!header) return record;
  record.kind = static_cast<CameraDataKind>(header->kind);
  record.camera = header->camera;
  record.time = header->time;
  if (record.kind == CameraDataKind::Announced) {
    record.announced = take<CameraAnnounced>(payload).value_or(CameraAnnounced{});
    record.id = takeText(payload, record.announced.idLength).value_or("");
    record.name = takeText(payload, record.announced.nameLength).value_or("");
  } else if (record.kind == CameraDataKind::Frame) {
    record.frame = take<CameraFrame>(payload).value_or(CameraFrame{});
    record.picture.assign(payload.begin(), payload.end());
  } else {
    record.text = base::textOf(payload);
  }
  return record;
}

void RecordLog::add(std::span<const unsigned char> payload) {
  Record record = parseRecord(payload);
  const std::lock_guard lock(m_mutex);
  m_records.push_back(std::move(record));
}

std::vector<Record> RecordLog::all() const {
  const std::lock_guard lock(m_mutex);
  return m_records;
}

std::vector<Record> RecordLog::of(CameraDataKind kind) const {
  std::vector<Record> records = all();
  std::erase_if(records, [kind](const Record& record) { return record.kind != kind; });
  return records;
}

std::size_t RecordLog::count(CameraDataKind kind) const {
  const std::lock_guard lock(m_mutex);
  return static_cast<std::size_t>(std::ranges::count(m_records, kind, &Record::kind));
}

void RecordLog::clear() {
  const std::lock_guard lock(m_mutex);
  m_records.clear();
}

Record RecordLog::await(CameraDataKind kind, std::size_t count) const {
  if (!eventually([&] { return this->count(kind) >= count; })) {
    ADD_FAILURE() << "no record of kind " << static_cast<int>(kind);
    return {};
  }
  return of(kind).at(count - 1);
}

bool RecordLog::awaitFrameOf(PictureSize size) const {
  std::size_t seen = all().size();
  return eventually([&] {
    const std::vector<Record> records = all();
    for (; seen < records.size(); ++seen) {
      if (records[seen].kind == CameraDataKind::Frame && jpegSize(records[seen].picture) == size &&
          records[seen].frame.width == size.width && records[seen].frame.height == size.height) {
        return true;
      }
    }
    return false;
  });
}

TestHost::TestHost(const std::string& channel, const std::string& vmId)
    : recorder(vmId), m_vmId(vmId) {
  recorder.keep = false;
  recorder.duringReceive = [this](unsigned char* data, int length) {
    const std::span message(data, static_cast<std::size_t>(length));
    const auto payload = message.subspan(kHeaderSize);
    const std::uint32_t type = readHeader(data).type;
    if (type == IPC_MSG_DATA) records.add(payload);
    if (type != IPC_MSG_DEVICE_CHANGE) return;
    const std::lock_guard lock(m_mutex);
    m_changes.push_back(json::readObject(base::textOf(payload)).object);
  };
  m_client = std::make_unique<ipc::IpcClient>(recorder.params());
  EXPECT_EQ(m_client->connect(channel.c_str()), 0);
}

void TestHost::send(std::uint32_t type, const std::string& text) {
  EXPECT_EQ(m_client->send(message(type, text)), 0);
}

void TestHost::command(std::uint32_t type, QJsonObject object) {
  object["vmId"] = json::qt(m_vmId);
  send(type, json::compact(object));
}

void TestHost::policy(QJsonObject rule) {
  const QJsonObject document = {{"command", "setpolicy"},
                                {"policy", QJsonArray{rule}},
                                {"version", "1.1"},
                                {"vm_id", json::qt(m_vmId)},
                                {"rdrName", "lumsar"}};
  send(IPC_MSG_POLICY, json::compact(document) + std::string(1, '\0'));
}

void TestHost::fromVm(CameraDataKind kind, std::uint32_t camera,
                      std::span<const unsigned char> body) {
  const Bytes bytes = record(kind, camera, body, cameraClock());
  EXPECT_EQ(m_client->send(message(IPC_MSG_DATA, bytes)), 0);
}

QJsonObject TestHost::call(std::uint32_t type, const std::string& payload) {
  Bytes reply(256U << 10U);
  auto size = static_cast<unsigned int>(reply.size());
  EXPECT_EQ(m_client->call(message(type, payload), reply.data(), &size), 0);
  EXPECT_EQ(readHeader(reply.data()).param, 0U);
  const auto text = base::textOf(std::span(reply).first(size).subspan(kHeaderSize));
  const json::Reading json = json::readObject(text);
  EXPECT_EQ(json.error, "");
  return json.object;
}

void TestHost::showsH264(bool shows) {
  std::vector<std::uint32_t> encodings = {kEncodingMjpg};
  if (shows) encodings.push_back(kEncodingH264);
  const protocol::Message made = protocol::encodingsMessage(IPC_MSG_DATA, encodings);
  EXPECT_EQ(m_client->send(Bytes(made.bytes().begin(), made.bytes().end())), 0);
}

QJsonObject TestHost::list() {
  return call(IPC_MSG_CAMERA_LIST);
}
QJsonObject TestHost::status() {
  return call(IPC_MSG_STATUS);
}

QJsonObject TestHost::control(const QJsonObject& command) {
  return call(IPC_MSG_CONTROL, json::compact(command));
}

QJsonObject TestHost::camera(const QJsonObject& report, const std::string& id) {
  for (const QJsonValue& value : report.value("cameras").toArray()) {
    if (value.toObject().value("id").toString() == json::qt(id)) return value.toObject();
  }
  return {};
}

bool TestHost::awaitCamera(const std::string& id) {
  return eventually([&] { return camera(list(), id).value("present").toBool(); });
}

std::vector<QJsonObject> TestHost::changes() const {
  const std::lock_guard lock(m_mutex);
  return m_changes;
}

QJsonObject TestHost::awaitChange(const QString& change, std::size_t count) const {
  QJsonObject result;
  const bool came = eventually([&] {
    std::size_t seen = 0;
    for (const QJsonObject& candidate : changes()) {
      if (candidate.value("change").toString() != change || ++seen < count) continue;
      result = candidate;
      return true;
    }
    return false;
  });
  EXPECT_TRUE(came) << "no device change '" << change.toStdString() << "'";
  return result;
}

QJsonObject TestHost::withDevice(const char* command, const std::string& device) {
  return {{"command", command}, {"deviceId", json::qt(device)}};
}

ServiceTest::ServiceTest() {
  ::setenv("XDG_RUNTIME_DIR", dir.path().c_str(), 1);
}

ServiceTest::~ServiceTest() {
  m_host.reset();
  if (!m_service) return;
  m_service->signal(SIGTERM);
  EXPECT_EQ(m_service->wait(), 0) << log();
}

void ServiceTest::start(std::vector<std::string> options, const ProcessSetup& setup) {
  std::vector<std::string> command = {CAMERA_SERVICE, "--verbose", "--ipc-channel", channel};
  command.insert(command.end(), options.begin(), options.end());
  m_service = std::make_unique<Process>(command, setup);
  EXPECT_TRUE(m_service->says("listening at")) << log();
}

std::uint32_t ServiceTest::watch(TestHost& host, const std::string& device) {
  const std::size_t before = host.records.count(CameraDataKind::Announced);
  EXPECT_TRUE(host.awaitCamera(device));
  host.share(device);
  const std::uint32_t number = host.records.await(CameraDataKind::Announced, before + 1).camera;
  host.fromVm(CameraDataKind::Start, number);
  const bool came = eventually([&] {
    return std::ranges::any_of(host.records.of(CameraDataKind::Frame),
                               [&](const Record& record) { return record.camera == number; });
  });
  EXPECT_TRUE(came) << "no frame of " << device;
  return number;
}

}  // namespace lumsar::test
