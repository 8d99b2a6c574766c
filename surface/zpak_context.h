// The codec's shared records: format codes, per-plane codec parameters, the
// codec context, the per-frame surface descriptor and the encode-side geometry
// record. Every frame and tile codec takes a ZpakContext first and (for frame
// codecs) a ZpakConfig second.
#pragma once

#include <cstddef>
#include <cstdint>

#include "surface/tile_addressing.h"

namespace pelcast {

// ContextFormat codes: configure a ZpakContext and are what the tile codecs
// see as `contextFormat`.
inline constexpr uint64_t kContextRgba8888 = 0;
inline constexpr uint64_t kContextNv12 = 1;
inline constexpr uint64_t kContextRgb565 = 12;

// SurfaceFormat codes carried in ZpakConfig.
inline constexpr uint64_t kSurfaceNv12 = 1;
inline constexpr uint64_t kSurfaceRgba8888 = 3;
inline constexpr uint64_t kSurfaceRgb565 = 12;

inline constexpr int kMaxComponents = 4;
inline constexpr int kMaxBlocks = 4;
inline constexpr int kPlaneSets = 2;  // planeIndex 0 (luma / only plane), 1 (chroma)

// Bytes of one tile slot in a data plane and of the tile staging buffers.
inline constexpr size_t kSlotBytes = 256;
// Largest tile any configured plane holds, in bytes (the encoder's buffers are
// twice that so a tile encoder may use them as scratch).
inline constexpr size_t kTileScratchBytes = 512;

struct ComponentCodecParams {
  uint64_t planeWidth;      // samples per row of the whole tile
  uint64_t planeHeight;     // rows of the whole tile
  uint64_t blockWidth;      // samples per row of one block
  uint64_t blockHeight;     // rows of one block
  uint64_t groupsPerBlock;  // residual groups per block
  uint64_t sampleBits;      // bit depth of the component
  uint64_t codedBits;       // bit depth in the bitstream before the colour flag raises it
  uint64_t codeBits;        // width of a bit-length code
  uint64_t escapeCode;      // bit-length code that means raw samples
};

struct PlaneCodecParams {
  uint64_t componentCount;
  uint64_t blockCount;
  uint64_t hasAlphaFlag;   // header carries the constant-last-component flag
  uint64_t hasColourFlag;  // header carries the colour-transform flag
  uint64_t tileWidth;      // elements per tile row
  uint64_t tileRowBytes;
  uint64_t tileHeight;
  uint64_t blockArrangement;
  uint64_t rawTileBits;
  uint64_t packingCode;
  int64_t componentOrder;  // packing order option; negative swaps c0 and c2
  uint64_t log2BytesPerPixel;
  uint64_t predictor;      // 0 gradient, 1 median, 2 left
  uint64_t repeatCodes;
  uint64_t groupSize;
  uint64_t groupShift;
  uint64_t unitShift;      // log2 of the bits in one 64-byte storage unit
  ComponentCodecParams components[kMaxComponents];
};

// Parameters shared by every plane of the configured format.
struct CommonCodecParams {
  uint64_t one;              // constant 1 stored beside the format code
  uint64_t contextFormat;    // copy of the configured code
  uint64_t planeCount;
  uint64_t rawTileBits;
  uint64_t rawTileUnits;     // 4, or 2 for RGB565
  uint64_t unitShift;        // 9
  uint64_t groupSize;        // 4
  uint64_t groupShift;       // 2
  uint64_t alphaFormatFlag;  // 1 only for codes 0 and 6
};

// The codec's working record. Obtained zero-filled with AllocateZpakContext,
// configured once with ConfigureZpakContext, released with ReleaseZpakContext.
// The tile buffers and address tables live here so the per-tile paths never
// allocate; the tables are built once for a surface and reused for every frame
// of it.
struct ZpakContext {
  uint64_t constant0;
  uint64_t constant1;
  uint64_t contextFormat;
  uint64_t planeIndex;
  PlaneCodecParams planes[kPlaneSets];
  CommonCodecParams common;

  TileAddressTables addressTables;

