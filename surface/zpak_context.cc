#include "surface/zpak_context.h"

#include <cstdio>
#include <cstdlib>
#include <new>

#include "surface/plane_geometry.h"

namespace pelcast {
namespace {

constexpr uint64_t kRawTileBits = 2048;
constexpr uint64_t kRgb565RawTileBits = 1024;
constexpr uint64_t kRawTileUnits = 4;
constexpr uint64_t kRgb565RawTileUnits = 2;
constexpr uint64_t kUnitShift = 9;   // 512 bits = one 64-byte unit
constexpr uint64_t kGroupSize = 4;   // samples per residual group
constexpr uint64_t kGroupShift = 2;  // log2 of the group width
constexpr uint64_t kCodeBits = 3;

// Values shared by every configured plane: 16 x 4-sample blocks, 16 groups a
// block, 3-bit codes.
ComponentCodecParams MakeComponent(uint64_t planeWidth, uint64_t planeHeight, uint64_t sampleBits,
                                   uint64_t escapeCode) {
  constexpr uint64_t kBlockWidth = 16;
  constexpr uint64_t kBlockHeight = 4;
  constexpr uint64_t kGroupsPerBlock = 16;
  return ComponentCodecParams{planeWidth, planeHeight, kBlockWidth, kBlockHeight, kGroupsPerBlock,
                              sampleBits, sampleBits,  kCodeBits,   escapeCode};
}

PlaneCodecParams MakePlane(uint64_t componentCount, uint64_t blockCount, uint64_t tileWidth,
                           uint64_t tileRowBytes, uint64_t tileHeight, uint64_t blockArrangement,
                           uint64_t rawTileBits, uint64_t packingCode, uint64_t log2BytesPerPixel) {
  PlaneCodecParams plane{};
  plane.componentCount = componentCount;
  plane.blockCount = blockCount;
  plane.tileWidth = tileWidth;
  plane.tileRowBytes = tileRowBytes;
  plane.tileHeight = tileHeight;
  plane.blockArrangement = blockArrangement;
  plane.rawTileBits = rawTileBits;
  plane.packingCode = packingCode;
  plane.log2BytesPerPixel = log2BytesPerPixel;
  plane.groupSize = kGroupSize;
  plane.groupShift = kGroupShift;
  plane.unitShift = kUnitShift;
  return plane;
}

void ConfigureRgbaBranch(ZpakContext* context, uint64_t code) {
  constexpr uint64_t kRgbaEscape = 7;
  PlaneCodecParams plane = MakePlane(4, 1, 16, 64, 4, 0, kRawTileBits, 0, 2);
  plane.hasAlphaFlag = 1;
  plane.hasColourFlag = 1;
  for (auto& component : plane.components) component = MakeComponent(16, 4, 8, kRgbaEscape);
  if (code == 3) {
    plane.packingCode = 3;
    plane.hasColourFlag = 0;
    plane.hasAlphaFlag = 0;
    plane.log2BytesPerPixel = 1;
  } else if (code == 5) {
    plane.packingCode = 5;
    plane.hasColourFlag = 0;
  } else {
    // The chroma differences start one bit wider; the tile codecs re-derive
    // codedBits for every tile anyway.
    plane.components[1].codedBits = 9;
    plane.components[2].codedBits = 9;
  }
  context->planes[0] = plane;
}

void ConfigureNv12(ZpakContext* context) {
  constexpr uint64_t kEscape = 7;
  PlaneCodecParams luma = MakePlane(1, 4, 32, 32, 8, 3, kRawTileBits, 1, 0);
  luma.components[0] = MakeComponent(32, 8, 8, kEscape);
  PlaneCodecParams chroma = MakePlane(2, 2, 16, 32, 8, 2, kRawTileBits, 1, 1);
  chroma.components[0] = MakeComponent(16, 8, 8, kEscape);
  chroma.components[1] = MakeComponent(16, 8, 8, kEscape);
  context->planes[0] = luma;
  context->planes[1] = chroma;
}

void ConfigureRgb565(ZpakContext* context) {
  PlaneCodecParams plane = MakePlane(3, 1, 16, 32, 4, 0, kRgb565RawTileBits, 12, 1);
  plane.hasColourFlag = 1;
  // The escape code of each component equals its bit depth.
  plane.components[0] = MakeComponent(16, 4, 5, 5);
  plane.components[1] = MakeComponent(16, 4, 6, 6);
  plane.components[2] = MakeComponent(16, 4, 5, 5);
  context->planes[0] = plane;
}

void ConfigureCommon(ZpakContext* context, uint64_t code) {
  const bool rgb565 = code == kContextRgb565;
  const bool singlePlane = code == 0 || code == 3 || code == 5 || code == 6 || rgb565;
  CommonCodecParams& common = context->common;
  common = CommonCodecParams{};
  common.one = 1;
  common.contextFormat = code;
  common.planeCount = singlePlane ? 1 : 2;
  common.rawTileBits = rgb565 ? kRgb565RawTileBits : kRawTileBits;
  common.rawTileUnits = rgb565 ? kRgb565RawTileUnits : kRawTileUnits;
  common.unitShift = kUnitShift;
  common.groupSize = kGroupSize;
  common.groupShift = kGroupShift;
  common.alphaFormatFlag = (code == 0 || code == 6) ? 1 : 0;
}

}  // namespace

ZpakContext* AllocateZpakContext() {
  void* memory = std::calloc(1, sizeof(ZpakContext));
  return static_cast<ZpakContext*>(memory);
}

int ConfigureZpakContext(ZpakContext* context, uint64_t contextFormat) {
  if (context == nullptr) return 0;
  context->constant0 = 1;
  context->constant1 = 1;
  context->contextFormat = contextFormat;
  ConfigureCommon(context, contextFormat);
  switch (contextFormat) {
    case 0:
    case 3:
    case 5:
      ConfigureRgbaBranch(context, contextFormat);
      break;
    case kContextNv12:
      ConfigureNv12(context);
      break;
    case kContextRgb565:
      ConfigureRgb565(context);
      break;
    default:
      break;  // common parameters only
  }
  return 0;
}

void ReleaseZpakContext(ZpakContext* context) {
  if (context == nullptr) return;
  ReleaseTileAddressTables(&context->addressTables);
  std::free(context);
}

uint32_t Nv12StagingBytes(const ZpakInfo& info) {
  return AlignUp((info.yDataSize * 3) >> 1, kPageAlignment);
}

namespace {

// Allocates `bytes` zero-filled bytes unless `*buffer` is already set.
bool AllocateIfMissing(uint8_t** buffer, uint32_t bytes) {
  if (*buffer != nullptr) return true;
  *buffer = AllocateZeroed(bytes);
  return *buffer != nullptr;
}

// Copies the encode geometry into the record the commands read.
void FillInfo(ZpakInfo* info, const EncodeGeometryT<uint32_t>& g, bool nv12) {
  info->yMetaStride = g.yMetaStride;
  info->yMetaHeight = g.yMetaHeight;
  info->uvMetaStride = g.uvMetaStride;
  info->uvMetaHeight = g.uvMetaHeight;
  info->yMetaSize = g.yMetaSize;
  info->uvMetaSize = g.uvMetaSize;
  info->yStride = g.yStride;
  info->yScanlines = g.yScanlines;
  if (nv12) {  // the RGBA8888 layout leaves the chroma stride and scanlines unset
    info->uvStride = g.uvStride;
    info->uvScanlines = g.uvScanlines;
  }
  info->linearStride = g.linearStride;
  info->linearScanlines = g.linearScanlines;
  info->epbSize = g.epbSize;
  info->yDataOffset = g.yDataOffset;
  info->uvMetaOffset = g.uvMetaOffset;
  info->dataSize = g.dataSize;
  info->yDataSize = g.yDataSize;
  info->bufferSize = g.bufferSize;
}

int AllocateEncodeBuffers(const ZpakInfo& info, uint8_t** compressed, uint8_t** staging,
                          uint32_t stagingBytes) {
  if (!AllocateIfMissing(staging, stagingBytes)) {
    std::puts("ERROR: Allocation of intermediate YUV buffer failed ");
    return 1;
  }
  if (!AllocateIfMissing(compressed, info.bufferSize)) {
    std::puts("ERROR: Allocation of ZPAK buffer failed ");
    return 1;
  }
  return 0;
}

}  // namespace

int PrepareZpakBuffers(ZpakInfo* info, uint8_t** compressedBuffer, uint8_t** stagingBuffer,
                       uint32_t width, uint32_t height, uint32_t format) {
  info->infoValid = 1;
  if (format != kPrepareNv12 && format != kPrepareRgba8888) return 0;
  const uint32_t stagingBytes = ComputeZpakInfo(info, width, height, format);
  if (format == kPrepareNv12) {
    std::printf("epbBuffSize - %d databufsize - %d YUVBufSize - %d\n",
                static_cast<int>(info->epbSize), static_cast<int>(info->bufferSize),
                static_cast<int>(stagingBytes));
  }
  return AllocateEncodeBuffers(*info, compressedBuffer, stagingBuffer, stagingBytes);
}

uint32_t ComputeZpakInfo(ZpakInfo* info, uint32_t width, uint32_t height, uint32_t format) {
  const bool nv12 = format == kPrepareNv12;
  const EncodeGeometryT<uint32_t> g = ComputeEncodeGeometryT<uint32_t>(nv12, width, height);
  FillInfo(info, g, nv12);
  return g.stagingSize;
}

}  // namespace pelcast
