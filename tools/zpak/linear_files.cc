#include "tools/zpak/linear_files.h"

#include "tools/zpak/formats.h"

namespace pelcast::zpak {
namespace {

std::string SizeText(uint32_t width, uint32_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

bool KindFitsFormat(ImageKind kind, pelcast_format format, bool writing, std::string* error) {
  if (kind == ImageKind::kY4m && format != PELCAST_FORMAT_NV12) {
    *error = "Y4M holds 4:2:0 YUV, which maps to nv12 only";
    return false;
  }
  if (kind == ImageKind::kPng && format == PELCAST_FORMAT_NV12 && !writing) {
    *error = "a PNG holds RGB, not nv12: encode nv12 from Y4M or raw frames";
    return false;
  }
  return true;
}

}  // namespace

std::string NumberedPath(const std::string& path, uint64_t frame) {
  const size_t dot = path.find_last_of('.');
  const size_t slash = path.find_last_of('/');
  const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
  const std::string suffix = "-f" + std::to_string(frame);
  return hasExtension ? path.substr(0, dot) + suffix + path.substr(dot) : path + suffix;
}

bool LinearReader::Open(const std::string& path, ImageKind kind, pelcast_format format,
                        const RawOptions& raw, std::string* error) {
  kind_ = kind;
  format_ = format;
  rawOptions_ = raw;
  if (!KindFitsFormat(kind, format, false, error) || !OpenInput(path, &input_, error)) {
    return false;
  }
  if (kind != ImageKind::kRaw && (raw.stride || raw.scanlines || raw.uvOffset)) {
    *error = "--stride, --scanlines and --uv-offset apply to raw files only";
    return false;
  }
  if (kind == ImageKind::kPng) {
    if (!ReadPng(input_.file, path, &png_, error)) return false;
    width_ = png_.width;
    height_ = png_.height;
  } else if (kind == ImageKind::kY4m) {
    if (!ReadY4mHeader(&input_, &y4m_, error)) return false;
    width_ = y4m_.width;
    height_ = y4m_.height;
  }
  return true;
}

bool LinearReader::SetSize(uint32_t width, uint32_t height, std::string* error) {
  if (kind_ != ImageKind::kRaw) {
    if (width == 0 || (width == width_ && height == height_)) return true;
    *error = "'" + input_.name + "' is " + SizeText(width_, height_) + ", not " +
             SizeText(width, height);
    return false;
  }
  if (!MakeRawLayout(format_, width, height, rawOptions_, &layout_, error)) return false;
  width_ = width;
  height_ = height;
  raw_.assign(layout_.frameBytes, 0);
  frames_ = std::make_unique<FrameReader>(&input_, layout_.frameBytes);
  return true;
}

uint64_t LinearReader::FrameCount() const {
  if (kind_ == ImageKind::kPng) return 1;
  if (kind_ == ImageKind::kY4m || frames_ == nullptr) return kUnknownSize;
  return frames_->FrameCount();
}

uint64_t LinearReader::TrailingBytes() const {
  return frames_ != nullptr ? frames_->TrailingBytes() : 0;
}

bool LinearReader::Skip(uint64_t frames, std::string* error) {
  if (kind_ == ImageKind::kRaw) return frames_->SeekFrame(frames);
  std::vector<uint8_t> scratch;
  for (uint64_t i = 0; i < frames; ++i) {
    if (!Next(&scratch, error)) return false;
  }
  return true;
}

bool LinearReader::Next(std::vector<uint8_t>* packed, std::string* error) {
  error->clear();
  packed->resize(pelcast_linear_frame_size(format_, width_, height_));
  switch (kind_) {
    case ImageKind::kPng:
      if (pngTaken_) return false;
      pngTaken_ = true;
      return FrameOfRaster(format_, png_, packed->data());
    case ImageKind::kY4m:
      return ReadY4mFrame(&input_, y4m_, packed->data(), error);
    default:
      if (!frames_->ReadFrame(raw_.data())) return false;
      RawToPacked(format_, width_, height_, layout_, raw_.data(), packed->data());
      return true;
  }
}

bool LinearWriter::Open(const std::string& path, ImageKind kind, pelcast_format format,
                        uint32_t width, uint32_t height, const RawOptions& raw, YuvMatrix matrix,
                        uint64_t frames, const std::vector<std::string>& inputs,
                        std::string* error) {
  path_ = path;
  kind_ = kind;
  format_ = format;
  width_ = width;
  height_ = height;
  matrix_ = matrix;
  inputs_ = inputs;
  if (!KindFitsFormat(kind, format, true, error)) return false;
  if (kind != ImageKind::kRaw && (raw.stride || raw.scanlines || raw.uvOffset)) {
    *error = "--stride, --scanlines and --uv-offset apply to raw files only";
    return false;
  }
  if (kind == ImageKind::kRaw && !MakeRawLayout(format, width, height, raw, &layout_, error)) {
    return false;
  }
  numbered_ = kind == ImageKind::kPng && frames > 1;
  if (numbered_ && path == "-") {
    *error = "standard output takes one PNG picture; choose one frame with --frame";
    return false;
  }
  if (numbered_) return true;  // each picture opens its own file
  if (!OpenOutput(path, inputs, &output_, error)) return false;
  written_.push_back(path);
  if (kind == ImageKind::kY4m) {
    const std::string header = Y4mHeaderText(width, height);
    return WriteBytes(&output_, header.data(), header.size(), error);
  }
  return true;
}

std::string LinearWriter::PicturePath(uint64_t frame) const {
  return numbered_ ? NumberedPath(path_, frame) : path_;
}

bool LinearWriter::Write(uint64_t frame, const uint8_t* packed, std::string* error) {
  switch (kind_) {
    case ImageKind::kY4m:
      Y4mFrame(packed, width_, height_, &buffer_);
      return WriteBytes(&output_, buffer_.data(), buffer_.size(), error);
    case ImageKind::kPng: {
      RasterOfFrame(format_, width_, height_, packed, matrix_, &raster_);
      OutputFile own;
      OutputFile* out = &output_;
      if (numbered_) {
        if (!OpenOutput(PicturePath(frame), inputs_, &own, error)) return false;
        written_.push_back(own.name);
        out = &own;
      }
      if (!WritePng(out->file, raster_)) {
        *error = "cannot write '" + out->name + "'";
        return false;
      }
      return !numbered_ || CloseOutput(&own, error);
    }
    default:
      buffer_.resize(layout_.frameBytes);
      PackedToRaw(format_, width_, height_, layout_, packed, buffer_.data());
      return WriteBytes(&output_, buffer_.data(), buffer_.size(), error);
  }
}

bool LinearWriter::Close(std::string* error) { return CloseOutput(&output_, error); }

}  // namespace pelcast::zpak
