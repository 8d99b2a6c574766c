#include "tests/zpak/zpak_test_support.h"

#include <png.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace pelcast::zpak::testing {
namespace {

// A triangle wave of period 2 * kHalfPeriod between 0 and kHalfPeriod:
// smooth shading with no jump where it turns.
constexpr int kHalfPeriod = 200;
int Triangle(int t) {
  const int m = ((t % (2 * kHalfPeriod)) + 2 * kHalfPeriod) % (2 * kHalfPeriod);
  return m < kHalfPeriod ? m : 2 * kHalfPeriod - m;
}

uint8_t Clamp(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// One of three colour channels of the scene at (x, y).
uint8_t Scene(uint32_t x, uint32_t y, uint32_t channel, uint32_t width, uint32_t height,
              uint32_t seed) {
  const int xi = static_cast<int>(x), yi = static_cast<int>(y);
  const int s = static_cast<int>(seed);
  int v = 30 + Triangle(xi * (2 + static_cast<int>(channel)) + yi + 37 * s) / 2 +
          Triangle(yi * 3 + xi / 2 + 11 * static_cast<int>(channel)) / 3;
  const int cx = static_cast<int>(width) / 3 + 5 * s, cy = static_cast<int>(height) / 2;
  const int r = static_cast<int>(std::min(width, height)) / 5 + 3;
  if ((xi - cx) * (xi - cx) + (yi - cy) * (yi - cy) < r * r) v = 40 + 70 * static_cast<int>(channel);
  if (x > width * 3 / 5 && x < width * 4 / 5 && y > height / 6 && y < height / 3) {
    v = 220 - 60 * static_cast<int>(channel);
  }
  if (x > width * 5 / 8 && y > height * 5 / 8) {  // fine texture
    v += static_cast<int>((x * 2654435761u ^ y * 40503u ^ seed * 97u ^ channel) >> 27) - 16;
  }
  return Clamp(v);
}

}  // namespace

std::string FormatName(pelcast_format format) {
  switch (format) {
    case PELCAST_FORMAT_NV12:
      return "nv12";
    case PELCAST_FORMAT_RGBA8888:
      return "rgba8888";
    default:
      return "rgb565";
  }
}

pelcast_tile_info TileInfo(pelcast_format format, uint32_t width, uint32_t height,
                           const Bytes& zpak, uint32_t plane, uint32_t column, uint32_t row) {
  pelcast_tile_grid grid{};
  pelcast_codec* codec = nullptr;
  if (pelcast_tile_grid_of(format, width, height, plane, &grid) != PELCAST_OK ||
      pelcast_codec_create(format, width, height, &codec) != PELCAST_OK) {
    throw std::runtime_error("no codec");
  }
  std::vector<pelcast_tile_info> tiles(size_t{grid.columns} * grid.rows);
  const pelcast_status status =
      pelcast_codec_tile_info(codec, zpak.data(), zpak.size(), plane, tiles.data(), tiles.size());
  pelcast_codec_destroy(codec);
  if (status != PELCAST_OK) throw std::runtime_error(pelcast_status_string(status));
  return tiles.at(size_t{row} * grid.columns + column);
}

TileArea AreaOfTile(pelcast_format format, uint32_t width, uint32_t height, uint32_t plane,
                    uint32_t column, uint32_t row) {
  // Tiles: NV12 luma 32 x 8 bytes, chroma 16 pairs x 8 rows after the luma
  // plane; RGBA8888 and RGB565 16 x 4 pixels.
  if (format == PELCAST_FORMAT_NV12 && plane == PELCAST_PLANE_UV) {
    return {size_t{width} * height, 2 * ((size_t{width} + 1) / 2), 2, 16, 8, 16 * column, 8 * row};
  }
  if (format == PELCAST_FORMAT_NV12) return {0, width, 1, 32, 8, 32 * column, 8 * row};
  const uint32_t bytes = format == PELCAST_FORMAT_RGBA8888 ? 4 : 2;
  return {0, size_t{bytes} * width, bytes, 16, 4, 16 * column, 4 * row};
}

Bytes MakePicture(pelcast_format format, uint32_t width, uint32_t height, uint32_t seed) {
  Bytes frame(pelcast_linear_frame_size(format, width, height));
  size_t at = 0;
  auto scene = [&](uint32_t x, uint32_t y, uint32_t c) {
    return Scene(x, y, c, width, height, seed);
  };
  if (format == PELCAST_FORMAT_NV12) {
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < width; ++x) frame[at++] = Clamp(16 + scene(x, y, 1) * 219 / 255);
    for (uint32_t y = 0; y < (height + 1) / 2; ++y) {
      for (uint32_t p = 0; p < (width + 1) / 2; ++p) {
        frame[at++] = Clamp(128 + (scene(2 * p, 2 * y, 2) - scene(2 * p, 2 * y, 1)) / 3);
        frame[at++] = Clamp(128 + (scene(2 * p, 2 * y, 0) - scene(2 * p, 2 * y, 1)) / 3);
      }
    }
    return frame;
  }
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      const uint8_t r = scene(x, y, 0), g = scene(x, y, 1), b = scene(x, y, 2);
      if (format == PELCAST_FORMAT_RGBA8888) {
        const bool band = y >= height / 2 && y < height / 2 + height / 10;
        frame[at++] = r;
        frame[at++] = g;
        frame[at++] = b;
        frame[at++] = band ? static_cast<uint8_t>(60 + x % 128) : 255;
      } else {
        const auto word = static_cast<uint16_t>((r >> 3) << 11 | (g >> 2) << 5 | b >> 3);
        frame[at++] = static_cast<uint8_t>(word);
        frame[at++] = static_cast<uint8_t>(word >> 8);
      }
    }
  }
  return frame;
}

