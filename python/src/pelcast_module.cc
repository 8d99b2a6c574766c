// pelcast._pelcast: ZPAK frames as numpy arrays over libpelcast's public C
// API (pelcast/pelcast.h).
//
// Every call describes the caller's array to the library as a pelcast_image
// (plane addresses and row strides taken from the array, so rows padded or
// cropped out of a larger array need no copy), creates a codec for the one
// frame and runs it with the GIL released. A codec costs microseconds to
// create and its worker threads a fraction of a millisecond to start, so
// nothing is kept between calls: no state survives a fork().
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"

namespace py = pybind11;

namespace {

struct Frame {
  pelcast_format format;
  uint32_t width;
  uint32_t height;
};

struct FormatName {
  const char* name;
  pelcast_format format;
};

constexpr FormatName kFormats[] = {{"nv12", PELCAST_FORMAT_NV12},
                                   {"rgba8888", PELCAST_FORMAT_RGBA8888},
                                   {"rgb565", PELCAST_FORMAT_RGB565}};

constexpr uint32_t kRgbaChannels = 4;
constexpr uint32_t kRgb565Bytes = 2;
// Plane names of stats(): NV12's two planes, the one plane of the others.
constexpr const char* kNv12PlaneNames[] = {"y", "uv"};
constexpr const char* kRgbaPlaneName = "rgba";
constexpr const char* kRgb565PlaneName = "rgb565";

[[noreturn]] void Fail(pelcast_status status, const std::string& detail) {
  throw py::value_error(std::string(pelcast_status_string(status)) + ": " + detail);
}

std::string Text(const py::handle& object) { return std::string(py::str(object)); }

const char* NameOf(pelcast_format format) {
  for (const FormatName& f : kFormats) {
    if (f.format == format) return f.name;
  }
  return "?";
}

std::string Describe(const Frame& f) {
  return std::string(NameOf(f.format)) + " " + std::to_string(f.width) + "x" +
         std::to_string(f.height);
}

pelcast_format ParseFormat(const std::string& text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const FormatName& f : kFormats) {
    if (lower == f.name) return f.format;
  }
  Fail(PELCAST_ERROR_INVALID_ARGUMENT,
       "unknown format '" + text + "' (formats: 'nv12', 'rgba8888', 'rgb565')");
}

// A Python int as a width, height or thread count: negative values are
// invalid, values past 32 bits too large for any frame.
uint32_t ParseCount(const py::handle& value, const char* what, pelcast_status tooLarge) {
  if (!py::isinstance<py::int_>(value)) throw py::type_error(std::string(what) + " must be an int");
  int overflow = 0;
  const long long v = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (v == -1 && PyErr_Occurred()) throw py::error_already_set();
  const std::string text = std::string(what) + " " + Text(value);
  if (overflow > 0 || (overflow == 0 && v > std::numeric_limits<uint32_t>::max())) {
    Fail(tooLarge, text);
  }
  if (overflow < 0 || v < 0) Fail(PELCAST_ERROR_INVALID_ARGUMENT, text);
  return static_cast<uint32_t>(v);
}

uint32_t ParseDimension(const py::handle& value, const char* what) {
  return ParseCount(value, what, PELCAST_ERROR_SIZE_LIMIT);
}

Frame ParseFrame(const std::string& format, const py::handle& width, const py::handle& height) {
  return Frame{ParseFormat(format), ParseDimension(width, "width"),
               ParseDimension(height, "height")};
}

// None is the library's default, the calling thread only; 0 is one thread
// per processor the process may run on. The library refuses more than
// PELCAST_MAX_THREADS.
std::string ThreadsText(const std::string& value) {
  return "threads " + value + " (None or 1: the calling thread; 0: one per processor; at most " +
         std::to_string(PELCAST_MAX_THREADS) + ")";
}

uint32_t ParseThreads(const py::object& threads) {
  if (threads.is_none()) return 1;
  if (py::isinstance<py::int_>(threads) && threads < py::int_(0)) {
    Fail(PELCAST_ERROR_INVALID_ARGUMENT, ThreadsText(Text(threads)));
  }
  return ParseCount(threads, "threads", PELCAST_ERROR_INVALID_ARGUMENT);
}

