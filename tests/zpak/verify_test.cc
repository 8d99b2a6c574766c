// verify on the committed real-content frames, encoded, with planted
// faults: a metadata byte that is
// no unit count, a stream cut short by lowering its unit count, and a tile
// rewritten raw although it fits in one unit. Exactly those tiles are
// reported, with their kinds; the units stored and the units the library's
// encoder needs differ by exactly the planted waste; a reference that
// differs in one tile names that tile.
#include "tools/zpak/verify.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <tuple>

#include "tests/zpak/zpak_test_support.h"

namespace pelcast::zpak::testing {
namespace {

using pelcast::testing::RawElementIndex;
using pelcast::testing::TempDir;
using pelcast::testing::WriteFile;

enum class Plant { kBadMetadata, kCutShort, kStoredRaw };

struct Planted {
  uint32_t plane;
  Plant plant;
};

struct PlantCase {
  std::string name;  // a committed frame
  pelcast_format format;
  uint32_t width, height;
  std::vector<Planted> faults;
};

using Place = std::tuple<uint32_t, uint32_t, uint32_t, ProblemKind>;  // plane, column, row, kind

constexpr uint8_t kOneUnit = 19, kTwoUnits = 23, kThreeUnits = 27, kRawByte = 31;

struct Frame {
  pelcast_format format;
  uint32_t width, height;
  Bytes zpak;
  Bytes picture;
};

Frame MakeFrame(const std::string& name, pelcast_format format, uint32_t width, uint32_t height) {
  Frame f{format, width, height, {}, CommittedFrames(name, format)};
  f.zpak = EncodeFrame(format, width, height, f.picture);
  return f;
}

std::vector<pelcast_tile_info> PlaneTiles(const Frame& f, uint32_t plane, pelcast_tile_grid* grid) {
  pelcast_tile_grid_of(f.format, f.width, f.height, plane, grid);
  std::vector<pelcast_tile_info> tiles;
  for (uint32_t r = 0; r < grid->rows; ++r)
    for (uint32_t c = 0; c < grid->columns; ++c)
      tiles.push_back(TileInfo(f.format, f.width, f.height, f.zpak, plane, c, r));
  return tiles;
}

// The slot's place among its group of four: tiles of 2 units or less in
// the middle two are stored in the slot's upper half.
uint32_t SlotInGroup(const pelcast_tile_info& t) { return t.data_offset % 1024 / 256; }

bool Suits(Plant plant, const pelcast_tile_info& t) {
  switch (plant) {
    case Plant::kBadMetadata:
      return true;
    case Plant::kCutShort:
      // One unit fewer, read from the same place.
      return t.metadata == kTwoUnits ||
             (t.metadata == kThreeUnits && (SlotInGroup(t) == 0 || SlotInGroup(t) == 3));
    default:
      return t.metadata == kOneUnit;
  }
}

// Writes the tile's picture raw into its slot, elements in micro-block order.
void StoreRaw(Frame* f, uint32_t plane, uint32_t column, uint32_t row, const pelcast_tile_info& t) {
  const TileArea a = AreaOfTile(f->format, f->width, f->height, plane, column, row);
  const size_t slot = t.data_offset - t.data_offset % 256;
  for (uint32_t y = 0; y < a.tileHeight; ++y) {
    for (uint32_t x = 0; x < a.tileWidth; ++x) {
      const size_t to = slot + RawElementIndex(x, y, a.tileWidth) * a.elementBytes;
      std::copy_n(f->picture.begin() + static_cast<ptrdiff_t>(ElementOffset(a, x, y)),
                  a.elementBytes, f->zpak.begin() + static_cast<ptrdiff_t>(to));
    }
  }
  f->zpak[t.metadata_offset] = kRawByte;
}

ProblemKind KindOf(Plant plant) {
  return plant == Plant::kBadMetadata ? ProblemKind::kBadMetadata
                                      : (plant == Plant::kCutShort ? ProblemKind::kOverrun
                                                                   : ProblemKind::kRawButCompressible);
}

// Plants the faults in tiles away from the picture's edges (one per tile)
// and returns where; `waste` gets the units the raw tiles add.
std::set<Place> PlantFaults(Frame* f, const std::vector<Planted>& faults, uint64_t* waste) {
  std::set<Place> places;
  std::set<std::tuple<uint32_t, size_t>> used;
  for (const Planted& p : faults) {
    pelcast_tile_grid grid{};
    const std::vector<pelcast_tile_info> tiles = PlaneTiles(*f, p.plane, &grid);
    bool planted = false;
    for (size_t i = 0; i < tiles.size() && !planted; ++i) {
      const uint32_t row = static_cast<uint32_t>(i / grid.columns);
      const uint32_t column = static_cast<uint32_t>(i % grid.columns);
      const bool inside = row + 1 < grid.rows && column + 1 < grid.columns;
      if (!inside || used.count({p.plane, i}) != 0 || !Suits(p.plant, tiles[i])) continue;
      const pelcast_tile_info& t = tiles[i];
      if (p.plant == Plant::kBadMetadata) {
        f->zpak[t.metadata_offset] = f->format == PELCAST_FORMAT_RGB565 ? kThreeUnits : 42;
      } else if (p.plant == Plant::kCutShort) {
        f->zpak[t.metadata_offset] = t.metadata - 4;
      } else {
        StoreRaw(f, p.plane, column, row, t);
        *waste += grid.raw_units - 1;
      }
      used.insert({p.plane, i});
      places.insert({p.plane, column, row, KindOf(p.plant)});
      planted = true;
    }
    EXPECT_TRUE(planted) << "no tile for fault " << static_cast<int>(p.plant);
  }
  return places;
}

const std::vector<PlantCase> kPlantCases = {
    {"screen-player-256x144", PELCAST_FORMAT_NV12, 256, 144,
     {{0, Plant::kBadMetadata}, {0, Plant::kCutShort}, {0, Plant::kStoredRaw},
      {1, Plant::kBadMetadata}, {1, Plant::kCutShort}, {1, Plant::kStoredRaw}}},
    {"screen-messages-256x144", PELCAST_FORMAT_RGBA8888, 256, 144,
     {{0, Plant::kBadMetadata}, {0, Plant::kCutShort}, {0, Plant::kStoredRaw}}},
    {"screen-navbar-133x75", PELCAST_FORMAT_RGBA8888, 133, 75,
     {{0, Plant::kStoredRaw}, {0, Plant::kStoredRaw}}},
    {"photo-mountains-97x61", PELCAST_FORMAT_RGB565, 97, 61,
     {{0, Plant::kBadMetadata}, {0, Plant::kBadMetadata}}},
};

TEST(Verify, ReportsExactlyThePlantedTiles) {
  for (const PlantCase& c : kPlantCases) {
    const std::string label = FormatName(c.format);
    Frame clean = MakeFrame(c.name, c.format, c.width, c.height);
    Frame f = clean;
    uint64_t waste = 0;
    const std::set<Place> planted = PlantFaults(&f, c.faults, &waste);

    Verifier verifier;
    std::string error;
    ASSERT_TRUE(verifier.Open(c.format, c.width, c.height, 2, &error)) << error;
    FrameVerdict before, after;
    ASSERT_TRUE(verifier.Verify(clean.zpak.data(), nullptr, &before));
    ASSERT_TRUE(verifier.Verify(f.zpak.data(), nullptr, &after));
    EXPECT_TRUE(before.problems.empty()) << label;
    EXPECT_EQ(before.units, before.bestUnits) << label;

    std::set<Place> reported;
    for (const TileProblem& p : after.problems) reported.insert({p.plane, p.column, p.row, p.kind});
    EXPECT_EQ(reported, planted) << label;
    const auto invalid = static_cast<uint64_t>(std::count_if(
        planted.begin(), planted.end(),
        [](const Place& p) { return std::get<3>(p) != ProblemKind::kRawButCompressible; }));
    EXPECT_EQ(after.invalidTiles, invalid) << label;
    if (invalid == 0) {
      // Raw tiles alone: what they waste is exactly what a better encoder saves.
      EXPECT_EQ(after.units, before.units + waste) << label;
      EXPECT_EQ(after.bestUnits, before.bestUnits) << label;
    }
  }
}

TEST(Verify, CommandListsTheProblemsAndExitsByValidity) {
  for (const PlantCase& c : kPlantCases) {
    const std::string label = FormatName(c.format);
    Frame f = MakeFrame(c.name, c.format, c.width, c.height);
    uint64_t waste = 0;
    const std::set<Place> planted = PlantFaults(&f, c.faults, &waste);
    TempDir dir;
    Bytes two = f.zpak;
    two.insert(two.end(), f.zpak.begin(), f.zpak.end());
    WriteFile(dir.File("dump.zpak"), two);
    const ZpakRun run = RunZpak({"verify", "--json", FormatName(c.format), "dump.zpak",
                                 std::to_string(c.width), std::to_string(c.height)},
                                {}, dir.path());
    const bool invalid = std::any_of(planted.begin(), planted.end(), [](const Place& p) {
      return std::get<3>(p) != ProblemKind::kRawButCompressible;
    });
    EXPECT_EQ(run.status, invalid ? 1 : 0) << label << run.err;
    for (const Place& p : planted) {
      const std::string plane =
          c.format == PELCAST_FORMAT_NV12 ? (std::get<0>(p) == 0 ? "y" : "uv")
                                          : (c.format == PELCAST_FORMAT_RGBA8888 ? "rgba" : "rgb565");
      const std::string entry = "{\"plane\": \"" + plane + "\", \"column\": " +
                                std::to_string(std::get<1>(p)) +
                                ", \"row\": " + std::to_string(std::get<2>(p)) + ", \"metadata\": ";
      size_t count = 0;
      for (size_t at = run.out.find(entry); at != std::string::npos; at = run.out.find(entry, at + 1)) {
        ++count;
      }
      EXPECT_EQ(count, 2u) << label << " " << entry << "\n" << run.out;  // once a frame
    }
    size_t problems = 0;
    for (size_t at = run.out.find("\"reason\""); at != std::string::npos;
         at = run.out.find("\"reason\"", at + 1)) {
      ++problems;
    }
    EXPECT_EQ(problems, 2 * planted.size()) << label;
    EXPECT_NE(run.out.find(std::string("\"valid\": ") + (invalid ? "false" : "true")),
              std::string::npos) << label;
  }
}

TEST(Verify, AReferenceThatDiffersInOneTileNamesIt) {
  struct Case {
    std::string name;
    pelcast_format format;
    uint32_t width, height, plane, column, row;
  };
  const Case cases[] = {
      {"photo-mountains-97x61", PELCAST_FORMAT_NV12, 97, 61, 0, 2, 5},
      {"photo-mountains-97x61", PELCAST_FORMAT_NV12, 97, 61, 1, 2, 2},
      {"screen-navbar-133x75", PELCAST_FORMAT_RGBA8888, 133, 75, 0, 8, 18},
      {"photo-meadow-256x144", PELCAST_FORMAT_RGB565, 256, 144, 0, 15, 35},
  };
  for (const Case& c : cases) {
    const std::string label = FormatName(c.format) + " plane " + std::to_string(c.plane);
    const Frame f = MakeFrame(c.name, c.format, c.width, c.height);
    Bytes reference = f.picture;
    const TileArea a = AreaOfTile(c.format, c.width, c.height, c.plane, c.column, c.row);
    reference[ElementOffset(a, 1, 1)] ^= 0x10;  // inside the picture, edge tiles too

    Verifier verifier;
    std::string error;
    ASSERT_TRUE(verifier.Open(c.format, c.width, c.height, 1, &error)) << error;
    FrameVerdict same, differs;
    ASSERT_TRUE(verifier.Verify(f.zpak.data(), f.picture.data(), &same));
    ASSERT_TRUE(verifier.Verify(f.zpak.data(), reference.data(), &differs));
    EXPECT_EQ(same.differingTiles, 0u) << label;
    ASSERT_EQ(differs.differingTiles, 1u) << label;
    EXPECT_EQ(std::tie(differs.firstDiffering[0].plane, differs.firstDiffering[0].column,
                       differs.firstDiffering[0].row),
              std::tie(c.plane, c.column, c.row)) << label;

    TempDir dir;
    WriteFile(dir.File("frame.zpak"), f.zpak);
    WriteFile(dir.File("good.raw"), f.picture);
    WriteFile(dir.File("bad.raw"), reference);
    for (const auto& [file, status] : {std::pair{"good.raw", 0}, std::pair{"bad.raw", 1}}) {
      const ZpakRun run = RunZpak({"verify", FormatName(c.format), "frame.zpak", "--size",
                                   std::to_string(c.width) + "x" + std::to_string(c.height),
                                   "--reference", file},
                                  {}, dir.path());
      EXPECT_EQ(run.status, status) << label << " " << file << run.err;
      EXPECT_NE(run.out.find(status == 0 ? "reference: identical" : "reference: 1 tile differ"),
                std::string::npos) << run.out;
    }
  }
}

}  // namespace
}  // namespace pelcast::zpak::testing
