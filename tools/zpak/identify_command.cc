// zpak identify: which formats and sizes fit a ZPAK file, best first.
#include <unistd.h>

#include <cstdio>

#include "tools/zpak/command_support.h"
#include "tools/zpak/commands.h"
#include "tools/zpak/identify.h"
#include "tools/zpak/json_writer.h"
#include "tools/zpak/zpak_io.h"

namespace pelcast::zpak {
namespace {

constexpr uint64_t kDefaultRows = 10;
// Below this the best candidate does not make the file recognisable.
constexpr double kRecognisedScore = 0.5;

std::string Row(size_t rank, const IdentifyCandidate& c) {
  char line[256];
  const std::string size = std::to_string(c.width) + "x" + std::to_string(c.height);
  char continuity[16] = "-";
  if (c.continuity >= 0) std::snprintf(continuity, sizeof continuity, "%.2f", c.continuity);
  char fit[16] = "-";
  if (c.streamsFit >= 0) std::snprintf(fit, sizeof fit, "%.1f%%", 100 * c.streamsFit);
  std::snprintf(line, sizeof line, "%4zu  %-9s %-11s %7llu %7.4f %7.1f%% %7s %7s  %s\n", rank,
                IdentifyFormatName(c.format), size.c_str(),
                static_cast<unsigned long long>(c.frames), c.score, 100 * c.legalMetadata, fit,
                continuity, SourceWords(c.sources).c_str());
  return line;
}

std::string Table(const IdentifyResult& r, uint64_t rows) {
  std::string out = r.file + ": " + std::to_string(r.bytes) + " bytes\n";
  if (!r.candidates.empty()) {
    out += "rank  format    size         frames   score   legal    fits  joined  from\n";
  }
  for (size_t i = 0; i < r.candidates.size() && i < rows; ++i) out += Row(i + 1, r.candidates[i]);
  if (r.candidates.size() > rows) {
    out += "      (" + std::to_string(r.candidates.size() - rows) + " more; --top N shows more)\n";
  }
  for (const std::string& note : r.notes) out += "note: " + note + "\n";
  return out;
}

int Run(const Command& command, const ParsedArgs& args) {
  std::vector<std::string> operands = args.operands;
  std::string error;
  IdentifyOptions options;
  uint64_t rows = kDefaultRows;
  if (!CheckOperands(operands, 1, "FILE", &error) ||
      !TakeThreads(args, &options.threads, &error)) {
    return UsageError(command, error);
  }
  if (const auto format = args.Value("format")) {
    pelcast_format f;
    if (!TakeFormat(*format, &f, &error)) return UsageError(command, error);
    options.onlyFormat = f;
  }
  if (const auto top = args.Value("top")) {
    const auto n = ParseCount(*top, UINT32_MAX);
    if (!n || *n == 0) return UsageError(command, "--top takes a count from 1, not '" + *top + "'");
    rows = *n;
  }
  options.examineAll = args.Has("all");
  const std::string& path = operands[0];
  const std::string name = args.Value("name").value_or(path == "-" ? "" : path);

  InputFile input;
  if (!OpenInput(path, &input, &error)) return Fail(command, kExitError, error);
  IdentifyResult result;
  if (input.seekable) {
    const int fd = fileno(input.file);
    const ReadAt read = [fd](uint64_t offset, size_t count, uint8_t* out) -> size_t {
      size_t total = 0;
      while (total < count) {
        const ssize_t got = pread(fd, out + total, count - total, static_cast<off_t>(offset + total));
        if (got <= 0) break;
        total += static_cast<size_t>(got);
      }
      return total;
    };
    result = Identify(read, input.size, name, options);
  } else {
    std::vector<uint8_t> bytes;
    if (!ReadToEnd(&input, &bytes, &error)) return Fail(command, kExitError, error);
    result = IdentifyBuffer(bytes.data(), bytes.size(), name, options);
  }
  result.file = path;
  const std::string text = args.Has("json") ? IdentifyJson(result) : Table(result, rows);
  std::fputs(text.c_str(), stdout);
  if (std::fflush(stdout) != 0) return Fail(command, kExitError, "cannot write standard output");
  const bool recognised = !result.candidates.empty() &&
                          result.candidates.front().score >= kRecognisedScore;
  return recognised ? kExitOk : kExitNegative;
}

}  // namespace

const Command kIdentifyCommand = {
    "identify",
    "FILE",
    "which formats and sizes fit a ZPAK file of unknown size",
    "Ranks the formats, sizes and frame counts that fit a file of ZPAK frames:\n"
    "every format and size whose frame size divides the file's size, from a list\n"
    "of common display, camera and video resolutions, the sizes the file name\n"
    "names (1920x1080, 1080p, _nv12, ...), and a scan of every surface layout up\n"
    "to 8192 pixels. Each is scored by the first frame (or two): the share of\n"
    "tiles whose metadata byte is a legal unit count, the share whose streams\n"
    "decode inside their units, and how well the picture joins up across tile\n"
    "borders. Sizes that decode to the same tiles (1920x1080 and 1920x1088) are\n"
    "told apart by the zero padding an encoder leaves, else by the file name and\n"
    "the list; a note says which one is preferred and why. FILE may be '-'.\n\n"
    "Columns: legal = tiles with a legal metadata byte, fits = tiles whose\n"
    "stream stays inside its units, joined = continuity across tile borders\n"
    "(1.00 when borders differ no more than the inside of tiles).\n\n"
    "Exit status: 0 when a candidate scores 0.5 or more, 1 when none does\n"
    "(the file is not recognisable as ZPAK frames), 2 on a usage or I/O error.\n",
    {{"format", 0, "F", "consider this format only (nv12, rgba8888, rgb565)"},
     {"name", 0, "NAME", "take size hints from NAME instead of FILE's name"},
     {"top", 0, "N", "show the best N candidates (default 10; JSON has all)"},
     {"all", 0, nullptr, "examine every layout, even those that cannot win"},
     kJsonOption, kThreadsOption},
    Run,
};

}  // namespace pelcast::zpak