// The bytes of a buffer object. Contiguous buffers (bytes, bytearray, mmap,
// C-contiguous arrays) are read in place; others are copied in C order.
class ByteView {
 public:
  explicit ByteView(const py::handle& object) {
    if (PyObject_GetBuffer(object.ptr(), &view_, PyBUF_FULL_RO) != 0) throw py::error_already_set();
    if (PyBuffer_IsContiguous(&view_, 'C')) {
      data_ = view_.buf;
      size_ = static_cast<size_t>(view_.len);
      return;
    }
    copy_.resize(static_cast<size_t>(view_.len));
    if (PyBuffer_ToContiguous(copy_.data(), &view_, view_.len, 'C') != 0) {
      PyBuffer_Release(&view_);
      throw py::error_already_set();
    }
    data_ = copy_.data();
    size_ = copy_.size();
  }
  ~ByteView() { PyBuffer_Release(&view_); }
  ByteView(const ByteView&) = delete;
  ByteView& operator=(const ByteView&) = delete;

  const void* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  Py_buffer view_{};
  std::vector<uint8_t> copy_;
  const void* data_ = nullptr;
  size_t size_ = 0;
};

class Codec {
 public:
  Codec(const Frame& f, uint32_t threads) {
    pelcast_status created;
    pelcast_status threaded = PELCAST_OK;
    {
      py::gil_scoped_release release;
      created = pelcast_codec_create(f.format, f.width, f.height, &codec_);
      if (created == PELCAST_OK) threaded = pelcast_codec_set_threads(codec_, threads);
    }
    if (created != PELCAST_OK) Fail(created, Describe(f));
    if (threaded != PELCAST_OK) {
      pelcast_codec_destroy(codec_);
      Fail(threaded, ThreadsText(std::to_string(threads)));
    }
  }
  ~Codec() { pelcast_codec_destroy(codec_); }
  Codec(const Codec&) = delete;
  Codec& operator=(const Codec&) = delete;

  pelcast_codec* get() const { return codec_; }

 private:
  pelcast_codec* codec_ = nullptr;
};

// Raises the library's reason for refusing a frame size (the size calls
// give only 0).
[[noreturn]] void FailRefusedSize(const Frame& f) {
  const Codec codec(f, 1);
  Fail(PELCAST_ERROR_INVALID_ARGUMENT, Describe(f));
}

[[noreturn]] void FailShortFrame(const Frame& f, size_t have) {
  Fail(PELCAST_ERROR_BUFFER_TOO_SMALL,
       "data holds " + std::to_string(have) + " bytes, one " + Describe(f) + " ZPAK frame is " +
           std::to_string(pelcast_zpak_frame_size(f.format, f.width, f.height)) + " bytes");
}

// ---------------------------------------------------------------------------
// Arrays of frames
// ---------------------------------------------------------------------------

// NV12 arrays hold the chroma rows under the luma rows, OpenCV's layout. The
// chroma rows of an odd width are (width + 1) / 2 U,V pairs, one byte wider
// than the luma rows, so the array has width + 1 columns and the last column
// of the luma rows is padding (zero in arrays decode() makes, never read by
// encode()).
uint32_t Nv12Columns(uint32_t width) { return width + (width & 1u); }
uint32_t Nv12ChromaRows(uint32_t height) { return height / 2 + (height & 1u); }

std::vector<py::ssize_t> ShapeOf(const Frame& f) {
  switch (f.format) {
    case PELCAST_FORMAT_NV12:
      return {py::ssize_t{f.height} + Nv12ChromaRows(f.height), Nv12Columns(f.width)};
    case PELCAST_FORMAT_RGBA8888:
      return {f.height, f.width, kRgbaChannels};
    default:
      return {f.height, f.width};
  }
}

// RGB565 pixels are the library's little-endian 16-bit words.
py::dtype DtypeOf(pelcast_format format) {
  return format == PELCAST_FORMAT_RGB565 ? py::dtype("<u2") : py::dtype::of<uint8_t>();
}

std::string ShapeText(const py::array& a) {
  std::string text = "(";
  for (py::ssize_t d = 0; d < a.ndim(); ++d) {
    text += (d == 0 ? "" : ", ") + std::to_string(a.shape(d));
  }
  return text + (a.ndim() == 1 ? ",)" : ")");
}

std::string ShapeText(const std::vector<py::ssize_t>& shape) {
  std::string text = "(";
  for (size_t d = 0; d < shape.size(); ++d) text += (d == 0 ? "" : ", ") + std::to_string(shape[d]);
  return text + ")";
}

