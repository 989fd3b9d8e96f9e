// The command line of all programs: one grammar, and the same words for the same mistakes.
#pragma once

#include <chrono>
#include <concepts>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumsar::base {

// From an option's value to what it stands for. These throw UsageError with what is expected.
void convert(const std::string& value, std::string& result);
void convert(const std::string& value, std::chrono::milliseconds& result);
std::uint64_t parseNumber(const std::string& value, std::uint64_t largest);

template <std::unsigned_integral Number>
void convert(const std::string& value, Number& result) {
  result = static_cast<Number>(parseNumber(value, std::numeric_limits<Number>::max()));
}
template <class Value>
void convert(const std::string& value, std::optional<Value>& result) {
  convert(value, result.emplace());
}
template <class Value>
void convert(const std::string& value, std::vector<Value>& result) {
  convert(value, result.emplace_back());
}

class CommandLine {
 public:
  using Take = std::function<void(const std::string& value)>;

  // `usage` follows the program's name, `summary` says what the program does.
  CommandLine(std::string program, std::string usage, std::string summary);

  // The heading of the options that follow.
  void group(std::string heading);

  // `spec` is the option as --help shows it, and says how it takes its value:
  //   "--json"            a flag, for which `take` gets ""
  //   "--listen ADDRESS"  the next word or after "="
  //   "--view [PORT]"     the same, or none: ""
  //   "--xrdp[=LIBRARY]"  after "=" only, or none: ""
  // `take` is called for each time that the option is given; what it throws is said of the option.
  void option(const std::string& spec, Take take, std::string help);
  void option(const std::string& spec, bool& flag, std::string help);
  // A vector collects the values; of anything else the last counts.
  template <class Value>
  requires requires(const std::string& text, Value& value) { convert(text, value); }
  void option(const std::string& spec, Value& value, std::string help) {
    option(
        spec, [&value](const std::string& text) { convert(text, value); }, std::move(help));
  }

  // The one argument that is not an option. Without it there must be none.
  void argument(std::string& value) { m_argument = &value; }

  // No two of these options together.
  void exclusive(std::vector<std::string> names) { m_exclusive.push_back(std::move(names)); }

  // Adds "--config FILE": lines such as "deny = Front", the options of these names without their
  // dashes, which come before those of the command line; `byDefault` need not be there, and may be
  // empty. Not read when the option `unless` is given.
  void configFile(std::string byDefault, std::vector<std::string> names, std::string unless,
                  std::string help);

  // Paragraphs after the options, such as the exit statuses.
  void section(std::string heading, std::string text);
  // The same of things that are explained, laid out as the options are, such as examples, files and
  // environment variables.
  using Entries = std::vector<std::pair<std::string, std::string>>;
  void section(std::string heading, const Entries& entries);

  // False when --help or --version has been answered and the program should end with 0.
  // Throws UsageError.
  bool parse(int argc, const char* const* argv) const;

  std::string help() const;

 private:
  enum class Value { None, Required, Optional, OptionalAfterEquals };
  struct Option {
    std::string group;
    std::string spec;
    std::string name;
    Value value = Value::None;
    Take take;
    std::string help;
  };

  struct ConfigFile {
    std::string byDefault;
    std::vector<std::string> names;
    std::string unless;
  };

  // `shown` is what an error says of the option.
  static void take(const Option& option, const std::string& value, const std::string& shown);
  void readConfigFile(const std::vector<std::string>& given) const;
  void readConfigLine(std::string_view line, const std::string& where) const;
  void checkExclusive(const std::vector<std::string>& given) const;

  std::string m_program;
  std::string m_usage;
  std::string m_summary;
  std::string m_group = "Options";
  std::vector<Option> m_options;
  std::string* m_argument = nullptr;
  std::vector<std::vector<std::string>> m_exclusive;
  std::optional<ConfigFile> m_configFile;
  std::vector<std::pair<std::string, std::string>> m_sections;
};

[[noreturn]] void refuseChoice(const std::string& value, const std::vector<std::string>& names);

// For an option whose value is one of several words, such as "--protocol spice|rdp".
template <class Value>
CommandLine::Take choice(Value& result, std::vector<std::pair<std::string, Value>> choices) {
  return [&result, choices = std::move(choices)](const std::string& value) {
    std::vector<std::string> names;
    for (const auto& [name, meaning] : choices) {
      names.push_back(name);
      if (name != value) continue;
      result = meaning;
      return;
    }
    refuseChoice(value, names);
  };
}

// The body of main(): what `body` throws becomes a line on standard error and an exit status, 2 for
// a UsageError and 1 for everything else.
int runProgram(const char* name, const std::function<int()>& body);

}  // namespace lumsar::base
