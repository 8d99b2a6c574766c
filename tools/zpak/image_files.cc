#include "tools/zpak/image_files.h"

#include <png.h>

#include <algorithm>
#include <cstring>

#include "tools/zpak/formats.h"

namespace pelcast::zpak {
namespace {

// --- raw -----------------------------------------------------------------------

uint64_t PixelBytes(pelcast_format format) {
  return format == PELCAST_FORMAT_RGBA8888 ? 4 : (format == PELCAST_FORMAT_RGB565 ? 2 : 1);
}

// Copies the rows of every plane between a packed frame and a raw one.
template <typename Copy>
void ForEachRow(pelcast_format format, uint32_t width, uint32_t height, const RawLayout& layout,
                Copy copy) {
  for (const PlaneView& v : PackedPlanes(format, width, height)) {
    const size_t rowBytes = size_t{v.elementBytes} * v.width;
    for (uint32_t y = 0; y < v.height; ++y) {
      copy(v.offset + y * v.stride, layout.offsets[v.plane] + y * layout.strides[v.plane],
           rowBytes);
    }
  }
}

// --- Y4M -----------------------------------------------------------------------

constexpr char kY4mMagic[] = "YUV4MPEG2";
constexpr char kFrameMagic[] = "FRAME";
constexpr size_t kMaxHeaderBytes = 1024;

// Reads up to and including the next newline; false at the end of the input
// before any byte, or when the line is too long (then `error` says so).
bool ReadLine(InputFile* input, std::string* line, std::string* error) {
  line->clear();
  for (;;) {
    const int c = std::fgetc(input->file);
    if (c == EOF) {
      if (!line->empty()) *error = "'" + input->name + "' ends inside a Y4M header";
      return false;
    }
    if (c == '\n') return true;
    line->push_back(static_cast<char>(c));
    if (line->size() > kMaxHeaderBytes) {
      *error = "'" + input->name + "' has a Y4M header line longer than " +
               std::to_string(kMaxHeaderBytes) + " bytes";
      return false;
    }
  }
}

bool Is420(const std::string& tag) {
  return tag == "420" || tag == "420jpeg" || tag == "420mpeg2" || tag == "420paldv";
}

// --- PNG -----------------------------------------------------------------------

// zlib level for the pictures: past 3 files barely shrink while writing a
// large frame takes several times longer.
constexpr int kPngCompressionLevel = 3;
constexpr int kPngBitDepth = 8;
constexpr png_uint_32 kMaxPngSide = 1u << 16;

struct PngErrors {
  char message[256];
};

void OnPngError(png_structp png, png_const_charp message) {
  auto* errors = static_cast<PngErrors*>(png_get_error_ptr(png));
  std::snprintf(errors->message, sizeof errors->message, "%s", message);
  png_longjmp(png, 1);
}

void OnPngWarning(png_structp, png_const_charp) {}

// The reading itself: libpng reports errors by a long jump, so nothing here
// needs destruction.
bool ReadPngStream(FILE* file, Raster* raster, PngErrors* errors) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, errors, OnPngError, OnPngWarning);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  if (info == nullptr) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    std::snprintf(errors->message, sizeof errors->message, "out of memory");
    return false;
  }
  if (setjmp(png_jmpbuf(png)) != 0) {
    png_destroy_read_struct(&png, &info, nullptr);
    return false;
  }
  png_init_io(png, file);
  png_read_info(png, info);
  png_set_expand(png);
  png_set_strip_16(png);
  png_set_gray_to_rgb(png);
  png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  const png_uint_32 width = png_get_image_width(png, info);
  const png_uint_32 height = png_get_image_height(png, info);
  if (width > kMaxPngSide || height > kMaxPngSide || png_get_channels(png, info) != 4) {
    png_error(png, "unsupported picture size or layout");
  }
  ResizeRaster(raster, width, height, 4);
  // Row by row, every pass of an interlaced picture over the same rows.
  const int passes = png_get_interlace_type(png, info) == PNG_INTERLACE_ADAM7 ? 7 : 1;
  for (int pass = 0; pass < passes; ++pass) {
    for (png_uint_32 y = 0; y < height; ++y) png_read_row(png, raster->At(0, y), nullptr);
  }
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return true;
}

}  // namespace

std::optional<ImageKind> ParseImageKind(const std::string& word) {
  if (word == "raw") return ImageKind::kRaw;
  if (word == "png") return ImageKind::kPng;
  if (word == "y4m") return ImageKind::kY4m;
  return std::nullopt;
}