// One plane of a frame as array rows: rows [firstRow, firstRow + rows) of
// the array, rowBytes bytes each from the row's start.
struct PlaneRows {
  size_t firstRow;
  size_t rows;
  size_t rowBytes;
};

uint32_t PlaneRowsOf(const Frame& f, PlaneRows planes[2]) {
  switch (f.format) {
    case PELCAST_FORMAT_NV12:
      planes[0] = PlaneRows{0, f.height, f.width};
      planes[1] = PlaneRows{f.height, Nv12ChromaRows(f.height), Nv12Columns(f.width)};
      return 2;
    case PELCAST_FORMAT_RGBA8888:
      planes[0] = PlaneRows{0, f.height, size_t{f.width} * kRgbaChannels};
      return 1;
    default:
      planes[0] = PlaneRows{0, f.height, size_t{f.width} * kRgb565Bytes};
      return 1;
  }
}

// Whether each row of `a` (of the frame's shape and dtype) is one run of
// bytes: then the library reads or writes the array in place.
bool RowsArePacked(const py::array& a, const Frame& f) {
  switch (f.format) {
    case PELCAST_FORMAT_NV12:
      return a.strides(1) == 1;
    case PELCAST_FORMAT_RGBA8888:
      return a.strides(2) == 1 && (f.width == 1 || a.strides(1) == kRgbaChannels);
    default:
      return f.width == 1 || a.strides(1) == kRgb565Bytes;
  }
}

// Describes `a` (of the frame's shape and dtype) as a pelcast_image without
// copying; false when its rows are not byte runs at a positive stride that
// keeps them apart.
bool WrapArray(const py::array& a, const Frame& f, pelcast_image* image) {
  if (!RowsArePacked(a, f)) return false;
  PlaneRows planes[2];
  const uint32_t count = PlaneRowsOf(f, planes);
  size_t widest = 0;
  for (uint32_t p = 0; p < count; ++p) widest = std::max(widest, planes[p].rowBytes);
  // The stride of a single row is never used; numpy may give it any value.
  const py::ssize_t rowStride = a.shape(0) == 1 ? static_cast<py::ssize_t>(widest) : a.strides(0);
  if (rowStride <= 0 || static_cast<size_t>(rowStride) < widest) return false;
  const auto stride = static_cast<size_t>(rowStride);
  auto* base = static_cast<uint8_t*>(const_cast<void*>(a.data()));
  *image = pelcast_image{};
  image->format = f.format;
  image->width = f.width;
  image->height = f.height;
  for (uint32_t p = 0; p < count; ++p) {
    image->planes[p] = base + planes[p].firstRow * stride;
    image->strides[p] = stride;
    image->sizes[p] = (planes[p].rows - 1) * stride + planes[p].rowBytes;
  }
  return true;
}

py::array NewArray(const Frame& f) {
  py::array a(DtypeOf(f.format), ShapeOf(f));
  if (f.format == PELCAST_FORMAT_NV12 && (f.width & 1u) != 0) {
    auto* bytes = static_cast<uint8_t*>(a.mutable_data());
    for (uint32_t y = 0; y < f.height; ++y) bytes[size_t{y} * Nv12Columns(f.width) + f.width] = 0;
  }
  return a;
}

py::array CheckOut(const py::object& out, const Frame& f) {
  if (!py::isinstance<py::array>(out)) throw py::type_error("out must be a numpy.ndarray");
  auto a = py::reinterpret_borrow<py::array>(out);
  const std::vector<py::ssize_t> shape = ShapeOf(f);
  const bool sameShape = static_cast<size_t>(a.ndim()) == shape.size() &&
                         std::equal(shape.begin(), shape.end(), a.shape());
  if (!sameShape || !a.dtype().equal(DtypeOf(f.format))) {
    Fail(PELCAST_ERROR_INVALID_ARGUMENT, "out is " + Text(a.dtype()) + " " + ShapeText(a) + "; " +
                                             Describe(f) + " frames are " +
                                             Text(DtypeOf(f.format)) + " " + ShapeText(shape));
  }
  if (!a.writeable()) Fail(PELCAST_ERROR_INVALID_ARGUMENT, "out is read-only");
  return a;
}

