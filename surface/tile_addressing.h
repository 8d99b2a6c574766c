// Where tiles live in a ZPAK surface: the slot of every tile in its data plane
// (macro tiles of 4 x 4 slots in TileSlotOrder, passed through the bank
// swizzle) and the offset of every tile's metadata byte in its metadata plane
// (16 x 16-byte metadata tiles made of four 8 x 8 quarters).
//
// The address tables depend only on the surface geometry and the descriptor's
// addressing settings, so they are built once for a surface and reused for
// every frame of it; a frame with other settings rebuilds them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pelcast {

// Slot of the tile at (row r, column c) of a macro tile: kTileSlotOrder[4r + c].
inline constexpr uint8_t kTileSlotOrder[16] = {0, 7, 10, 13, 6, 1, 12, 11,
                                               3, 4, 9,  14, 5, 2, 15, 8};

inline constexpr uint64_t kMacroTileBytes = 4096;
inline constexpr uint64_t kMacroTileLog2 = 12;
inline constexpr uint64_t kSlotsPerMacroTile = 16;
inline constexpr uint64_t kTilesPerMacroSide = 4;
inline constexpr uint64_t kMetaTileSide = 16;  // metadata bytes per metadata-tile row and column
inline constexpr uint64_t kMetaTileBytes = 256;

// The macro-tile bank swizzle shared by the frame decoder and encoder: returns
// the macro-tile number to use in place of `macroTile`. x and y are the tile's
// left column and top row in the plane (pixels for RGBA8888, bytes for NV12).
uint64_t SwizzleMacroTile(uint64_t macroTile, uint64_t x, uint64_t y, uint64_t macroTilesPerRow,
                          uint64_t surfaceFormat, uint64_t bypass, uint64_t bankBit);

// Byte offset of the metadata byte of tile (row, column) in a metadata plane
// whose metadata tiles run `metaTilesPerRow` to a row.
inline uint64_t MetaByteOffset(uint64_t row, uint64_t column, uint64_t metaTilesPerRow) {
  constexpr uint64_t kQuarter = 8;  // a metadata tile is four 8 x 8 quarters
  constexpr uint64_t kQuarterBytes = 64;
  const uint64_t tile = (row / kMetaTileSide) * metaTilesPerRow + column / kMetaTileSide;
  const uint64_t v = row % kMetaTileSide;
  const uint64_t u = column % kMetaTileSide;
  const uint64_t rowPart =
      v < kQuarter ? kQuarter * v : 2 * kQuarterBytes + kQuarter * (v - kQuarter);
  const uint64_t colPart = u < kQuarter ? u : kQuarterBytes + (u - kQuarter);
  return kMetaTileBytes * tile + rowPart + colPart;
}

// How the slot table is filled.
enum class SlotRule : uint64_t {  // 64-bit so a layout has no padding bytes
  kSwizzled,                      // SwizzleMacroTile when swizzleEnable is set (RGBA8888, NV12)
  kRgb565Banked,  // the RGB565 decoder's reduced in-place swizzle and its unswizzled rule
};

// Everything the two tables depend on. Two equal layouts give equal tables.
struct TileGridLayout {
  SlotRule rule;
  uint64_t macroTilesPerRow;  // M; the slot table has 4M columns
  uint64_t tileRows;          // slot table rows
  uint64_t tileStepX;         // x origin step per tile column handed to the swizzle
  uint64_t tileStepY;         // y origin step per tile row
  uint64_t metaTilesPerRow;   // T; the metadata table has 16T columns
  uint64_t metaRows;          // metadata table rows
  uint64_t swizzleEnable;
  uint64_t surfaceFormat;
  uint64_t bypass;
  uint64_t bankBit;
};

// The slot table is stored; metadata offsets are a few shifts and adds, so
// they are computed on lookup within the same bounds a stored table would have.
struct TileAddressTables {
  uint64_t* slots;       // tileRows x slotColumns, row-major
  size_t slotCapacity;   // entries allocated
  uint64_t slotColumns;  // 4 x macroTilesPerRow
  uint64_t metaColumns;  // 16 x metaTilesPerRow
  TileGridLayout layout;
  bool valid;
};

// Builds the layout of a grid from its macro-tile and metadata-tile sizes and
// the plane size the tables are derived from (both in the same units as x).
TileGridLayout MakeTileGridLayout(SlotRule rule, uint64_t planeWidth, uint64_t planeHeight,
                                  uint64_t macroWidth, uint64_t macroHeight, uint64_t tileStepX,
                                  uint64_t tileStepY, uint64_t metaWidth, uint64_t metaHeight,
                                  uint64_t swizzleEnable, uint64_t surfaceFormat, uint64_t bypass,
                                  uint64_t bankBit);

// Makes `tables` hold the tables of `layout`, rebuilding only when the layout
// differs from the one they were built for. Returns false when the tables
// cannot be allocated (the tables are then empty and every lookup yields 0).
bool PrepareTileAddressTables(TileAddressTables* tables, const TileGridLayout& layout);

// Releases the tables' storage.
void ReleaseTileAddressTables(TileAddressTables* tables);

// Slot number of tile (row, column); 0 outside the built table, as for an
// entry the table build never wrote.
inline uint64_t TileSlot(const TileAddressTables& tables, uint64_t row, uint64_t column) {
  if (!tables.valid || row >= tables.layout.tileRows || column >= tables.slotColumns) return 0;
  return tables.slots[row * tables.slotColumns + column];
}

// Metadata byte offset of tile (row, column); 0 outside the table's extent.
inline uint64_t TileMetaOffset(const TileAddressTables& tables, uint64_t row, uint64_t column) {
  if (!tables.valid || row >= tables.layout.metaRows || column >= tables.metaColumns) return 0;
  return MetaByteOffset(row, column, tables.layout.metaTilesPerRow);
}

// The addresses of one tile row, looked up once for the row. Lookups of its
// tiles give exactly what TileSlot and TileMetaOffset give: a metadata
// offset is a row part plus a column part (MetaByteOffset(row, 0, T) +
// MetaByteOffset(0, column, T)), and both are 0 outside the tables.
struct TileRowAddresses {
  const uint64_t* slots;  // the row of the slot table; null outside it
  uint64_t slotColumns;   // 0 outside the slot table
  uint64_t metaRowBase;
  uint64_t metaColumns;  // 0 outside the metadata table
};

inline TileRowAddresses RowAddresses(const TileAddressTables& tables, uint64_t row) {
  TileRowAddresses a{nullptr, 0, 0, 0};
  if (!tables.valid) return a;
  if (row < tables.layout.tileRows) {
    a.slots = tables.slots + row * tables.slotColumns;
    a.slotColumns = tables.slotColumns;
  }
  if (row < tables.layout.metaRows) {
    a.metaRowBase = MetaByteOffset(row, 0, tables.layout.metaTilesPerRow);
    a.metaColumns = tables.metaColumns;
  }
  return a;
}

inline uint64_t SlotAt(const TileRowAddresses& a, uint64_t column) {
  return column < a.slotColumns ? a.slots[column] : 0;
}

inline uint64_t MetaOffsetAt(const TileRowAddresses& a, uint64_t column) {
  return column < a.metaColumns ? a.metaRowBase + MetaByteOffset(0, column, 0) : 0;
}

}  // namespace pelcast
