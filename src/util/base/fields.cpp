#include "fields.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace util {
namespace {

// The shortest decimal text of a finite number that is not zero, as 0.d1d2d3... x 10^exponent.
struct decimal {
  std::array<char, 24> digit{};  // '0'..'9'; a double needs 17 at most
  int n = 0;                     // digits held
  int exponent = 0;
};

decimal shortest(double magnitude) {
  std::array<char, 40> text{};  // at most 17 digits, point, e, sign and three digits: 23
  const auto end = std::to_chars(text.data(), text.data() + text.size(), magnitude,
                                 std::chars_format::scientific)
                       .ptr;
  decimal d;
  const char* p = text.data();
  for (; p != end && *p != 'e'; ++p) {
    if (*p != '.') d.digit[static_cast<std::size_t>(d.n++)] = *p;
  }
  int power = 0;
  const bool negative = p[1] == '-';
  std::from_chars(p + 2, end, power);
  d.exponent = (negative ? -power : power) + 1;  // from d.ddd to 0.ddd
  return d;
}

// Keeps the first `keep` digits, rounding half away from zero. A carry out of the first digit
// raises the exponent. keep may be 0 or negative: then 0 digits, or one after a carry, remain.
void round_to(decimal& d, int keep) {
  if (keep >= d.n) return;
  const bool up = keep >= 0 && d.digit[static_cast<std::size_t>(keep)] >= '5';
  d.n = std::max(keep, 0);
  if (!up) return;
  int i = d.n - 1;
  while (i >= 0 && d.digit[static_cast<std::size_t>(i)] == '9') {
    d.digit[static_cast<std::size_t>(i--)] = '0';
  }
  if (i >= 0) {
    ++d.digit[static_cast<std::size_t>(i)];
    return;
  }
  // 9.99 became 10.0: one digit 1, one power more.
  d.digit.fill('0');
  d.digit[0] = '1';
  d.n = std::max(d.n, 1);
  ++d.exponent;
}

char digit_at(const decimal& d, int i) {
  return i >= 0 && i < d.n ? d.digit[static_cast<std::size_t>(i)] : '0';
}

void put_right(std::string& out, std::string_view text, int width) {
  const auto w = static_cast<std::size_t>(width);
  if (text.size() > w) {
    out.append(w, '*');
  } else {
    out.append(w - text.size(), ' ').append(text);
  }
}

// --- the quick way ----------------------------------------------------------------------------
// A number scaled to a whole number of last places needs its exact digits only where it lies
// close to the middle between two of them. Elsewhere the scaled number, three roundings of 1e-16
// away from the shortest text, already tells which one is nearer. Progress lines are made of such
// numbers by the thousand.

constexpr double quick_limit = 1e9;     // last places: they fit 32 bits, and 1e-16 of them is 1e-7
constexpr double middle_margin = 1e-5;  // of a place: far more than the scaling can be wrong

// The nearest whole number of last places, or nothing when the exact digits must decide.
std::optional<std::uint32_t> places(double scaled) {
  if (!(scaled < quick_limit)) return {};
  const auto below = static_cast<std::uint32_t>(scaled);
  const double rest = scaled - below;
  if (std::abs(rest - 0.5) < middle_margin) return {};
  return below + (rest > 0.5 ? 1 : 0);
}

// 10^p, p = -60..60, each the double next to it. 60 covers what the exponent form asks for: sizes
// of 1e-50..1e50, brought to 8 digits.
constexpr int max_quick_power = 60;
constexpr auto powers_of_ten = [] {
  std::array<double, 2 * max_quick_power + 1> power{};
  // In long double the products stay good to 1e-17, far within the margin.
  long double up = 1;
  for (std::size_t p = 0; p <= max_quick_power; ++p, up *= 10) {
    power.at(max_quick_power + p) = static_cast<double>(up);
    power.at(max_quick_power - p) = static_cast<double>(1 / up);
  }
  return power;
}();

double ten_to(int p) {
  const int at = max_quick_power + p;
  return powers_of_ten.at(static_cast<std::size_t>(at));
}

// Text that is written from its end to its front, right-justified in a field.
struct backward_text {
  std::array<char, 64> text{};  // the quick ways write 20 at most
  std::size_t start = 64;
  void put(char c) { text[--start] = c; }
  void put_digits(std::uint32_t n, int digits) {
    for (int i = 0; i < digits; ++i, n /= 10) put(static_cast<char>('0' + n % 10));
  }
  std::string_view view() const { return {text.data() + start, text.size() - start}; }
};

bool put_fixed_quickly(std::string& out, double value, int width, int decimals) {
  if (decimals < 1 || decimals > 9) return false;  // more: all above 0.1 is beyond the limit
  const auto n = places(std::abs(value) * ten_to(decimals));
  if (!n) return false;
  backward_text text;
  std::uint32_t whole = *n;
  for (int i = 0; i < decimals; ++i, whole /= 10) text.put(static_cast<char>('0' + whole % 10));
  text.put('.');
  do text.put(static_cast<char>('0' + whole % 10));
  while ((whole /= 10) != 0);
  if (value < 0) text.put('-');
  put_right(out, text.view(), width);
  return true;
}

bool put_exponent_quickly(std::string& out, double value, int width, int digits) {
  const double size = std::abs(value);
  if (digits < 1 || digits > 8 || !(size > 1e-50 && size < 1e50)) return false;
  // From the binary exponent the decimal one is known but for one more or less: log10(2) = 0.30103.
  int binary = 0;
  std::frexp(size, &binary);
  int power = static_cast<int>(std::floor(binary * 0.30103)) + 1;
  if (size * ten_to(-power) < 0.1) --power;
  auto n = places(size * ten_to(digits - power));
  if (!n) return false;
  const auto full = static_cast<std::uint32_t>(ten_to(digits));
  if (*n >= full) {
    // 0.99999 rounds up to the next power: 0.1000 of it.
    if (*n > full) return false;  // the estimate was one power off: the exact way decides
    n = full / 10;
    ++power;
  }
  if (*n < full / 10) return false;
  backward_text text;
  text.put_digits(static_cast<std::uint32_t>(std::abs(power)), 2);
  text.put(power < 0 ? '-' : '+');
  text.put('D');
  text.put_digits(*n, digits);
  text.put('.');
  text.put('0');
  if (value < 0) text.put('-');
  put_right(out, text.view(), width);
  return true;
}

// --- the usual field ----------------------------------------------------------------------------
// 12 columns, 4 digits: all tables of orbits, by the million. Written in place, over a template.

// "00" to "99": a division and a copy give two digits at once.
constexpr auto digit_pairs = [] {
  std::array<char, 200> text{};
  for (std::size_t i = 0; i < 100; ++i) {
    text.at(2 * i) = static_cast<char>('0' + i / 10);
    text.at(2 * i + 1) = static_cast<char>('0' + i % 10);
  }
  return text;
}();

void write_pair(char* at, std::uint32_t n) {
  std::memcpy(at, digit_pairs.data() + std::size_t{2} * n, 2);
}

void write_four(char* at, std::uint32_t n) {
  write_pair(at, n / 100);
  write_pair(at + 2, n % 100);
}

constexpr std::uint32_t four_places = 10000;  // real_digits of them

// What the exponent form shows of a number: 0.nnnn x 10^power.
struct four_digits {
  std::uint32_t n = 0;  // 1000..9999
  int power = 0;
};

// The four digits of a size between 1e-50 and 1e50, or nothing when the exact digits must decide.
std::optional<four_digits> four_digits_of(double size) {
  // The decimal exponent from the binary one: log10(2) = 1233/4096 to seven digits. It may come out
  // one too high, which the comparison tells.
  constexpr int mantissa_bits = 52;
  constexpr int bias = 1022;  // of numbers written as 0.1..., in binary
  const int binary = static_cast<int>(std::bit_cast<std::uint64_t>(size) >> mantissa_bits) - bias;
  int power = (binary * 1233 >> 12) + 1;
  if (size < ten_to(power - 1)) --power;
  const double scaled = size * ten_to(real_digits - power);
  const auto below = static_cast<std::uint32_t>(scaled);
  const double rest = scaled - below;
  if (std::abs(rest - 0.5) < middle_margin) return {};
  const std::uint32_t n = below + (rest > 0.5 ? 1 : 0);
  // 0.99999 rounds up to the next power: 0.1000 of it.
  if (n == four_places) return four_digits{four_places / 10, power + 1};
  if (n < four_places / 10 || n > four_places) return {};
  return four_digits{n, power};
}

// The slow ways make a text: all numbers pass them that are rare or hard.
char* copied(char* at, const std::string& text) { return std::copy(text.begin(), text.end(), at); }

// NaN and Infinity; returns whether it was one of them.
bool put_not_finite(std::string& out, double value, int width) {
  if (std::isnan(value)) {
    put_right(out, "NaN", width);
    return true;
  }
  if (std::isinf(value)) {
    const bool narrow = width < 9;  // "-Infinity" has nine: both signs change words together
    put_right(out, value < 0 ? (narrow ? "-Inf" : "-Infinity") : (narrow ? "Inf" : "Infinity"),
              width);
    return true;
  }
  return false;
}

}  // namespace

