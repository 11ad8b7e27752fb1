#include "data_line.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#include "kbpmfio.hpp"

namespace rawfile {
namespace {

// --- the full scan ----------------------------------------------------------------------------

// One conversion of the format. A width below 0 is none.
struct column_format {
  std::uint32_t base;
  int width;
};
constexpr std::array<column_format, 6> columns_of_format{
    {{10, -1}, {16, 7}, {10, 7}, {10, 7}, {10, 7}, {10, 7}}};

constexpr std::uint32_t no_digit = 99;

std::uint32_t digit_value(char c) {
  const char lower = static_cast<char>(c | 0x20);
  if (c >= '0' && c <= '9') return static_cast<std::uint32_t>(c - '0');
  if (lower >= 'a' && lower <= 'f') return static_cast<std::uint32_t>(lower - 'a' + 10);
  return no_digit;
}

// One number, taken off the front of the line. White space before it does not count as width; a
// sign and the prefix 0x do. The prefix alone is the number 0, as it is in the C library.
bool scan_number(std::string_view& line, column_format format, std::int32_t& number) {
  while (!line.empty() && is_space(line.front())) line.remove_prefix(1);
  const char* at = line.data();
  const char* end = at + line.size();
  if (format.width >= 0 && end - at > format.width) end = at + format.width;

  bool negative = false;
  if (at != end && (*at == '-' || *at == '+')) negative = *at++ == '-';
  bool converts = false;
  if (format.base == 16 && at != end && *at == '0') {
    converts = true;
    ++at;
    if (at != end && (*at == 'x' || *at == 'X')) ++at;
  }
  // The library converts to 64 bits, where the nearest number stands for one that does not fit, and
  // keeps the lower half.
  const std::uint64_t limit = std::uint64_t{INT64_MAX} + (negative ? 1 : 0);
  std::uint64_t value = 0;
  for (; at != end; ++at) {
    const std::uint32_t digit = digit_value(*at);
    if (digit >= format.base) break;
    converts = true;
    const bool beyond = value > (limit - digit) / format.base;
    value = beyond ? limit : (value * format.base) + digit;
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

// Decimal column: a blank, then blanks and digits, right-justified. Sets a bit of `bad` otherwise.
std::int32_t decimal_column(const char* p, std::uint64_t& bad) {
  const std::uint64_t t = eight_at(p) ^ each(0x30);            // digits 0..9, blanks 0x10
  const std::uint64_t blank = ((t & each(0x10)) >> 4) * 0xFF;  // 0xFF where a blank may be
  const std::uint64_t digits = t ^ (t & each(0x10));
  bad |= blank & (blank + 1);                            // blanks stand in front only,
  bad |= (blank ^ 0xFF) & 0xFF;                          // one at least,
  bad |= blank >> 56;                                    // and not in the last place;
  bad |= digits & blank;                                 // they are blanks,
  bad |= (digits | (digits + each(0x76))) & each(0x80);  // and the others digits
  std::uint64_t v = (digits * 10) + (digits >> 8);       // pairs in every second byte
  constexpr std::uint64_t pair = 0x000000FF000000FFU;
  v = ((v & pair) * (100 + (std::uint64_t{1000000} << 32))) +
      (((v >> 16) & pair) * (1 + (std::uint64_t{10000} << 32)));
  return static_cast<std::int32_t>(v >> 32);
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

}  // namespace

int scan_data_line(std::string_view line, data_columns& columns) {
  int converted = 0;
  for (std::size_t k = 0; k < columns.size(); ++k, ++converted) {
    if (!scan_number(line, columns_of_format[k], columns[k])) break;
  }
  return converted;
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
    std::uint64_t bad = eight_at(p) ^ head;
    const std::int32_t phase = phase_column(p + 7, bad);
    const std::int32_t ti = decimal_column(p + 16, bad);
    const std::int32_t bi = decimal_column(p + 25, bad);
    const std::int32_t bo = decimal_column(p + 34, bad);
    const std::int32_t to_ = decimal_column(p + 43, bad);
    // The first of the two blanks between columns, and the line end.
    bad |= static_cast<std::uint64_t>((p[15] ^ ' ') | (p[24] ^ ' ') | (p[33] ^ ' ') |
                                      (p[42] ^ ' ') | (p[51] ^ '\n'));
    if (bad != 0) break;
    to.phase[n] = phase;
    to.reading[0][n] = ti;
    to.reading[1][n] = bi;
    to.reading[2][n] = bo;
    to.reading[3][n] = to_;
  }
  return n;
}

}  // namespace rawfile
