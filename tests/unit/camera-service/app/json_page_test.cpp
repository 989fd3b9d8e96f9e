// docs/json.md shows the keys that the service really writes, and no others.
#include <QJsonDocument>
#include <set>

#include "rules/policy.h"
#include "unit/camera-service/test_host.h"

namespace lumsar::test {
namespace {

using Keys = std::set<std::string>;

// Such as "cameras[].formats[].rate".
void addKeys(const QJsonValue& value, const std::string& path, Keys& keys) {
  const QJsonObject object = value.toObject();
  for (auto item = object.begin(); item != object.end(); ++item) {
    const std::string name = path + (path.empty() ? "" : ".") + item.key().toStdString();
    keys.insert(name);
    addKeys(*item, name, keys);
  }
  const QJsonArray array = value.toArray();
  for (const QJsonValue item : array) addKeys(item, path + "[]", keys);
}

Keys keysOf(const QJsonValue& value) {
  Keys keys;
  addKeys(value, "", keys);
  return keys;
}

// The first example below a heading of the page.
QJsonObject example(const std::string& heading) {
  const std::string page = readFile(LUMSAR_DOCS "/json.md");
  const std::size_t section = page.find("\n## " + heading + "\n");
  const std::size_t begin = page.find("```json\n", section) + 8;
  const std::size_t end = page.find("```", begin);
  if (section == std::string::npos || end == std::string::npos) return {};
  const QByteArray text = QByteArray::fromStdString(page.substr(begin, end - begin));
  QJsonParseError error{};
  const QJsonObject object = QJsonDocument::fromJson(text, &error).object();
  EXPECT_EQ(error.error, QJsonParseError::NoError) << heading << ": " << text.constData();
  return object;
}

std::string shown(const QJsonObject& object) {
  return QJsonDocument(object).toJson().toStdString();
}

class JsonPageTest : public ServiceTest {
 protected:
  // A camera that runs, one that is waited for, and a policy that had to be corrected.
  void startAll() {
    start({"--camera", "test:Front,640x480@30"});
    host().policy({{"cameraQuality", 200}});
    watch(host(), "test:Front");
    host().share("file:late.jpg");
    host().awaitChange("waiting");
    host().unshare("nobody");
    host().awaitChange("refused");
    host().control({{"command", "share"}, {"deviceId", "test:Front"}, {"client", 1}});
    host().awaitChange("shared");
  }
};

TEST_F(JsonPageTest, ShowsTheList) {
  startAll();
  const QJsonObject list = host().list();
  EXPECT_EQ(keysOf(example("The list")), keysOf(list)) << shown(list);
}

TEST_F(JsonPageTest, ShowsADeviceChange) {
  startAll();
  host().unshare("test:Front");
  host().unshare("test:Front");
  const QJsonObject change = host().awaitChange("refused", 2);
  EXPECT_EQ(keysOf(example("Device changes")), keysOf(change)) << shown(change);
}

TEST_F(JsonPageTest, ShowsTheStatusOfTheService) {
  startAll();
  host().records.await(CameraDataKind::Frame, 2);
  const QJsonObject status = host().status();
  EXPECT_EQ(keysOf(example("The camera service's status")), keysOf(status)) << shown(status);
}

TEST_F(JsonPageTest, ShowsAPolicyThatNeedsNoCorrection) {
  const service::PolicyReading reading = service::readPolicy(shown(example("The policy")), true);
  ASSERT_TRUE(reading.policy.has_value()) << reading.error;
  EXPECT_TRUE(reading.notes.empty()) << reading.notes.front();
  EXPECT_EQ(reading.policy->rules.size(), 2U);
}

}  // namespace
}  // namespace lumsar::test
