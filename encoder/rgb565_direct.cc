// RGB565 tiles without the colour transform.
//
// The decoder packs a pixel as the literal sum c0 + 32 c1 + 2048 c2 kept to
// 16 bits, so only that sum has to match the input, and the components carry
// into each other. Write a reconstructed pixel as
//   c0 = X0 + 32 k0,   c1 = X1 - k0 + 64 k1,   c2 = X2 - k1 (mod 32),
// where X are the input's components and k0, k1 the carries.
//
// Predicted groups. A residual field is at most 5 bits wide for components 0
// and 2 and 6 bits for component 1 (codes above the escape read full width),
// so d0 lies in [-16, 15], d1 in [-32, 31], d2 in [-16, 15]. Because the
// predictor is linear, d0 = X0 - pred(X0) + 32 (k0 - pred(k0)) and only the
// balanced value in that range fits: d0 and the carry change dk0 = k0 -
// pred(k0) are fixed by the input alone. Likewise d1 = bal64(e1 - dk0) and
// d2 = bal32(e2 - dk1). So with every group predicted each residual is
// determined (the balanced mixed-radix digits of the packed residual), and a
// group's cost does not depend on any other group.
//
// Escaped groups. A raw sample leaves no carry: an escaped component-0 group
// forces k0 = 0 on its pixels, so there dk0 = -pred(k0) instead of the fixed
// value, which changes the component-1 and -2 residuals of those pixels (and
// an escaped component-1 group does the same for component 2). An escape
// costs exactly what the widest predicted code costs for its own component,
// yet it can shorten the others: a component-0 row 0, 16, 0, 16 ... carries
// into component 1 at every pixel when predicted, while escaping it leaves a
// flat component 1 with zero residuals. So escapes of components 0 and 1 are
// part of the search (component 2 carries into nothing, so escaping it never
// helps). The base values matter the same way: the first pixel's base choice
// can start the carry fields at -1, 0 or 1.
//
// Search. Non-escaped groups cost the same in every plan, so any plan costs at
// least the sum over groups of min(all-predicted cost, cheapest escaped cost
// = 23 + 3 + 3). A tile whose bound does not fit the one-unit limit is raw at
// once. Otherwise a breadth-first search over groups in stream order tries the
// four escape choices per group, carrying only the carry values that later
// predictions read (the current and the previous row); plans that reach the
// same carries are merged, keeping the cheaper, and plans whose bound exceeds
// the limit are dropped. The search keeps at most kMaxLiveStates plans per step;
// only then, should it ever happen, are the dearest ones dropped.
#include <cstring>

#include "encoder/tile_plan.h"

