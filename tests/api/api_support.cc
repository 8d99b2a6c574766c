#include "tests/api/api_support.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>

namespace pelcast::testing::api {
namespace {

// A sample of a smooth scene with a few hard edges and a noisy patch.
uint8_t Sample(uint32_t x, uint32_t y, uint32_t channel, uint32_t seed, uint32_t width,
               uint32_t height) {
  uint32_t v = (x * (channel + 1) + y * 2 + seed * 7) & 0xFF;
  if (x < width / 4) v = 40 + channel * 30;                   // flat band
  if ((x / 9 + y / 5) % 7 == 0) v = 255 - v;                  // hard edges
  const bool noisy = x > width / 2 && y > height / 2;         // texture nothing predicts
  if (noisy) v ^= (x * 2654435761u + y * 40503u + seed * 97u + channel) >> 13 & 0xFF;
  return static_cast<uint8_t>(v);
}

}  // namespace

const char* FormatName(pelcast_format format) {
  switch (format) {
    case PELCAST_FORMAT_NV12:
      return "nv12";
    case PELCAST_FORMAT_RGBA8888:
      return "rgba8888";
    default:
      return "rgb565";
  }
}

Bytes MakeFrame(pelcast_format format, uint32_t width, uint32_t height, uint32_t seed) {
  Bytes frame(pelcast_linear_frame_size(format, width, height));
  size_t at = 0;
  if (format == PELCAST_FORMAT_NV12) {
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < width; ++x) frame[at++] = Sample(x, y, 0, seed, width, height);
    const uint32_t pairs = (width + 1) / 2;
    for (uint32_t y = 0; y < (height + 1) / 2; ++y)
      for (uint32_t x = 0; x < 2 * pairs; ++x)
        frame[at++] = Sample(x, 2 * y, 1 + x % 2, seed, width, height);
    return frame;
  }
  const uint32_t channels = format == PELCAST_FORMAT_RGBA8888 ? 4 : 2;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      for (uint32_t c = 0; c < channels; ++c) frame[at++] = Sample(x, y, c, seed, width, height);
  return frame;
}

Bytes Encode(pelcast_format format, uint32_t width, uint32_t height, const Bytes& linear) {
  Bytes zpak(pelcast_zpak_frame_size(format, width, height), 0xEE);
  const pelcast_status status =
      pelcast_encode_frame(format, width, height, linear.data(), linear.size(), zpak.data(), zpak.size());
  if (status != PELCAST_OK) throw std::runtime_error(pelcast_status_string(status));
  return zpak;
}

Bytes Decode(pelcast_format format, uint32_t width, uint32_t height, const Bytes& zpak) {
  Bytes linear(pelcast_linear_frame_size(format, width, height), 0xEE);
  const pelcast_status status = pelcast_decode_frame(format, width, height, zpak.data(), zpak.size(),
                                                     linear.data(), linear.size());
  if (status != PELCAST_OK) throw std::runtime_error(pelcast_status_string(status));
  return linear;
}

Bytes RunCommand(char letter, const Bytes& input, uint32_t width, uint32_t height) {
  TempDir dir;
  WriteFile(dir.File("in"), input);
  RunTool({std::string(1, letter), "in", "out", std::to_string(width), std::to_string(height)},
          dir.path());
  return ReadFile(dir.File("out"));
}

GuardedBuffer::GuardedBuffer(size_t size) : size_(size) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t dataPages = (size + page - 1) / page;
  mappingBytes_ = (dataPages + 1) * page;
  void* mapping = mmap(nullptr, mappingBytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) throw std::runtime_error("mmap failed");
  mapping_ = static_cast<uint8_t*>(mapping);
  if (mprotect(mapping_ + dataPages * page, page, PROT_NONE) != 0) throw std::runtime_error("mprotect");
  data_ = mapping_ + dataPages * page - size;
}

GuardedBuffer::~GuardedBuffer() { munmap(mapping_, mappingBytes_); }

}  // namespace pelcast::testing::api
