// Per-sample arithmetic of the tile encoder, shared by the plain routines.
#pragma once

#include <cstdint>

namespace pelcast {

inline constexpr uint32_t kRgb565Components = 3;

// Signed residual to the unsigned field the decoder maps back:
// 0, -1, 1, -2, 2 ... become 0, 1, 2, 3, 4 ...
constexpr uint32_t ZigZag(int32_t value) {
  return (static_cast<uint32_t>(value) << 1) ^ static_cast<uint32_t>(value >> 31);
}

// The same for a residual modulo 256 taken as the representative in
// [-128, 127]: its zig-zag field is the smallest of all its representatives.
constexpr uint8_t ZigZagByte(uint8_t residual) {
  const uint8_t sign = static_cast<uint8_t>(0u - (residual >> 7));
  return static_cast<uint8_t>(static_cast<uint8_t>(residual << 1) ^ sign);
}

// Four fields of `width` bits (each below 2^width, width at most 8), given
// as the bytes of a little-endian word, packed lowest first.
constexpr uint32_t PackByteFields(uint32_t fields, uint32_t width) {
  constexpr uint32_t kPairMask = 0x00ff00ff;
  constexpr uint32_t kHalfMask = 0xffff;
  constexpr uint32_t kByte = 8;
  constexpr uint32_t kHalf = 16;
  const uint32_t pairs = (fields & kPairMask) | ((fields >> kByte) & kPairMask) << width;
  return (pairs & kHalfMask) | (pairs >> kHalf) << (2 * width);
}

// The representative of `value` modulo 2^bits in [-2^(bits-1), 2^(bits-1)).
constexpr int32_t Balanced(int32_t value, uint32_t bits) {
  const int32_t half = int32_t{1} << (bits - 1);
  const uint32_t mask = (uint32_t{1} << bits) - 1;
  return static_cast<int32_t>((static_cast<uint32_t>(value) + static_cast<uint32_t>(half)) & mask) -
         half;
}

// Forward colour transform of one pixel: luma, then the first-minus-third and
// second-minus-average differences offset by `limit` (2^n). The decoder's
// inverse gives back c0, c1, c2 exactly when each is below the limit.
inline void ForwardColour(int32_t c0, int32_t c1, int32_t c2, int32_t limit, int32_t* out) {
  const int32_t co = c0 - c2;
  const int32_t t = c2 + (co >> 1);
  const int32_t cg = c1 - t;
  out[0] = t + (cg >> 1);
  out[1] = co + limit;
  out[2] = cg + limit;
}

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
// component 1 with zero residuals. Whether escapes pay depends on the carries
// of the neighbouring groups (and on the base values, which start the
// carries). The plan below, without such escapes, is the shortest of all
// plans without them (escaping component 2 never helps, since it carries
// into nothing); when it and the colour transform both miss a unit that a
// plan with escapes could reach, rgb565_escapes.cc searches for one.
//
// So from the gradient residuals e of the three input components of one
// pixel, the fields are the zig-zag of d0, d1 and d2 above.
inline void Rgb565DirectFields(const int32_t* e, uint32_t* fields) {
  constexpr uint32_t kBits0 = 5;
  constexpr uint32_t kBits1 = 6;
  constexpr uint32_t kBits2 = 5;
  const int32_t d0 = Balanced(e[0], kBits0);
  const int32_t carry0 = (d0 - e[0]) >> kBits0;  // exact: d0 - e0 is a multiple of 32
  const int32_t d1 = Balanced(e[1] - carry0, kBits1);
  const int32_t carry1 = (d1 - e[1] + carry0) >> kBits1;
  const int32_t d2 = Balanced(e[2] - carry1, kBits2);
  fields[0] = ZigZag(d0);
  fields[1] = ZigZag(d1);
  fields[2] = ZigZag(d2);
}

}  // namespace pelcast
