// Writes one JSON text from the outside in, with its commas and quotation marks.
#pragma once

#include <concepts>
#include <string>
#include <string_view>

namespace lumsar::agent {

class JsonWriter {
 public:
  JsonWriter& beginObject(std::string_view name = {}) { return begin(name, '{'); }
  JsonWriter& beginArray(std::string_view name = {}) { return begin(name, '['); }
  JsonWriter& endObject() { return end('}'); }
  JsonWriter& endArray() { return end(']'); }

  // Cleaned, as people read it in terminals.
  JsonWriter& text(std::string_view name, std::string_view value);
  JsonWriter& boolean(std::string_view name, bool value) {
    return plain(name, value ? "true" : "false");
  }
  JsonWriter& number(std::string_view name, std::integral auto value) {
    return plain(name, std::to_string(value));
  }
  // With `decimals` digits after the point.
  JsonWriter& real(std::string_view name, double value, int decimals);

  const std::string& result() const { return m_result; }

 private:
  JsonWriter& begin(std::string_view name, char bracket);
  JsonWriter& end(char bracket);
  JsonWriter& plain(std::string_view name, std::string_view value);
  void key(std::string_view name);
  void quoted(std::string_view value);

  std::string m_result;
};

}  // namespace lumsar::agent
