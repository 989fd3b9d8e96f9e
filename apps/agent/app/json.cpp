#include "app/json.h"

#include "base/text/format.h"
#include "base/text/utf8.h"

namespace lumsar::agent {

JsonWriter& JsonWriter::text(std::string_view name, std::string_view value) {
  key(name);
  quoted(base::clean(value, std::string::npos));
  return *this;
}

JsonWriter& JsonWriter::real(std::string_view name, double value, int decimals) {
  return plain(name, base::text("{:.{}f}", value, decimals));
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
    if (c == '<') {
      m_result += "\\u003c";
    } else {
      m_result.push_back(c);
    }
  }
  m_result.push_back('"');
}

}  // namespace lumsar::agent
