#include "surface/surface_grid.h"

namespace pelcast {
namespace {

// Macro tiles of 4 x 4 tiles and metadata tiles of 16 x 16 tiles (for
// RGB565, of 32 x 4-pixel tiles and of 16 x 4-pixel half tiles).
struct GridShape {
  SlotRule rule;
  uint64_t macroWidth, macroHeight;
  uint64_t tileWidth, tileHeight;
  uint64_t metaWidth, metaHeight;
};

constexpr GridShape kRgbaGrid{SlotRule::kSwizzled, 64, 16, 16, 4, 256, 64};
constexpr GridShape kNv12Grid{SlotRule::kSwizzled, 128, 32, 32, 8, 512, 128};
constexpr GridShape kRgb565Grid{SlotRule::kRgb565Banked, 128, 16, 32, 4, 256, 64};

const GridShape& ShapeOf(PlaneFormat format) {
  switch (format) {
    case PlaneFormat::kNv12:
      return kNv12Grid;
    case PlaneFormat::kRgba8888:
      return kRgbaGrid;
    case PlaneFormat::kRgb565:
      break;
  }
  return kRgb565Grid;
}

}  // namespace

TileGridLayout SurfaceGridLayout(PlaneFormat format, uint64_t planeWidth, uint64_t planeHeight,
                                 const ZpakConfig& config) {
  const GridShape& s = ShapeOf(format);
  return MakeTileGridLayout(s.rule, planeWidth, planeHeight, s.macroWidth, s.macroHeight,
                            s.tileWidth, s.tileHeight, s.metaWidth, s.metaHeight,
                            config.swizzleEnable, config.surfaceFormat, config.bypass,
                            config.bankBit);
}

}  // namespace pelcast
