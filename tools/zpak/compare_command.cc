// zpak compare: two ZPAK files (or a ZPAK file and a linear one) by their
// decoded content.
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>

#include "tools/zpak/codec_support.h"
#include "tools/zpak/command_support.h"
#include "tools/zpak/commands.h"
#include "tools/zpak/compare.h"
#include "tools/zpak/json_writer.h"
#include "tools/zpak/linear_files.h"
#include "tools/zpak/progress.h"
#include "tools/zpak/zpak_io.h"

namespace pelcast::zpak {
namespace {

constexpr int kPsnrDecimals = 2;

struct Settings {
  pelcast_format format = PELCAST_FORMAT_NV12;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t threads = 0;
  FrameRange range;
  std::string a;
  std::string b;
  bool linear = false;
  ImageKind linearKind = ImageKind::kRaw;
  RawOptions raw;
  std::string diffPrefix;
  uint32_t shrink = 1;
};

bool TakeSettings(const ParsedArgs& args, Settings* s, std::string* error) {
  std::vector<std::string> operands = args.operands;
  if (!TakeSize(args, &operands, 3, true, &s->width, &s->height, error) ||
      !CheckOperands(operands, 3, "FORMAT A B WIDTH HEIGHT", error) ||
      !TakeFormat(operands[0], &s->format, error) || !TakeThreads(args, &s->threads, error) ||
      !TakeFrameRange(args, &s->range, error) || !TakeRawOptions(args, &s->raw, error)) {
    return false;
  }
  s->a = operands[1];
  s->b = operands[2];
  s->linear = args.Has("linear");
  s->diffPrefix = args.Value("diff").value_or("");
  if (args.Has("diff") && s->diffPrefix.empty()) {
    *error = "--diff needs a file name prefix";
    return false;
  }
  if (!s->linear && (args.Has("from") || s->raw.stride || s->raw.scanlines || s->raw.uvOffset)) {
    *error = "--from, --stride, --scanlines and --uv-offset describe B with --linear only";
    return false;
  }
  if (const auto shrink = args.Value("shrink")) {
    constexpr uint64_t kMaxShrink = 64;
    const auto n = ParseCount(*shrink, kMaxShrink);
    if (!n || *n == 0) {
      *error = "--shrink takes 1 to " + std::to_string(kMaxShrink) + ", not '" + *shrink + "'";
      return false;
    }
    s->shrink = static_cast<uint32_t>(*n);
  }
  if (s->a == "-" && s->b == "-") {
    *error = "A and B cannot both be standard input";
    return false;
  }
  return !s->linear || TakeImageKind(args, "from", s->b, &s->linearKind, error);
}

std::string PsnrText(double psnr) {
  if (std::isinf(psnr)) return "identical";
  char text[32];
  std::snprintf(text, sizeof text, "%.*f dB", kPsnrDecimals, psnr);
  return text;
}

std::string FrameText(const FrameDifference& d) {
  std::string out = "frame " + std::to_string(d.frame) + ": " +
                    (d.Identical() ? "identical\n" : "differs\n");
  if (d.Identical()) return out;
  char line[256];
  std::snprintf(line, sizeof line, "  %-7s %15s %18s %9s %12s\n", "plane", "differing tiles",
                "differing samples", "max diff", "psnr");
  out += line;
  for (const PlaneDifference& p : d.planes) {
    std::snprintf(line, sizeof line, "  %-7s %15llu %18llu %9u %12s\n", p.name,
                  static_cast<unsigned long long>(p.differingTiles),
                  static_cast<unsigned long long>(p.differingSamples), p.maxAbsDiff,
                  PsnrText(p.Psnr()).c_str());
    out += line;
  }
  return out;
}

void FrameJson(const FrameDifference& d, JsonWriter* json) {
  json->BeginObject().Key("frame").Number(d.frame).Key("identical").Bool(d.Identical())
      .Key("planes").BeginArray();
  for (const PlaneDifference& p : d.planes) {
    json->BeginObject()
        .Key("plane").String(p.name)
        .Key("differing_tiles").Number(p.differingTiles)
        .Key("differing_samples").Number(p.differingSamples)
        .Key("max_abs_diff").Number(p.maxAbsDiff)
        .Key("psnr").Number(p.Psnr(), kPsnrDecimals)
        .EndObject();
  }
  json->EndArray().EndObject();
}

// Where frames of each side come from.
struct Side {
  InputFile zpak;
  std::unique_ptr<FrameReader> frames;
  LinearReader linear;
  bool isLinear = false;
  uint64_t Count() const { return isLinear ? linear.FrameCount() : frames->FrameCount(); }
};

struct Run {
  const Command& command;
  const ParsedArgs& args;
  Settings s;
  Codec codec;
  uint64_t frameBytes = 0;
  Side a, b;
  std::vector<uint8_t> zpak, packedA, packedB;
};

bool OpenSide(Run* r, const std::string& path, bool linear, Side* side, std::string* error) {
  side->isLinear = linear;
  if (linear) {
    return side->linear.Open(path, r->s.linearKind, r->s.format, r->s.raw, error) &&
           side->linear.SetSize(r->s.width, r->s.height, error);
  }
  if (!OpenInput(path, &side->zpak, error)) return false;
  side->frames = std::make_unique<FrameReader>(&side->zpak, r->frameBytes);
  return true;
}

// The next frame of a side, decoded. False at its end (or on an error, set).
bool NextFrame(Run* r, Side* side, std::vector<uint8_t>* packed, std::string* error) {
  if (side->isLinear) return side->linear.Next(packed, error);
  if (!side->frames->ReadFrame(r->zpak.data())) return false;
  if (DecodePacked(r->codec.get(), r->s.format, r->s.width, r->s.height, r->zpak.data(),
                   r->frameBytes, packed)) {
    return true;
  }
  *error = "out of memory";
  return false;
}

bool SkipFrames(Side* side, uint64_t frames, std::string* error) {
  return side->isLinear ? side->linear.Skip(frames, error) : side->frames->SeekFrame(frames);
}

bool WriteDiffPicture(Run* r, const FrameDifference& d, std::string* error) {
  const uint64_t frame = d.frame;
  Raster full, picture;
  DrawDifference(r->s.format, r->s.width, r->s.height, r->packedA.data(), r->packedB.data(), d,
                 &full);
  ShrinkRaster(full, r->s.shrink, &picture);
  OutputFile out;
  const std::string path = r->s.diffPrefix + "-f" + std::to_string(frame) + ".png";
  if (!OpenOutput(path, {r->s.a, r->s.b}, &out, error)) return false;
  if (!WritePng(out.file, picture)) {
    *error = "cannot write '" + path + "'";
    return false;
  }
  if (!CloseOutput(&out, error)) return false;
  Note(r->command, r->args, "wrote " + path);
  return true;
}

struct Totals {
  uint64_t compared = 0;
  uint64_t differing = 0;
  uint64_t worstFrame = 0;
  double worstPsnr = std::numeric_limits<double>::infinity();
  uint64_t leftOver = 0;  // frames one side has and the other lacks
};

std::string Summary(const Totals& t) {
  std::string out = std::to_string(t.compared) + " frame" + (t.compared == 1 ? "" : "s") +
                    " compared, " + std::to_string(t.differing) + " differ";
  if (t.differing > 0) {
    out += "; worst frame " + std::to_string(t.worstFrame) + " (" + PsnrText(t.worstPsnr) + ")";
  }
  if (t.leftOver > 0) out += "; " + std::to_string(t.leftOver) + " frame(s) have no counterpart";
  return out + (t.differing == 0 && t.leftOver == 0 ? ": identical\n" : ": DIFFERENT\n");
}

int Compare(Run* r) {
  const Command& command = r->command;
  std::string error;
  if (!OpenSide(r, r->s.a, false, &r->a, &error) || !OpenSide(r, r->s.b, r->s.linear, &r->b, &error)) {
    return Fail(command, kExitError, error);
  }
  const uint64_t countA = r->a.Count(), countB = r->b.Count();
  const FrameSpan span = SelectFrames(r->s.range, std::min(countA, countB));
  if (!SkipFrames(&r->a, span.first, &error) || !SkipFrames(&r->b, span.first, &error)) {
    return Fail(command, kExitError, "frame " + std::to_string(span.first) + " is past the end");
  }
  const bool json = r->args.Has("json");
  JsonWriter doc;
  doc.BeginObject().Key("frames").BeginArray(true);
  Totals t;
  Progress progress("compare", span.end == kUnknownSize ? Progress::kUnknownTotal : span.end - span.first,
                    !r->args.Has("quiet"));
  uint64_t f = span.first;
  for (; f < span.end; ++f) {
    const bool gotA = NextFrame(r, &r->a, &r->packedA, &error);
    if (!error.empty()) return Fail(command, kExitError, error);
    const bool gotB = NextFrame(r, &r->b, &r->packedB, &error);
    if (!error.empty()) return Fail(command, kExitError, error);
    if (!gotA || !gotB) {
      t.leftOver += gotA || gotB;
      break;
    }
    FrameDifference d = CompareFrames(r->s.format, r->s.width, r->s.height, r->packedA.data(),
                                      r->packedB.data());
    d.frame = f;
    ++t.compared;
    if (!d.Identical()) {
      ++t.differing;
      if (d.WorstPsnr() < t.worstPsnr || t.differing == 1) {
        t.worstPsnr = d.WorstPsnr();
        t.worstFrame = f;
      }
      if (!r->s.diffPrefix.empty() && !WriteDiffPicture(r, d, &error)) {
        return Fail(command, kExitError, error);
      }
    }
    if (json) {
      FrameJson(d, &doc);
    } else {
      std::fputs(FrameText(d).c_str(), stdout);
    }
    progress.Update(f + 1 - span.first);
  }
  // Whole files compared: frames past the shorter one's end have no counterpart.
  if (r->s.range.last == UINT64_MAX && countA != kUnknownSize && countB != kUnknownSize) {
    t.leftOver = std::max(countA, countB) - std::min(countA, countB);
  }
  if (t.leftOver > 0) {
    Note(command, r->args, "A has " + std::to_string(countA) + " frames and B " +
                               std::to_string(countB) + "; the extra ones count as different");
  }
  const bool identical = t.differing == 0 && t.leftOver == 0;
  if (json) {
    doc.EndArray().Key("identical").Bool(identical);
    if (t.differing > 0) doc.Key("worst_frame").Number(t.worstFrame);
    doc.Key("unmatched_frames").Number(t.leftOver).EndObject();
    std::fputs(doc.Text().c_str(), stdout);
  } else {
    std::fputs(Summary(t).c_str(), stdout);
  }
  if (std::fflush(stdout) != 0) return Fail(command, kExitError, "cannot write standard output");
  return identical ? kExitOk : kExitNegative;
}

int RunCompare(const Command& command, const ParsedArgs& args) {
  Run r{command, args, {}, {}, 0, {}, {}, {}, {}, {}};
  std::string error;
  if (!TakeSettings(args, &r.s, &error)) return UsageError(command, error);
  if (!MakeCodec(r.s.format, r.s.width, r.s.height, r.s.threads, &r.codec, &error)) {
    return UsageError(command, error);
  }
  r.frameBytes = pelcast_zpak_frame_size(r.s.format, r.s.width, r.s.height);
  r.zpak.resize(r.frameBytes);
  return Compare(&r);
}

}  // namespace

const Command kCompareCommand = {
    "compare",
    "FORMAT A B WIDTH HEIGHT",
    "compares two ZPAK files (or a ZPAK file and a linear one) by content",
    "Compares the decoded frames of two ZPAK files, or with --linear those of A\n"
    "with the frames of the linear file B (raw, PNG or Y4M by its extension or\n"
    "--from). Per frame and plane: the tiles and the samples that differ, the\n"
    "largest absolute difference and the PSNR (samples are 8-bit components:\n"
    "luma, U and V, R G B A, RGB565 fields widened to 8 bits). The worst frame\n"
    "is named at the end. With --diff PREFIX every differing frame N gets a\n"
    "picture PREFIX-fN.png: frame A in grey, differing pixels from red (a\n"
    "difference of 1) to yellow (64 and more), differing tiles outlined in\n"
    "magenta. A or B may be '-' (standard input).\n\n"
    "Exit status: 0 when identical, 1 when they differ (or have different frame\n"
    "counts), 2 on a usage or I/O error.\n",
    {{"linear", 0, nullptr, "B is a linear file, not ZPAK"},
     {"from", 0, "KIND", "with --linear: B's kind, raw, png or y4m (default: by extension)"},
     kStrideOption, kScanlinesOption, kUvOffsetOption,
     {"diff", 0, "PREFIX", "write PREFIX-fN.png pictures of where frames differ"},
     {"shrink", 0, "N", "scale the difference pictures down by N (1 to 64)"},
     kSizeOption, kFrameOption, kFramesOption, kJsonOption, kQuietOption, kThreadsOption},
    RunCompare,
};

}  // namespace pelcast::zpak
