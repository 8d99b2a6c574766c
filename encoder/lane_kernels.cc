// The plain lane routines.
#include "encoder/lane_kernels.h"

#include <bit>
#include <cstring>

#include "encoder/lane_math.h"

namespace pelcast {

void PlainJoinGroupFields(const LanePack* packs, uint32_t lanes, uint64_t* joined,
                          uint8_t* bits) {
  constexpr uint32_t kWordBits = 64;
  for (uint32_t g = 0; g < kGroupsPerBlock; ++g) {
    uint64_t word = 0;
    uint32_t at = 0;
    for (uint32_t l = 0; l < lanes; ++l) {
      if (at < kWordBits) word |= packs[l].fields[g] << at;
      at += packs[l].fieldBits[g];
    }
    joined[g] = word;
    bits[g] = static_cast<uint8_t>(at);
  }
}

namespace {

constexpr int32_t kSampleLimit = 255;  // zig-zag fields are kept in bytes
constexpr uint32_t kWordWidthLimit = 32;

// Every group keeps its width: no width reaches this escape.
constexpr LaneSizing kWidthsOnly = {kWordWidthLimit, 0};

// Bits of a lane's codes and fields under `sizing`.
uint32_t SizeLane(const LaneResidues& lane, const LaneSizing& sizing) {
  uint32_t fieldBits = 0;
  for (uint32_t g = 0; g < kGroupsPerBlock; ++g) {
    fieldBits += lane.width[g] < sizing.escape ? lane.width[g] : sizing.codedBits;
  }
  return kGroupsPerBlock * kCodeBits + kGroupSize * fieldBits;
}

// Bit widths of the groups from their OR-ed fields, and the lane's size.
void StoreWidths(const uint32_t* groupOr, const LaneSizing& sizing, LaneResidues* out) {
  for (uint32_t g = 0; g < kGroupsPerBlock; ++g) {
    out->width[g] = static_cast<uint8_t>(std::bit_width(groupOr[g]));
  }
  out->bits = SizeLane(*out, sizing);
}

void PlainByteLane(const uint8_t* rows, size_t pitch, const LaneSizing& sizing,
                   LaneResidues* out) {
  const uint8_t base = rows[0];
  uint8_t above[kBlockWidth] = {};  // horizontal differences of the row above
  uint32_t groupOr[kGroupsPerBlock] = {};
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const uint8_t* s = rows + y * pitch;
    uint8_t left = base;
    for (uint32_t x = 0; x < kBlockWidth; ++x) {
      const uint8_t h = static_cast<uint8_t>(s[x] - left);
      left = s[x];
      const uint8_t z = ZigZagByte(static_cast<uint8_t>(h - above[x]));
      above[x] = h;
      out->zig[y * kBlockWidth + x] = z;
      groupOr[(y * kBlockWidth + x) / kGroupSize] |= z;
    }
  }
  StoreWidths(groupOr, sizing, out);
}

void PlainByteLanePair(const uint8_t* first, const uint8_t* second, size_t pitch,
                       const LaneSizing& sizing, LaneResidues* firstOut, LaneResidues* secondOut) {
  PlainByteLane(first, pitch, sizing, firstOut);
  PlainByteLane(second, pitch, sizing, secondOut);
}

void PlainExactLane(const int16_t* samples, const LaneSizing& sizing, LaneResidues* out) {
  const int32_t base = samples[0];
  int32_t above[kBlockWidth] = {};
  uint32_t groupOr[kGroupsPerBlock] = {};
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    const int16_t* s = samples + y * kBlockWidth;
    int32_t left = base;
    for (uint32_t x = 0; x < kBlockWidth; ++x) {
      const int32_t h = s[x] - left;
      left = s[x];
      const uint32_t z = ZigZag(h - above[x]);
      above[x] = h;
      out->zig[y * kBlockWidth + x] = static_cast<uint8_t>(z < kSampleLimit ? z : kSampleLimit);
      groupOr[(y * kBlockWidth + x) / kGroupSize] |= z;
    }
  }
  StoreWidths(groupOr, sizing, out);
}

void PlainRgb565Lanes(const uint8_t* const* planes, size_t pitch, LaneResidues* out) {
  int32_t above[kRgb565Components][kBlockWidth] = {};
  uint32_t groupOr[kRgb565Components][kGroupsPerBlock] = {};
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    int32_t left[kRgb565Components];
    for (uint32_t c = 0; c < kRgb565Components; ++c) left[c] = planes[c][0];
    for (uint32_t x = 0; x < kBlockWidth; ++x) {
      int32_t e[kRgb565Components];
      for (uint32_t c = 0; c < kRgb565Components; ++c) {
        const int32_t s = planes[c][y * pitch + x];
        const int32_t h = s - left[c];
        left[c] = s;
        e[c] = h - above[c][x];
        above[c][x] = h;
      }
      uint32_t fields[kRgb565Components];
      Rgb565DirectFields(e, fields);
      const uint32_t at = y * kBlockWidth + x;
      for (uint32_t c = 0; c < kRgb565Components; ++c) {
        out[c].zig[at] = static_cast<uint8_t>(fields[c]);
        groupOr[c][at / kGroupSize] |= fields[c];
      }
    }
  }
  for (uint32_t c = 0; c < kRgb565Components; ++c) StoreWidths(groupOr[c], kWidthsOnly, &out[c]);
}