char* write_fixed(char* at, double value) {
  const auto n = places(std::abs(value) * four_places);
  if (!n || *n >= 10 * four_places) {
    std::string text;
    put_fixed(text, value);
    return copied(at, text);
  }
  std::memcpy(at, "      0.0000", real_width);
  if (value < 0) at[5] = '-';
  at[6] = static_cast<char>('0' + *n / four_places);
  write_four(at + 8, *n % four_places);
  return at + real_width;
}

char* write_exponent(char* at, double value) {
  const double size = std::abs(value);
  // Of a table's empty places: exactly zero.
  if (size == 0) {
    std::memcpy(at, "  0.0000D+00", real_width);
    return at + real_width;
  }
  const auto shown = size > 1e-50 && size < 1e50 ? four_digits_of(size) : std::nullopt;
  if (!shown) {
    std::string text;
    put_exponent(text, value);
    return copied(at, text);
  }
  std::memcpy(at, "  0.0000D+00", real_width);
  if (value < 0) at[1] = '-';
  write_four(at + 4, shown->n);
  if (shown->power < 0) at[9] = '-';
  write_pair(at + 10, static_cast<std::uint32_t>(std::abs(shown->power)));
  return at + real_width;
}

void put_fixed(std::string& out, double value, int width, int decimals) {
  if (put_fixed_quickly(out, value, width, decimals)) return;
  if (put_not_finite(out, value, width)) return;
  decimal d;
  if (value != 0) {
    d = shortest(std::abs(value));
    round_to(d, d.exponent + decimals);
  }
  std::string text;
  if (value < 0) text += '-';
  // More places before the point than columns: asterisks, without writing up to 309 digits first.
  if (value != 0 && d.exponent > width) {
    put_right(out, std::string(static_cast<std::size_t>(width) + 1, '*'), width);
    return;
  }
  if (d.exponent <= 0 || d.n == 0) text += '0';
  for (int i = 0; i < d.exponent && d.n > 0; ++i) text += digit_at(d, i);
  text += '.';
  for (int i = 0; i < decimals; ++i) text += digit_at(d, (d.n > 0 ? d.exponent : 0) + i);
  put_right(out, text, width);
}

