// pelcast-testframe: writes a synthetic test frame so the demo run needs no
// input files. The picture mixes what a codec meets in real content: smooth
// gradients, flat areas, hard edges, a fine checkerboard and a noisy patch.
//
//   pelcast-testframe nv12|i420|rgba|rgb565 WIDTH HEIGHT OUTPUT
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct Rgba {
  uint8_t r, g, b, a;
};

uint8_t Clamp8(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// A small deterministic generator so every run writes the same bytes.
uint32_t NextRandom(uint32_t* state) {
  *state = *state * 1664525u + 1013904223u;
  return *state >> 24;
}

Rgba PixelAt(int x, int y, int w, int h, uint32_t* noise) {
  const int cx = w / 2, cy = h / 2, radius = (w < h ? w : h) / 4;
  const int dx = x - cx, dy = y - cy;
  if (dx * dx + dy * dy < radius * radius) return {230, 70, 40, 255};  // a flat disc
  if (y < h / 8) return {20, 30, 60, 255};                              // a flat bar
  if (x < w / 8 && y > h / 2) {                                         // a checkerboard
    const uint8_t v = ((x / 2 + y / 2) % 2) != 0 ? 240 : 16;
    return {v, v, v, 255};
  }
  if (x > w * 7 / 8 && y > h * 3 / 4) {  // a noisy patch with varying alpha
    return {static_cast<uint8_t>(NextRandom(noise)), static_cast<uint8_t>(NextRandom(noise)),
            static_cast<uint8_t>(NextRandom(noise)), static_cast<uint8_t>(NextRandom(noise))};
  }
  return {Clamp8(255 * x / (w > 1 ? w - 1 : 1)), Clamp8(255 * y / (h > 1 ? h - 1 : 1)),
          Clamp8(128 + (x - y) / 4), 255};  // gradients
}

// BT.601 limited-range conversion of one pixel.
void ToYuv(const Rgba& p, int* y, int* u, int* v) {
  *y = (66 * p.r + 129 * p.g + 25 * p.b + 128) / 256 + 16;
  *u = (-38 * p.r - 74 * p.g + 112 * p.b + 128) / 256 + 128;
  *v = (112 * p.r - 94 * p.g - 18 * p.b + 128) / 256 + 128;
}

std::vector<uint8_t> MakeFrame(const char* format, int w, int h) {
  uint32_t noise = 12345;
  std::vector<Rgba> rgba(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) rgba[static_cast<size_t>(y) * w + x] = PixelAt(x, y, w, h, &noise);
  std::vector<uint8_t> out;
  if (std::strcmp(format, "rgba") == 0) {
    for (const Rgba& p : rgba) out.insert(out.end(), {p.r, p.g, p.b, p.a});
  } else if (std::strcmp(format, "rgb565") == 0) {
    for (const Rgba& p : rgba) {
      const uint16_t v = static_cast<uint16_t>(((p.r >> 3) << 11) | ((p.g >> 2) << 5) | (p.b >> 3));
      out.push_back(static_cast<uint8_t>(v & 0xff));
      out.push_back(static_cast<uint8_t>(v >> 8));
    }
  } else {
    const bool planar = std::strcmp(format, "i420") == 0;
    const int cw = (w + 1) / 2, ch = (h + 1) / 2;
    std::vector<uint8_t> ys(static_cast<size_t>(w) * h), us(static_cast<size_t>(cw) * ch),
        vs(static_cast<size_t>(cw) * ch);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        int yy, u, v;
        ToYuv(rgba[static_cast<size_t>(y) * w + x], &yy, &u, &v);
        ys[static_cast<size_t>(y) * w + x] = Clamp8(yy);
        if (x % 2 == 0 && y % 2 == 0) {
          us[static_cast<size_t>(y / 2) * cw + x / 2] = Clamp8(u);
          vs[static_cast<size_t>(y / 2) * cw + x / 2] = Clamp8(v);
        }
      }
    out = ys;
    if (planar) {
      out.insert(out.end(), us.begin(), us.end());
      out.insert(out.end(), vs.begin(), vs.end());
    } else {
      for (size_t i = 0; i < us.size(); ++i) out.insert(out.end(), {us[i], vs[i]});
    }
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: pelcast-testframe nv12|i420|rgba|rgb565 WIDTH HEIGHT OUTPUT\n");
    return 2;
  }
  const int w = std::atoi(argv[2]), h = std::atoi(argv[3]);
  if (w <= 0 || h <= 0 || w > 16384 || h > 16384) {
    std::fprintf(stderr, "pelcast-testframe: WIDTH and HEIGHT must be 1 to 16384\n");
    return 2;
  }
  const std::vector<uint8_t> frame = MakeFrame(argv[1], w, h);
  FILE* out = std::fopen(argv[4], "wb");
  if (out == nullptr || std::fwrite(frame.data(), 1, frame.size(), out) != frame.size()) {
    std::fprintf(stderr, "pelcast-testframe: cannot write %s\n", argv[4]);
    return 1;
  }
  std::fclose(out);
  return 0;
}
