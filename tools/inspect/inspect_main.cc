// pelcast-inspect: figures and pictures of the frames of a ZPAK file.
//
//   pelcast-inspect [OPTIONS] FORMAT INPUT WIDTH HEIGHT [OUTPUT_PREFIX]
//
// Figures go to standard output (tables, or JSON with --json); progress,
// warnings and errors to standard error.
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "io/file_io.h"
#include "tools/inspect/frame_decode.h"
#include "tools/inspect/heatmap.h"
#include "tools/inspect/inspect_args.h"
#include "tools/inspect/stats_report.h"

namespace pelcast::inspect {
namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr char kProgram[] = "pelcast-inspect";

// The pictures hold 3 bytes a pixel, twice over (frame and heat map).
constexpr uint64_t kMaxPicturePixels = uint64_t{1} << 28;

int Fail(int status, const std::string& message) {
  std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
  if (status == kExitUsage) std::fprintf(stderr, "Try '%s --help'.\n", kProgram);
  return status;
}

void Note(const InspectOptions& o, const std::string& message) {
  if (!o.quiet) std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
}

std::string LowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

struct Pictures {
  DecodeSession session{};
  RgbImage decoded;
  RgbImage heat;
  RgbImage scaled;
};

std::string PicturePath(const InspectOptions& o, uint64_t frame, const std::string& kind) {
  return o.outputPrefix + "-f" + std::to_string(frame) + "-" + kind + ".png";
}

bool WritePicture(const InspectOptions& o, const RgbImage& image, const std::string& path,
                  std::string* error) {
  if (!WritePng(path, image, o.input.c_str(), error)) return false;
  Note(o, "wrote " + path);
  return true;
}

bool WritePictures(const InspectOptions& o, const SurfaceTiles& tiles, uint8_t* frame,
                   uint64_t index, const std::vector<std::vector<uint8_t>>& metadata, Pictures* p,
                   std::string* error) {
  const LinearFrame linear = DecodeFrame(&p->session, frame);
  switch (o.format) {
    case InspectFormat::kNv12:
      Nv12ToRgb(linear, o.matrix, &p->decoded);
      break;
    case InspectFormat::kRgba8888:
      Rgba8888ToRgb(linear, &p->decoded);
      break;
    case InspectFormat::kRgb565:
      Rgb565ToRgb(linear, &p->decoded);
      break;
  }
  ShrinkImage(p->decoded, o.shrink, &p->scaled);
  if (!WritePicture(o, p->scaled, PicturePath(o, index, "decoded"), error)) return false;
  for (size_t plane = 0; plane < tiles.planes.size(); ++plane) {
    DrawHeatmap(p->decoded, tiles.planes[plane], metadata[plane], &p->heat);
    ShrinkImage(p->heat, o.shrink, &p->scaled);
    AppendLegend(&p->scaled);
    const std::string kind =
        tiles.planes.size() == 1 ? "heat" : "heat-" + LowerCase(tiles.planes[plane].name);
    if (!WritePicture(o, p->scaled, PicturePath(o, index, kind), error)) return false;
  }
  return true;
}

// Everything one run holds open; released on every way out.
struct Run {
  FILE* input = nullptr;
  uint8_t* frame = nullptr;
  Pictures pictures;
  ~Run() {
    CloseFile(input);
    ReleaseZeroed(frame);
    ReleaseDecodeSession(&pictures.session);
  }
};

// Checks the sizes against what the decode commands accept and what the
// pictures can hold.
std::string SizeProblem(const InspectOptions& o) {
  if (DecodeSizeProblem(PlaneFormatOf(o.format), o.width, o.height) != nullptr) {
    return "a " + o.formatName + " frame of " + std::to_string(o.width) + "x" +
           std::to_string(o.height) + " is too large (a buffer would reach 2^31 bytes)";
  }
  const uint64_t pixels = static_cast<uint64_t>(o.width) * static_cast<uint64_t>(o.height);
  if (!o.outputPrefix.empty() && pixels > kMaxPicturePixels) {
    return "pictures of " + std::to_string(o.width) + "x" + std::to_string(o.height) +
           " are too large; leave out OUTPUT_PREFIX for the figures alone";
  }
  return "";
}

int RunInspect(const InspectOptions& o) {
  const std::string sizeProblem = SizeProblem(o);
  if (!sizeProblem.empty()) return Fail(kExitUsage, sizeProblem);

  struct stat info {};
  if (stat(o.input.c_str(), &info) != 0) {
    return Fail(kExitFailure, "cannot read '" + o.input + "': " + std::strerror(errno));
  }
  if (!S_ISREG(info.st_mode)) return Fail(kExitFailure, "'" + o.input + "' is not a regular file");

  Run run;
  run.input = OpenInput(o.input.c_str());
  if (run.input == nullptr) {
    return Fail(kExitFailure, "cannot open '" + o.input + "': " + std::strerror(errno));
  }
  const SurfaceTiles tiles = BuildSurfaceTiles(o.format, o.width, o.height);
  const uint64_t frameBytes = tiles.geometry.frameSize;
  const auto fileBytes = static_cast<uint64_t>(info.st_size);
  const uint64_t frameCount = fileBytes / frameBytes;
  if (frameCount == 0) {
    return Fail(kExitFailure, "'" + o.input + "' holds " + std::to_string(fileBytes) +
                                  " bytes, less than one " + o.formatName + " frame of " +
                                  std::to_string(frameBytes) + " bytes (wrong size or format?)");
  }
  if (fileBytes % frameBytes != 0) {
    Note(o, "warning: the last " + std::to_string(fileBytes % frameBytes) +
                " bytes are not a whole frame and are ignored");
  }
  if (o.oneFrame && o.frame >= frameCount) {
    return Fail(kExitUsage, "--frame " + std::to_string(o.frame) + " is past the last frame (" +
                                std::to_string(frameCount - 1) + ")");
  }
  const uint64_t first = o.oneFrame ? o.frame : 0;
  const uint64_t last = o.oneFrame ? o.frame + 1 : frameCount;

  run.frame = AllocateZeroed(frameBytes);
  const bool pictures = !o.outputPrefix.empty();
  if (run.frame == nullptr ||
      (pictures && !OpenDecodeSession(o.format, o.width, o.height, &run.pictures.session))) {
    return Fail(kExitFailure, "out of memory");
  }
  if (fseeko(run.input, static_cast<off_t>(first * frameBytes), SEEK_SET) != 0) {
    return Fail(kExitFailure, "cannot seek in '" + o.input + "': " + std::strerror(errno));
  }

  const SurfaceSummary summary{o.formatName, o.width, o.height, frameBytes, frameCount};
  if (!o.json) std::fputs(FormatSummaryLine(summary).c_str(), stdout);
  std::vector<std::vector<uint8_t>> metadata(tiles.planes.size());
  std::vector<FrameReport> reports;
  for (uint64_t index = first; index < last; ++index) {
    if (last - first > 1) {
      Note(o, "frame " + std::to_string(index + 1) + " of " + std::to_string(frameCount));
    }
    if (std::fread(run.frame, frameBytes, 1, run.input) != 1) {
      return Fail(kExitFailure,
                  "cannot read frame " + std::to_string(index) + " of '" + o.input + "'");
    }
    std::vector<PlaneStats> planes;
    for (size_t p = 0; p < tiles.planes.size(); ++p) {
      GatherMetadata(tiles.planes[p], run.frame, frameBytes, &metadata[p]);
      planes.push_back(ComputePlaneStats(tiles.planes[p], metadata[p]));
    }
    FrameReport report = MakeFrameReport(index, std::move(planes));
    if (o.json) {
      reports.push_back(std::move(report));
    } else {
      std::fputs(FormatFrameTable(report).c_str(), stdout);
      std::fflush(stdout);
    }
    std::string error;
    if (pictures && !WritePictures(o, tiles, run.frame, index, metadata, &run.pictures, &error)) {
      return Fail(kExitFailure, error);
    }
  }
  if (o.json) std::fputs(FormatJson(summary, reports).c_str(), stdout);
  return std::fflush(stdout) == 0 ? kExitOk : Fail(kExitFailure, "cannot write standard output");
}

}  // namespace
}  // namespace pelcast::inspect

int main(int argc, char** argv) {
  using namespace pelcast::inspect;
  InspectOptions options;
  const std::string error = ParseArguments(argc - 1, argv + 1, &options);
  if (!error.empty()) return Fail(kExitUsage, error);
  if (options.help) {
    std::fputs(HelpText().c_str(), stdout);
    return kExitOk;
  }
  return RunInspect(options);
}