// An array of the encoder's dtype: uint8, or little-endian uint16 for RGB565
// (a big-endian uint16 array is converted).
py::array ImageArray(const py::handle& image, pelcast_format format) {
  auto a = py::reinterpret_steal<py::array>(
      py::module_::import("numpy").attr("asarray")(image).release());
  const py::dtype want = DtypeOf(format);
  const py::dtype have = a.dtype();
  if (have.equal(want)) return a;
  if (have.kind() == 'u' && have.itemsize() == want.itemsize()) {
    return a.attr("astype")(want);
  }
  Fail(PELCAST_ERROR_INVALID_ARGUMENT,
       std::string(NameOf(format)) + " images are " + Text(want) + ", not " + Text(have));
}

// The frame an image array holds. NV12 arrays of an even number of columns
// are that width unless `width` says one less (an odd width with its
// padding column).
Frame FrameOfImage(const py::array& a, pelcast_format format, const py::object& width) {
  const std::string shapeText = ShapeText(a);
  const std::string name = NameOf(format);
  auto wrongShape = [&](const std::string& want) {
    Fail(PELCAST_ERROR_INVALID_ARGUMENT,
         name + " images have the shape " + want + ", not " + shapeText);
  };
  Frame f{format, 0, 0};
  const py::ssize_t rows = a.ndim() > 0 ? a.shape(0) : 0;
  const py::ssize_t columns = a.ndim() > 1 ? a.shape(1) : 0;
  if (format == PELCAST_FORMAT_RGBA8888) {
    if (a.ndim() != 3 || a.shape(2) != kRgbaChannels) wrongShape("(height, width, 4)");
  } else if (a.ndim() != 2) {
    wrongShape(format == PELCAST_FORMAT_NV12 ? "(height + (height + 1) // 2, width)"
                                             : "(height, width)");
  }
  const uint64_t limit = std::numeric_limits<uint32_t>::max();
  if (static_cast<uint64_t>(rows) > limit || static_cast<uint64_t>(columns) > limit) {
    Fail(PELCAST_ERROR_SIZE_LIMIT, name + " image of shape " + shapeText);
  }
  f.height = static_cast<uint32_t>(rows);
  f.width = static_cast<uint32_t>(columns);
  if (format == PELCAST_FORMAT_NV12) {
    f.height = static_cast<uint32_t>(2 * static_cast<uint64_t>(rows) / 3);
    if (f.height + Nv12ChromaRows(f.height) != rows) {
      Fail(PELCAST_ERROR_INVALID_ARGUMENT,
           "nv12 images have height + (height + 1) // 2 rows, which no height gives for " +
               std::to_string(rows));
    }
    if (!width.is_none()) {
      f.width = ParseDimension(width, "width");
      if (Nv12Columns(f.width) != columns) {
        Fail(PELCAST_ERROR_INVALID_ARGUMENT, "nv12 images of width " + std::to_string(f.width) +
                                                 " have " + std::to_string(Nv12Columns(f.width)) +
                                                 " columns, not " + std::to_string(columns));
      }
    } else if ((columns & 1) != 0) {
      Fail(PELCAST_ERROR_INVALID_ARGUMENT,
           "nv12 images have an even number of columns (an odd width w has w + 1, given as "
           "width=w), not " +
               std::to_string(columns));
    }
  } else if (!width.is_none() && ParseDimension(width, "width") != f.width) {
    Fail(PELCAST_ERROR_INVALID_ARGUMENT, "width " + Text(width) + " is not the width of the " +
                                             name + " image of shape " + shapeText);
  }
  return f;
}

// ---------------------------------------------------------------------------
// The module's calls
// ---------------------------------------------------------------------------

size_t ZpakFrameSize(const std::string& format, const py::handle& width, const py::handle& height) {
  const Frame f = ParseFrame(format, width, height);
  const size_t size = pelcast_zpak_frame_size(f.format, f.width, f.height);
  if (size == 0) FailRefusedSize(f);
  return size;
}

size_t LinearFrameSize(const std::string& format, const py::handle& width,
                       const py::handle& height) {
  const Frame f = ParseFrame(format, width, height);
  const size_t size = pelcast_linear_frame_size(f.format, f.width, f.height);
  if (size == 0) FailRefusedSize(f);
  return size;
}