  // Decode side: the current tile's slot copy and the tile decoder's output.
  alignas(64) uint8_t compressedTileBuffer[kSlotBytes];
  alignas(64) uint8_t decodedTileBuffer[kSlotBytes];
  // The tile decoder's tile in micro-block order, kept between tiles: a tile
  // the decoder cannot expand leaves the previous one here.
  alignas(64) uint8_t stagedTileBuffer[kSlotBytes];
  // Encode side: the gathered tile (then the tile encoder's output) and the
  // tile in micro-block order.
  alignas(64) uint8_t linearTileBuffer[kTileScratchBytes];
  alignas(64) uint8_t orderedTileBuffer[kTileScratchBytes];
};

// The per-frame surface descriptor, filled by the commands and read by the
// frame codecs.
struct ZpakConfig {
  uint8_t* yDataPlane;
  uint8_t* uvDataPlane;
  uint8_t* yMetaPlane;
  uint8_t* uvMetaPlane;
  uint8_t* linearY;
  uint8_t* linearUv;
  uint64_t width;
  uint64_t height;
  uint64_t bypass;
  uint64_t altAddressing;
  uint64_t alignedWidth;
  uint64_t alignedHeight;
  uint64_t stride;
  uint64_t uvDataOffset;
  uint64_t surfaceFormat;
  uint64_t addressingMode;
  uint64_t swizzleEnable;
  uint64_t bankBit;
  uint64_t enable;
  // One past the last byte of the compressed frame buffer. Tile fetches read
  // zeros at and past it and tile stores there are dropped, so no stream or
  // surface size can make a frame codec touch memory outside the buffer. Null
  // means the caller guarantees the planes hold every tile.
  uint8_t* compressedEnd;
  // Encoders: when non-zero, a tile's store also writes zeros over every
  // byte of its slot (or slot half) that the tile leaves, so a buffer reused
  // for the next frame needs clearing only where no tile is stored. When
  // zero, those bytes are left as they are (they must already be zero).
  uint64_t clearUnusedSlotBytes;
};

// Geometry of the linear-to-compressed commands, filled by PrepareZpakBuffers.
struct ZpakInfo {
  uint32_t yMetaStride;
  uint32_t yMetaHeight;
  uint32_t uvMetaStride;
  uint32_t uvMetaHeight;
  uint32_t yMetaSize;
  uint32_t uvMetaSize;
  uint32_t yStride;
  uint32_t yScanlines;
  uint32_t uvStride;
  uint32_t uvScanlines;
  uint32_t linearStride;
  uint32_t linearScanlines;
  uint32_t epbSize;
  uint32_t yDataOffset;
  uint32_t uvMetaOffset;
  uint32_t dataSize;
  uint32_t yDataSize;
  uint32_t infoValid;
  uint32_t bufferSize;
};

// Returns a zero-filled context, or null when memory is exhausted.
ZpakContext* AllocateZpakContext();
// Stores `contextFormat` and sets the parameter block for it. Returns 0.
int ConfigureZpakContext(ZpakContext* context, uint64_t contextFormat);
// Releases a context and its address tables; null is accepted.
void ReleaseZpakContext(ZpakContext* context);

// PrepareZpakBuffers format selectors.
inline constexpr uint32_t kPrepareRgba8888 = 0;
inline constexpr uint32_t kPrepareNv12 = 1;

// Fills `info` for the encode commands and allocates (zero-filled) the
// compressed buffer and the staging buffer when the pointers passed in are
// null (release them with ReleaseZeroed). Returns 0 on success, 1 after an
// allocation failure (with its message).
int PrepareZpakBuffers(ZpakInfo* info, uint8_t** compressedBuffer, uint8_t** stagingBuffer,
                       uint32_t width, uint32_t height, uint32_t format);

// Bytes PrepareZpakBuffers allocates for the staging buffer of NV12.
uint32_t Nv12StagingBytes(const ZpakInfo& info);

// Fills `info` for kPrepareRgba8888 or kPrepareNv12 as PrepareZpakBuffers
// does, allocating and printing nothing. Returns the bytes of the staging
// buffer.
uint32_t ComputeZpakInfo(ZpakInfo* info, uint32_t width, uint32_t height, uint32_t format);

}  // namespace pelcast
