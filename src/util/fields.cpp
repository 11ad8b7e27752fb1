#include "fields.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdlib>

namespace util {
namespace {

// The shortest decimal text of a finite number that is not zero, as 0.d1d2d3... x 10^exponent.
struct decimal {
  std::array<char, 24> digit{};  // '0'..'9'
  int n = 0;                     // digits held
  int exponent = 0;
};

decimal shortest(double magnitude) {
  std::array<char, 40> text{};
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
  d.exponent = (negative ? -power : power) + 1;
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

// NaN and Infinity; returns whether it was one of them.
bool put_not_finite(std::string& out, double value, int width) {
  if (std::isnan(value)) {
    put_right(out, "NaN", width);
    return true;
  }
  if (std::isinf(value)) {
    const bool narrow = width < 9;
    put_right(out, value < 0 ? (narrow ? "-Inf" : "-Infinity") : (narrow ? "Inf" : "Infinity"),
              width);
    return true;
  }
  return false;
}

}  // namespace

void put_fixed(std::string& out, double value, int width, int decimals) {
  if (put_not_finite(out, value, width)) return;
  decimal d;
  if (value != 0) {
    d = shortest(std::abs(value));
    round_to(d, d.exponent + decimals);
  }
  std::string text;
  if (value < 0) text += '-';
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
  if (size.size() < 3) text += 'D';
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
