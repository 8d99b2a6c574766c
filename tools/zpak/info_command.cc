// zpak info: how well the frames of a ZPAK file compressed, with pictures.
#include <cstdio>

#include "tools/zpak/codec_support.h"
#include "tools/zpak/command_support.h"
#include "tools/zpak/commands.h"
#include "tools/zpak/info.h"
#include "tools/zpak/json_writer.h"
#include "tools/zpak/pictures.h"
#include "tools/zpak/progress.h"
#include "tools/zpak/zpak_io.h"

namespace pelcast::zpak {
namespace {

constexpr uint64_t kMaxShrink = 64;
// Pictures hold up to 4 bytes a pixel, several times over.
constexpr uint64_t kMaxPicturePixels = uint64_t{1} << 28;

struct Settings {
  pelcast_format format = PELCAST_FORMAT_NV12;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t threads = 0;
  FrameRange range;
  std::string file;
  std::string prefix;  // empty: no pictures
  YuvMatrix matrix = YuvMatrix::kBt709;
  uint32_t shrink = 1;
};

bool TakeSettings(const ParsedArgs& args, Settings* s, std::string* error) {
  std::vector<std::string> operands = args.operands;
  if (!TakeSize(args, &operands, 2, true, &s->width, &s->height, error)) return false;
  if (operands.size() == 3) {
    s->prefix = operands[2];
    operands.pop_back();
    if (s->prefix.empty()) {
      *error = "PREFIX must not be empty";
      return false;
    }
  }
  if (!CheckOperands(operands, 2, "FORMAT FILE WIDTH HEIGHT", error) ||
      !TakeFormat(operands[0], &s->format, error) || !TakeThreads(args, &s->threads, error) ||
      !TakeFrameRange(args, &s->range, error) || !TakeMatrix(args, &s->matrix, error)) {
    return false;
  }
  s->file = operands[1];
  if (const auto shrink = args.Value("shrink")) {
    const auto n = ParseCount(*shrink, kMaxShrink);
    if (!n || *n == 0) {
      *error = "--shrink takes 1 to " + std::to_string(kMaxShrink) + ", not '" + *shrink + "'";
      return false;
    }
    s->shrink = static_cast<uint32_t>(*n);
  }
  if (!s->prefix.empty() && uint64_t{s->width} * s->height > kMaxPicturePixels) {
    *error = "pictures of " + std::to_string(s->width) + "x" + std::to_string(s->height) +
             " are too large; leave out PREFIX for the figures alone";
    return false;
  }
  return true;
}

// The decoded frame and one cost map per plane.
bool WritePictures(const Command& command, const ParsedArgs& args, const Settings& s,
                   pelcast_codec* codec, const uint8_t* zpak, uint64_t frameBytes, uint64_t frame,
                   std::string* error) {
  std::vector<uint8_t> packed;
  if (!DecodePacked(codec, s.format, s.width, s.height, zpak, frameBytes, &packed)) {
    *error = "out of memory";
    return false;
  }
  Raster picture, shrunk, map;
  RasterOfFrame(s.format, s.width, s.height, packed.data(), s.matrix, &picture);
  const std::string stem = s.prefix + "-f" + std::to_string(frame);
  auto write = [&](const Raster& raster, const std::string& path) {
    OutputFile out;
    if (!OpenOutput(path, {s.file}, &out, error)) return false;
    if (!WritePng(out.file, raster)) {
      *error = "cannot write '" + path + "'";
      return false;
    }
    if (!CloseOutput(&out, error)) return false;
    Note(command, args, "wrote " + path);
    return true;
  };
  ShrinkRaster(picture, s.shrink, &shrunk);
  if (!write(shrunk, stem + "-decoded.png")) return false;
  const uint32_t planes = pelcast_plane_count(s.format);
  for (uint32_t p = 0; p < planes; ++p) {
    pelcast_tile_grid grid{};
    std::vector<pelcast_tile_info> tiles;
    if (!DescribePlane(codec, s.format, s.width, s.height, zpak, frameBytes, p, &grid, &tiles)) {
      *error = "out of memory";
      return false;
    }
    DrawCostMap(picture, grid, tiles, &map);
    ShrinkRaster(map, s.shrink, &shrunk);
    AppendLegend(&shrunk);
    const std::string kind = planes == 1 ? "heat" : std::string("heat-") + PlaneName(s.format, p);
    if (!write(shrunk, stem + "-" + kind + ".png")) return false;
  }
  return true;
}

int Run(const Command& command, const ParsedArgs& args) {
  Settings s;
  std::string error;
  Codec codec;
  if (!TakeSettings(args, &s, &error) ||
      !MakeCodec(s.format, s.width, s.height, s.threads, &codec, &error)) {
    return UsageError(command, error);
  }
  const uint64_t frameBytes = pelcast_zpak_frame_size(s.format, s.width, s.height);
  InputFile input;
  if (!OpenInput(s.file, &input, &error)) return Fail(command, kExitError, error);
  FrameReader frames(&input, frameBytes);
  if (frames.FrameCount() == 0) {
    return Fail(command, kExitError,
                "'" + s.file + "' holds " + std::to_string(input.size) + " bytes, less than one " +
                    FormatName(s.format) + " frame of " + std::to_string(frameBytes) +
                    " bytes (wrong format or size?)");
  }
  const FrameSpan span = SelectFrames(s.range, frames.FrameCount());
  if (span.first >= span.end || !frames.SeekFrame(span.first)) {
    return Fail(command, kExitError, "frame " + std::to_string(span.first) + " is past the end");
  }
  const bool json = args.Has("json");
  JsonWriter doc;
  doc.BeginObject().Key("format").String(FormatName(s.format)).Key("width").Number(s.width)
      .Key("height").Number(s.height).Key("frame_bytes").Number(frameBytes)
      .Key("frames").BeginArray(true);
  if (!json) std::fputs(FiguresHeading(s.format, s.width, s.height, frameBytes).c_str(), stdout);
  std::vector<uint8_t> zpak(frameBytes);
  Progress progress("info", span.end == kUnknownSize ? Progress::kUnknownTotal : span.end - span.first,
                    !args.Has("quiet"));
  uint64_t measured = 0;
  for (uint64_t f = span.first; f < span.end && frames.ReadFrame(zpak.data()); ++f) {
    FrameFigures figures;
    figures.frame = f;
    if (!MeasureFrame(codec.get(), s.format, zpak.data(), frameBytes, &figures)) {
      return Fail(command, kExitError, "out of memory");
    }
    if (json) {
      FiguresJson(figures, &doc);
    } else {
      std::fputs(FiguresTable(figures).c_str(), stdout);
      std::fflush(stdout);
    }
    if (!s.prefix.empty() &&
        !WritePictures(command, args, s, codec.get(), zpak.data(), frameBytes, f, &error)) {
      return Fail(command, kExitError, error);
    }
    progress.Update(++measured);
  }
  if (measured == 0) return Fail(command, kExitError, "'" + s.file + "' holds no whole frame");
  if (frames.TrailingBytes() != 0) {
    Note(command, args, "the last " + std::to_string(frames.TrailingBytes()) +
                            " bytes are not a whole frame and are left out");
  }
  if (json) {
    doc.EndArray().EndObject();
    std::fputs(doc.Text().c_str(), stdout);
  }
  if (std::fflush(stdout) != 0) return Fail(command, kExitError, "cannot write standard output");
  return kExitOk;
}

}  // namespace

const Command kInfoCommand = {
    "info",
    "FORMAT FILE WIDTH HEIGHT [PREFIX]",
    "how well ZPAK frames compressed, with pictures of the frames and their costs",
    "Shows how well the frames of FILE ('-': standard input) compressed: per\n"
    "frame and plane, the tiles over the picture, the 64-byte units they are\n"
    "stored in, the units the same tiles take raw, the ratio of the two (the\n"
    "share of the raw bandwidth a reader needs), the share of tiles stored in\n"
    "1, 2 and 3 units, raw and with bad metadata (a byte that is not one an\n"
    "encoder writes: counted as a raw tile, since its length is unknown), and\n"
    "the tiles whose streams overrun their units. Many bad-metadata tiles mean\n"
    "a wrong format or size ('zpak identify' finds the right one).\n\n"
    "With PREFIX, every frame N also gives PREFIX-fN-decoded.png (rgba8888 with\n"
    "its alpha) and a cost map, PREFIX-fN-heat.png (nv12: -heat-y and -heat-uv):\n"
    "the frame in dimmed grey, each tile tinted blue 1 unit, green 2, yellow 3,\n"
    "red raw, magenta bad metadata, cyan a stream that overruns its units.\n\n"
    "Exit status: 0 on success, 2 on a usage or I/O error.\n",
    {{"shrink", 0, "N", "scale the pictures down by N (1 to 64)"}, kMatrixOption, kSizeOption,
     kFrameOption, kFramesOption, kJsonOption, kQuietOption, kThreadsOption},
    Run,
};

}  // namespace pelcast::zpak
