// RGB565 tiles without the colour transform.
//
// The decoder packs a pixel as the literal sum c0 + 32 c1 + 2048 c2 kept to
// 16 bits, so only that sum has to match the input and the components carry
// into each other. Write a reconstructed pixel as
//   c0 = X0 + 32 k0,   c1 = X1 - k0 + 64 k1,   c2 = X2 - k1 (mod 32),
// with X the input's components and k0, k1 the carries.
//
// Predicted groups. A residual field is at most 5 bits wide for components 0
// and 2 and 6 bits for component 1 (codes above the escape read full width),
// so d0 lies in [-16, 15], d1 in [-32, 31] and d2 in [-16, 15]. The predictor
// is linear, so d0 = e0 + 32 dk0 with e0 = X0 - pred(X0) and dk0 = k0 -
// pred(k0); only one value of that form lies in the range, so d0 = bal32(e0)
// and dk0 are fixed by the input alone. Likewise d1 = bal64(e1 - dk0) and
// d2 = bal32(e2 - dk1): with every group predicted each residual is the
// balanced mixed-radix digit of the packed residual, whatever any other group
// chose, and each group simply takes the smallest code that holds its
// residuals (code 6, or 7 for component 1, when only full width does). The
// base choice only moves the carries by a constant, which the gradient
// predictor cancels, so bases equal to the first pixel are best.
//
// Escaped groups. A raw sample carries nothing: escaping a component-0 group
// forces k0 = 0 on its pixels, so there dk0 = -pred(k0) instead of the fixed
// value, and the component-1 and -2 residuals of those pixels change (an
// escaped component-1 group does the same to component 2). An escape costs
// exactly what the widest predicted code costs for its own component, but it
// can shorten the others: a component-0 row 0, 16, 0, 16 ... carries into
// component 1 at every pixel when predicted, while raw it leaves a flat
// component 1 with zero residuals. Whether escapes pay then depends on the
// carries of every earlier group (and on the base values, which start the
// carries), so finding the best set is a search over all groups of both
// components whose state does not merge well; a bounded search over escape
// sets took far more than a few tile encodes and, on the RGB565 corpus
// frames, would have saved a unit on 1 half tile in 64,800. The encoder
// therefore does not escape components 0 and 1 in this mode: the plan below
// is the shortest of all plans without such escapes (escaping component 2
// never helps, since it carries into nothing).
#include "encoder/tile_plan.h"

namespace pelcast {
namespace {

constexpr int kComponents = 3;
constexpr uint32_t kBits0 = 5;  // component widths, also their full residual widths
constexpr uint32_t kBits1 = 6;
constexpr uint32_t kBits2 = 5;
constexpr uint32_t kEscape0 = 5;  // escape codes (raw samples), never chosen here
constexpr uint32_t kEscape1 = 6;
constexpr uint32_t kEscape2 = 5;
constexpr uint8_t kWideCode0 = 6;  // codes above the escape: full-width residuals
constexpr uint8_t kWideCode1 = 7;
constexpr uint8_t kWideCode2 = 6;
constexpr int32_t kRadix0 = 1 << kBits0;
constexpr int32_t kRadix1 = 1 << kBits1;
// Colour flag and the three base values.
constexpr uint32_t kFixedBits = kHeaderFlagBits + kBits0 + kBits1 + kBits2;

uint8_t CodeFor(uint32_t width, uint32_t escape, uint8_t wide) {
  return static_cast<uint8_t>(width < escape ? width : wide);
}

}  // namespace

uint32_t PlanRgb565Direct(const TileSamples& tile, TilePlan* plan) {
  const int32_t* x0 = tile.samples[0][0];
  const int32_t* x1 = tile.samples[0][1];
  const int32_t* x2 = tile.samples[0][2];
  plan->colourFlag = 0;
  plan->alphaFlag = 0;
  plan->codedComponents = kComponents;
  const uint32_t bits[kComponents] = {kBits0, kBits1, kBits2};
  const uint32_t escapes[kComponents] = {kEscape0, kEscape1, kEscape2};
  ComponentStream* streams = plan->streams[0];
  for (int c = 0; c < kComponents; ++c) {
    plan->codedBits[c] = bits[c];
    plan->escapeCode[c] = escapes[c];
    streams[c].base = static_cast<uint32_t>(tile.samples[0][c][0]);
  }
  uint32_t total = kFixedBits;
  for (int g = 0; g < kGroupsPerBlock; ++g) {
    uint32_t widest[kComponents] = {0, 0, 0};
    for (int i = 0; i < kGroupSize; ++i) {
      const int at = g * kGroupSize + i;
      const int x = at % kBlockWidth;
      const int y = at / kBlockWidth;
      const int32_t e0 = x0[at] - GradientPrediction(x0, x, y, x0[0]);
      const int32_t e1 = x1[at] - GradientPrediction(x1, x, y, x1[0]);
      const int32_t e2 = x2[at] - GradientPrediction(x2, x, y, x2[0]);
      const int32_t d0 = Balanced(e0, kBits0);
      const int32_t dk0 = (d0 - e0) / kRadix0;
      const int32_t d1 = Balanced(e1 - dk0, kBits1);
      const int32_t dk1 = (d1 - e1 + dk0) / kRadix1;
      const int32_t d2 = Balanced(e2 - dk1, kBits2);
      const uint32_t fields[kComponents] = {ZigZag(d0), ZigZag(d1), ZigZag(d2)};
      for (int c = 0; c < kComponents; ++c) {
        streams[c].fields[at] = fields[c];
        widest[c] |= fields[c];
      }
    }
    const uint32_t w0 = BitWidth(widest[0]);
    const uint32_t w1 = BitWidth(widest[1]);
    const uint32_t w2 = BitWidth(widest[2]);
    streams[0].codes[g] = CodeFor(w0, kEscape0, kWideCode0);
    streams[1].codes[g] = CodeFor(w1, kEscape1, kWideCode1);
    streams[2].codes[g] = CodeFor(w2, kEscape2, kWideCode2);
    total += GroupBits(w0) + GroupBits(w1) + GroupBits(w2);
  }
  return plan->bits = total;
}

}  // namespace pelcast
