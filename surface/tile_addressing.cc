#include "surface/tile_addressing.h"

#include <cstdlib>
#include <cstring>

#include "surface/tile_format.h"
#include "surface/zpak_context.h"

namespace pelcast {
namespace {

// Tables beyond this many entries are refused rather than allocated; it is far
// above any surface whose buffers stay below 2^31 bytes (one slot per 256
// bytes of data plane).
constexpr uint64_t kMaxSlotEntries = uint64_t{1} << 26;

uint64_t RoundUp4(uint64_t value) { return CeilDiv(value, 4) * 4; }

// 2^bit as the swizzle forms it: 1 shifted left by bit mod 32 in a signed
// 32-bit value, then sign-extended to 64 bits.
uint64_t SwizzlePower(uint64_t bit) {
  const uint32_t shifted = uint32_t{1} << (bit % 32);
  return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(shifted)));
}

bool IsMultipleOf(uint64_t value, uint64_t divisor) { return value % divisor == 0; }

uint64_t BitOf(uint64_t value, uint64_t bit) { return bit < 64 ? (value >> bit) & 1 : 0; }

// XORs `flip` (0 or 1) into bit `bit` of `value`; bits past 63 do not exist.
uint64_t FlipBit(uint64_t value, uint64_t bit, uint64_t flip) {
  return bit < 64 ? value ^ (flip << bit) : value;
}

// The RGB565 decoder's reduced swizzle: only the y bits, taken from the tile
// row, and never the x bit.
uint64_t Rgb565SlotSwizzled(uint64_t row, uint64_t column, uint64_t macroTilesPerRow,
                            uint64_t bankBit) {
  const uint64_t macroTile = (row / 4) * macroTilesPerRow + column / 4;
  uint64_t address = macroTile * kMacroTileBytes;
  const uint64_t bandBytes = kMacroTileBytes * macroTilesPerRow;
  if (IsMultipleOf(bandBytes, SwizzlePower(bankBit))) {
    address = FlipBit(address, bankBit - 1, (row / 4) & 1);
  }
  if (IsMultipleOf(bandBytes, SwizzlePower(bankBit + 1))) {
    address = FlipBit(address, bankBit, (row / 8) & 1);
  }
  return kSlotsPerMacroTile * (address >> kMacroTileLog2) + kTileSlotOrder[4 * (row % 4) + column % 4];
}

// The RGB565 decoder's rule without swizzle: two macro tiles side by side share
// one run of 32 slots, and positions past the order table stay 0.
uint64_t Rgb565SlotLinear(uint64_t row, uint64_t column, uint64_t macroTilesPerRow) {
  const uint64_t index = column % 8 + 4 * (row % 4);
  if (index >= kSlotsPerMacroTile) return 0;
  return kTileSlotOrder[index] + 2 * kSlotsPerMacroTile * ((row / 4) * macroTilesPerRow + column / 8);
}

// The bank swizzle of one surface: the address bits it flips (64: none) and
// the bits of the tile's y origin that flip the upper two. The divisibility
// tests that choose the bits depend on the surface only, so they are done
// once for a whole table rather than for every tile.
struct BankSwizzle {
  uint64_t lowBit;   // flipped by y bit 3 xor x bit 5
  uint64_t midBit;   // flipped by y bit midY
  uint64_t highBit;  // flipped by y bit highY
  uint64_t midY;
  uint64_t highY;
};

constexpr uint64_t kNoBit = 64;

BankSwizzle MakeBankSwizzle(uint64_t macroTilesPerRow, uint64_t surfaceFormat, uint64_t bypass,
                            uint64_t bankBit) {
  const bool narrow = surfaceFormat == kSurfaceNv12 && bypass == 0;
  uint64_t bandBytes = 0;  // other formats: every divisibility test below succeeds
  if (bypass != 0) {
    bandBytes = macroTilesPerRow * kMacroTileBytes;
  } else if (surfaceFormat == 0 || surfaceFormat == 1) {
    bandBytes = macroTilesPerRow * (kMacroTileBytes / 2);
  } else if (surfaceFormat == 2 || surfaceFormat == 3) {
    bandBytes = macroTilesPerRow * kMacroTileBytes;
  }
  constexpr int64_t kLowestSwizzledBit = 12;
  BankSwizzle s{kNoBit, kNoBit, kNoBit, narrow ? 5u : 4u, narrow ? 6u : 5u};
  if (IsMultipleOf(bandBytes, SwizzlePower(bankBit - 1)) &&
      static_cast<int64_t>(bankBit - 2) >= kLowestSwizzledBit && !narrow) {
    s.lowBit = bankBit - 2;
  }
  if (IsMultipleOf(bandBytes, SwizzlePower(bankBit))) s.midBit = bankBit - 1;
  if (IsMultipleOf(bandBytes, SwizzlePower(bankBit + 1))) s.highBit = bankBit;
  return s;
}