Bytes EncodeFrame(pelcast_format format, uint32_t width, uint32_t height, const Bytes& linear) {
  Bytes zpak(pelcast_zpak_frame_size(format, width, height));
  const pelcast_status status = pelcast_encode_frame(format, width, height, linear.data(),
                                                     linear.size(), zpak.data(), zpak.size());
  if (status != PELCAST_OK) throw std::runtime_error(pelcast_status_string(status));
  return zpak;
}

Bytes DecodeFrame(pelcast_format format, uint32_t width, uint32_t height, const Bytes& zpak) {
  Bytes linear(pelcast_linear_frame_size(format, width, height));
  const pelcast_status status = pelcast_decode_frame(format, width, height, zpak.data(),
                                                     zpak.size(), linear.data(), linear.size());
  if (status != PELCAST_OK) throw std::runtime_error(pelcast_status_string(status));
  return linear;
}

Bytes CommittedFrames(const std::string& name, pelcast_format format) {
  const char* extension = format == PELCAST_FORMAT_NV12
                              ? ".nv12"
                              : (format == PELCAST_FORMAT_RGBA8888 ? ".rgba" : ".rgb565");
  return pelcast::testing::ReadFile(pelcast::testing::TestDataDir() + "/" + name + extension);
}

Bytes EncodeFrames(pelcast_format format, uint32_t width, uint32_t height, const Bytes& linear) {
  const size_t frameBytes = pelcast_linear_frame_size(format, width, height);
  Bytes dump;
  for (size_t at = 0; at + frameBytes <= linear.size(); at += frameBytes) {
    const Bytes frame = EncodeFrame(format, width, height,
                                    Bytes(linear.begin() + static_cast<ptrdiff_t>(at),
                                          linear.begin() + static_cast<ptrdiff_t>(at + frameBytes)));
    dump.insert(dump.end(), frame.begin(), frame.end());
  }
  return dump;
}

