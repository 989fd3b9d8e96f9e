// Called by the entry points at initialisation, on the host's thread.
#include "ipc/ipc_settings.h"

#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>

bool ParseConfigJson(const std::string& configText, QString* ipcName, QString* libDir) {
  constexpr const char* kFunction = "ParseConfigJson";
  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(QByteArray(configText.c_str()), &error);
  qInfo("[ParseConfigJson] Enter!");
  if (document.isNull()) {
    qWarning("[%s][%d] Json command is NULL!", kFunction, 41);
    return false;
  }
  if (error.error != QJsonParseError::NoError) {
    qWarning("[%s][%d] Parser config_json failed! error:%s\n", kFunction, 46,
             error.errorString().toUtf8().constData());
    return false;
  }

  const QJsonObject config = document.object();
  const QString nameKey = QStringLiteral("ipc_name");
  if (!config.contains(nameKey)) {
    qWarning("[%s][%d] Cannot find item[ipc_name]!", kFunction, 68);
    return false;
  }
  const QString name = config[nameKey].toString();
  if (name.isEmpty()) {
    qWarning("[%s][%d] Get [ipc_name] value is NULL!", kFunction, 62);
  } else {
    *ipcName = name;
  }
  qInfo() << "Use ipc channel name:" << *ipcName;

  const QString pathKey = QStringLiteral("relative_path");
  if (!config.contains(pathKey)) {
    qWarning("[%s][%d] Cannot find item[relative_path]!", kFunction, 89);
    return false;
  }
  QString path = config[pathKey].toString();
  qInfo() << "[ParseConfigJson] path:" << path;
  if (path.isEmpty()) {
    qWarning("[%s][%d] Get [relative_path] value is NULL!", kFunction, 83);
  } else {
    // No separator is added and "../" loses its second dot: existing configurations rely on it.
    libDir->append(path.replace(QLatin1String("./"), QLatin1String("/")));
  }
  qInfo() << "Use ipc lib path:" << *libDir;
  qInfo("[ParseConfigJson] Leave!");
  return true;
}