uint64_t ApplyBankSwizzle(const BankSwizzle& s, uint64_t macroTile, uint64_t x, uint64_t y) {
  uint64_t address = macroTile * kMacroTileBytes;
  address = FlipBit(address, s.lowBit, BitOf(y, 3) ^ BitOf(x, 5));
  address = FlipBit(address, s.midBit, BitOf(y, s.midY));
  address = FlipBit(address, s.highBit, BitOf(y, s.highY));
  return address / kMacroTileBytes;
}

uint64_t SlotOf(const TileGridLayout& layout, const BankSwizzle& swizzle, uint64_t row,
                uint64_t column) {
  const uint64_t m = layout.macroTilesPerRow;
  if (layout.rule == SlotRule::kRgb565Banked) {
    return layout.swizzleEnable != 0 ? Rgb565SlotSwizzled(row, column, m, layout.bankBit)
                                     : Rgb565SlotLinear(row, column, m);
  }
  uint64_t macroTile = (row / 4) * m + column / 4;
  if (layout.swizzleEnable != 0) {
    macroTile = ApplyBankSwizzle(swizzle, macroTile, layout.tileStepX * column, layout.tileStepY * row);
  }
  return kSlotsPerMacroTile * macroTile + kTileSlotOrder[4 * (row % 4) + column % 4];
}

bool SameLayout(const TileGridLayout& a, const TileGridLayout& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

uint64_t SwizzleMacroTile(uint64_t macroTile, uint64_t x, uint64_t y, uint64_t macroTilesPerRow,
                          uint64_t surfaceFormat, uint64_t bypass, uint64_t bankBit) {
  return ApplyBankSwizzle(MakeBankSwizzle(macroTilesPerRow, surfaceFormat, bypass, bankBit),
                          macroTile, x, y);
}

TileGridLayout MakeTileGridLayout(SlotRule rule, uint64_t planeWidth, uint64_t planeHeight,
                                  uint64_t macroWidth, uint64_t macroHeight, uint64_t tileStepX,
                                  uint64_t tileStepY, uint64_t metaWidth, uint64_t metaHeight,
                                  uint64_t swizzleEnable, uint64_t surfaceFormat, uint64_t bypass,
                                  uint64_t bankBit) {
  TileGridLayout layout{};
  layout.rule = rule;
  layout.macroTilesPerRow = CeilDiv(planeWidth, macroWidth);
  layout.tileRows = kTilesPerMacroSide * CeilDiv(planeHeight, macroHeight);
  layout.tileStepX = tileStepX;
  layout.tileStepY = tileStepY;
  layout.metaTilesPerRow = RoundUp4(CeilDiv(planeWidth, metaWidth));
  layout.metaRows = kMetaTileSide * CeilDiv(planeHeight, metaHeight);
  layout.swizzleEnable = swizzleEnable;
  layout.surfaceFormat = surfaceFormat;
  layout.bypass = bypass;
  layout.bankBit = bankBit;
  return layout;
}

bool PrepareTileAddressTables(TileAddressTables* tables, const TileGridLayout& layout) {
  if (tables->valid && SameLayout(tables->layout, layout)) return true;
  tables->valid = false;
  const uint64_t columns = kTilesPerMacroSide * layout.macroTilesPerRow;
  if (layout.macroTilesPerRow > kMaxSlotEntries || layout.tileRows > kMaxSlotEntries ||
      (columns != 0 && layout.tileRows > kMaxSlotEntries / columns) ||
      layout.metaTilesPerRow > kMaxSlotEntries) {
    return false;
  }
  const uint64_t entries = columns * layout.tileRows;
  if (tables->borrowed) {
    // Another table's storage is never written: start on storage of its own.
    *tables = TileAddressTables{};
  }
  if (entries > tables->slotCapacity) {
    std::free(tables->slots);
    tables->slots = static_cast<uint64_t*>(std::malloc(entries * sizeof(uint64_t)));
    tables->slotCapacity = tables->slots != nullptr ? entries : 0;
    if (tables->slots == nullptr) return false;
  }
  const BankSwizzle swizzle =
      MakeBankSwizzle(layout.macroTilesPerRow, layout.surfaceFormat, layout.bypass, layout.bankBit);
  for (uint64_t row = 0; row < layout.tileRows; ++row) {
    uint64_t* out = tables->slots + row * columns;
    for (uint64_t column = 0; column < columns; ++column) {
      out[column] = SlotOf(layout, swizzle, row, column);
    }
  }
  tables->slotColumns = columns;
  tables->metaColumns = kMetaTileSide * layout.metaTilesPerRow;
  tables->layout = layout;
  tables->valid = true;
  return true;
}

void ReleaseTileAddressTables(TileAddressTables* tables) {
  if (!tables->borrowed) std::free(tables->slots);
  *tables = TileAddressTables{};
}

void BorrowTileAddressTables(TileAddressTables* tables, const TileAddressTables& owner) {
  ReleaseTileAddressTables(tables);
  *tables = owner;
  tables->borrowed = true;
}

}  // namespace pelcast
