// Band-wise decoding: the frame decoders' tile-row bands against the
// whole-frame decode, and the decode commands (which work band by band)
// against the whole-frame decode written out as the commands lay it out.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "decoder/frame_decoder.h"
#include "surface/frame_config.h"
#include "surface/plane_geometry.h"
#include "tests/codec_test_support.h"
#include "tests/test_support.h"

namespace pelcast::testing {
namespace {

struct FrameCase {
  PlaneFormat format;
  int32_t width;
  int32_t height;
};

// Odd and even sizes, frames of one tile row, and one tall enough for many
// bands of the commands' band size.
const FrameCase kFrames[] = {
    {PlaneFormat::kNv12, 33, 17},     {PlaneFormat::kNv12, 100, 1},
    {PlaneFormat::kNv12, 257, 130},   {PlaneFormat::kNv12, 1000, 700},
    {PlaneFormat::kRgba8888, 33, 17}, {PlaneFormat::kRgba8888, 16, 4},
    {PlaneFormat::kRgba8888, 250, 99}, {PlaneFormat::kRgba8888, 1100, 300},
    {PlaneFormat::kRgb565, 33, 17},   {PlaneFormat::kRgb565, 96, 3},
    {PlaneFormat::kRgb565, 250, 99},  {PlaneFormat::kRgb565, 1400, 200},
    {PlaneFormat::kRgb565, 129, 1100},  // rows longer than the stride
};

uint64_t ContextFormat(PlaneFormat f) {
  return f == PlaneFormat::kNv12 ? kContextNv12
                                 : f == PlaneFormat::kRgb565 ? kContextRgb565 : kContextRgba8888;
}

// Random frame bytes: random metadata makes a mix of raw and coded tiles.
Bytes RandomFrame(const PlaneGeometry& g, uint32_t seed) { return RandomBytes(g.frameSize, seed); }

Bytes DecodeWhole(const FrameCase& f, const PlaneGeometry& g, Bytes frame) {
  ContextPtr context = MakeContext(ContextFormat(f.format));
  Bytes output(g.outputSize, 0);
  ZpakConfig config{};
  FillDecodeConfig(&config, f.format, g, f.width, f.height, frame.data(), output.data());
  if (f.format == PlaneFormat::kRgb565) {
    DecodeZpakFrameRgb565(context.get(), &config);
  } else {
    DecodeZpakFrame(context.get(), &config);
  }
  return output;
}

struct PlaneRows {
  uint64_t plane, rowsPerTile, pitch, rows, rowBytes, start;
};

std::vector<PlaneRows> PlanesOf(const FrameCase& f, const PlaneGeometry& g) {
  const uint64_t w = f.width, h = f.height;
  if (f.format == PlaneFormat::kNv12) {
    const uint64_t cp = 2 * ((w + 1) / 2);
    return {{kLumaPlane, 8, w, h, w, 0}, {kChromaPlane, 8, cp, (h + 1) / 2, cp, w * h}};
  }
  return {{kLumaPlane, 4, g.yStride, h, (f.format == PlaneFormat::kRgb565 ? 2 : 4) * w, 0}};
}

TEST(DecodeBands, EveryBandSplitGivesTheWholeFrameRows) {
  for (const FrameCase& f : kFrames) {
    const PlaneGeometry g = ComputePlaneGeometry(f.format, f.width, f.height);
    Bytes frame = RandomFrame(g, static_cast<uint32_t>(f.width * 7 + f.height));
    const Bytes whole = DecodeWhole(f, g, frame);
    for (uint64_t step : {1, 2, 3, 7}) {
      ContextPtr context = MakeContext(ContextFormat(f.format));
      // A small band buffer full of stale bytes: every byte compared must be
      // written by the band's decode.
      Bytes band(g.outputSize, 0xA5);
      ZpakConfig config{};
      FillDecodeConfig(&config, f.format, g, f.width, f.height, frame.data(), band.data());
      for (const PlaneRows& p : PlanesOf(f, g)) {
        const uint64_t tileRows = f.format == PlaneFormat::kRgb565
                                      ? ZpakRgb565TileRows(config)
                                      : ZpakPlaneTileRows(config, p.plane);
        // RGB planes are decoded to the aligned height, NV12 to the image's.
        const uint64_t decodedRows = f.format == PlaneFormat::kNv12 ? f.height : g.yBufLength;
        ASSERT_EQ(tileRows, p.plane == kChromaPlane ? (decodedRows + 15) / 16
                                                    : (decodedRows + p.rowsPerTile - 1) / p.rowsPerTile);
        for (uint64_t tr = 0; tr < tileRows; tr += step) {
          std::fill(band.begin(), band.end(), 0xA5);
          const TileRowBand b{p.plane, tr, step};
          if (f.format == PlaneFormat::kRgb565) {
            DecodeZpakFrameRgb565Band(context.get(), &config, b);
          } else {
            DecodeZpakFrameBand(context.get(), &config, b);
          }
          const uint64_t end = std::min((tr + step) * p.rowsPerTile, p.rows);
          for (uint64_t row = tr * p.rowsPerTile; row < end; ++row) {
            const uint8_t* expected = whole.data() + p.start + row * p.pitch;
            const uint8_t* got = band.data() + (row - tr * p.rowsPerTile) * p.pitch;
            ASSERT_EQ(0, std::memcmp(expected, got, std::min(p.rowBytes, p.pitch)))
                << f.width << "x" << f.height << " plane " << p.plane << " row " << row
                << " step " << step;
          }
        }
      }
    }
  }
}

TEST(DecodeBands, BandsDecodeFromJustTheBytesTheirWindowNames) {
  for (const FrameCase& f : kFrames) {
    const bool rgb565 = f.format == PlaneFormat::kRgb565;
    const bool nv12 = f.format == PlaneFormat::kNv12;
    const PlaneGeometry g = ComputePlaneGeometry(f.format, f.width, f.height);
    Bytes frame = RandomFrame(g, 99u + static_cast<uint32_t>(f.width));
    const Bytes whole = DecodeWhole(f, g, frame);
    ContextPtr context = MakeContext(ContextFormat(f.format));
    Bytes band(g.outputSize, 0xA5);
    ZpakConfig config{};
    FillDecodeConfig(&config, f.format, g, f.width, f.height, frame.data(), band.data());
    // Data planes as they lie in the frame: the one plane, or NV12 luma
    // after its metadata and chroma after the luma data and its metadata.
    const uint64_t lumaData = g.yMetaBufSize;
    const uint64_t chromaData = lumaData + g.yDataBufSize + g.uvMetaBufSize;
    // The data planes the descriptor points at are spoiled, so that a fetch
    // from them instead of the window would show.
    const Bytes pristine = frame;
    std::fill(frame.begin() + lumaData, frame.begin() + lumaData + g.yDataBufSize, 0x5A);
    if (nv12) std::fill(frame.begin() + chromaData, frame.end(), 0x5A);
    for (const PlaneRows& p : PlanesOf(f, g)) {
      const bool chroma = p.plane == kChromaPlane;
      const uint64_t metaBytes = chroma ? g.uvMetaBufSize : g.yMetaBufSize;
      const uint64_t dataAt = chroma ? chromaData : lumaData;
      const uint64_t tileRows =
          rgb565 ? ZpakRgb565TileRows(config) : ZpakPlaneTileRows(config, p.plane);
      for (uint64_t tr = 0; tr < tileRows; tr += 3) {
        const TileRowBand b{p.plane, tr, 3};
        BandWindow window{};
        ASSERT_TRUE(rgb565 ? ZpakRgb565BandWindow(context.get(), config, b, metaBytes, &window)
                           : ZpakBandWindow(context.get(), config, b, metaBytes, &window));
        // Exactly the named bytes, in a buffer of their own: a fetch outside
        // them would be caught by the address sanitizer.
        const Bytes named(pristine.begin() + static_cast<int64_t>(dataAt + window.dataFirst),
                          pristine.begin() + static_cast<int64_t>(dataAt + window.dataEnd));
        window.data = named.data();
        if (rgb565) {
          DecodeZpakFrameRgb565BandFromWindow(context.get(), &config, b, window);
        } else {
          DecodeZpakFrameBandFromWindow(context.get(), &config, b, window);
        }
        const uint64_t end = std::min((tr + 3) * p.rowsPerTile, p.rows);
        for (uint64_t row = tr * p.rowsPerTile; row < end; ++row) {
          ASSERT_EQ(0, std::memcmp(whole.data() + p.start + row * p.pitch,
                                   band.data() + (row - tr * p.rowsPerTile) * p.pitch,
                                   std::min(p.rowBytes, p.pitch)))
              << f.width << "x" << f.height << " plane " << p.plane << " row " << row;
        }
      }
    }
  }
}

// Byte `i` of RGB565 output with red and blue exchanged in its 16-bit pixel.
Bytes SwapRedBlue(Bytes b) {
  for (size_t i = 0; i + 1 < b.size(); i += 2) {
    const uint16_t p = static_cast<uint16_t>(b[i] | b[i + 1] << 8);
    const uint16_t q = static_cast<uint16_t>((p & 0x07E0) | (p >> 11) | ((p & 0x1F) << 11));
    b[i] = static_cast<uint8_t>(q);
    b[i + 1] = static_cast<uint8_t>(q >> 8);
  }
  return b;
}

TEST(DecodeBands, CommandsWriteWhatTheWholeFrameDecodeGives) {
  TempDir dir;
  for (const FrameCase& f : kFrames) {
    const PlaneGeometry g = ComputePlaneGeometry(f.format, f.width, f.height);
    const Bytes a = RandomFrame(g, 11u + static_cast<uint32_t>(f.width));
    const Bytes b = RandomFrame(g, 12u + static_cast<uint32_t>(f.height));
    Bytes input = a;
    input.insert(input.end(), b.begin(), b.end());
    WriteFile(dir.File("in"), input);
    Bytes expected;
    for (const Bytes* frame : {&a, &b}) {
      Bytes whole = DecodeWhole(f, g, *frame);
      if (f.format == PlaneFormat::kNv12) {
        const size_t bytes = static_cast<size_t>(int64_t{f.width} * f.height * 3 / 2);
        expected.insert(expected.end(), whole.begin(), whole.begin() + bytes);
        continue;
      }
      if (f.format == PlaneFormat::kRgb565) whole = SwapRedBlue(whole);
      const uint64_t rowBytes = uint64_t{f.format == PlaneFormat::kRgb565 ? 2u : 4u} * f.width;
      for (int32_t row = 0; row < f.height; ++row) {
        const auto at = whole.begin() + static_cast<int64_t>(row) * g.yStride;
        expected.insert(expected.end(), at, at + static_cast<int64_t>(rowBytes));
      }
    }
    const char* letter = f.format == PlaneFormat::kNv12       ? "U"
                         : f.format == PlaneFormat::kRgba8888 ? "G"
                                                              : "B";
    RunTool({letter, dir.File("in"), dir.File("out"), std::to_string(f.width),
             std::to_string(f.height)});
    EXPECT_TRUE(ReadFile(dir.File("out")) == expected) << letter << " " << f.width << "x"
                                                       << f.height;
  }
}

}  // namespace
}  // namespace pelcast::testing
