// Plane geometry of a ZPAK surface: strides, scanlines, metadata plane sizes,
// data plane sizes and the size of one compressed frame, as the decode and
// encode commands compute them.
//
// The geometry is written once as templates over the arithmetic type: with
// uint32_t it wraps exactly as the surface's 32-bit geometry does (these are
// the values the commands print and use), and with a 128-bit integer it gives
// the exact sizes, which the commands compare with kMaxBufferBytes to refuse
// dimensions whose buffers would not fit.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pelcast {

using ExactInt = __int128;

inline constexpr uint32_t kPageAlignment = 4096;
// Buffers and byte counts at or above this size are refused by the commands.
inline constexpr int64_t kMaxBufferBytes = int64_t{1} << 31;

// align(x, a) for a power of two a, in T's arithmetic.
template <typename T>
constexpr T AlignUp(T value, T alignment) {
  return (value + alignment - 1) & ~(alignment - 1);
}

constexpr uint32_t AlignUp(uint32_t value, uint32_t alignment) {
  return AlignUp<uint32_t>(value, alignment);
}

// Allocates `bytes` zero-filled bytes; a request for 0 bytes succeeds. Returns null when memory is exhausted. Release with ReleaseZeroed.
uint8_t* AllocateZeroed(size_t bytes);

// Releases a buffer from AllocateZeroed; null is accepted.
void ReleaseZeroed(uint8_t* buffer);

// Decode-side geometry (the values the decode commands print), for the three
// ZPAK formats. Labels in comments are the printed ones.
enum class PlaneFormat { kRgba8888, kRgb565, kNv12 };

template <typename T>
struct PlaneGeometryT {
  T yStride;          // Y_Stride
  T yBufLength;       // Y_BufLength (scanlines)
  T uvStride;         // UV_Stride
  T uvBufLength;      // UV_BufLength
  T yMetaStride;      // Y_Meta_Stride
  T yMetaBufLength;   // Y_Meta_BufLength
  T uvMetaStride;     // UV_Meta_Stride
  T uvMetaBufLength;  // UV_Meta_BufLength
  T yMetaBufSize;     // Y_Meta_Buf_Size
  T yDataBufSize;     // Y_Data_Buf_Size
  T uvMetaBufSize;    // UV_Meta_Buf_Size
  T uvDataBufSize;    // UV_Data_Buf_Size
  T frameSize;        // Aligned ZPAK Buffer Size
  T outputSize;       // Output YUV Buf Size
};

using PlaneGeometry = PlaneGeometryT<uint32_t>;

template <typename T>
PlaneGeometryT<T> ComputePlaneGeometryT(PlaneFormat format, int32_t width, int32_t height) {
  // Halvings and tile counts are signed divisions of the sign-extended values,
  // truncating toward zero; everything after that is T's arithmetic.
  const int64_t w = width;
  const int64_t h = height;
  const T page = kPageAlignment;
  PlaneGeometryT<T> g{};
  if (format == PlaneFormat::kNv12) {
    g.yStride = AlignUp<T>(static_cast<T>(w), 128);
    g.yBufLength = AlignUp<T>(static_cast<T>(h), 32);
    g.uvStride = g.yStride;
    g.uvBufLength = AlignUp<T>(static_cast<T>((h + 1) >> 1), 32);
    g.yMetaStride = AlignUp<T>(static_cast<T>((w + 31) / 32), 64);
    g.yMetaBufLength = AlignUp<T>(static_cast<T>((h + 7) / 8), 16);
    g.uvMetaStride = AlignUp<T>(static_cast<T>((((w + 1) >> 1) + 15) / 16), 64);
    g.uvMetaBufLength = AlignUp<T>(static_cast<T>((((h + 1) >> 1) + 7) / 8), 16);
  } else {
    const int64_t rowBytes = format == PlaneFormat::kRgba8888 ? 4 * w : 4 * (w / 2);
    g.yStride = AlignUp<T>(static_cast<T>(rowBytes), 256);
    g.yBufLength = AlignUp<T>(static_cast<T>(h), 16);
    g.yMetaStride = AlignUp<T>(static_cast<T>((w + 15) / 16), 64);
    g.yMetaBufLength = AlignUp<T>(static_cast<T>((h + 3) / 4), 16);
  }
  g.yMetaBufSize = AlignUp<T>(g.yMetaStride * g.yMetaBufLength, page);
  g.yDataBufSize = g.yStride * g.yBufLength;
  g.uvMetaBufSize = AlignUp<T>(g.uvMetaStride * g.uvMetaBufLength, page);
  g.uvDataBufSize = g.uvStride * g.uvBufLength;
  if (format == PlaneFormat::kNv12) {
    g.frameSize = g.yStride * (g.yBufLength + g.uvBufLength) + g.yMetaBufSize + g.uvMetaBufSize;
    g.outputSize = 2 * g.yDataBufSize;
  } else {
    g.frameSize = g.yMetaBufSize + g.yDataBufSize;
    g.outputSize = format == PlaneFormat::kRgba8888 ? 4 * g.yDataBufSize : g.yDataBufSize;
  }
  return g;
}

