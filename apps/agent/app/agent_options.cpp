// Reading the command line. Called by main before any thread exists.
#include "app/agent_options.h"

#include <getopt.h>

#include <array>
#include <charconv>
#include <map>
#include <string_view>

namespace lumsar::agent {
namespace {

enum Option : int {
  kKind = 256,
  kListen,
  kDevice,
  kPort,
  kXrdp,
  kDirect,
  kSave,
  kSaveMovie,
  kVideo,
  kView,
  kDiscard,
  kFor,
  kStatusFile,
  kJson,
  kVerbose,
  kVersionOption,
  kVmVersion,
  kSession,
  kShareAll,
  kWrongToken,
  kHelp,
};

constexpr std::array<option, 22> kOptions{{
    {"kind", required_argument, nullptr, kKind},
    {"listen", required_argument, nullptr, kListen},
    {"device", required_argument, nullptr, kDevice},
    {"port", required_argument, nullptr, kPort},
    {"xrdp", optional_argument, nullptr, kXrdp},
    {"direct", required_argument, nullptr, kDirect},
    {"save", required_argument, nullptr, kSave},
    {"save-mjpeg", required_argument, nullptr, kSaveMovie},
    {"v4l2", optional_argument, nullptr, kVideo},
    {"view", optional_argument, nullptr, kView},
    {"discard", no_argument, nullptr, kDiscard},
    {"for", required_argument, nullptr, kFor},
    {"status-file", required_argument, nullptr, kStatusFile},
    {"json", no_argument, nullptr, kJson},
    {"verbose", no_argument, nullptr, kVerbose},
    {"version", no_argument, nullptr, kVersionOption},
    {"vm-version", required_argument, nullptr, kVmVersion},
    {"session", required_argument, nullptr, kSession},
    {"share-all", no_argument, nullptr, kShareAll},
    {"wrong-token", no_argument, nullptr, kWrongToken},
    {"help", no_argument, nullptr, kHelp},
    {nullptr, 0, nullptr, 0},
}};

template <class Number>
Number parseNumber(std::string_view text, const std::string& what) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) {
    throw UsageError("\"" + std::string(text) + "\" is no " + what);
  }
  return number;
}

std::chrono::milliseconds parseDuration(std::string_view text) {
  const std::string what = "time; expected a number with ms, s, m or h, such as 10s";
  const std::string whole(text);
  const std::size_t digits = text.find_first_not_of("0123456789");
  const std::string unit(digits == std::string_view::npos ? "s" : text.substr(digits));
  static const std::map<std::string, std::int64_t> kUnits{
      {"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}};
  const auto factor = kUnits.find(unit);
  if (digits == 0 || factor == kUnits.end()) throw UsageError("\"" + whole + "\" is no " + what);
  const auto count = parseNumber<std::uint32_t>(text.substr(0, digits), what);
  return std::chrono::milliseconds(count * factor->second);
}

void parseVmVersion(LinkSettings& link, std::string_view text) {
  const std::string what = "protocol version; expected two numbers up to 255, such as 1.1";
  const std::size_t dot = text.find('.');
  if (dot == std::string_view::npos)
    throw UsageError("\"" + std::string(text) + "\" is no " + what);
  link.vmMajor = parseNumber<std::uint8_t>(text.substr(0, dot), what);
  link.vmMinor = parseNumber<std::uint8_t>(text.substr(dot + 1), what);
}

LinkKind parseKind(std::string_view text) {
  if (text == "spice") return LinkKind::Spice;
  if (text == "rdp") return LinkKind::Rdp;
  throw UsageError("\"" + std::string(text) + "\" is no kind of channel; expected spice or rdp");
}

void apply(Options& options, int option, const std::string& value) {
  switch (option) {
    case kKind:
      options.link.kind = parseKind(value);
      break;
    case kListen:
      options.listen = value;
      break;
    case kDevice:
      options.device = value;
      break;
    case kPort:
      options.port = value;
      break;
    case kXrdp:
      options.xrdp = value;
      options.link.kind = LinkKind::Rdp;
      break;
    case kDirect:
      options.direct = value;
      break;
    case kSave:
      options.save = value;
      break;
    case kSaveMovie:
      options.saveMovie = value;
      break;
    case kVideo:
      options.videoDevices.push_back(value.empty() ? "auto" : value);
      break;
    case kView:
      options.view = value.empty() ? std::uint16_t{8080}
                                   : parseNumber<std::uint16_t>(value, "port; expected 0 to 65535");
      break;
    case kDiscard:
      options.discard = true;
      break;
    case kFor:
      options.runFor = parseDuration(value);
      break;
    case kStatusFile:
      options.statusFile = value;
      break;
    case kJson:
      options.json = true;
      break;
    case kVerbose:
      options.verbose = true;
      break;
    case kVersionOption:
      options.version = true;
      break;
    case kVmVersion:
      parseVmVersion(options.link, value);
      break;
    case kSession:
      options.link.session =
          parseNumber<std::uint16_t>(value, "session number; expected 0 to 65535");
      break;
    case kShareAll:
      options.link.shareAll = true;
      break;
    case kWrongToken:
      options.link.wrongToken = true;
      break;
    case kHelp:
      options.help = true;
      break;
    default:
      throw UsageError("not a valid option");
  }
}

// "--view 8080" as well as "--view=8080" and a mere "--view".
std::string valueOf(int argc, char* const* argv) {
  if (optarg != nullptr) return optarg;
  return optind < argc && argv[optind][0] != '-' ? argv[optind++] : "";
}

}  // namespace

Options parseOptions(int argc, char* const* argv) {
  Options options;
  opterr = 0;
  optind = 0;
  for (;;) {
    const int index = optind == 0 ? 1 : optind;
    const int option = getopt_long(argc, argv, "+:h", kOptions.data(), nullptr);
    if (option == -1) break;
    if (option == ':') throw UsageError(std::string(argv[index]) + " needs a value");
    if (option == '?') throw UsageError("unknown option " + std::string(argv[index]));
    const bool mayTakeNext = option == kVideo || option == kView;
    const std::string value = mayTakeNext ? valueOf(argc, argv) : (optarg == nullptr ? "" : optarg);
    apply(options, option == 'h' ? int{kHelp} : option, value);
  }
  if (optind < argc) throw UsageError("unexpected argument \"" + std::string(argv[optind]) + "\"");
  const int ways = int{!options.listen.empty()} + int{!options.device.empty()} +
                   int{!options.port.empty()} + int{options.xrdp.has_value()};
  if (ways > 1) {
    throw UsageError("only one of --listen, --device, --port and --xrdp is possible");
  }
  if (ways == 0 && options.direct.empty()) options.port = "org.lumsar.camera.0";
  return options;
}

}  // namespace lumsar::agent