ImageKind ImageKindOfPath(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return ImageKind::kRaw;
  std::string extension = path.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (extension == "png") return ImageKind::kPng;
  if (extension == "y4m") return ImageKind::kY4m;
  return ImageKind::kRaw;
}

const char* ImageKindName(ImageKind kind) {
  switch (kind) {
    case ImageKind::kPng:
      return "png";
    case ImageKind::kY4m:
      return "y4m";
    default:
      return "raw";
  }
}

bool MakeRawLayout(pelcast_format format, uint32_t width, uint32_t height,
                   const RawOptions& options, RawLayout* layout, std::string* error) {
  const uint64_t rowBytes = PixelBytes(format) * width;
  const uint64_t stride = options.stride.value_or(rowBytes);
  const uint64_t rows = options.scanlines.value_or(height);
  if (stride < rowBytes) {
    *error = "--stride " + std::to_string(stride) + " is shorter than a row of " +
             std::to_string(rowBytes) + " bytes";
    return false;
  }
  if (rows < height) {
    *error = "--scanlines " + std::to_string(rows) + " is fewer than the " +
             std::to_string(height) + " rows of the picture";
    return false;
  }
  if (format != PELCAST_FORMAT_NV12) {
    if (options.uvOffset) {
      *error = "--uv-offset applies to nv12 only";
      return false;
    }
    *layout = RawLayout{1, {0, 0}, {stride, 0}, {rows, 0}, stride * rows};
    return true;
  }
  const uint64_t chromaRowBytes = 2 * ((uint64_t{width} + 1) / 2);
  const uint64_t chromaStride = options.stride ? stride : chromaRowBytes;
  if (chromaStride < chromaRowBytes) {
    *error = "--stride " + std::to_string(stride) + " is shorter than a chroma row of " +
             std::to_string(chromaRowBytes) + " bytes";
    return false;
  }
  const uint64_t chromaRows = options.scanlines ? (rows + 1) / 2 : (uint64_t{height} + 1) / 2;
  const uint64_t chromaOffset = options.uvOffset.value_or(stride * rows);
  if (chromaOffset < stride * rows) {
    *error = "--uv-offset " + std::to_string(chromaOffset) + " lies inside the luma plane (" +
             std::to_string(stride * rows) + " bytes)";
    return false;
  }
  *layout = RawLayout{2, {0, chromaOffset}, {stride, chromaStride}, {rows, chromaRows},
                      chromaOffset + chromaStride * chromaRows};
  return true;
}

pelcast_image RawImage(pelcast_format format, uint32_t width, uint32_t height,
                       const RawLayout& layout, uint8_t* frame) {
  pelcast_image image{};
  image.format = format;
  image.width = width;
  image.height = height;
  for (uint32_t p = 0; p < layout.planes; ++p) {
    image.planes[p] = frame + layout.offsets[p];
    image.strides[p] = layout.strides[p];
    image.sizes[p] = layout.frameBytes - layout.offsets[p];
  }
  return image;
}

void RawToPacked(pelcast_format format, uint32_t width, uint32_t height, const RawLayout& layout,
                 const uint8_t* raw, uint8_t* packed) {
  ForEachRow(format, width, height, layout, [&](size_t to, uint64_t from, size_t bytes) {
    std::memcpy(packed + to, raw + from, bytes);
  });
}

void PackedToRaw(pelcast_format format, uint32_t width, uint32_t height, const RawLayout& layout,
                 const uint8_t* packed, uint8_t* raw) {
  std::memset(raw, 0, layout.frameBytes);
  ForEachRow(format, width, height, layout, [&](size_t from, uint64_t to, size_t bytes) {
    std::memcpy(raw + to, packed + from, bytes);
  });
}

