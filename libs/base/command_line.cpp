#include "base/command_line.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <fstream>

#include "base/errors.h"
#include "base/log.h"
#include "base/system/frame_memory.h"
#include "base/text/duration.h"
#include "base/text/format.h"
#include "base/text/utf8.h"
#include "base/version.h"

namespace lumsar::base {
namespace {

std::string joined(const std::vector<std::string>& words, const char* last) {
  std::string result;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) result += i + 1 == words.size() ? last : ", ";
    result += words[i];
  }
  return result;
}

// The parser would take the next word for the value.
void refuseEmptyValues(int argc, const char* const* argv) {
  for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
    const std::string_view word = argv[i];
    if (!word.starts_with("--") || word.find('=') != word.size() - 1) continue;
    throw UsageError(text("{} needs a value", word.substr(0, word.size() - 1)));
  }
}

void parseWords(CLI::App& app, int argc, const char* const* argv) {
  refuseEmptyValues(argc, argv);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ArgumentMismatch& error) {  // "--listen: 1 required"
    const std::string_view what = error.what();
    throw UsageError(text("{} needs a value", what.substr(0, what.find(':'))));
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
}

void refuseRest(const CLI::App& app) {
  bool onlyArguments = false;  // after "--", which stands among the rest
  for (const std::string& word : app.remaining()) {
    if (!onlyArguments && word.size() > 1 && word[0] == '-' && word != "--") {
      throw UsageError(text("unknown option {}", word.substr(0, word.find('='))));
    }
    if (onlyArguments || word != "--") throw UsageError(text("unexpected argument \"{}\"", word));
    onlyArguments = true;
  }
}

std::string_view trimmed(std::string_view text) {
  constexpr const char* kSpace = " \t\r";
  const std::size_t begin = std::min(text.find_first_not_of(kSpace), text.size());
  return text.substr(begin, text.find_last_not_of(kSpace) + 1 - begin);
}

constexpr std::size_t kHelpColumn = 25;
constexpr std::size_t kHelpWidth = 98;

// Words in lines that begin at the help's column.
std::string wrapped(std::string_view help) {
  std::string result;
  std::size_t column = kHelpColumn;
  while (!help.empty()) {
    const std::string_view word = help.substr(0, help.find(' '));
    help.remove_prefix(std::min(word.size() + 1, help.size()));
    if (column > kHelpColumn && column + 1 + word.size() > kHelpWidth) {
      result += text("\n{:{}}", "", kHelpColumn);
      column = kHelpColumn;
    } else if (column > kHelpColumn) {
      result += ' ';
      ++column;
    }
    result += word;
    column += word.size();
  }
  return result + '\n';
}

std::string optionHelp(const std::string& spec, const std::string& help) {
  const std::string left = "  " + spec;
  if (left.size() + 2 > kHelpColumn)
    return text("{}\n{:{}}{}", left, "", kHelpColumn, wrapped(help));
  return text("{:{}}{}", left, kHelpColumn, wrapped(help));
}

}  // namespace

void convert(const std::string& value, std::string& result) {
  result = value;
}

void convert(const std::string& value, std::chrono::milliseconds& result) {
  result = parseDuration(value);
}

std::uint64_t parseNumber(const std::string& value, std::uint64_t largest) {
  std::uint64_t number = 0;
  const char* end = value.data() + value.size();
  const auto [rest, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || rest != end || number > largest) {
    throw UsageError(text("\"{}\" is not a valid number; expected 0 to {}", value, largest));
  }
  return number;
}

void refuseChoice(const std::string& value, const std::vector<std::string>& names) {
  throw UsageError(text("\"{}\" is not valid; expected {}", value, joined(names, " or ")));
}

CommandLine::CommandLine(std::string program, std::string usage, std::string summary)
    : m_program(std::move(program)), m_usage(std::move(usage)), m_summary(std::move(summary)) {}

void CommandLine::group(std::string heading) {
  m_group = std::move(heading);
}

void CommandLine::option(const std::string& spec, Take take, std::string help) {
  const std::string name = spec.substr(0, spec.find_first_of(" ["));
  const std::string rest = spec.substr(name.size());
  const Value value = rest.empty()             ? Value::None
                      : rest.starts_with("[=") ? Value::OptionalAfterEquals
                      : rest.starts_with(" [") ? Value::Optional
                                               : Value::Required;
  m_options.push_back({m_group, spec, name, value, std::move(take), std::move(help)});
}

void CommandLine::option(const std::string& spec, bool& flag, std::string help) {
  option(
      spec, [&flag](const std::string&) { flag = true; }, std::move(help));
}

void CommandLine::configFile(std::string byDefault, std::vector<std::string> names,
                             std::string unless, std::string help) {
  option(
      "--config FILE", [](const std::string&) {}, std::move(help));
  m_configFile = {std::move(byDefault), std::move(names), std::move(unless)};
}

void CommandLine::section(std::string heading, std::string text) {
  m_sections.emplace_back(std::move(heading), std::move(text));
}