void put_exponent(std::string& out, double value, int width, int digits) {
  if (put_exponent_quickly(out, value, width, digits)) return;
  if (put_not_finite(out, value, width)) return;
  decimal d;
  if (value != 0) {
    d = shortest(std::abs(value));
    round_to(d, digits);
  }
  std::string text = value < 0 ? "-0." : "0.";
  for (int i = 0; i < digits; ++i) text += digit_at(d, i);
  const int power = value != 0 ? d.exponent : 0;
  const std::string size = std::to_string(std::abs(power));
  if (size.size() < 3) text += 'D';  // three digits take the letter's column
  text += power < 0 ? '-' : '+';
  if (size.size() < 2) text += '0';
  text += size;
  put_right(out, text, width);
}

void put_integer(std::string& out, long long value, int width) {
  put_right(out, std::to_string(value), width);
}

void put_text(std::string& out, std::string_view text, int width) {
  put_right(out, text.substr(0, static_cast<std::size_t>(width)), width);
}

void put_blanks(std::string& out, int n) { out.append(static_cast<std::size_t>(n), ' '); }

void put_padded(std::string& out, std::string_view text, int width) {
  const std::string_view kept = text.substr(0, static_cast<std::size_t>(width));
  out.append(kept).append(static_cast<std::size_t>(width) - kept.size(), ' ');
}

}  // namespace util
