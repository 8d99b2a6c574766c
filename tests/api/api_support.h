// What the public API tests share: frames of every format with content the
// codec finds both easy and hard, the pelcast command run on them, and
// buffers whose end touches an unmapped page.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tests/test_support.h"

namespace pelcast::testing::api {

inline constexpr pelcast_format kFormats[] = {PELCAST_FORMAT_NV12, PELCAST_FORMAT_RGBA8888,
                                              PELCAST_FORMAT_RGB565};

const char* FormatName(pelcast_format format);

// A packed linear frame: flat areas, gradients, hard edges and noise, so
// that tiles of every length and raw tiles occur.
Bytes MakeFrame(pelcast_format format, uint32_t width, uint32_t height, uint32_t seed);

// The one-shot calls, checked to succeed.
Bytes Encode(pelcast_format format, uint32_t width, uint32_t height, const Bytes& linear);
Bytes Decode(pelcast_format format, uint32_t width, uint32_t height, const Bytes& zpak);

// Runs the pelcast command `letter` from `input` bytes at width x height and
// returns the bytes it wrote.
Bytes RunCommand(char letter, const Bytes& input, uint32_t width, uint32_t height);

// `size` bytes whose last byte is followed by an inaccessible page: a read or
// write one byte past the end faults.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(size_t size);
  ~GuardedBuffer();
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  uint8_t* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  uint8_t* mapping_;
  size_t mappingBytes_;
  uint8_t* data_;
  size_t size_;
};

}  // namespace pelcast::testing::api
