// A camera service in a process of its own, and hosts that talk to it as the plug-in would, with
// the VM's part played by the test. Test's main thread; records arrive on the client's threads.
#pragma once

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>
#include <memory>

#include "ipc/client/client.h"
#include "lumsar/camera_data.h"
#include "support/messages.h"
#include "support/process.h"
#include "support/temporary_directory.h"
#include "unit/camera-service/media.h"
#include "unit/ipc/recorder.h"

namespace lumsar::test {

// One camera data record.
struct Record {
  CameraDataKind kind{};
  std::uint32_t camera = 0;
  std::uint64_t time = 0;
  std::uint64_t arrival = 0;
  CameraAnnounced announced;
  std::string id;
  std::string name;
  CameraFrame frame;
  Bytes picture;
  std::string text;
};
Record parseRecord(std::span<const unsigned char> payload);

// What a VM has received, by whatever way.
class RecordLog {
 public:
  void add(std::span<const unsigned char> payload);
  std::vector<Record> all() const;
  std::vector<Record> of(CameraDataKind kind) const;
  std::size_t count(CameraDataKind kind) const;
  void clear();
  // The `count`th record of this kind; fails the test when it does not come.
  Record await(CameraDataKind kind, std::size_t count = 1) const;
  // A frame that comes from now on and has this size.
  bool awaitFrameOf(PictureSize size) const;

 private:
  mutable std::mutex m_mutex;
  std::vector<Record> m_records;
};

class TestHost {
 public:
  explicit TestHost(const std::string& channel, const std::string& vmId = "vm-7");

  void send(std::uint32_t type, const std::string& text = {});
  void command(std::uint32_t type, QJsonObject object);
  void share(const std::string& device) { command(IPC_MSG_SHARE, withDevice("share", device)); }
  void unshare(const std::string& device) {
    command(IPC_MSG_UNSHARE, withDevice("unshare", device));
  }
  void policy(QJsonObject rule);
  void fromVm(CameraDataKind kind, std::uint32_t camera, std::span<const unsigned char> body = {});

  void showsH264(bool shows);

  QJsonObject list();
  QJsonObject status();
  // As lumsar-cameras; `client` is a host's number.
  QJsonObject control(const QJsonObject& command);
  // The entry of `id` in the list's or status's cameras; empty when there is none.
  static QJsonObject camera(const QJsonObject& report, const std::string& id);
  bool awaitCamera(const std::string& id);
  bool isRunning(const std::string& id) { return camera(status(), id).value("running").toBool(); }

  std::vector<QJsonObject> changes() const;
  // The first device change with this "change"; fails the test when it does not come.
  QJsonObject awaitChange(const QString& change, std::size_t count = 1) const;

  const std::string& vmId() const { return m_vmId; }
  ipc::IpcClient& client() { return *m_client; }
  RecordLog records;
  Recorder recorder;

  static QJsonObject withDevice(const char* command, const std::string& device);

 private:
  QJsonObject call(std::uint32_t type, const std::string& payload = {});

  const std::string m_vmId;
  mutable std::mutex m_mutex;
  std::vector<QJsonObject> m_changes;
  std::unique_ptr<ipc::IpcClient> m_client;
};

class ServiceTest : public ::testing::Test {
 protected:
  ServiceTest();
  ~ServiceTest() override;

  // Starts the service with these options and waits until it listens.
  void start(std::vector<std::string> options = {}, const ProcessSetup& setup = {});
  std::string log() { return m_service ? m_service->output() : ""; }
  std::unique_ptr<TestHost> newHost(const std::string& vmId = "vm-7") {
    return std::make_unique<TestHost>(channel, vmId);
  }
  // The one of most tests, which connects when it is first asked for.
  TestHost& host() {
    if (!m_host) m_host = newHost();
    return *m_host;
  }
  // Shares `device`, starts it and waits for the first frame; returns the camera's number.
  static std::uint32_t watch(TestHost& host, const std::string& device);

  TemporaryDirectory dir;
  std::string channel = dir / "s";
  std::unique_ptr<Process> m_service;
  std::unique_ptr<TestHost> m_host;
};

}  // namespace lumsar::test
