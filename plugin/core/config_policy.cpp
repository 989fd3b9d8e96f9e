// The configuration document that the host gives and the policy document made from it, which tells
// the camera service how cameras for this VM are captured and encoded.
// Called on the host's threads: at initialisation, and when the VM's HELLO arrives.
#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "core/documents.h"
#include "core/lumsar.h"
#include "core/relaxed.h"

namespace {

QString compactText(const QJsonObject& object) {
  return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

// Numbers come as JSON strings; a value of any other JSON type counts as 0.
int integerOr(const QJsonObject& config, const QString& key, int absent) {
  return config.contains(key) ? config[key].toString().toInt() : absent;
}

QJsonValue valueOr(const QJsonObject& config, const QString& key, const char* absent) {
  return config.contains(key) ? config[key] : QJsonValue(QLatin1String(absent));
}

// One width for both sides is intentional: there is no key for the height.
QString maxResolution(const QJsonObject& config) {
  const QString key = QStringLiteral("max_width");
  if (!config.contains(key)) return QStringLiteral("1920*1080");
  const QString width = config[key].toString();
  return width + QLatin1Char('*') + width;
}

QJsonObject cameraPolicy(const QJsonObject& config) {
  QJsonObject policy;
  policy[QStringLiteral("cameraVID")] = QString();
  policy[QStringLiteral("cameraPID")] = QString();
  // "Internal" where one expects "Interval": the key that the service reads.
  policy[QStringLiteral("cameraFrameInternal")] =
      integerOr(config, QStringLiteral("frame_interval"), 0);
  policy[QStringLiteral("cameraMaxResolution")] = maxResolution(config);
  policy[QStringLiteral("cameraQuality")] = integerOr(config, QStringLiteral("quality"), 50);
  policy[QStringLiteral("cameraEncodeType")] =
      valueOr(config, QStringLiteral("encode_type"), "H264");
  policy[QStringLiteral("cameraCodec")] = valueOr(config, QStringLiteral("codec"), "Auto");
  // Read as "enable_FRC" although the built-in configuration spells it "encode_FRC": intentional.
  policy[QStringLiteral("cameraEnableFRC")] = valueOr(config, QStringLiteral("enable_FRC"), "ON");
  policy[QStringLiteral("cameraPixelFormat")] =
      QJsonArray{QStringLiteral("MJPG"), QStringLiteral("YUYV")};
  policy[QStringLiteral("cameraFullSimulate")] = QStringLiteral("ON");
  return policy;
}

}  // namespace

bool Lumsar::SetConfigAndPolicy(QString config) {
  if (config.isEmpty()) {
    qWarning("[%s][%d] >>>>Lumsar configuration is NULL!!!<<<<\n", "SetConfigAndPolicy", 717);
    return false;
  }
  m_configJson = config;
  qInfo() << "SetConfigAndPolicy: configuration:\n" << m_configJson;

  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(config.toUtf8(), &error);
  if (!isJson(document, error)) return false;

  QJsonObject policy;
  policy[QStringLiteral("command")] = QStringLiteral("setpolicy");
  policy[QStringLiteral("policy")] = QJsonArray{cameraPolicy(document.object())};
  policy[QStringLiteral("version")] = versionText(m_vmVersionMajor, m_vmVersionMinor);
  policy[QStringLiteral("vm_id")] = m_vmId;
  policy[QStringLiteral("rdrName")] = QStringLiteral("lumsar");
  m_policyJson = compactText(policy);
  qInfo() << "SetConfigAndPolicy: policy:\n" << m_policyJson;
  return true;
}

void Lumsar::UpdatePolicy(unsigned short major, unsigned short minor) {
  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(m_policyJson.toUtf8(), &error);
  if (!isJson(document, error)) return;

  QJsonObject policy = document.object();
  storeRelaxed(m_vmVersionMajor, major);
  storeRelaxed(m_vmVersionMinor, minor);
  policy[QStringLiteral("version")] = versionText(major, minor);
  m_policyJson = compactText(policy);
  qInfo() << "UpdatePolicy: new policy:\n" << m_policyJson;
}
