// What is wrong with a configuration for the plug-in, which itself passes over it silently.
#pragma once

#include <QJsonObject>
#include <string>
#include <vector>

namespace lumsar::host {

// A line for each key that the plug-in does not read and each value that is not a text.
std::vector<std::string> configurationWarnings(const QJsonObject& configuration);

}  // namespace lumsar::host
