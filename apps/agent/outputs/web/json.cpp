// JSON writing. Called by the status writer.
// No I/O; bound to one thread.
#include "outputs/web/json.h"

#include <array>
#include <cstdio>

namespace lumsar::agent {

JsonWriter& JsonWriter::text(std::string_view name, std::string_view value) {
  key(name);
  quoted(value);
  return *this;
}

JsonWriter& JsonWriter::real(std::string_view name, double value, int decimals) {
  std::array<char, 64> digits{};
  std::snprintf(digits.data(), digits.size(), "%.*f", decimals, value);
  return plain(name, digits.data());
}

JsonWriter& JsonWriter::begin(std::string_view name, char bracket) {
  key(name);
  m_result.push_back(bracket);
  return *this;
}

JsonWriter& JsonWriter::end(char bracket) {
  m_result.push_back(bracket);
  return *this;
}

JsonWriter& JsonWriter::plain(std::string_view name, std::string_view value) {
  key(name);
  m_result.append(value);
  return *this;
}

void JsonWriter::key(std::string_view name) {
  if (!m_result.empty() && m_result.back() != '{' && m_result.back() != '[') {
    m_result.push_back(',');
  }
  if (name.empty()) return;
  quoted(name);
  m_result.push_back(':');
}

// Without '<', so that the text may stand in a page's script.
void JsonWriter::quoted(std::string_view value) {
  m_result.push_back('"');
  for (const char c : value) {
    if (c == '"' || c == '\\') m_result.push_back('\\');
    if (static_cast<unsigned char>(c) >= 0x20 && c != '<') {
      m_result.push_back(c);
      continue;
    }
    std::array<char, 8> escape{};
    std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
    m_result.append(escape.data());
  }
  m_result.push_back('"');
}

}  // namespace lumsar::agent
