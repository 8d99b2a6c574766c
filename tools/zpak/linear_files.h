// Files of linear frames as the subcommands read and write them, whatever
// their kind: raw frames with explicit geometry, Y4M streams (NV12 as
// 4:2:0), PNG pictures (RGBA8888 with its alpha; RGB565; NV12 written as
// RGB through a YCbCr matrix). In memory every frame is packed, laid out as
// pelcast_image_init_packed lays it out.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/image_files.h"
#include "tools/zpak/pictures.h"
#include "tools/zpak/zpak_io.h"

namespace pelcast::zpak {

class LinearReader {
 public:
  // Opens `path` ("-": standard input). PNG and Y4M files carry their size,
  // known after this; raw files learn it from SetSize.
  bool Open(const std::string& path, ImageKind kind, pelcast_format format,
            const RawOptions& raw, std::string* error);
  // The picture size the caller expects: required for raw files, checked
  // against the file's own for the others (0 x 0 checks nothing).
  bool SetSize(uint32_t width, uint32_t height, std::string* error);

  bool SizeKnown() const { return width_ != 0; }
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }
  // Frames in the file; kUnknownSize for a Y4M stream or a pipe.
  uint64_t FrameCount() const;
  // Raw files: bytes past the last whole frame.
  uint64_t TrailingBytes() const;

  // Skips the first `frames` frames (before any is read); false when the
  // file ends first.
  bool Skip(uint64_t frames, std::string* error);
  // Reads the next frame. False at the end (`error` empty) or on an error.
  bool Next(std::vector<uint8_t>* packed, std::string* error);

 private:
  InputFile input_;
  ImageKind kind_ = ImageKind::kRaw;
  pelcast_format format_ = PELCAST_FORMAT_NV12;
  RawOptions rawOptions_;
  RawLayout layout_;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  Raster png_;
  bool pngTaken_ = false;
  Y4mHeader y4m_;
  std::vector<uint8_t> raw_;
  std::unique_ptr<FrameReader> frames_;
};

class LinearWriter {
 public:
  // Opens `path` ("-": standard output) for frames of `format` at width x
  // height. PNG: one picture a frame; when `frames` is more than one, frame
  // N goes to PATH with "-fN" before its extension. Refuses to write over
  // any of `inputs`.
  bool Open(const std::string& path, ImageKind kind, pelcast_format format, uint32_t width,
            uint32_t height, const RawOptions& raw, YuvMatrix matrix, uint64_t frames,
            const std::vector<std::string>& inputs, std::string* error);
  bool Write(uint64_t frame, const uint8_t* packed, std::string* error);
  bool Close(std::string* error);
  // The files written so far (PNG pictures one by one).
  const std::vector<std::string>& Written() const { return written_; }

 private:
  std::string PicturePath(uint64_t frame) const;

  std::string path_;
  ImageKind kind_ = ImageKind::kRaw;
  pelcast_format format_ = PELCAST_FORMAT_NV12;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  RawLayout layout_;
  YuvMatrix matrix_ = YuvMatrix::kBt709;
  bool numbered_ = false;
  std::vector<std::string> inputs_;
  OutputFile output_;
  std::vector<uint8_t> buffer_;
  Raster raster_;
  std::vector<std::string> written_;
};

// PATH with "-fN" before its extension: "out.png" -> "out-f3.png".
std::string NumberedPath(const std::string& path, uint64_t frame);

}  // namespace pelcast::zpak
