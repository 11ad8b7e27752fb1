#include "sine_pair.hpp"

#include <array>
#include <bit>
#include <cmath>
#include <limits>

namespace gain_fit_mod {
namespace {

// 2/pi after its binary point, 64 bits an item: enough for the largest argument.
constexpr std::array<std::uint64_t, 20> two_over_pi{
    0xA2F9836E4E441529, 0xFC2757D1F534DDC0, 0xDB6295993C439041, 0xFE5163ABDEBBC561,
    0xB7246E3A424DD2E0, 0x06492EEA09D1921C, 0xFE1DEB1CB129A73E, 0xE88235F52EBB4484,
    0xE99C7026B45F7E41, 0x3991D639835339F4, 0x9C845F8BBDF9283B, 0x1FF897FFDE05980F,
    0xEF2F118B5A0A6D1F, 0x6D367ECF27CB09B7, 0x4F463F669E5FEA2D, 0x7527BAC7EBE5F17B,
    0x3D0739F78A5292EA, 0x6BFB5FB11F8D5D08, 0x56033046FC7B6BAB, 0xF0CFBC209AF4361D};

// 64 bits of 2/pi from bit `from` on; bit 0 is the first after the point, zeros stand before it.
std::uint64_t bits_from(int from) {
  const int shift = from & 63;
  const int item = (from - shift) / 64;
  const auto at = [](int i) {
    return i < 0 || i >= static_cast<int>(two_over_pi.size())
               ? 0
               : two_over_pi.at(static_cast<std::size_t>(i));
  };
  return shift == 0 ? at(item) : (at(item) << shift) | (at(item + 1) >> (64 - shift));
}

__extension__ using wide = unsigned __int128;

}  // namespace

reduced_angle<1> far_reduction(double a) {
  using l = lanes<1>;
  if (!std::isfinite(a)) return {l::real{std::numeric_limits<double>::quiet_NaN()}, l::bits{0}};

  // |a| = mantissa x 2^exponent. Bits of 2/pi that make multiples of 4 in the product are left
  // out; of the rest 192 bits are taken, and of the product the lowest 192: two bits before the
  // point, which are the quadrant, and 190 after it.
  int exponent = 0;
  const double fraction = std::frexp(std::abs(a), &exponent);
  const auto mantissa = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
  exponent -= 53;
  const int first = exponent - 2;
  const wide low = wide{mantissa} * bits_from(first + 128);
  const wide middle = (wide{mantissa} * bits_from(first + 64)) + (low >> 64);
  const std::uint64_t high =
      (mantissa * bits_from(first)) + static_cast<std::uint64_t>(middle >> 64);

  // The nearest quadrant, and what remains as a signed fraction of one: 126 bits of it serve.
  wide rest = ((wide{high} << 64) | static_cast<std::uint64_t>(middle)) << 2;
  std::uint64_t n = high >> 62;
  const bool below = (rest >> 127) != 0;
  if (below) {
    ++n;
    rest = -rest;
  }
  const auto upper = static_cast<std::uint64_t>(rest >> 64);
  const int zeros = std::countl_zero(upper);
  rest <<= zeros;
  const double size =
      std::ldexp(static_cast<double>(static_cast<std::uint64_t>(rest >> 64)), -64 - zeros);
  const double r = size * 0x1.921fb54442d18p+0;
  const bool negative = std::signbit(a) != below;
  return {l::real{negative ? -r : r}, l::bits{static_cast<std::int64_t>(std::signbit(a) ? -n : n)}};
}

}  // namespace gain_fit_mod