bool ReadY4mHeader(InputFile* input, Y4mHeader* header, std::string* error) {
  std::string line;
  if (!ReadLine(input, &line, error)) {
    if (error->empty()) *error = "'" + input->name + "' is empty, not a Y4M stream";
    return false;
  }
  if (line.compare(0, sizeof kY4mMagic - 1, kY4mMagic) != 0) {
    *error = "'" + input->name + "' is not a Y4M stream (no YUV4MPEG2 header)";
    return false;
  }
  std::string colour = "420";
  for (size_t at = line.find(' '); at != std::string::npos; at = line.find(' ', at + 1)) {
    const size_t end = line.find(' ', at + 1);
    const std::string token = line.substr(at + 1, end == std::string::npos ? end : end - at - 1);
    if (token.empty()) continue;
    const std::string value = token.substr(1);
    if (token[0] == 'W' || token[0] == 'H') {
      const auto n = ParseCount(value, UINT32_MAX);
      if (!n || *n == 0) {
        *error = "'" + input->name + "' has a bad Y4M size '" + token + "'";
        return false;
      }
      (token[0] == 'W' ? header->width : header->height) = static_cast<uint32_t>(*n);
    } else if (token[0] == 'C') {
      colour = value;
    }
  }
  if (header->width == 0 || header->height == 0) {
    *error = "'" + input->name + "' has no Y4M width or height";
    return false;
  }
  if (!Is420(colour)) {
    *error = "'" + input->name + "' is Y4M C" + colour + "; only 8-bit 4:2:0 maps to nv12";
    return false;
  }
  return true;
}

bool ReadY4mFrame(InputFile* input, const Y4mHeader& header, uint8_t* nv12, std::string* error) {
  std::string line;
  if (!ReadLine(input, &line, error)) return false;
  if (line.compare(0, sizeof kFrameMagic - 1, kFrameMagic) != 0) {
    *error = "'" + input->name + "': a Y4M frame does not start with FRAME";
    return false;
  }
  const size_t lumaBytes = size_t{header.width} * header.height;
  const size_t pairs = (size_t{header.width} + 1) / 2, chromaRows = (size_t{header.height} + 1) / 2;
  std::vector<uint8_t> chroma(2 * pairs * chromaRows);
  if (ReadUpTo(input, nv12, lumaBytes) != lumaBytes ||
      ReadUpTo(input, chroma.data(), chroma.size()) != chroma.size()) {
    *error = "'" + input->name + "' ends inside a Y4M frame";
    return false;
  }
  const uint8_t* u = chroma.data();
  const uint8_t* v = u + pairs * chromaRows;
  uint8_t* uv = nv12 + lumaBytes;
  for (size_t i = 0; i < pairs * chromaRows; ++i) {
    uv[2 * i] = u[i];
    uv[2 * i + 1] = v[i];
  }
  return true;
}

std::string Y4mHeaderText(uint32_t width, uint32_t height) {
  return std::string(kY4mMagic) + " W" + std::to_string(width) + " H" + std::to_string(height) +
         " F30:1 Ip A1:1 C420mpeg2\n";
}

void Y4mFrame(const uint8_t* nv12, uint32_t width, uint32_t height, std::vector<uint8_t>* out) {
  const size_t lumaBytes = size_t{width} * height;
  const size_t pairs = (size_t{width} + 1) / 2, chromaRows = (size_t{height} + 1) / 2;
  const size_t head = sizeof kFrameMagic;  // "FRAME" and the newline
  out->resize(head + lumaBytes + 2 * pairs * chromaRows);
  std::memcpy(out->data(), "FRAME\n", head);
  std::memcpy(out->data() + head, nv12, lumaBytes);
  uint8_t* u = out->data() + head + lumaBytes;
  uint8_t* v = u + pairs * chromaRows;
  const uint8_t* uv = nv12 + lumaBytes;
  for (size_t i = 0; i < pairs * chromaRows; ++i) {
    u[i] = uv[2 * i];
    v[i] = uv[2 * i + 1];
  }
}

bool ReadPng(FILE* file, const std::string& inputName, Raster* raster, std::string* error) {
  PngErrors errors{};
  if (ReadPngStream(file, raster, &errors)) return true;
  *error = "cannot read '" + inputName + "' as PNG: " + errors.message;
  return false;
}

bool WritePng(FILE* file, const Raster& raster) {
  PngErrors errors{};
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &errors, OnPngError, OnPngWarning);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  if (info == nullptr) {
    png_destroy_write_struct(&png, nullptr);
    return false;
  }
  if (setjmp(png_jmpbuf(png)) != 0) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_init_io(png, file);
  png_set_compression_level(png, kPngCompressionLevel);
  png_set_IHDR(png, info, raster.width, raster.height, kPngBitDepth,
               raster.channels == 4 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (uint32_t y = 0; y < raster.height; ++y) {
    png_write_row(png, const_cast<png_bytep>(raster.At(0, y)));
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return std::ferror(file) == 0;
}

}  // namespace pelcast::zpak
