// What the fuzz targets share: a reader that takes header fields from the
// front of the fuzz input, exact-size heap buffers (so the address sanitizer
// sees every byte past their end), and an independent statement of the
// micro-block order that raw tiles use, to check decoded tiles against.
#pragma once

#include <sanitizer/asan_interface.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace pelcast::fuzz {

// Takes fields from the front of the input; past its end every field is 0.
class InputReader {
 public:
  InputReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  uint8_t Byte() { return position_ < size_ ? data_[position_++] : 0; }

  uint32_t Uint16() {
    const uint32_t low = Byte();
    return low | static_cast<uint32_t>(Byte()) << 8;
  }

  // A value in [low, high], from one byte or two as the range needs.
  uint32_t InRange(uint32_t low, uint32_t high) {
    const uint32_t span = high - low + 1;
    const uint32_t raw = span <= 256 ? Byte() : Uint16();
    return low + raw % span;
  }

  bool Flag() { return (Byte() & 1) != 0; }

  // Everything not yet taken.
  const uint8_t* Rest() const { return data_ + position_; }
  size_t RestSize() const { return size_ - position_; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t position_ = 0;
};

// A heap block of exactly `size` bytes (a block of 0 bytes is still a
// distinct allocation), so a read or write one byte past it is reported.
class ExactBuffer {
 public:
  explicit ExactBuffer(size_t size, uint8_t fill = 0)
      : bytes_(static_cast<uint8_t*>(std::malloc(size != 0 ? size : 1))), size_(size) {
    if (bytes_ == nullptr) std::abort();
    std::memset(bytes_, fill, size);
    // A zero-size block keeps its one byte unaddressable.
    if (size == 0) ASAN_POISON_MEMORY_REGION(bytes_, 1);
  }
  ~ExactBuffer() {
    ASAN_UNPOISON_MEMORY_REGION(bytes_, size_ != 0 ? size_ : 1);
    std::free(bytes_);
  }
  ExactBuffer(const ExactBuffer&) = delete;
  ExactBuffer& operator=(const ExactBuffer&) = delete;

  uint8_t* data() { return bytes_; }
  const uint8_t* data() const { return bytes_; }
  size_t size() const { return size_; }
  uint8_t* end() { return bytes_ + size_; }

  // Makes bytes from `offset` on unaddressable, so that any access there is
  // reported as if the block ended at `offset`.
  void PoisonFrom(size_t offset) {
    if (offset < size_) ASAN_POISON_MEMORY_REGION(bytes_ + offset, size_ - offset);
  }

 private:
  uint8_t* bytes_;
  size_t size_;
};

// Reports a broken property with the target's own words and stops, so that
// libFuzzer keeps the input as a crash.
[[noreturn]] inline void Fail(const char* what) {
  std::fprintf(stderr, "property violated: %s\n", what);
  std::abort();
}

inline void Check(bool holds, const char* what) {
  if (!holds) Fail(what);
}

// Inside a 4 x 4 micro-block, position p holds the pixel at column
// kPixelAt[p] % 4, row kPixelAt[p] / 4.
inline constexpr uint8_t kPixelAt[16] = {0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15};

// Rearranges a tile held in micro-block order (micro-blocks band by band of
// four rows, left to right) into raster order: `rows` rows of `rowElements`
// elements of `elementBytes` bytes.
inline std::vector<uint8_t> MicroBlocksToRaster(const uint8_t* ordered, size_t elementBytes,
                                                size_t rowElements, size_t rows) {
  std::vector<uint8_t> raster(elementBytes * rowElements * rows);
  const size_t blocksPerBand = rowElements / 4;
  size_t position = 0;  // element position in micro-block order
  for (size_t band = 0; band < rows / 4; ++band) {
    for (size_t block = 0; block < blocksPerBand; ++block) {
      for (size_t p = 0; p < 16; ++p, ++position) {
        const size_t x = 4 * block + kPixelAt[p] % 4;
        const size_t y = 4 * band + kPixelAt[p] / 4;
        std::memcpy(&raster[(y * rowElements + x) * elementBytes], ordered + position * elementBytes,
                    elementBytes);
      }
    }
  }
  return raster;
}

// The inverse: a raster tile to micro-block order.
inline std::vector<uint8_t> RasterToMicroBlocks(const uint8_t* raster, size_t elementBytes,
                                                size_t rowElements, size_t rows) {
  std::vector<uint8_t> ordered(elementBytes * rowElements * rows);
  const size_t blocksPerBand = rowElements / 4;
  size_t position = 0;
  for (size_t band = 0; band < rows / 4; ++band) {
    for (size_t block = 0; block < blocksPerBand; ++block) {
      for (size_t p = 0; p < 16; ++p, ++position) {
        const size_t x = 4 * block + kPixelAt[p] % 4;
        const size_t y = 4 * band + kPixelAt[p] / 4;
        std::memcpy(&ordered[position * elementBytes], raster + (y * rowElements + x) * elementBytes,
                    elementBytes);
      }
    }
  }
  return ordered;
}

// Fills `out` with image content drawn from the fuzz input. Random bytes
// are stored raw by the encoder, so most inputs instead describe a smooth
// image: each byte is a small step from the byte `period` positions
// earlier (the same component of the previous pixel), which compresses.
inline void FillImage(InputReader* in, uint8_t* out, size_t size, size_t period) {
  const uint32_t mode = in->Byte();
  const uint32_t stepShift = mode % 8;  // 0 keeps the raw bytes
  for (size_t i = 0; i < size; ++i) {
    const uint8_t raw = in->Byte();
    if (stepShift == 0 || i < period) {
      out[i] = raw;
    } else {
      const int step = static_cast<int8_t>(raw) >> stepShift;
      out[i] = static_cast<uint8_t>(out[i - period] + step);
    }
  }
}

}  // namespace pelcast::fuzz
