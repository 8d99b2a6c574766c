// How U, G and B read ZPAK frames and write decoded rows: band by band into
// the start of the output buffer, each band written at once, and from a
// regular file piece by piece (metadata planes, then each band's slots),
// with exactly the bytes the whole-frame read, decode and write give.
#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

#include "cli/decode_session.h"
#include "decoder/frame_decoder.h"
#include "surface/frame_config.h"

namespace pelcast::decode_detail {
namespace {

// Exchanges the red and blue fields of every 16-bit little-endian pixel. The
// pixels are moved as whole 16-bit words so the loop vectorises.
void SwapRedAndBlue(uint8_t* buffer, uint32_t bytes) {
  constexpr uint16_t kGreen = 0x07E0;
  constexpr uint16_t kLowField = 0x001F;
  constexpr uint32_t kHighFieldShift = 11;
  const uint32_t pixels = bytes / sizeof(uint16_t);
  for (uint32_t i = 0; i < pixels; ++i) {
    uint16_t p;
    std::memcpy(&p, buffer + sizeof p * i, sizeof p);
    if constexpr (std::endian::native == std::endian::big) p = __builtin_bswap16(p);
    auto swapped = static_cast<uint16_t>((p & kGreen) | (p >> kHighFieldShift) |
                                         ((p & kLowField) << kHighFieldShift));
    if constexpr (std::endian::native == std::endian::big) swapped = __builtin_bswap16(swapped);
    std::memcpy(buffer + sizeof p * i, &swapped, sizeof p);
  }
}

// Writes `count` zero bytes; returns how many went out.
uint64_t WriteZeros(FILE* output, uint64_t count) {
  static constexpr uint8_t kZeros[4096] = {};
  uint64_t written = 0;
  for (uint64_t left = count; left != 0;) {
    const uint64_t chunk = std::min<uint64_t>(left, sizeof kZeros);
    written += std::fwrite(kZeros, 1, chunk, output);
    left -= chunk;
  }
  return written;
}

// Writes `rows` rows of `rowBytes` bytes taken `pitch` apart from `buffer`;
// bytes a row would take from past the end of the buffer are written as
// zeros. Rows that follow each other without padding go out in one write.
// Row writes are not checked.
void WriteRows(FILE* output, const uint8_t* buffer, uint64_t bufferBytes, uint64_t rowBytes,
               uint64_t rows, uint64_t pitch) {
  if (pitch == rowBytes && rows != 0 && rowBytes <= bufferBytes / rows) {
    std::fwrite(buffer, 1, rows * rowBytes, output);
    return;
  }
  for (uint64_t i = 0; i < rows; ++i) {
    const uint64_t start = i * pitch;
    const uint64_t inside = start < bufferBytes ? std::min(rowBytes, bufferBytes - start) : 0;
    if (inside != 0) std::fwrite(buffer + start, 1, inside, output);
    WriteZeros(output, rowBytes - inside);
  }
}

// Writes one decoded frame; false when U's single write falls short.
bool WriteFrame(const DecodeCommand& command, const DecodeSession& s) {
  const PlaneGeometry& g = s.geometry;
  const uint64_t rows = s.height >= 1 ? static_cast<uint64_t>(s.height) : 0;
  switch (command.planeFormat) {
    case PlaneFormat::kNv12: {
      const auto bytes = static_cast<size_t>(int64_t{s.width} * s.height * 3 / 2);
      return std::fwrite(s.outputBuffer, 1, bytes, s.output) == bytes;
    }
    case PlaneFormat::kRgba8888:
      WriteRows(s.output, s.outputBuffer, g.outputSize, uint64_t{kRgbaBytesPerPixel} * s.width,
                rows, g.yStride);
      return true;
    case PlaneFormat::kRgb565:
      if (g.outputSize != 0) SwapRedAndBlue(s.outputBuffer, g.outputSize);
      WriteRows(s.output, s.outputBuffer, g.outputSize, uint64_t{kRgb565BytesPerPixel} * s.width,
                rows, g.yStride);
      return true;
  }
  return true;
}

// Band by band: each run of tile rows is decoded into the start of the
// output buffer and written out at once, so a frame never sits in memory
// whole. Only the buffer's first band is ever touched (its pages cost faults
// and zeroing once), and the write copies bytes that are still in cache. The
// file receives exactly the bytes of the whole-frame decode and write.
constexpr uint64_t kBandBytes = uint64_t{1} << 18;

struct BandPlane {
  uint64_t plane;        // band plane for the decoder
  uint64_t tileRows;     // tile rows of the plane
  uint64_t rowsPerTile;  // linear rows per tile row
  uint64_t pitch;        // bytes between linear rows in the output
  uint64_t rows;         // linear rows written out
  uint64_t rowBytes;     // bytes written out per row
  uint64_t start;        // where the plane starts in the whole-frame output
  uint64_t limit;        // bytes of the whole-frame output that are written out
};

uint64_t BandTileRows(const BandPlane& p) {
  const uint64_t rowBytes = p.rowsPerTile * p.pitch;
  return rowBytes == 0 ? p.tileRows : std::max<uint64_t>(1, kBandBytes / rowBytes);
}

// Writes linear rows [first, end) of the plane, held from `band` on, as the
// whole-frame write gives them: cut at the plane's limit, and bytes at or
// past `bufferBytes` of the whole-frame output as zeros. True when every
// byte went out.
bool WriteBandRows(FILE* output, const uint8_t* band, const BandPlane& p, uint64_t first,
                   uint64_t end, uint64_t bufferBytes) {
  if (p.pitch == p.rowBytes) {  // back to back: one write
    const uint64_t at = p.start + first * p.pitch;
    const uint64_t stop = std::min(p.start + end * p.pitch, p.limit);
    if (stop <= at) return true;
    const uint64_t inside = std::min(stop, std::max(bufferBytes, at)) - at;
    uint64_t written = inside != 0 ? std::fwrite(band, 1, inside, output) : 0;
    written += WriteZeros(output, stop - at - inside);
    return written == stop - at;
  }
  bool whole = true;
  for (uint64_t i = first; i < end; ++i) {
    const uint64_t start = p.start + i * p.pitch;
    const uint64_t inside = start < bufferBytes ? std::min(p.rowBytes, bufferBytes - start) : 0;
    uint64_t written = 0;
    if (inside != 0) written = std::fwrite(band + (i - first) * p.pitch, 1, inside, output);
    written += WriteZeros(output, p.rowBytes - inside);
    whole = whole && written == p.rowBytes;
  }
  return whole;
}

// Where a band plane's bytes lie in a frame of the input: its metadata plane
// and its data plane (offsets from the frame's start), and how many bytes of
// the frame buffer after the first metadata plane a band's data may fill
// (for NV12 the chroma metadata plane is loaded in place after the luma data).
struct PlanePieces {
  uint64_t metaAt;
  uint64_t metaBytes;
  uint64_t dataAt;
  uint64_t windowCapacity;
};

PlanePieces PiecesOf(const DecodeCommand& command, const PlaneGeometry& g, uint64_t plane) {
  const uint64_t lumaData = uint64_t{g.yMetaBufSize};
  if (command.planeFormat != PlaneFormat::kNv12) {
    return PlanePieces{0, g.yMetaBufSize, lumaData, uint64_t{g.frameSize} - lumaData};
  }
  const uint64_t uvMeta = lumaData + g.yDataBufSize;
  if (plane == kChromaPlane) {
    return PlanePieces{uvMeta, g.uvMetaBufSize, uvMeta + g.uvMetaBufSize, g.yDataBufSize};
  }
  return PlanePieces{0, g.yMetaBufSize, lumaData, g.yDataBufSize};
}

bool BandWindowOf(const DecodeCommand& command, const DecodeSession& s, const TileRowBand& band,
                  BandWindow* window) {
  const PlanePieces pieces = PiecesOf(command, s.geometry, band.plane);
  const bool named =
      command.planeFormat == PlaneFormat::kRgb565
          ? ZpakRgb565BandWindow(s.context, *s.config, band, pieces.metaBytes, window)
          : ZpakBandWindow(s.context, *s.config, band, pieces.metaBytes, window);
  return named && window->dataEnd - window->dataFirst <= pieces.windowCapacity;
}

// Reads the data bytes a band's tiles are fetched from into the frame buffer
// right after the first metadata plane, and decodes the band from there. A read
// that comes up short (the file shrank under the command) leaves the rest
// reading as zeros.
void DecodeBandPieceByPiece(const DecodeCommand& command, DecodeSession* s,
                            const TileRowBand& band) {
  const PlanePieces pieces = PiecesOf(command, s->geometry, band.plane);
  BandWindow window{};
  if (!BandWindowOf(command, *s, band, &window)) return;
  uint8_t* bytes = s->frameBuffer + s->geometry.yMetaBufSize;
  uint64_t got = 0;
  if (window.dataEnd > window.dataFirst &&
      std::fseek(s->input, s->frameStart + static_cast<long>(pieces.dataAt + window.dataFirst),
                 SEEK_SET) == 0) {
    got = std::fread(bytes, 1, window.dataEnd - window.dataFirst, s->input);
  }
  window.dataEnd = window.dataFirst + got;
  window.data = bytes;
  if (command.planeFormat == PlaneFormat::kRgb565) {
    DecodeZpakFrameRgb565BandFromWindow(s->context, s->config, band, window);
  } else {
    DecodeZpakFrameBandFromWindow(s->context, s->config, band, window);
  }
}

// Decodes and writes one plane band by band; false when a write falls short.
bool WritePlaneInBands(const DecodeCommand& command, DecodeSession* s, const BandPlane& p) {
  const uint64_t step = BandTileRows(p);
  for (uint64_t tr = 0; tr < p.tileRows; tr += step) {
    const TileRowBand band{p.plane, tr, std::min(step, p.tileRows - tr)};
    if (s->pieceFrame) {
      DecodeBandPieceByPiece(command, s, band);
    } else if (command.planeFormat == PlaneFormat::kRgb565) {
      DecodeZpakFrameRgb565Band(s->context, s->config, band);
    } else {
      DecodeZpakFrameBand(s->context, s->config, band);
    }
    const uint64_t first = std::min(tr * p.rowsPerTile, p.rows);
    const uint64_t end = std::min((tr + band.tileRowCount) * p.rowsPerTile, p.rows);
    if (first >= end) continue;
    if (command.planeFormat == PlaneFormat::kRgb565) {
      SwapRedAndBlue(s->outputBuffer, static_cast<uint32_t>((end - first) * p.pitch));
    }
    if (!WriteBandRows(s->output, s->outputBuffer, p, first, end, s->geometry.outputSize)) {
      return false;
    }
  }
  return true;
}

// The planes of the frame as the whole-frame write gives them, or none when
// this geometry must be decoded whole (the decoder's row pitch is not the one
// the write uses, or rows overlap).
uint32_t BandPlanes(const DecodeCommand& command, const DecodeSession& s, BandPlane* planes) {
  const PlaneGeometry& g = s.geometry;
  const ZpakConfig& c = *s.config;
  const uint64_t rows = s.height >= 1 ? static_cast<uint64_t>(s.height) : 0;
  const uint64_t width = s.width >= 1 ? static_cast<uint64_t>(s.width) : 0;
  constexpr uint64_t kRgbTileRows = 4;
  constexpr uint64_t kNv12TileRows = 8;
  constexpr uint64_t kRgbaTilePixels = 16;
  constexpr uint64_t kNoLimit = UINT64_MAX;  // G and B write every row whole
  switch (command.planeFormat) {
    case PlaneFormat::kNv12: {
      const uint64_t bytes = width * rows * 3 / 2;
      const uint64_t chromaPitch = 2 * ((width + 1) / 2);
      planes[0] = BandPlane{kLumaPlane, ZpakPlaneTileRows(c, kLumaPlane), kNv12TileRows, width,
                            rows, width, 0, bytes};
      planes[1] = BandPlane{kChromaPlane, ZpakPlaneTileRows(c, kChromaPlane), kNv12TileRows,
                            chromaPitch, (rows + 1) / 2, chromaPitch, width * rows, bytes};
      return 2;
    }
    case PlaneFormat::kRgba8888: {
      const uint64_t tilesPerRow = (c.width + kRgbaTilePixels - 1) / kRgbaTilePixels;
      if (std::max<uint64_t>(c.stride, 4 * tilesPerRow) != g.yStride) return 0;
      planes[0] = BandPlane{kLumaPlane, ZpakPlaneTileRows(c, kLumaPlane), kRgbTileRows, g.yStride,
                            rows, kRgbaBytesPerPixel * width, 0, kNoLimit};
      break;
    }
    case PlaneFormat::kRgb565:
      if (kRgb565BytesPerPixel * c.width != g.yStride) return 0;
      planes[0] = BandPlane{kLumaPlane, ZpakRgb565TileRows(c), kRgbTileRows, g.yStride, rows,
                            kRgb565BytesPerPixel * width, 0, kNoLimit};
      break;
  }
  // Rows longer than the pitch run into the next row, which may lie in the
  // next band.
  return planes[0].rowBytes <= planes[0].pitch ? 1 : 0;
}

// Whether the input holds a whole frame from where it stands.
bool WholeFrameAhead(const DecodeSession& s, long at) {
  struct stat info {};
  if (at < 0 || fstat(fileno(s.input), &info) != 0) return false;
  return info.st_size >= at && static_cast<uint64_t>(info.st_size - at) >= s.geometry.frameSize;
}

// Reads the metadata planes of the frame at `at` into their places in the
// frame buffer.
bool ReadMetadataPlanes(const DecodeCommand& command, DecodeSession* s, long at) {
  const uint32_t planes = command.planeFormat == PlaneFormat::kNv12 ? 2 : 1;
  for (uint32_t plane = 0; plane < planes; ++plane) {
    const PlanePieces pieces = PiecesOf(command, s->geometry, plane);
    if (pieces.metaBytes == 0) continue;
    if (std::fseek(s->input, at + static_cast<long>(pieces.metaAt), SEEK_SET) != 0 ||
        std::fread(s->frameBuffer + pieces.metaAt, pieces.metaBytes, 1, s->input) != 1) {
      return false;
    }
  }
  return true;
}

}  // namespace

// Decodes and writes one frame; false when U's write falls short.
bool DecodeAndWriteFrame(const DecodeCommand& command, DecodeSession* s) {
  BandPlane planes[2]{};
  const uint32_t count = BandPlanes(command, *s, planes);
  if (count == 0) {
    if (command.planeFormat == PlaneFormat::kRgb565) {
      DecodeZpakFrameRgb565(s->context, s->config);
    } else {
      DecodeZpakFrame(s->context, s->config);
    }
    return WriteFrame(command, *s);
  }
  for (uint32_t i = 0; i < count; ++i) {
    // Only U checks its writes; the row writes of G and B go unchecked.
    if (!WritePlaneInBands(command, s, planes[i]) && command.planeFormat == PlaneFormat::kNv12) {
      return false;
    }
  }
  return true;
}

// The commands read their frames piece by piece from a regular file: the
// metadata planes, then for each band just the data bytes its tiles are
// fetched from, always into the same small part of the frame buffer. The
// frame buffer's pages are then not all touched (the kernel clears every
// fresh page before a read can fill it), and each band's bytes are decoded
// while they are still in cache.
// Only frames that lie whole in the file are read so; the rest take the
// whole-frame read, whose failure ends the loop as before.
bool CanReadPieceByPiece(const DecodeCommand& command, DecodeSession* s) {
  if (s->geometry.frameSize == 0) return false;
  struct stat info {};
  if (fstat(fileno(s->input), &info) != 0 || !S_ISREG(info.st_mode)) return false;
  FillDecodeConfig(s->config, command.planeFormat, s->geometry, s->width, s->height,
                   s->frameBuffer, s->outputBuffer);
  BandPlane planes[2]{};
  const uint32_t count = BandPlanes(command, *s, planes);
  if (count == 0) return false;
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t step = BandTileRows(planes[i]);
    for (uint64_t tr = 0; tr < planes[i].tileRows; tr += step) {
      const TileRowBand band{planes[i].plane, tr, std::min(step, planes[i].tileRows - tr)};
      BandWindow window{};
      if (!BandWindowOf(command, *s, band, &window)) return false;
    }
  }
  return true;
}

// Reads the next frame, whole or (from a regular file) its metadata planes
// only; false when no whole frame is left.
bool ReadNextFrame(const DecodeCommand& command, DecodeSession* s) {
  const uint32_t frameSize = s->geometry.frameSize;
  s->pieceFrame = false;
  if (s->pieceByPiece) {
    const long at = std::ftell(s->input);
    if (WholeFrameAhead(*s, at)) {
      if (ReadMetadataPlanes(command, s, at)) {
        s->frameStart = at;
        s->pieceFrame = true;
        return true;
      }
      std::fseek(s->input, at, SEEK_SET);
    }
  }
  return std::fread(s->frameBuffer, frameSize, 1, s->input) == 1;
}

}  // namespace pelcast::decode_detail