py::array Decode(const py::handle& data, const std::string& format, const py::handle& width,
                 const py::handle& height, const py::object& threads, const py::object& out) {
  const Frame f = ParseFrame(format, width, height);
  const uint32_t threadCount = ParseThreads(threads);
  const Codec codec(f, threadCount);
  const ByteView zpak(data);
  py::array target = out.is_none() ? NewArray(f) : CheckOut(out, f);
  py::array direct = target;
  pelcast_image image;
  if (!WrapArray(direct, f, &image)) {
    direct = NewArray(f);
    WrapArray(direct, f, &image);
  }
  pelcast_status status;
  {
    py::gil_scoped_release release;
    status = pelcast_codec_decode(codec.get(), zpak.data(), zpak.size(), &image);
  }
  if (status == PELCAST_ERROR_BUFFER_TOO_SMALL) FailShortFrame(f, zpak.size());
  if (status != PELCAST_OK) Fail(status, Describe(f));
  if (!direct.is(target)) target[py::ellipsis()] = direct;
  return target;
}

py::bytes Encode(const py::handle& image, const std::string& format, const py::object& threads,
                 const py::object& width) {
  const pelcast_format fmt = ParseFormat(format);
  const uint32_t threadCount = ParseThreads(threads);
  py::array a = ImageArray(image, fmt);
  const Frame f = FrameOfImage(a, fmt, width);
  const Codec codec(f, threadCount);
  pelcast_image linear;
  if (!WrapArray(a, f, &linear)) {
    a = py::module_::import("numpy").attr("ascontiguousarray")(a);
    WrapArray(a, f, &linear);
  }
  const size_t size = pelcast_zpak_frame_size(f.format, f.width, f.height);
  auto zpak = py::reinterpret_steal<py::bytes>(
      PyBytes_FromStringAndSize(nullptr, static_cast<py::ssize_t>(size)));
  if (!zpak) throw py::error_already_set();
  pelcast_status status;
  {
    py::gil_scoped_release release;
    status = pelcast_codec_encode(codec.get(), &linear, PyBytes_AS_STRING(zpak.ptr()), size);
  }
  if (status != PELCAST_OK) Fail(status, Describe(f));
  return zpak;
}

py::dict PlaneDict(const pelcast_plane_stats& s) {
  py::dict byUnits;
  for (int units = 1; units <= 3; ++units) byUnits[py::int_(units)] = s.tiles_by_units[units];
  py::dict d;
  d["tiles"] = s.tiles;
  d["units"] = s.units;
  d["raw_units"] = s.raw_units;
  d["ratio"] =
      s.raw_units == 0 ? 0.0 : static_cast<double>(s.units) / static_cast<double>(s.raw_units);
  d["tiles_by_units"] = byUnits;
  d["raw_tiles"] = s.raw_tiles;
  d["bad_metadata_tiles"] = s.bad_metadata_tiles;
  d["overrun_tiles"] = s.overrun_tiles;
  return d;
}

const char* PlaneName(pelcast_format format, uint32_t plane) {
  switch (format) {
    case PELCAST_FORMAT_NV12:
      return kNv12PlaneNames[plane];
    case PELCAST_FORMAT_RGBA8888:
      return kRgbaPlaneName;
    default:
      return kRgb565PlaneName;
  }
}

py::dict Stats(const py::handle& data, const std::string& format, const py::handle& width,
               const py::handle& height) {
  const Frame f = ParseFrame(format, width, height);
  const Codec codec(f, 1);
  const ByteView zpak(data);
  py::dict planes;
  const uint32_t count = pelcast_plane_count(f.format);
  for (uint32_t p = 0; p < count; ++p) {
    pelcast_plane_stats s{};
    pelcast_status status;
    {
      py::gil_scoped_release release;
      status = pelcast_codec_plane_stats(codec.get(), zpak.data(), zpak.size(), p, &s);
    }
    if (status == PELCAST_ERROR_BUFFER_TOO_SMALL) FailShortFrame(f, zpak.size());
    if (status != PELCAST_OK) Fail(status, Describe(f));
    planes[PlaneName(f.format, p)] = PlaneDict(s);
  }
  return planes;
}

}  // namespace

constexpr const char* kZpakFrameSizeDoc = R"(zpak_frame_size(format, width, height) -> int

Bytes of one ZPAK frame of `format` ('nv12', 'rgba8888', 'rgb565') at
width x height: metadata and data planes (for NV12 those of Y, then those of
UV) at their aligned sizes. A ZPAK file is a plain sequence of such frames.
Raises ValueError for an unknown format or a size the library refuses.)";

constexpr const char* kLinearFrameSizeDoc = R"(linear_frame_size(format, width, height) -> int

