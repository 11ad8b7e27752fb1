// The sines that the model curve needs: sin a and sin 2a from one reduction of the argument.
//
// Our own, because results must not depend on the machine: the C library's sine has other last bits
// on processors with and without fused multiply-add. Only additions and multiplications in a fixed
// order are used here, which give the same bits everywhere.
//
//     a = n pi/2 + r, |r| <= pi/4;  sin r and cos r by polynomials;  sin 2a = +-2 sin r cos r
//
// error    up to |a| = 25 below 1.4 units of the last place (sin a) and 2.6 (sin 2a); beyond, 2.3
//          and 4
// source   polynomials: the minimax coefficients of the freely distributable fdlibm (Sun, 1993)
#pragma once
#include <cstdint>

#include "lanes.hpp"

namespace gain_fit_mod {

/// Below this magnitude three parts of pi/2 reduce an argument exactly enough; beyond, and for what
/// is not a number, far_reduction does it one by one.
inline constexpr double near_limit = 0x1p20;

/// a = n pi/2 + r
template <int width>
struct reduced_angle {
  typename lanes<width>::real r;
  typename lanes<width>::bits n;  // only its last two bits count
};

template <int width>
[[gnu::always_inline]] inline reduced_angle<width> near_reduction(typename lanes<width>::real a) {
  // Adding 1.5 x 2^52 rounds to a whole number, which then stands in the last bits.
  constexpr double whole = 0x1.8p52;
  const auto turns = a * 0x1.45f306dc9c883p-1 + whole;
  const auto n = turns - whole;
  const auto r = ((a - n * 0x1.921fb544p+0) - n * 0x1.0b4611a6p-34) - n * 0x1.3198a2e037073p-69;
  return {r, lanes<width>::as_bits(turns)};
}

/// The same for any argument; r is nan for what is not finite.
reduced_angle<1> far_reduction(double a);

/// sin r and cos r, |r| <= pi/4.
template <int width>
struct sine_cosine {
  typename lanes<width>::real s;
  typename lanes<width>::real c;
};

// The sums are split in halves that do not wait for each other.
template <int width>
[[gnu::always_inline]] inline sine_cosine<width> sine_cosine_near_0(typename lanes<width>::real r) {
  const auto z = r * r;
  const auto zz = z * z;
  const auto s_low = -1.66666666666666324348e-01 + z * 8.33333333332248946124e-03 +
                     zz * (-1.98412698298579493134e-04 + z * 2.75573137070700676789e-06);
  const auto s_high = -2.50507602534068634195e-08 + z * 1.58969099521155010221e-10;
  const auto c_low = 4.16666666666666019037e-02 + z * -1.38888888888741095749e-03 +
                     zz * (2.48015872894767294178e-05 + z * -2.75573143513906633035e-07);
  const auto c_high = 2.08757232129817482790e-09 + z * -1.13596475577881948265e-11;
  const auto z4 = zz * zz;
  return {r + r * (z * (s_low + z4 * s_high)), 1.0 - (0.5 * z - zz * (c_low + z4 * c_high))};
}

/// The four functions of a that the residual and its derivatives are made of.
template <int width>
struct angle_functions {
  typename lanes<width>::real sin1, cos1, sin2, cos2;
};

/// From sine and cosine of what remains after n quarter turns. Inlined: what is not used of the
/// result costs nothing.
template <int width>
[[gnu::always_inline]] inline angle_functions<width> functions_of(
    const sine_cosine<width>& at, const typename lanes<width>::bits& n) {
  using l = lanes<width>;
  const auto s = at.s;
  const auto c = at.c;
  // An odd n exchanges sine and cosine; bit 1 of n and of n + 1 are their signs, bit 0 that of 2a.
  const auto swap = (l::as_bits(s) ^ l::as_bits(c)) & -(n & 1);
  const auto sign1 = (n & 2) << 62;
  const auto sign1_cos = ((n + 1) & 2) << 62;
  const auto sign2 = n << 63;
  return {l::as_real((l::as_bits(s) ^ swap) ^ sign1),
          l::as_real((l::as_bits(c) ^ swap) ^ sign1_cos),
          l::as_real(l::as_bits((s + s) * c) ^ sign2),
          l::as_real(l::as_bits(1.0 - (s + s) * s) ^ sign2)};
}

/// All of one angle.
inline angle_functions<1> functions_of(const reduced_angle<1>& angle) {
  return functions_of<1>(sine_cosine_near_0<1>(angle.r), angle.n);
}

}  // namespace gain_fit_mod
