#include "tools/inspect/inspect_args.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace pelcast::inspect {
namespace {

constexpr int kPositionalCount = 4;  // FORMAT INPUT WIDTH HEIGHT, then an optional prefix

struct FormatName {
  const char* name;
  InspectFormat format;
};
constexpr FormatName kFormats[] = {{"nv12", InspectFormat::kNv12},
                                   {"rgba8888", InspectFormat::kRgba8888},
                                   {"rgb565", InspectFormat::kRgb565}};

// A decimal number made of digits only, at most `limit`.
std::optional<uint64_t> ParseCount(std::string_view text, uint64_t limit) {
  constexpr uint64_t kDecimal = 10;
  if (text.empty()) return std::nullopt;
  uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * kDecimal + static_cast<uint64_t>(c - '0');
    if (value > limit) return std::nullopt;
  }
  return value;
}

std::string ParseDimension(std::string_view text, const char* what, int32_t* out) {
  const auto value = ParseCount(text, INT32_MAX);
  if (!value || *value == 0) {
    return std::string(what) + " must be a whole number from 1 to " + std::to_string(INT32_MAX) +
           ", not '" + std::string(text) + "'";
  }
  *out = static_cast<int32_t>(*value);
  return "";
}

std::string ParseFormat(std::string_view text, InspectOptions* o) {
  for (const FormatName& f : kFormats) {
    if (text == f.name) {
      o->format = f.format;
      o->formatName = f.name;
      return "";
    }
  }
  return "unknown format '" + std::string(text) + "' (use nv12, rgba8888 or rgb565)";
}

// Applies option `name` with `value` (empty when the option takes none).
std::string ApplyValueOption(std::string_view name, std::string_view value, InspectOptions* o) {
  if (name == "--matrix") {
    if (value != "bt601" && value != "bt709") {
      return "--matrix takes bt601 or bt709, not '" + std::string(value) + "'";
    }
    o->matrix = value == "bt601" ? YuvMatrix::kBt601 : YuvMatrix::kBt709;
    return "";
  }
  if (name == "--shrink") {
    const auto factor = ParseCount(value, kMaxShrink);
    if (!factor || *factor == 0) {
      return "--shrink takes a whole number from 1 to " + std::to_string(kMaxShrink) + ", not '" +
             std::string(value) + "'";
    }
    o->shrink = static_cast<uint32_t>(*factor);
    return "";
  }
  const auto frame = ParseCount(value, UINT32_MAX);
  if (!frame) {
    return "--frame takes a frame number (0 for the first), not '" + std::string(value) + "'";
  }
  o->oneFrame = true;
  o->frame = *frame;
  return "";
}

bool TakesValue(std::string_view name) {
  return name == "--matrix" || name == "--shrink" || name == "--frame";
}

std::string ApplyPositionals(const std::vector<std::string_view>& args, InspectOptions* o) {
  if (args.size() < kPositionalCount) {
    return "missing arguments: FORMAT INPUT WIDTH HEIGHT are required";
  }
  if (args.size() > kPositionalCount + 1) return "too many arguments";
  std::string error = ParseFormat(args[0], o);
  if (error.empty()) error = ParseDimension(args[2], "WIDTH", &o->width);
  if (error.empty()) error = ParseDimension(args[3], "HEIGHT", &o->height);
  o->input = args[1];
  if (args.size() > kPositionalCount) o->outputPrefix = args[kPositionalCount];
  if (error.empty() && args.size() > kPositionalCount && o->outputPrefix.empty()) {
    error = "OUTPUT_PREFIX must not be empty";
  }
  return error;
}

}  // namespace

std::string ParseArguments(int argc, const char* const* argv, InspectOptions* o) {
  std::vector<std::string_view> positionals;
  bool optionsEnded = false;
  for (int i = 0; i < argc; ++i) {
    const std::string_view arg = argv[i];
    // A negative number is a (bad) positional, reported as such.
    const bool looksNumeric = arg.size() >= 2 && arg[1] >= '0' && arg[1] <= '9';
    if (optionsEnded || arg.size() < 2 || arg[0] != '-' || looksNumeric) {
      positionals.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
    } else if (arg == "--help" || arg == "-h") {
      o->help = true;
      return "";
    } else if (arg == "--json") {
      o->json = true;
    } else if (arg == "--quiet" || arg == "-q") {
      o->quiet = true;
    } else {
      const size_t equals = arg.find('=');
      const std::string_view name = arg.substr(0, equals);
      if (!TakesValue(name)) return "unknown option '" + std::string(arg) + "'";
      std::string_view value;
      if (equals != std::string_view::npos) {
        value = arg.substr(equals + 1);
      } else if (i + 1 < argc) {
        value = argv[++i];
      } else {
        return std::string(name) + " needs a value";
      }
      const std::string error = ApplyValueOption(name, value, o);
      if (!error.empty()) return error;
    }
  }
  return ApplyPositionals(positionals, o);
}

std::string HelpText() {
  return R"(Usage: pelcast-inspect [OPTIONS] FORMAT INPUT WIDTH HEIGHT [OUTPUT_PREFIX]

Shows how well the frames of a ZPAK file compressed: for every frame and
plane, the tiles over the image, the 64-byte units they occupy, the units the
same tiles would take stored raw, the ratio of the two, the share of tiles
stored in 1, 2, 3 or 4 units or raw, and the count of metadata bytes other
than 19, 23, 27 and 31 (many of those mean a wrong format or size).

  FORMAT         nv12, rgba8888 or rgb565
  INPUT          ZPAK frames laid out as 'pelcast U', 'G' and 'B' read them
  WIDTH HEIGHT   image size in pixels
  OUTPUT_PREFIX  also write, per frame N, PNG pictures:
                   PREFIX-fN-decoded.png  the decoded frame
                   PREFIX-fN-heat.png     units per tile over the dimmed frame
                                          (NV12: PREFIX-fN-heat-y.png and
                                          PREFIX-fN-heat-uv.png)

Options:
  --json            print the figures as JSON instead of tables
  --frame N         inspect only frame N (0 is the first)
  --matrix M        NV12 to RGB matrix for the pictures: bt709 (default) or
                    bt601, both limited range
  --shrink N        scale the pictures down by N (1 to 64) by averaging
  -q, --quiet       no progress messages
  -h, --help        show this text

Heat map colours: blue 1 unit, green 2, yellow 3, orange 4, red raw,
magenta '?' for metadata that gives no unit count.
Progress and warnings go to standard error. Exit status: 0 on success,
1 when a file cannot be read or written, 2 for a wrong command line.
)";
}

}  // namespace pelcast::inspect