Bytes of one packed linear frame: RGBA8888 4 per pixel, RGB565 2 per pixel,
NV12 the Y plane (width x height) then (height + 1) // 2 rows of width
rounded up to even bytes of U,V pairs.)";

constexpr const char* kDecodeDoc =
    R"(decode(data, format, width, height, *, threads=None, out=None) -> numpy.ndarray

Decodes the ZPAK frame at the start of `data` (any buffer: bytes, bytearray,
memoryview, mmap, numpy array; bytes after the frame are ignored).

Shapes and dtypes:
  'rgba8888'  (height, width, 4) uint8, R, G, B, A
  'rgb565'    (height, width) little-endian uint16: R in bits 15-11, G 10-5, B 4-0
  'nv12'      (height + (height + 1) // 2, width) uint8: the Y rows, then the
              interleaved U,V rows (OpenCV's layout). An odd width has
              width + 1 columns: its chroma rows hold (width + 1) // 2 pairs;
              the last column of the Y rows is padding, 0 in a new array.

threads: None or 1 decodes on the calling thread, 0 on one thread per
processor, n on n threads (at most 64); the output is the same whatever the
count. The GIL is released while the frame is decoded.

out: an array of that shape and dtype to decode into. Rows that are byte
runs (any row stride, e.g. a crop of a larger array) are written in place;
bytes between rows are never written. Other layouts get a copy. Returns out.

Raises ValueError (message from the library) for an unknown format, a size
the library refuses, data shorter than one frame, or a wrong out.)";

constexpr const char* kEncodeDoc = R"(encode(image, format, *, threads=None, width=None) -> bytes

Encodes an image array of decode()'s shapes and dtypes to one ZPAK frame, each
tile in the fewest 64-byte units the format allows; decode() gives the image
back. The width and height come from the shape. Any strides are accepted:
arrays whose rows are byte runs (C-contiguous, or rows cropped out of a
larger array) are read in place, others (e.g. every other column, reversed
rows, Fortran order) are copied first. A big-endian uint16 RGB565 image is
converted.

width: needed only for NV12 images of an odd width, whose arrays have
width + 1 columns; an array of an even number of columns is otherwise taken
to be that wide.

threads: as for decode(). Raises ValueError for a wrong dtype or shape or a
size the library refuses.)";

constexpr const char* kStatsDoc = R"(stats(data, format, width, height) -> dict

How the tiles of each plane of the ZPAK frame at the start of `data` are
stored, as the library reads them from the metadata bytes. Keys are the
planes: 'y' and 'uv' for NV12, 'rgba' for RGBA8888, 'rgb565' for RGB565. Each value:
  tiles               tiles covering the image
  units               64-byte units they are stored in (a raw tile and one
                      with bad metadata count as raw)
  raw_units           units of the same tiles stored raw
  ratio               units / raw_units: the share of the raw surface's
                      memory bandwidth the plane needs
  tiles_by_units      {1: n, 2: n, 3: n}: tiles compressed into 1, 2, 3 units
  raw_tiles           tiles stored raw
  bad_metadata_tiles  tiles whose metadata byte is no unit count of the plane
  overrun_tiles       compressed tiles whose stream reads past their units)";

PYBIND11_MODULE(_pelcast, m) {
  // The docstrings carry their own signatures.
  py::options options;
  options.disable_function_signatures();
  m.doc() = "libpelcast's public C API for numpy arrays; use the package pelcast.";
  m.attr("__version__") = pelcast_version();
  m.def("zpak_frame_size", &ZpakFrameSize, py::arg("format"), py::arg("width"), py::arg("height"),
        kZpakFrameSizeDoc);
  m.def("linear_frame_size", &LinearFrameSize, py::arg("format"), py::arg("width"),
        py::arg("height"), kLinearFrameSizeDoc);
  m.def("decode", &Decode, py::arg("data"), py::arg("format"), py::arg("width"), py::arg("height"),
        py::kw_only(), py::arg("threads") = py::none(), py::arg("out") = py::none(), kDecodeDoc);
  m.def("encode", &Encode, py::arg("image"), py::arg("format"), py::kw_only(),
        py::arg("threads") = py::none(), py::arg("width") = py::none(), kEncodeDoc);
  m.def("stats", &Stats, py::arg("data"), py::arg("format"), py::arg("width"), py::arg("height"),
        kStatsDoc);
}
