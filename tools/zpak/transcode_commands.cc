// zpak decode and zpak encode: ZPAK frames to and from raw frames, PNG
// pictures and Y4M streams.
#include <cstdio>

#include "tools/zpak/codec_support.h"
#include "tools/zpak/command_support.h"
#include "tools/zpak/commands.h"
#include "tools/zpak/linear_files.h"
#include "tools/zpak/progress.h"
#include "tools/zpak/zpak_io.h"

namespace pelcast::zpak {
namespace {

struct Settings {
  pelcast_format format = PELCAST_FORMAT_NV12;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t threads = 0;
  FrameRange range;
  std::string input;
  std::string output;
  ImageKind kind = ImageKind::kRaw;  // of the linear side
  RawOptions raw;
  YuvMatrix matrix = YuvMatrix::kBt709;
};

// FORMAT INPUT OUTPUT [WIDTH HEIGHT]: the size is required to decode; the
// linear side (OUTPUT when decoding, INPUT when encoding) gives the kind.
bool TakeSettings(const ParsedArgs& args, bool decoding, Settings* s, std::string* error) {
  std::vector<std::string> operands = args.operands;
  if (!TakeSize(args, &operands, 3, decoding, &s->width, &s->height, error) ||
      !CheckOperands(operands, 3, "FORMAT INPUT OUTPUT", error) ||
      !TakeFormat(operands[0], &s->format, error) || !TakeThreads(args, &s->threads, error) ||
      !TakeFrameRange(args, &s->range, error) || !TakeRawOptions(args, &s->raw, error) ||
      !TakeMatrix(args, &s->matrix, error)) {
    return false;
  }
  s->input = operands[1];
  s->output = operands[2];
  return TakeImageKind(args, decoding ? "to" : "from", decoding ? s->output : s->input, &s->kind,
                       error);
}

uint64_t ProgressTotal(const FrameSpan& span) {
  return span.end == kUnknownSize ? Progress::kUnknownTotal : span.end - span.first;
}

int RunDecode(const Command& command, const ParsedArgs& args) {
  Settings s;
  std::string error;
  Codec codec;
  if (!TakeSettings(args, true, &s, &error) ||
      !MakeCodec(s.format, s.width, s.height, s.threads, &codec, &error)) {
    return UsageError(command, error);
  }
  const uint64_t frameBytes = pelcast_zpak_frame_size(s.format, s.width, s.height);
  InputFile input;
  if (!OpenInput(s.input, &input, &error)) return Fail(command, kExitError, error);
  FrameReader frames(&input, frameBytes);
  const FrameSpan span = SelectFrames(s.range, frames.FrameCount());
  if (frames.FrameCount() != kUnknownSize && span.first >= span.end) {
    return Fail(command, kExitError,
                "'" + s.input + "' has " + std::to_string(frames.FrameCount()) + " whole frame" +
                    (frames.FrameCount() == 1 ? "" : "s") + " of " + std::to_string(frameBytes) +
                    " bytes: nothing to decode (wrong format or size?)");
  }
  if (!frames.SeekFrame(span.first)) {
    return Fail(command, kExitError, "frame " + std::to_string(span.first) + " is past the end");
  }
  LinearWriter writer;
  const uint64_t count = span.end == kUnknownSize ? kUnknownSize : span.end - span.first;
  if (!writer.Open(s.output, s.kind, s.format, s.width, s.height, s.raw, s.matrix, count,
                   {s.input}, &error)) {
    return Fail(command, kExitError, error);
  }
  std::vector<uint8_t> zpak(frameBytes), packed;
  Progress progress("decode", ProgressTotal(span), !args.Has("quiet"));
  uint64_t decoded = 0;
  for (uint64_t f = span.first; f < span.end && frames.ReadFrame(zpak.data()); ++f) {
    if (!DecodePacked(codec.get(), s.format, s.width, s.height, zpak.data(), frameBytes, &packed)) {
      return Fail(command, kExitError, "out of memory");
    }
    if (!writer.Write(f, packed.data(), &error)) return Fail(command, kExitError, error);
    progress.Update(++decoded);
  }
  if (!writer.Close(&error)) return Fail(command, kExitError, error);
  if (frames.TrailingBytes() != 0) {
    Note(command, args, "the last " + std::to_string(frames.TrailingBytes()) +
                            " bytes are not a whole frame and are left out");
  }
  if (writer.Written().size() > 1) {
    Note(command, args, "wrote " + std::to_string(writer.Written().size()) + " pictures, " +
                            writer.Written().front() + " to " + writer.Written().back());
  }
  return kExitOk;
}

int RunEncode(const Command& command, const ParsedArgs& args) {
  Settings s;
  std::string error;
  if (!TakeSettings(args, false, &s, &error)) return UsageError(command, error);
  if (s.kind == ImageKind::kRaw && s.width == 0) {
    return UsageError(command, "missing the frame size of the raw input: WIDTH HEIGHT or --size WxH");
  }
  LinearReader reader;
  if (!reader.Open(s.input, s.kind, s.format, s.raw, &error)) {
    return Fail(command, kExitError, error);
  }
  if (!reader.SetSize(s.width != 0 ? s.width : reader.width(),
                      s.width != 0 ? s.height : reader.height(), &error)) {
    return Fail(command, kExitError, error);
  }
  s.width = reader.width();
  s.height = reader.height();
  Codec codec;
  if (!MakeCodec(s.format, s.width, s.height, s.threads, &codec, &error)) {
    return UsageError(command, error);
  }
  const FrameSpan span = SelectFrames(s.range, reader.FrameCount());
  if (!reader.Skip(span.first, &error)) {
    return Fail(command, kExitError, error.empty() ? "frame " + std::to_string(span.first) +
                                                         " is past the end" : error);
  }
  OutputFile output;
  if (!OpenOutput(s.output, {s.input}, &output, &error)) return Fail(command, kExitError, error);
  std::vector<uint8_t> packed, zpak;
  Progress progress("encode", ProgressTotal(span), !args.Has("quiet"));
  uint64_t encoded = 0;
  for (uint64_t f = span.first; f < span.end; ++f) {
    if (!reader.Next(&packed, &error)) {
      if (!error.empty()) return Fail(command, kExitError, error);
      break;
    }
    if (!EncodePacked(codec.get(), s.format, s.width, s.height, packed.data(), &zpak)) {
      return Fail(command, kExitError, "out of memory");
    }
    if (!WriteBytes(&output, zpak.data(), zpak.size(), &error)) {
      return Fail(command, kExitError, error);
    }
    progress.Update(++encoded);
  }
  if (!CloseOutput(&output, &error)) return Fail(command, kExitError, error);
  if (reader.TrailingBytes() != 0) {
    Note(command, args, "the last " + std::to_string(reader.TrailingBytes()) +
                            " bytes are not a whole frame and are left out");
  }
  if (encoded == 0) Note(command, args, "no frame to encode");
  return kExitOk;
}

}  // namespace

const Command kDecodeCommand = {
    "decode",
    "FORMAT INPUT OUTPUT WIDTH HEIGHT",
    "decodes ZPAK frames to raw frames, PNG pictures or a Y4M stream",
    "Decodes the ZPAK frames of INPUT ('-': standard input) to OUTPUT ('-':\n"
    "standard output) as raw frames, PNG pictures or a Y4M stream, by OUTPUT's\n"
    "extension (.png, .y4m; anything else is raw) or --to. Raw frames are\n"
    "packed (pelcast's linear layouts) unless --stride, --scanlines or\n"
    "--uv-offset give a padded layout; padding is written as zeros. PNG:\n"
    "rgba8888 keeps its alpha, rgb565 widens its fields, nv12 is converted to\n"
    "RGB through --matrix; with several frames, frame N goes to OUTPUT with -fN\n"
    "before the extension. Y4M: nv12 as 4:2:0.\n\n"
    "Exit status: 0 on success, 2 on a usage or I/O error.\n",
    {{"to", 0, "KIND", "raw, png or y4m (default: by OUTPUT's extension)"},
     kStrideOption, kScanlinesOption, kUvOffsetOption, kMatrixOption, kSizeOption, kFrameOption,
     kFramesOption, kQuietOption, kThreadsOption},
    RunDecode,
};

const Command kEncodeCommand = {
    "encode",
    "FORMAT INPUT OUTPUT [WIDTH HEIGHT]",
    "encodes raw frames, PNG pictures or a Y4M stream to ZPAK frames",
    "Encodes the linear frames of INPUT ('-': standard input) to ZPAK frames in\n"
    "OUTPUT ('-': standard output), every tile in the fewest units the format\n"
    "allows. INPUT is raw frames, a PNG picture or a Y4M stream, by its\n"
    "extension or --from. Raw frames are packed unless --stride, --scanlines or\n"
    "--uv-offset describe a padded layout (padding is never read), and need\n"
    "WIDTH HEIGHT; PNG and Y4M carry their size. PNG: rgba8888 (with alpha; 255\n"
    "where the picture has none) or rgb565 (the top bits of each sample). Y4M:\n"
    "8-bit 4:2:0 to nv12.\n\n"
    "Exit status: 0 on success, 2 on a usage or I/O error.\n",
    {{"from", 0, "KIND", "raw, png or y4m (default: by INPUT's extension)"},
     kStrideOption, kScanlinesOption, kUvOffsetOption, kSizeOption, kFrameOption, kFramesOption,
     kQuietOption, kThreadsOption},
    RunEncode,
};

}  // namespace pelcast::zpak
