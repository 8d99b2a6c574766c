#include "tools/zpak/command_support.h"

#include <cstdio>

namespace pelcast::zpak {
namespace {

constexpr uint64_t kMaxGeometryValue = uint64_t{1} << 32;

bool TakeGeometryValue(const ParsedArgs& args, const char* name, std::optional<uint64_t>* out,
                       std::string* error) {
  const auto text = args.Value(name);
  if (!text) return true;
  const auto value = ParseCount(*text, kMaxGeometryValue);
  if (!value) {
    *error = std::string("--") + name + " takes a byte or row count, not '" + *text + "'";
    return false;
  }
  *out = *value;
  return true;
}

}  // namespace

const Option kJsonOption = {"json", 0, nullptr, "print the result as JSON"};
const Option kQuietOption = {"quiet", 'q', nullptr, "no progress or notes on standard error"};
const Option kThreadsOption = {"threads", 0, "N",
                               "codec threads (default 0: one per processor)"};
const Option kSizeOption = {"size", 0, "WxH", "the frame size, instead of WIDTH HEIGHT"};
const Option kFrameOption = {"frame", 0, "N", "frame N only (0 is the first)"};
const Option kFramesOption = {"frames", 0, "A-B", "frames A to B (\"A-\": to the end)"};
const Option kStrideOption = {"stride", 0, "BYTES",
                              "raw files: bytes from one row to the next, every plane"};
const Option kScanlinesOption = {"scanlines", 0, "ROWS",
                                 "raw files: rows of the first plane, padding included\n"
                                 "(nv12 chroma: half as many)"};
const Option kUvOffsetOption = {"uv-offset", 0, "BYTES",
                                "raw nv12 files: where the chroma plane starts\n"
                                "(default: stride x scanlines)"};
const Option kMatrixOption = {"matrix", 0, "M",
                              "nv12 to RGB for pictures: bt709 (default) or bt601"};

std::string HelpText(const Command& c) {
  return std::string("Usage: zpak ") + c.name + " [OPTIONS] " + c.synopsis + "\n\n" +
         c.description + "\n" + OptionsHelp(c.options);
}

int Fail(const Command& command, int status, const std::string& message) {
  std::fprintf(stderr, "zpak %s: %s\n", command.name, message.c_str());
  return status;
}

int UsageError(const Command& command, const std::string& message) {
  Fail(command, kExitError, message);
  std::fprintf(stderr, "Try 'zpak %s --help'.\n", command.name);
  return kExitError;
}

void Note(const Command& command, const ParsedArgs& args, const std::string& message) {
  if (!args.Has("quiet")) std::fprintf(stderr, "zpak %s: %s\n", command.name, message.c_str());
}

bool TakeFormat(const std::string& operand, pelcast_format* format, std::string* error) {
  const auto parsed = ParseFormat(operand);
  if (!parsed) {
    *error = "unknown format '" + operand + "' (use nv12, rgba8888 or rgb565)";
    return false;
  }
  *format = *parsed;
  return true;
}

bool TakeSize(const ParsedArgs& args, std::vector<std::string>* operands, size_t at,
              bool required, uint32_t* width, uint32_t* height, std::string* error) {
  if (const auto size = args.Value("size")) {
    if (!ParseSize(*size, width, height)) {
      *error = "--size takes WIDTHxHEIGHT, both from 1, not '" + *size + "'";
      return false;
    }
    return true;
  }
  if (operands->size() < at + 2) {
    if (required) *error = "missing the frame size: WIDTH HEIGHT or --size WxH";
    return !required;
  }
  const auto w = ParseCount((*operands)[at], UINT32_MAX);
  const auto h = ParseCount((*operands)[at + 1], UINT32_MAX);
  if (!w || *w == 0 || !h || *h == 0) {
    *error = "WIDTH and HEIGHT must be whole numbers from 1, not '" + (*operands)[at] + "' '" +
             (*operands)[at + 1] + "'";
    return false;
  }
  *width = static_cast<uint32_t>(*w);
  *height = static_cast<uint32_t>(*h);
  operands->erase(operands->begin() + static_cast<ptrdiff_t>(at),
                  operands->begin() + static_cast<ptrdiff_t>(at) + 2);
  return true;
}

bool TakeThreads(const ParsedArgs& args, uint32_t* threads, std::string* error) {
  *threads = 0;
  const auto text = args.Value("threads");
  if (!text) return true;
  const auto value = ParseCount(*text, PELCAST_MAX_THREADS);
  if (!value) {
    *error = "--threads takes 0 to " + std::to_string(PELCAST_MAX_THREADS) + ", not '" + *text + "'";
    return false;
  }
  *threads = static_cast<uint32_t>(*value);
  return true;
}

bool TakeFrameRange(const ParsedArgs& args, FrameRange* range, std::string* error) {
  *range = FrameRange{};
  const auto one = args.Value("frame");
  const auto many = args.Value("frames");
  if (one && many) {
    *error = "--frame and --frames exclude each other";
    return false;
  }
  if (!one && !many) return true;
  if (one) {
    const auto frame = ParseCount(*one, UINT64_MAX - 1);
    if (!frame) {
      *error = "--frame takes a frame number (0 is the first), not '" + *one + "'";
      return false;
    }
    *range = FrameRange{*frame, *frame};
    return true;
  }
  const auto parsed = ParseFrameRange(*many);
  if (!parsed) {
    *error = "--frames takes A-B or A- (frame numbers from 0), not '" + *many + "'";
    return false;
  }
  *range = *parsed;
  return true;
}

bool TakeRawOptions(const ParsedArgs& args, RawOptions* raw, std::string* error) {
  return TakeGeometryValue(args, "stride", &raw->stride, error) &&
         TakeGeometryValue(args, "scanlines", &raw->scanlines, error) &&
         TakeGeometryValue(args, "uv-offset", &raw->uvOffset, error);
}

bool TakeMatrix(const ParsedArgs& args, YuvMatrix* matrix, std::string* error) {
  *matrix = YuvMatrix::kBt709;
  const auto text = args.Value("matrix");
  if (!text || *text == "bt709") return true;
  if (*text == "bt601") {
    *matrix = YuvMatrix::kBt601;
    return true;
  }
  *error = "--matrix takes bt709 or bt601, not '" + *text + "'";
  return false;
}

bool TakeImageKind(const ParsedArgs& args, const char* option, const std::string& path,
                   ImageKind* kind, std::string* error) {
  const auto text = args.Value(option);
  if (!text) {
    *kind = ImageKindOfPath(path);
    return true;
  }
  const auto parsed = ParseImageKind(*text);
  if (!parsed) {
    *error = std::string("--") + option + " takes raw, png or y4m, not '" + *text + "'";
    return false;
  }
  *kind = *parsed;
  return true;
}

bool CheckOperands(const std::vector<std::string>& operands, size_t count, const char* names,
                   std::string* error) {
  if (operands.size() == count) return true;
  *error = operands.size() < count ? std::string("missing operands: ") + names + " are required"
                                   : "too many operands (starting at '" + operands[count] + "')";
  return false;
}

}  // namespace pelcast::zpak
