// The IPC settings in the host's configuration. Used by the entry points at initialisation.
#pragma once

#include <QString>
#include <string>

// Reads "ipc_name" and "relative_path" from `configText` (UTF-8, up to its first zero byte).
// `ipcName` is replaced by a non-empty name; a non-empty path is appended to `libDir`. True when
// the text is JSON and holds both keys; otherwise what has not been read keeps its value.
bool ParseConfigJson(const std::string& configText, QString* ipcName, QString* libDir);