void CommandLine::section(std::string heading, const Entries& entries) {
  std::string text;
  for (const auto& [what, explanation] : entries) text += optionHelp(what, explanation);
  text.pop_back();
  section(std::move(heading), std::move(text));
}

bool CommandLine::parse(int argc, const char* const* argv) const {
  CLI::App app;
  app.set_help_flag();
  app.allow_extras();
  std::vector<CLI::Option*> parsed;
  for (const Option& option : m_options) {
    const int least = option.value == Value::Required ? 1 : 0;
    const int most = option.value == Value::Required || option.value == Value::Optional ? 1 : 0;
    parsed.push_back(app.add_option(option.name)
                         ->expected(least, most)
                         ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll));
  }
  const CLI::Option* help = app.add_flag("-h,--help");
  const CLI::Option* version = app.add_flag("--version");
  CLI::Option* argument = m_argument != nullptr ? app.add_option("argument") : nullptr;
  parseWords(app, argc, argv);
  if (*help) std::fputs(this->help().c_str(), stdout);
  if (*version && !*help) std::printf("%s %s\n", m_program.c_str(), kVersion);
  if (*help || *version) return false;
  refuseRest(app);
  const auto resultsOf = [&](const std::string& name) {
    const auto option = std::ranges::find(m_options, name, &Option::name);
    return parsed[static_cast<std::size_t>(option - m_options.begin())];
  };
  if (m_configFile && !*resultsOf(m_configFile->unless)) {
    readConfigFile(resultsOf("--config")->results());
  }
  std::vector<std::string> given;
  for (std::size_t i = 0; i < m_options.size(); ++i) {
    const Option& option = m_options[i];
    if (*parsed[i]) given.push_back(option.name);
    for (const std::string& value : parsed[i]->results()) take(option, value, option.name);
  }
  checkExclusive(given);
  if (argument != nullptr && *argument) *m_argument = argument->results().back();
  return true;
}

void CommandLine::take(const Option& option, const std::string& value, const std::string& shown) {
  if (option.value == Value::None && !value.empty()) {
    throw UsageError(text("{} takes no value", shown));
  }
  if (option.value == Value::Required && value.empty()) {
    throw UsageError(text("{} needs a value", shown));
  }
  try {
    option.take(value);
  } catch (const std::exception& error) {
    throw UsageError(text("{}: {}", shown, error.what()));
  }
}

void CommandLine::readConfigFile(const std::vector<std::string>& given) const {
  const std::string& path = given.empty() ? m_configFile->byDefault : given.back();
  errno = 0;
  std::ifstream file(path);
  std::string line;
  for (std::size_t number = 1; std::getline(file, line); ++number) {
    readConfigLine(trimmed(line), text("{}:{}: ", path, number));
  }
  const bool isMissing = errno == ENOENT || errno == ENOTDIR;
  if (file.eof() || (given.empty() && isMissing)) return;
  throw UsageError(text("--config: cannot read {}: {}", path, systemError()));
}

void CommandLine::readConfigLine(std::string_view line, const std::string& where) const {
  if (line.empty() || line.starts_with('#')) return;
  const std::size_t equals = std::min(line.find('='), line.size());
  const std::string word(trimmed(line.substr(0, equals)));
  const std::string value(trimmed(line.substr(std::min(equals + 1, line.size()))));
  const auto& names = m_configFile->names;
  if (std::ranges::find(names, "--" + word) != names.end()) {
    return take(*std::ranges::find(m_options, "--" + word, &Option::name), value, where + word);
  }
  std::vector<std::string> words = names;
  for (std::string& name : words) name.erase(0, 2);
  throw UsageError(
      text("{}\"{}\" is not known; expected {}", where, clean(word), joined(words, " or ")));
}

void CommandLine::checkExclusive(const std::vector<std::string>& given) const {
  for (const std::vector<std::string>& names : m_exclusive) {
    const auto isGiven = [&](const std::string& name) {
      return std::ranges::find(given, name) != given.end();
    };
    if (std::ranges::count_if(names, isGiven) < 2) continue;
    throw UsageError(text("only one of {} is possible", joined(names, " and ")));
  }
}

std::string CommandLine::help() const {
  std::string result = text("Usage: {} {}\n\n{}\n", m_program, m_usage, m_summary);
  const std::string* group = nullptr;
  for (const Option& option : m_options) {
    if (group == nullptr || *group != option.group) result += text("\n{}:\n", option.group);
    group = &option.group;
    result += optionHelp(option.spec, option.help);
  }
  result += "\n" + optionHelp("-h, --help", "show this help") +
            optionHelp("--version", "show the version");
  for (const auto& [heading, body] : m_sections) result += text("\n{}:\n{}\n", heading, body);
  return result;
}

int runProgram(const char* name, const std::function<int()>& body) {
  setProgramName(name);
  keepFrameMemory();
  try {
    return body();
  } catch (const UsageError& error) {
    // To whoever typed it, not to the log.
    std::fprintf(stderr, "%s: %s. See %s --help.\n", name, error.what(), name);
    return 2;
  } catch (const std::exception& error) {
    logError("{}", error.what());
    return 1;
  }
}

}  // namespace lumsar::base