inline PlaneGeometry ComputePlaneGeometry(PlaneFormat format, int32_t width, int32_t height) {
  return ComputePlaneGeometryT<uint32_t>(format, width, height);
}

// Encode-side geometry, as PrepareZpakBuffers lays out the buffers of the
// encode commands (note h >> 1 for the chroma scanlines where the decode side
// rounds up, and the RGBA8888 linear stride counted in pixels).
template <typename T>
struct EncodeGeometryT {
  T yMetaStride, yMetaHeight, uvMetaStride, uvMetaHeight, yMetaSize, uvMetaSize;
  T yStride, yScanlines, uvStride, uvScanlines, linearStride, linearScanlines;
  T epbSize, yDataOffset, uvMetaOffset, dataSize, yDataSize, bufferSize;
  T stagingSize;  // bytes of the staging buffer
};

template <typename T>
EncodeGeometryT<T> ComputeEncodeGeometryT(bool nv12, T w, T h) {
  const T page = kPageAlignment;
  EncodeGeometryT<T> g{};
  if (nv12) {
    g.yMetaHeight = AlignUp<T>((h + 7) >> 3, 16);
    g.yMetaStride = AlignUp<T>((w + 31) >> 5, 64);
    g.yScanlines = AlignUp<T>(h, 32);
    g.uvScanlines = AlignUp<T>(h >> 1, 32);
    g.yStride = g.uvStride = g.linearStride = AlignUp<T>(w, 128);
    g.linearScanlines = g.yScanlines;
    g.yDataSize = g.yScanlines * g.yStride;
    g.dataSize = g.yStride * (g.yScanlines + g.uvScanlines);
    g.uvMetaStride = AlignUp<T>((((w + 1) >> 1) + 15) >> 4, 64);
    g.uvMetaHeight = AlignUp<T>((((h + 1) >> 1) + 7) >> 3, 16);
    g.yMetaSize = AlignUp<T>(g.yMetaStride * g.yMetaHeight, page);
    g.uvMetaSize = AlignUp<T>(g.uvMetaStride * g.uvMetaHeight, page);
    g.yDataOffset = g.yMetaSize;
    g.uvMetaOffset = g.uvMetaSize;
    g.epbSize = g.bufferSize = g.yMetaSize + g.uvMetaSize + g.dataSize;
    g.stagingSize = AlignUp<T>((g.yDataSize * 3) >> 1, page);
  } else {
    g.yMetaStride = AlignUp<T>((w + 15) >> 4, 64);
    g.yMetaHeight = AlignUp<T>((h + 3) >> 2, 16);
    g.yStride = AlignUp<T>(4 * w, 256);
    g.yScanlines = g.linearScanlines = AlignUp<T>(h, 16);
    g.linearStride = AlignUp<T>(w, 256);
    g.dataSize = g.yStride * g.yScanlines;
    g.yMetaSize = g.yDataOffset = AlignUp<T>(g.yMetaStride * g.yMetaHeight, page);
    g.epbSize = g.yMetaSize + g.dataSize;
    g.stagingSize = g.epbSize;
    g.bufferSize = AlignUp<T>(g.yMetaStride * g.yMetaHeight, page) +
                   AlignUp<T>(g.yStride * g.yScanlines, page);
  }
  return g;
}

// The refusal line of a decode command whose dimensions are negative or whose
// buffers or byte counts (for NV12 also the signed product w x h x 3 of the
// written frame) would reach kMaxBufferBytes; null when they are fine.
const char* DecodeSizeProblem(PlaneFormat format, int32_t width, int32_t height);

// The same for the encode commands (kPrepareRgba8888 or kPrepareNv12).
const char* EncodeSizeProblem(uint32_t prepareFormat, int32_t width, int32_t height);

}  // namespace pelcast
