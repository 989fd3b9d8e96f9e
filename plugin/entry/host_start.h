// The part of an initialisation that both kinds of host share.
#pragma once

#include <QString>

class Lumsar;

struct HostStart {
  const char* prefix;       // begins the line of a failed initialisation
  const char* connectedTo;  // begins the line of a success
  QString vmId = {};
  QString config = {};  // JSON text
  QString ipcName = QStringLiteral("lumsar");
  QString libDir = {};
};

// Reads the IPC settings from the configuration into `ipcName` and `libDir`.
void readSettings(HostStart& start);

// Initialises the object, builds its documents and connects it to the camera service; a Status.
int startHost(Lumsar& self, const HostStart& start);
