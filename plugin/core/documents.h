// What the JSON documents have in common. Used by the commands and the policy.
#pragma once

#include <QDebug>
#include <QJsonDocument>
#include <QString>

// Whether a text was JSON; logs why not. The null test comes first: a failed parse gives null.
inline bool isJson(const QJsonDocument& document, const QJsonParseError& error) {
  if (document.isNull()) {
    qWarning("Json command is NULL!");
    return false;
  }
  if (error.error != QJsonParseError::NoError) {
    qWarning() << "Parser json command failed! error:" << error.errorString();
    return false;
  }
  return true;
}

// The VM's version as the service reads it, such as "2.13".
inline QString versionText(unsigned short major, unsigned short minor) {
  return QStringLiteral("%1.%2").arg(major).arg(minor);
}
