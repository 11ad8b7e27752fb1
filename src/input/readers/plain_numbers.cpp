#include "plain_numbers.hpp"

#include <array>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace input {
namespace {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// The place of the first character that is none of these digits; the number grows by them.
const char* take_digits(const char* at, const char* end, std::uint64_t& number) {
  for (; at != end; ++at) {
    const auto digit = static_cast<unsigned char>(*at - '0');
    if (digit > 9) break;
    number = 10 * number + digit;
  }
  return at;
}

const char* skip_blanks(const char* at, const char* end) {
  while (at != end && is_blank(*at)) ++at;
  return at;
}

void leave(std::string_view& rest, const char* at) {
  rest.remove_prefix(static_cast<std::size_t>(at - rest.data()));
}

// Powers of ten that doubles hold exactly.
constexpr std::array<double, 23> exact_powers{1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                              1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                              1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int largest_power = 22;

// A number in its parts: digits x 10^power.
struct decimal {
  bool negative = false;
  std::uint64_t digits = 0;
  std::ptrdiff_t count = 0;  // of digits: beyond 19 they do not fit
  int power = 0;
};

// Reads the parts; the place behind them, or null for what is not plain.
const char* take_parts(const char* at, const char* end, decimal& parts) {
  parts.negative = at != end && *at == '-';
  if (parts.negative) ++at;
  const char* const first = at;
  at = take_digits(at, end, parts.digits);
  parts.count = at - first;
  if (parts.count == 0) return nullptr;
  if (at != end && *at == '.') {
    const char* const point = at++;
    at = take_digits(at, end, parts.digits);
    parts.power = static_cast<int>(point + 1 - at);
    parts.count -= parts.power;
  }
  if (at == end || is_blank(*at)) return at;
  if (*at != 'e' && *at != 'E') return nullptr;
  ++at;
  const bool down = at != end && *at == '-';
  if (at != end && (*at == '-' || *at == '+')) ++at;
  std::uint64_t size = 0;
  const char* const begin = at;
  at = take_digits(at, end, size);
  // Four digits are beyond every double.
  if (at == begin || at - begin > 3 || (at != end && !is_blank(*at))) return nullptr;
  parts.power += down ? -static_cast<int>(size) : static_cast<int>(size);
  return at;
}

}  // namespace

bool take_plain(std::string_view& rest, double& value) {
  const char* const end = rest.data() + rest.size();
  const char* const begin = skip_blanks(rest.data(), end);
  decimal parts;
  const char* const at = take_parts(begin, end, parts);
  if (at == nullptr) return false;
  constexpr std::uint64_t exact_whole = std::uint64_t{1} << 53;
  if (parts.count <= 19 && parts.digits <= exact_whole && parts.power >= -largest_power &&
      parts.power <= largest_power) {
    // Both factors are exact, so that one rounding gives the double nearest to the text.
    const auto whole = static_cast<double>(parts.digits);
    const double size = parts.power < 0
                            ? whole / exact_powers[static_cast<std::size_t>(-parts.power)]
                            : whole * exact_powers[static_cast<std::size_t>(parts.power)];
    value = parts.negative ? -size : size;
  } else {
    double found = 0;
    if (std::from_chars(begin, at, found).ec != std::errc{}) return false;
    value = found;
  }
  leave(rest, at);
  return true;
}

bool take_plain(std::string_view& rest, std::int32_t& value) {
  const char* const end = rest.data() + rest.size();
  const char* at = skip_blanks(rest.data(), end);
  const bool negative = at != end && *at == '-';
  if (negative) ++at;
  std::uint64_t size = 0;
  const char* const first = at;
  at = take_digits(at, end, size);
  // Nine digits fit 32 bits; more are rare enough for the other way.
  if (at == first || at - first > 9 || (at != end && !is_blank(*at))) return false;
  value = negative ? -static_cast<std::int32_t>(size) : static_cast<std::int32_t>(size);
  leave(rest, at);
  return true;
}

}  // namespace input