Bytes MakeDump(pelcast_format format, uint32_t width, uint32_t height, uint32_t frames,
               uint32_t seed) {
  Bytes dump;
  for (uint32_t f = 0; f < frames; ++f) {
    const Bytes frame = EncodeFrame(format, width, height, MakePicture(format, width, height, seed + f));
    dump.insert(dump.end(), frame.begin(), frame.end());
  }
  return dump;
}

ZpakRun RunZpak(const std::vector<std::string>& args, const Bytes& input,
                const std::string& workDir) {
  // A program that stops reading its input early must not end the test.
  std::signal(SIGPIPE, SIG_IGN);
  std::vector<std::string> words = {PELCAST_ZPAK_BINARY};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  int in[2], out[2], err[2];
  if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) throw std::runtime_error("pipe failed");
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
    if (chdir(workDir.c_str()) != 0) _exit(127);
    execv(argv[0], argv.data());
    _exit(127);
  }
  for (int fd : {in[0], out[1], err[1]}) close(fd);
  std::thread feeder([fd = in[1], &input] {
    for (size_t fed = 0; fed < input.size();) {
      const ssize_t put = write(fd, input.data() + fed, input.size() - fed);
      if (put <= 0) break;
      fed += static_cast<size_t>(put);
    }
    close(fd);
  });
  ZpakRun run{"", "", -1};
  pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  std::string* sinks[2] = {&run.out, &run.err};
  char chunk[65536];
  while (fds[0].fd >= 0 || fds[1].fd >= 0) {
    poll(fds, 2, -1);
    for (int k = 0; k < 2; ++k) {
      if (fds[k].fd < 0 || fds[k].revents == 0) continue;
      const ssize_t got = read(fds[k].fd, chunk, sizeof chunk);
      if (got > 0) {
        sinks[k]->append(chunk, static_cast<size_t>(got));
      } else {
        close(fds[k].fd);
        fds[k].fd = -1;
      }
    }
  }
  feeder.join();
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
  return run;
}

PngPicture ReadPngFile(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw std::runtime_error("cannot open " + path);
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  PngPicture picture;
  if (setjmp(png_jmpbuf(png)) != 0) {
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(file);
    throw std::runtime_error("not a PNG: " + path);
  }
  png_init_io(png, file);
  png_read_info(png, info);
  if (png_get_bit_depth(png, info) != 8) png_error(png, "not 8 bits");
  picture.width = png_get_image_width(png, info);
  picture.height = png_get_image_height(png, info);
  picture.channels = png_get_channels(png, info);
  picture.samples.resize(size_t{picture.width} * picture.height * picture.channels);
  for (uint32_t y = 0; y < picture.height; ++y) {
    png_read_row(png, picture.samples.data() + size_t{y} * picture.width * picture.channels,
                 nullptr);
  }
  png_destroy_read_struct(&png, &info, nullptr);
  std::fclose(file);
  return picture;
}

void WritePngFile(const std::string& path, uint32_t width, uint32_t height, int colourType,
                  int bitDepth, const std::vector<uint8_t>& samples,
                  const std::vector<uint8_t>& palette) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) throw std::runtime_error("cannot write " + path);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (setjmp(png_jmpbuf(png)) != 0) {
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
    throw std::runtime_error("libpng failed on " + path);
  }
  png_init_io(png, file);
  png_set_IHDR(png, info, width, height, bitDepth, colourType, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  std::vector<png_color> colours;
  for (size_t i = 0; i + 2 < palette.size(); i += 3) colours.push_back({palette[i], palette[i + 1], palette[i + 2]});
  if (!colours.empty()) png_set_PLTE(png, info, colours.data(), static_cast<int>(colours.size()));
  png_write_info(png, info);
  const size_t rowBytes = samples.size() / height;
  for (uint32_t y = 0; y < height; ++y) {
    png_write_row(png, const_cast<png_bytep>(samples.data() + y * rowBytes));
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  std::fclose(file);
}

}  // namespace pelcast::zpak::testing
