// zpak verify: checks frames tile by tile, and against a reference picture.
#include <cstdio>
#include <memory>

#include "tools/zpak/command_support.h"
#include "tools/zpak/commands.h"
#include "tools/zpak/json_writer.h"
#include "tools/zpak/linear_files.h"
#include "tools/zpak/progress.h"
#include "tools/zpak/verify.h"
#include "tools/zpak/zpak_io.h"

namespace pelcast::zpak {
namespace {

constexpr uint64_t kDefaultListed = 20;
constexpr double kPercent = 100.0;

struct Settings {
  pelcast_format format = PELCAST_FORMAT_NV12;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t threads = 0;
  FrameRange range;
  uint64_t listed = kDefaultListed;
  std::string file;
  std::string reference;  // empty: none
  ImageKind referenceKind = ImageKind::kRaw;
  RawOptions raw;
};

bool TakeSettings(const ParsedArgs& args, Settings* s, std::string* error) {
  std::vector<std::string> operands = args.operands;
  if (!TakeSize(args, &operands, 2, true, &s->width, &s->height, error) ||
      !CheckOperands(operands, 2, "FORMAT FILE WIDTH HEIGHT", error) ||
      !TakeFormat(operands[0], &s->format, error) || !TakeThreads(args, &s->threads, error) ||
      !TakeFrameRange(args, &s->range, error) || !TakeRawOptions(args, &s->raw, error)) {
    return false;
  }
  s->file = operands[1];
  s->reference = args.Value("reference").value_or("");
  if (!s->reference.empty() &&
      !TakeImageKind(args, "from", s->reference, &s->referenceKind, error)) {
    return false;
  }
  if (const auto listed = args.Value("max-problems")) {
    const auto n = ParseCount(*listed, UINT32_MAX);
    if (!n) {
      *error = "--max-problems takes a count, not '" + *listed + "'";
      return false;
    }
    s->listed = *n;
  }
  return true;
}

std::string Saving(uint64_t units, uint64_t best) {
  char text[128];
  if (best >= units) return "the library's encoder needs as many";
  std::snprintf(text, sizeof text, "the library's encoder needs %llu, %llu fewer (%.2f%%)",
                static_cast<unsigned long long>(best), static_cast<unsigned long long>(units - best),
                kPercent * static_cast<double>(units - best) / static_cast<double>(units));
  return text;
}

std::string FrameText(const FrameVerdict& v, const Settings& s) {
  std::string out = "frame " + std::to_string(v.frame) + ": " + std::to_string(v.tiles) +
                    " tiles, " + std::to_string(v.invalidTiles) + " invalid; " +
                    std::to_string(v.units) + " units stored, " + Saving(v.units, v.bestUnits) +
                    "\n";
  for (size_t i = 0; i < v.problems.size() && i < s.listed; ++i) {
    const TileProblem& p = v.problems[i];
    out += "  " + std::string(PlaneName(s.format, p.plane)) + " column " +
           std::to_string(p.column) + " row " + std::to_string(p.row) + ": " +
           ProblemKindName(p.kind) + ": " + ProblemReason(p, s.format) + "\n";
  }
  if (v.problems.size() > s.listed) {
    out += "  ... " + std::to_string(v.problems.size() - s.listed) +
           " more (--max-problems N lists more)\n";
  }
  if (!v.referenceChecked) return out;
  if (v.differingTiles == 0) return out + "  reference: identical\n";
  out += "  reference: " + std::to_string(v.differingTiles) + " tile" +
         (v.differingTiles == 1 ? "" : "s") + " differ; first:";
  for (const TilePlace& t : v.firstDiffering) {
    out += ' ';
    out += PlaneName(s.format, t.plane);
    out += " (" + std::to_string(t.column) + ", " + std::to_string(t.row) + ")";
  }
  return out + "\n";
}

void FrameJson(const FrameVerdict& v, const Settings& s, JsonWriter* json) {
  json->BeginObject()
      .Key("frame").Number(v.frame)
      .Key("tiles").Number(v.tiles)
      .Key("invalid_tiles").Number(v.invalidTiles)
      .Key("problems").BeginArray(true);
  for (const TileProblem& p : v.problems) {
    json->BeginObject()
        .Key("plane").String(PlaneName(s.format, p.plane))
        .Key("column").Number(p.column)
        .Key("row").Number(p.row)
        .Key("metadata").Number(uint32_t{p.metadata})
        .Key("kind").String(ProblemKindName(p.kind))
        .Key("reason").String(ProblemReason(p, s.format))
        .EndObject();
  }
  json->EndArray().Key("units").Number(v.units).Key("optimal_units").Number(v.bestUnits);
  if (v.referenceChecked) {
    json->Key("reference").BeginObject()
        .Key("identical").Bool(v.differingTiles == 0)
        .Key("differing_tiles").Number(v.differingTiles)
        .Key("first_differing").BeginArray();
    for (const TilePlace& t : v.firstDiffering) {
      json->BeginObject()
          .Key("plane").String(PlaneName(s.format, t.plane))
          .Key("column").Number(t.column)
          .Key("row").Number(t.row)
          .EndObject();
    }
    json->EndArray().EndObject();
  }
  json->EndObject();
}

struct Totals {
  uint64_t frames = 0;
  uint64_t invalidTiles = 0;
  uint64_t invalidFrames = 0;
  uint64_t differingFrames = 0;
  uint64_t units = 0;
  uint64_t bestUnits = 0;
  bool referenceShort = false;
};

void AddVerdict(const FrameVerdict& v, Totals* t) {
  ++t->frames;
  t->invalidTiles += v.invalidTiles;
  t->invalidFrames += v.invalidTiles > 0;
  t->differingFrames += v.referenceChecked && v.differingTiles > 0;
  t->units += v.units;
  t->bestUnits += v.bestUnits;
}

bool Valid(const Totals& t) {
  return t.invalidTiles == 0 && t.differingFrames == 0 && !t.referenceShort;
}

std::string Summary(const Totals& t, bool reference) {
  std::string out = std::to_string(t.frames) + " frame" + (t.frames == 1 ? "" : "s") + ": " +
                    std::to_string(t.invalidTiles) + " invalid tile" +
                    (t.invalidTiles == 1 ? "" : "s") + " in " + std::to_string(t.invalidFrames) +
                    " frame" + (t.invalidFrames == 1 ? "" : "s");
  if (reference) {
    out += ", the reference differs in " + std::to_string(t.differingFrames) + " frame" +
           (t.differingFrames == 1 ? "" : "s");
    if (t.referenceShort) out += " and ends early";
  }
  out += "; " + std::to_string(t.units) + " units stored, " + Saving(t.units, t.bestUnits);
  return out + (Valid(t) ? ": valid\n" : ": INVALID\n");
}

struct Inputs {
  InputFile zpak;
  std::unique_ptr<FrameReader> frames;
  LinearReader reference;
  bool hasReference = false;
};

bool OpenInputs(const Settings& s, uint64_t frameBytes, Inputs* in, std::string* error) {
  if (!OpenInput(s.file, &in->zpak, error)) return false;
  in->frames = std::make_unique<FrameReader>(&in->zpak, frameBytes);
  if (s.reference.empty()) return true;
  in->hasReference = true;
  return in->reference.Open(s.reference, s.referenceKind, s.format, s.raw, error) &&
         in->reference.SetSize(s.width, s.height, error);
}

int Run(const Command& command, const ParsedArgs& args) {
  Settings s;
  std::string error;
  if (!TakeSettings(args, &s, &error)) return UsageError(command, error);
  Verifier verifier;
  if (!verifier.Open(s.format, s.width, s.height, s.threads, &error)) {
    return UsageError(command, error);
  }
  const uint64_t frameBytes = pelcast_zpak_frame_size(s.format, s.width, s.height);
  Inputs in;
  if (!OpenInputs(s, frameBytes, &in, &error)) return Fail(command, kExitError, error);
  const FrameSpan span = SelectFrames(s.range, in.frames->FrameCount());
  if (!in.frames->SeekFrame(span.first) ||
      (in.hasReference && !in.reference.Skip(span.first, &error))) {
    return Fail(command, kExitError, "frame " + std::to_string(span.first) + " is past the end");
  }
  const bool json = args.Has("json");
  JsonWriter doc;
  doc.BeginObject().Key("format").String(FormatName(s.format)).Key("width").Number(s.width)
      .Key("height").Number(s.height).Key("frames").BeginArray(true);
  std::vector<uint8_t> zpak(frameBytes), reference;
  Totals totals;
  Progress progress("verify", span.end == kUnknownSize ? Progress::kUnknownTotal : span.end - span.first,
                    !args.Has("quiet"));
  for (uint64_t f = span.first; f < span.end && in.frames->ReadFrame(zpak.data()); ++f) {
    const uint8_t* expected = nullptr;
    if (in.hasReference) {
      if (!in.reference.Next(&reference, &error)) {
        if (!error.empty()) return Fail(command, kExitError, error);
        totals.referenceShort = true;
        Note(command, args, "the reference ends before frame " + std::to_string(f));
        break;
      }
      expected = reference.data();
    }
    FrameVerdict verdict;
    verdict.frame = f;
    if (!verifier.Verify(zpak.data(), expected, &verdict)) {
      return Fail(command, kExitError, "out of memory");
    }
    AddVerdict(verdict, &totals);
    if (json) {
      FrameJson(verdict, s, &doc);
    } else {
      std::fputs(FrameText(verdict, s).c_str(), stdout);
    }
    progress.Update(f + 1 - span.first);
  }
  if (in.frames->TrailingBytes() != 0) {
    Note(command, args, "the last " + std::to_string(in.frames->TrailingBytes()) +
                            " bytes are not a whole frame and are not verified");
  }
  if (json) {
    doc.EndArray().Key("valid").Bool(Valid(totals)).EndObject();
    std::fputs(doc.Text().c_str(), stdout);
  } else {
    std::fputs(Summary(totals, in.hasReference).c_str(), stdout);
  }
  if (std::fflush(stdout) != 0) return Fail(command, kExitError, "cannot write standard output");
  return Valid(totals) ? kExitOk : kExitNegative;
}

}  // namespace

const Command kVerifyCommand = {
    "verify",
    "FORMAT FILE WIDTH HEIGHT",
    "checks ZPAK frames tile by tile, and against a reference picture",
    "Checks every frame of FILE ('-': standard input) as hardware wrote it, tile\n"
    "by tile: the metadata byte must be one an encoder writes for the plane, and\n"
    "the stream must decode inside its stored units (a stream that reads past\n"
    "them still decodes here, from whatever its slot holds there, but was stored\n"
    "wrongly: hardware that fetches only the stored units reads something else).\n"
    "Tiles stored raw that the library's encoder fits in fewer units are listed\n"
    "too (valid, but wasted bandwidth). The units the library's encoder needs for\n"
    "the same content are summed beside the units stored: what a better encoder\n"
    "would save. With --reference, every decoded frame must equal the linear\n"
    "file's frame (raw, PNG or Y4M by its extension or --from), and the first\n"
    "differing tiles are listed. Tile columns and rows count from 0 in each\n"
    "plane.\n\n"
    "Exit status: 0 when every tile is valid (and the reference matches), 1 when\n"
    "not, 2 on a usage or I/O error.\n",
    {{"reference", 0, "LINEAR", "a linear file the decoded frames must equal"},
     {"from", 0, "KIND", "the reference's kind: raw, png or y4m (default: by extension)"},
     kStrideOption, kScanlinesOption, kUvOffsetOption, kSizeOption, kFrameOption, kFramesOption,
     {"max-problems", 0, "N", "problems listed per frame (default 20; JSON has all)"},
     kJsonOption, kQuietOption, kThreadsOption},
    Run,
};

}  // namespace pelcast::zpak
