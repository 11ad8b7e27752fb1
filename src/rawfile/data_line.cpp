#include "data_line.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#include "kbpmfio.hpp"

namespace rawfile {
namespace {

// --- the full scan ----------------------------------------------------------------------------

constexpr std::uint32_t no_digit = 99;

std::uint32_t digit_value(char c) {
  const char lower = static_cast<char>(c | 0x20);
  if (c >= '0' && c <= '9') return static_cast<std::uint32_t>(c - '0');
  if (lower >= 'a' && lower <= 'f') return static_cast<std::uint32_t>(lower - 'a' + 10);
  return no_digit;
}

// The library converts to 64 bits, where the nearest number stands for one that does not fit, and
// keeps the lower half.
std::uint64_t next_value(std::uint64_t value, std::uint32_t base, std::uint32_t digit,
                         std::uint64_t limit) {
  const bool beyond = value > (limit - digit) / base;
  return beyond ? limit : (value * base) + digit;
}

// One number, taken off the front of the line. White space before it does not count as width; a
// sign and the prefix 0x do. The prefix alone is the number 0, as it is in the C library. Width 0:
// none.
template <std::uint32_t base, std::ptrdiff_t width>
bool scan_number(std::string_view& line, std::int32_t& number) {
  const char* at = line.data();
  const char* end = at + line.size();
  while (at != end && is_space(*at)) ++at;
  if (width > 0 && end - at > width) end = at + width;

  bool negative = false;
  if (at != end && (*at == '-' || *at == '+')) negative = *at++ == '-';
  bool converts = false;
  if (base == 16 && at != end && *at == '0') {
    converts = true;
    ++at;
    if (at != end && (*at == 'x' || *at == 'X')) ++at;
  }
  const std::uint64_t limit = std::uint64_t{INT64_MAX} + (negative ? 1 : 0);
  std::uint64_t value = 0;
  for (; at != end; ++at) {
    const std::uint32_t digit = digit_value(*at);
    if (digit >= base) break;
    converts = true;
    // With a width no number is too long for 64 bits.
    value = width > 0 ? (value * base) + digit : next_value(value, base, digit, limit);
  }
  line.remove_prefix(static_cast<std::size_t>(at - line.data()));
  if (!converts) return false;
  const auto low = static_cast<std::uint32_t>(value);
  number = static_cast<std::int32_t>(negative ? 0U - low : low);
  return true;
}

// --- the usual columns ------------------------------------------------------------------------
//
// Eight characters at a time in a 64-bit word, first character lowest; every byte of the line is
// tested, and the tests of a line end in one branch.

constexpr std::uint64_t each(std::uint64_t byte) { return byte * 0x0101010101010101U; }

std::uint64_t eight_at(const char* p) {
  std::uint64_t word = 0;
  std::memcpy(&word, p, sizeof word);
  return word;
}

// Decimal column: a blank, then blanks and digits, right-justified; with signs also a minus in
// front of the digits. Sets a bit of `bad` otherwise.
template <bool with_signs>
std::int32_t decimal_column(const char* p, std::uint64_t& bad) {
  std::uint64_t t = eight_at(p) ^ each(0x30);  // digits 0..9, blanks 0x10, a minus 0x1D
  std::uint64_t minus = 0;                     // 0xFF at a minus
  if constexpr (with_signs) {
    const std::uint64_t other = t ^ each(0x1D);
    const std::uint64_t same = ~(((other & each(0x7F)) + each(0x7F)) | other) & each(0x80);
    minus = (same >> 7) * 0xFF;
    t ^= minus & each(0x0D);  // from here on it is a blank
  }
  const std::uint64_t blank = ((t & each(0x10)) >> 4) * 0xFF;  // 0xFF where a blank may be
  const std::uint64_t digits = t ^ (t & each(0x10));
  bad |= minus & (0xFF | ~(blank ^ (blank >> 8)));       // a minus is the last of the blanks,
  bad |= blank & (blank + 1);                            // blanks stand in front only,
  bad |= (blank ^ 0xFF) & 0xFF;                          // one at least,
  bad |= blank >> 56;                                    // and not in the last place;
  bad |= digits & blank;                                 // they are blanks,
  bad |= (digits | (digits + each(0x76))) & each(0x80);  // and the others digits
  std::uint64_t v = (digits * 10) + (digits >> 8);       // pairs in every second byte
  constexpr std::uint64_t pair = 0x000000FF000000FFU;
  v = ((v & pair) * (100 + (std::uint64_t{1000000} << 32))) +
      (((v >> 16) & pair) * (1 + (std::uint64_t{10000} << 32)));
  const auto number = static_cast<std::int32_t>(v >> 32);
  return minus == 0 ? number : -number;
}

// The phase word: a blank, then seven hexadecimal digits, lower case.
std::int32_t phase_column(const char* p, std::uint64_t& bad) {
  const std::uint64_t text = eight_at(p);
  bad |= (text & 0xFF) ^ ' ';
  const std::uint64_t t = (text & ~std::uint64_t{0xFF}) | '0';
  const std::uint64_t letter = (t >> 6) & each(0x01);
  const std::uint64_t low = t & each(0x0F);
  bad |= (t & each(0xF0)) ^ (each(0x30) + (letter * 0x30));  // 0x3_ or 0x6_
  const std::uint64_t value = low + (letter * 9);
  bad |= value & each(0xF0);  // nothing above f
  // A letter is a or above, a digit 9 or below.
  bad |= ((low + (letter * 0x0F) + ((each(0x01) - letter) * 6)) & each(0x10)) ^ (letter << 4);
  std::uint64_t v = ((value << 4) | (value >> 8)) & 0x00FF00FF00FF00FFU;
  v = ((v << 8) | (v >> 16)) & 0x0000FFFF0000FFFFU;
  return static_cast<std::int32_t>(static_cast<std::uint32_t>((v << 16) | (v >> 32)));
}

// One printed line whose first eight characters are `head`. Returns 0 when it is one, and then
// the phase word and the readings.
template <bool with_signs>
std::uint64_t printed_columns(const char* p, std::uint64_t head, std::array<std::int32_t, 5>& v) {
  std::uint64_t bad = eight_at(p) ^ head;
  v[0] = phase_column(p + 7, bad);
  v[1] = decimal_column<with_signs>(p + 16, bad);
  v[2] = decimal_column<with_signs>(p + 25, bad);
  v[3] = decimal_column<with_signs>(p + 34, bad);
  v[4] = decimal_column<with_signs>(p + 43, bad);
  // The first of the two blanks between columns, and the line end.
  return bad | static_cast<std::uint64_t>((p[15] ^ ' ') | (p[24] ^ ' ') | (p[33] ^ ' ') |
                                          (p[42] ^ ' ') | (p[51] ^ '\n'));
}

}  // namespace

int scan_data_line(std::string_view line, data_columns& columns) {
  if (!scan_number<10, 0>(line, columns[0])) return 0;
  if (!scan_number<16, 7>(line, columns[1])) return 1;
  for (std::size_t k = 2; k < columns.size(); ++k) {
    if (!scan_number<10, 7>(line, columns[k])) return static_cast<int>(k);
  }
  return static_cast<int>(columns.size());
}

std::size_t take_printed_lines(std::string_view text, std::int32_t block, std::size_t most,
                               const column_places& to) {
  if constexpr (std::endian::native != std::endian::little) return 0;
  const std::size_t lines = std::min(most, text.size() / printed_line);
  const std::uint64_t head = (each(' ') & ~std::uint64_t{0xFF}) |
                             static_cast<std::uint64_t>('0' + static_cast<char>(block));
  const char* p = text.data();
  std::size_t n = 0;
  for (; n < lines; ++n, p += printed_line) {
    std::array<std::int32_t, 5> v;  // NOLINT(*-member-init): set before it is read
    // Signs are rare, and looking for them costs.
    if (printed_columns<false>(p, head, v) != 0 && printed_columns<true>(p, head, v) != 0) break;
    to.phase[n] = v[0];
    for (std::size_t card = 0; card < 4; ++card) to.reading[card][n] = v[card + 1];
  }
  return n;
}

}  // namespace rawfile