namespace pelcast {
namespace {

constexpr int kComponents = 3;
constexpr uint32_t kBits0 = 5;  // component widths, also their full residual widths
constexpr uint32_t kBits1 = 6;
constexpr uint32_t kBits2 = 5;
constexpr uint32_t kEscape0 = 5;  // escape codes: raw samples
constexpr uint32_t kEscape1 = 6;
constexpr uint32_t kEscape2 = 5;
constexpr uint8_t kWideCode0 = 6;  // codes above the escape: full-width residuals
constexpr uint8_t kWideCode1 = 7;
constexpr uint8_t kWideCode2 = 6;
constexpr int32_t kRadix0 = 1 << kBits0;
constexpr int32_t kRadix1 = 1 << kBits1;
constexpr int32_t kMask1 = kRadix1 - 1;
// Colour flag and the three base values.
constexpr uint32_t kFixedBits = kHeaderFlagBits + kBits0 + kBits1 + kBits2;
// The cheapest a group can be once it escapes anything: component 0 raw, the
// other two with code 0.
constexpr uint32_t kCheapestEscapedGroup = GroupBits(kBits0) + 2 * GroupBits(0);
constexpr int kMaxLiveStates = 256;
constexpr int kRingRow = kBlockWidth;  // carries of the current and previous row
constexpr int kEscape0Flag = 1;
constexpr int kEscape1Flag = 2;
constexpr int kEscapeChoices = 4;
constexpr uint32_t kUnfit = 1u << 30;

// A choice of base values, as the carries and residuals it gives the first pixel.
struct Start {
  int32_t base[kComponents];
};

struct Input {
  const int32_t* x[kComponents];  // the tile's components
  int32_t e[kComponents][kBlockSamples];  // X - pred(X), with the base equal to the first sample
};

struct CarryRing {
  int32_t k0[2 * kRingRow];
  int32_t k1[2 * kRingRow];
};

struct State {
  CarryRing ring;
  uint32_t bits;
  uint32_t escapes;  // two bits per group: kEscape0Flag, kEscape1Flag
  uint32_t start;
};

struct PixelFields {
  uint32_t field[kComponents];
  uint32_t zigzag[kComponents];  // zero for escaped components
};

struct StartTable {
  Start starts[kEscapeChoices][9];
  int count[kEscapeChoices];
};

int RingSlot(int x, int y) { return (y & 1) * kRingRow + x; }

// The gradient prediction of a carry field: zero around the block, so the
// carries start from the first pixel's own.
int32_t PredictCarry(const int32_t* ring, int x, int y) {
  if (y == 0) return x == 0 ? 0 : ring[RingSlot(x - 1, 0)];
  if (x == 0) return ring[RingSlot(0, y - 1)];
  return ring[RingSlot(x - 1, y)] + ring[RingSlot(x, y - 1)] - ring[RingSlot(x - 1, y - 1)];
}

// Reconstructs one pixel under the given escapes, updating the carries.
PixelFields StepPixel(const Input& in, const Start& start, int at, int escapes, CarryRing* ring) {
  const int x = at % kBlockWidth;
  const int y = at / kBlockWidth;
  int32_t e[kComponents];
  for (int c = 0; c < kComponents; ++c) {
    e[c] = at == 0 ? in.x[c][0] - start.base[c] : in.e[c][at];
  }
  const int32_t pk0 = PredictCarry(ring->k0, x, y);
  const int32_t pk1 = PredictCarry(ring->k1, x, y);
  PixelFields out{};
  int32_t k0 = 0;
  int32_t dk0 = 0;
  if ((escapes & kEscape0Flag) != 0) {
    dk0 = -pk0;
    out.field[0] = static_cast<uint32_t>(in.x[0][at]);
  } else {
    const int32_t d0 = Balanced(e[0], kBits0);
    dk0 = (d0 - e[0]) / kRadix0;
    k0 = pk0 + dk0;
    out.field[0] = out.zigzag[0] = ZigZag(d0);
  }
  int32_t k1 = 0;
  int32_t dk1 = 0;
  if ((escapes & kEscape1Flag) != 0) {
    const int32_t raw = (in.x[1][at] - k0) & kMask1;
    k1 = (raw - in.x[1][at] + k0) / kRadix1;
    dk1 = k1 - pk1;
    out.field[1] = static_cast<uint32_t>(raw);
  } else {
    const int32_t d1 = Balanced(e[1] - dk0, kBits1);
    dk1 = (d1 - e[1] + dk0) / kRadix1;
    k1 = pk1 + dk1;
    out.field[1] = out.zigzag[1] = ZigZag(d1);
  }
  out.field[2] = out.zigzag[2] = ZigZag(Balanced(e[2] - dk1, kBits2));
  ring->k0[RingSlot(x, y)] = k0;
  ring->k1[RingSlot(x, y)] = k1;
  return out;
}

// Bits of group g under the given escapes; fills the codes and fields when
// `streams` is given.
uint32_t StepGroup(const Input& in, const Start& start, int g, int escapes, CarryRing* ring,
                   ComponentStream* streams) {
  uint32_t widest[kComponents] = {0, 0, 0};
  for (int i = 0; i < kGroupSize; ++i) {
    const int at = g * kGroupSize + i;
    const PixelFields f = StepPixel(in, start, at, escapes, ring);
    for (int c = 0; c < kComponents; ++c) {
      widest[c] |= f.zigzag[c];
      if (streams != nullptr) streams[c].fields[at] = f.field[c];
    }
  }
  const bool raw0 = (escapes & kEscape0Flag) != 0;
  const bool raw1 = (escapes & kEscape1Flag) != 0;
  const uint32_t w0 = raw0 ? kBits0 : BitWidth(widest[0]);
  const uint32_t w1 = raw1 ? kBits1 : BitWidth(widest[1]);
  const uint32_t w2 = BitWidth(widest[2]);
  if (streams != nullptr) {
    streams[0].codes[g] = static_cast<uint8_t>(raw0 ? kEscape0 : (w0 < kEscape0 ? w0 : kWideCode0));
    streams[1].codes[g] = static_cast<uint8_t>(raw1 ? kEscape1 : (w1 < kEscape1 ? w1 : kWideCode1));
    streams[2].codes[g] = static_cast<uint8_t>(w2 < kEscape2 ? w2 : kWideCode2);
  }
  return GroupBits(w0) + GroupBits(w1) + GroupBits(w2);
}

// Base choices worth trying for the first pixel when its components 0 and 1
// are predicted or escaped as given: for every carry the first pixel can start
// with, the base that gives it the smallest residual (only the first group's
// width depends on it). Component 2's base always cancels its residual.
int CollectStarts(const Input& in, int escapes, Start* starts) {
  const int32_t x0 = in.x[0][0];
  const int32_t x1 = in.x[1][0];
  const int32_t x2 = in.x[2][0];
  constexpr int kCarryClasses = 3;  // a first carry of -1, 0 or 1
  struct Pick {
    bool found;
    uint32_t zigzag;
    int32_t base;
  };
  Pick base0[kCarryClasses] = {};
  if ((escapes & kEscape0Flag) != 0) {
    base0[1] = Pick{true, 0, x0};  // unused by the decoder
  } else {
    for (int32_t b = 0; b < kRadix0; ++b) {
      const int32_t d = Balanced(x0 - b, kBits0);
      const int32_t k = (d - (x0 - b)) / kRadix0;
      Pick& p = base0[k + 1];
      if (!p.found || ZigZag(d) < p.zigzag) p = Pick{true, ZigZag(d), b};
    }
  }
  int count = 0;
  for (const Pick& p0 : base0) {
    if (!p0.found) continue;
    const int32_t k0 = (escapes & kEscape0Flag) != 0 ? 0 : (Balanced(x0 - p0.base, kBits0) - (x0 - p0.base)) / kRadix0;
    Pick base1[kCarryClasses] = {};
    if ((escapes & kEscape1Flag) != 0) {
      base1[1] = Pick{true, 0, x1};
    } else {
      for (int32_t b = 0; b < kRadix1; ++b) {
        const int32_t e = x1 - b - k0;
        const int32_t d = Balanced(e, kBits1);
        const int32_t k = (d - e) / kRadix1;
        Pick& p = base1[k + 1];
        if (!p.found || ZigZag(d) < p.zigzag) p = Pick{true, ZigZag(d), b};
      }
    }
    for (const Pick& p1 : base1) {
      if (!p1.found) continue;
      int32_t k1 = 0;
      if ((escapes & kEscape1Flag) != 0) {
        k1 = (((x1 - k0) & kMask1) - x1 + k0) / kRadix1;
      } else {
        const int32_t e = x1 - p1.base - k0;
        k1 = (Balanced(e, kBits1) - e) / kRadix1;
      }
      starts[count++] = Start{{p0.base, p1.base, (x2 - k1) & (kRadix0 - 1)}};
    }
  }
  return count;
}

// Whether two states carry the same values into every later prediction after
// group g: the current row up to the group's end and the previous row from
// the column before the next group on.
bool SameFrontier(const CarryRing& a, const CarryRing& b, int g) {
  const int y = g / kGroupsPerRow;
  const int end = (g % kGroupsPerRow + 1) * kGroupSize;
  for (int x = 0; x < end; ++x) {
    const int s = RingSlot(x, y);
    if (a.k0[s] != b.k0[s] || a.k1[s] != b.k1[s]) return false;
  }
  if (y == 0) return true;
  for (int x = end - 1; x < kBlockWidth; ++x) {
    const int s = RingSlot(x, y - 1);
    if (a.k0[s] != b.k0[s] || a.k1[s] != b.k1[s]) return false;
  }
  return true;
}

// Adds a state to a layer: merged with one of the same frontier, or appended;
// a full layer replaces its dearest state when the new one is cheaper.
void AddState(const State& s, int g, State* layer, int* count) {
  for (int i = 0; i < *count; ++i) {
    if (SameFrontier(layer[i].ring, s.ring, g)) {
      if (s.bits < layer[i].bits) layer[i] = s;
      return;
    }
  }
  if (*count < kMaxLiveStates) {
    layer[(*count)++] = s;
    return;
  }
  int dearest = 0;
  for (int i = 1; i < *count; ++i) {
    if (layer[i].bits > layer[dearest].bits) dearest = i;
  }
  if (s.bits < layer[dearest].bits) layer[dearest] = s;
}

// Fills the plan for the chosen escapes and start.
uint32_t BuildPlan(const Input& in, const Start& start, uint32_t escapes, TilePlan* plan) {
  plan->colourFlag = 0;
  plan->alphaFlag = 0;
  plan->codedComponents = kComponents;
  const uint32_t bits[kComponents] = {kBits0, kBits1, kBits2};
  const uint32_t escapeCodes[kComponents] = {kEscape0, kEscape1, kEscape2};
  ComponentStream* streams = plan->streams[0];
  for (int c = 0; c < kComponents; ++c) {
    plan->codedBits[c] = bits[c];
    plan->escapeCode[c] = escapeCodes[c];
    streams[c].base = static_cast<uint32_t>(start.base[c]);
  }
  CarryRing ring{};
  uint32_t total = kFixedBits;
  for (int g = 0; g < kGroupsPerBlock; ++g) {
    const int choice = static_cast<int>((escapes >> (2 * g)) & 3);
    total += StepGroup(in, start, g, choice, &ring, streams);
  }
  return plan->bits = total;
}

void PrepareInput(const TileSamples& tile, Input* in) {
  for (int c = 0; c < kComponents; ++c) {
    const int32_t* v = tile.samples[0][c];
    in->x[c] = v;
    for (int y = 0; y < kBlockHeight; ++y) {
      for (int x = 0; x < kBlockWidth; ++x) {
        const int at = y * kBlockWidth + x;
        in->e[c][at] = v[at] - GradientPrediction(v, x, y, v[0]);
      }
    }
  }
}

struct SearchLayers {
  State a[kMaxLiveStates];
  State b[kMaxLiveStates];
};

}  // namespace

uint32_t PlanRgb565Direct(const TileSamples& tile, uint32_t limitBits, TilePlan* plan) {
  Input in;
  PrepareInput(tile, &in);
  const Start standard{{in.x[0][0], in.x[1][0], in.x[2][0]}};

  // Every group predicted, each base equal to the first pixel.
  uint32_t predicted[kGroupsPerBlock];
  uint32_t total = kFixedBits;
  {
    CarryRing ring{};
    for (int g = 0; g < kGroupsPerBlock; ++g) {
      predicted[g] = StepGroup(in, standard, g, 0, &ring, nullptr);
      total += predicted[g];
    }
  }
  if (total <= limitBits) return BuildPlan(in, standard, 0, plan);

  // Lower bound of the groups from g on, whatever is escaped.
  uint32_t boundFrom[kGroupsPerBlock + 1];
  boundFrom[kGroupsPerBlock] = 0;
  for (int g = kGroupsPerBlock - 1; g >= 0; --g) {
    const uint32_t least = predicted[g] < kCheapestEscapedGroup ? predicted[g] : kCheapestEscapedGroup;
    boundFrom[g] = boundFrom[g + 1] + least;
  }
  if (kFixedBits + boundFrom[0] > limitBits) return plan->bits = kUnfit;

  SearchLayers layers;  // about 140 KB of stack, only on this rare path
  StartTable starts;
  State* current = layers.a;
  State* next = layers.b;
  int currentCount = 0;
  for (int choice = 0; choice < kEscapeChoices; ++choice) {
    starts.count[choice] = CollectStarts(in, choice, starts.starts[choice]);
    for (int s = 0; s < starts.count[choice]; ++s) {
      State state{};
      state.escapes = static_cast<uint32_t>(choice);
      state.start = static_cast<uint32_t>(s);
      state.bits = kFixedBits + StepGroup(in, starts.starts[choice][s], 0, choice, &state.ring, nullptr);
      if (state.bits + boundFrom[1] <= limitBits) AddState(state, 0, current, &currentCount);
    }
  }
  for (int g = 1; g < kGroupsPerBlock && currentCount > 0; ++g) {
    int nextCount = 0;
    for (int i = 0; i < currentCount; ++i) {
      const State& from = current[i];
      const Start& start = starts.starts[from.escapes & 3][from.start];
      for (int choice = 0; choice < kEscapeChoices; ++choice) {
        State state = from;
        state.escapes |= static_cast<uint32_t>(choice) << (2 * g);
        state.bits += StepGroup(in, start, g, choice, &state.ring, nullptr);
        if (state.bits + boundFrom[g + 1] <= limitBits) AddState(state, g, next, &nextCount);
      }
    }
    State* swap = current;
    current = next;
    next = swap;
    currentCount = nextCount;
  }
  if (currentCount == 0) return plan->bits = kUnfit;
  int best = 0;
  for (int i = 1; i < currentCount; ++i) {
    if (current[i].bits < current[best].bits) best = i;
  }
  const State& winner = current[best];
  return BuildPlan(in, starts.starts[winner.escapes & 3][winner.start], winner.escapes, plan);
}

}  // namespace pelcast
