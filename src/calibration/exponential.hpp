// The exponential, and a logarithm made of it: additions, multiplications and divisions in a fixed
// order. The C library's have other last bits on processors with and without fused multiply-add, and
// a calibration must not depend on its processor.
#pragma once
#include <bit>
#include <cmath>
#include <cstdint>

namespace calibration {

/// given    a  held within +-700
/// returns  its exponential, to one unit of the last place
inline double exponential(double a) {
  constexpr double most = 700;
  a = a < -most ? -most : a;
  a = a > most ? most : a;
  // a = n ln 2 + r: adding 1.5 x 2^52 rounds to a whole number, which then stands in the last bits.
  constexpr double whole = 0x1.8p52;
  const double turns = a * 0x1.71547652b82fep+0 + whole;
  const double n = turns - whole;
  const double r = (a - n * 0x1.62e42feep-1) - n * 0x1.a39ef35793c76p-33;
  const double rr = r * r;
  // The exponential's own series, in pairs that do not wait for one another.
  const double low = (1.0 / 2 + r * (1.0 / 6)) + rr * (1.0 / 24 + r * (1.0 / 120));
  const double middle = (1.0 / 720 + r * (1.0 / 5040)) + rr * (1.0 / 40320 + r * (1.0 / 362880));
  const double high =
      (1.0 / 3628800 + r * (1.0 / 39916800)) + rr * (1.0 / 479001600 + r * (1.0 / 6227020800));
  const double r4 = rr * rr;
  const double value = 1 + (r + rr * (low + r4 * (middle + r4 * high)));
  const auto power = (std::bit_cast<std::int64_t>(turns) + 1023) << 52;
  return value * std::bit_cast<double>(power);
}

/// given    a  positive
/// returns  its logarithm, to a few units of the last place
inline double logarithm(double a) {
  int power = 0;
  const double fraction = std::frexp(a, &power);  // 1/2 to 1
  double value = power * 0x1.62e42fefa39efp-1 + 2 * (fraction - 1) / (fraction + 1);
  // Off by 0.03 at most; each round leaves a twelfth of the error's third power.
  for (int round = 0; round < 2; ++round) {
    const double there = exponential(value);
    value += 2 * (a - there) / (a + there);
  }
  return value;
}

}  // namespace calibration