bool PlainColourTransform(const uint8_t* const* planes, size_t pitch, uint32_t n,
                          ColourSamples* out) {
  const int32_t limit = int32_t{1} << n;
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    for (uint32_t x = 0; x < kBlockWidth; ++x) {
      const size_t at = y * pitch + x;
      const int32_t c0 = planes[0][at];
      const int32_t c1 = planes[1][at];
      const int32_t c2 = planes[2][at];
      if (c0 >= limit || c1 >= limit || c2 >= limit) return false;
      int32_t t[3];
      ForwardColour(c0, c1, c2, limit, t);
      for (int c = 0; c < 3; ++c) out->c[c][y * kBlockWidth + x] = static_cast<int16_t>(t[c]);
    }
  }
  return true;
}

bool PlainColourLanes(const uint8_t* const* planes, size_t pitch, uint32_t n,
                      const LaneSizing* sizings, ColourSamples* out, LaneResidues* lanes) {
  if (!PlainColourTransform(planes, pitch, n, out)) return false;
  for (uint32_t c = 0; c < kRgb565Components; ++c) PlainExactLane(out->c[c], sizings[c], &lanes[c]);
  return true;
}

uint32_t PlainPackLane(const LaneResidues& lane, const LaneCoding& coding, LanePack* out) {
  uint32_t escaped = 0;
  for (uint32_t g = 0; g < kGroupsPerBlock; ++g) {
    const uint32_t width = lane.width[g];
    const bool narrow = width < coding.escape;
    const uint32_t fieldBits = narrow ? width : coding.codedBits;
    out->code[g] = static_cast<uint8_t>(narrow ? width : coding.wideCode != 0 ? coding.wideCode
                                                                                : coding.escape);
    out->fieldBits[g] = static_cast<uint8_t>(kGroupSize * fieldBits);
    uint32_t word = 0;  // escaped groups without byte samples stay 0
    if (narrow || coding.wideCode != 0) {
      std::memcpy(&word, lane.zig + kGroupSize * g, sizeof word);
      word = PackByteFields(word, fieldBits);
    } else {
      escaped |= 1u << g;
      if (coding.rawRows != nullptr) {  // 8-bit samples as they are
        std::memcpy(&word, coding.rawRows + (g / kGroupsPerRow) * coding.rawPitch +
                               kGroupSize * (g % kGroupsPerRow), sizeof word);
      }
    }
    out->fields[g] = word;
  }
  return escaped;
}

void PlainPackCodes(const LanePack* packs, uint32_t lanes, uint64_t* words) {
  constexpr uint32_t kGroupsPerWord = 4;
  for (uint32_t q = 0; q < kGroupsPerBlock / kGroupsPerWord; ++q) {
    uint64_t word = 0;
    uint32_t used = 0;
    for (uint32_t g = kGroupsPerWord * q; g < kGroupsPerWord * (q + 1); ++g) {
      for (uint32_t l = 0; l < lanes; ++l, used += kCodeBits) {
        word |= uint64_t{packs[l].code[g]} << used;
      }
    }
    words[q] = word;
  }
}

void PlainSplitQuads(const uint8_t* rows, size_t pitch, uint8_t* planes) {
  constexpr uint32_t kQuad = 4;
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    for (uint32_t x = 0; x < kBlockWidth; ++x) {
      for (uint32_t c = 0; c < kQuad; ++c) {
        planes[c * kBlockSamples + y * kBlockWidth + x] = rows[y * pitch + kQuad * x + c];
      }
    }
  }
}

void PlainSplitRgb565(const uint8_t* rows, size_t pitch, uint8_t* planes) {
  for (uint32_t y = 0; y < kBlockHeight; ++y) {
    for (uint32_t x = 0; x < kBlockWidth; ++x) {
      const uint8_t* p = rows + y * pitch + 2 * x;
      const uint32_t v = p[0] | uint32_t{p[1]} << kByteBits;
      const uint32_t at = y * kBlockWidth + x;
      planes[at] = static_cast<uint8_t>(v & kRgb565Mask5);
      planes[kBlockSamples + at] = static_cast<uint8_t>((v >> kRgb565Shift1) & kRgb565Mask6);
      planes[2 * kBlockSamples + at] = static_cast<uint8_t>(v >> kRgb565Shift2);
    }
  }
}

constexpr LaneKernels kPlain = {
    .name = "plain",
    .byteLane = PlainByteLane,
    .byteLanePair = PlainByteLanePair,
    .exactLane = PlainExactLane,
    .rgb565Lanes = PlainRgb565Lanes,
    .colourTransform = PlainColourTransform,
    .colourLanes = PlainColourLanes,
    .packLane = PlainPackLane,
    .packCodes = PlainPackCodes,
    .joinGroupFields = PlainJoinGroupFields,
    .splitQuads = PlainSplitQuads,
    .splitRgb565 = PlainSplitRgb565,
};

}  // namespace

const LaneKernels& PlainLaneKernels() { return kPlain; }

}  // namespace pelcast
