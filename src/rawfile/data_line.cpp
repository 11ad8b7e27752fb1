#include "data_line.hpp"

#include <algorithm>
#include <bit>

#include "kbpmfio.hpp"  // is_space
#include "printed_lines.hpp"

namespace rawfile {
namespace {

// --- the full scan ----------------------------------------------------------------------------

constexpr std::uint32_t no_digit = 99;

std::uint32_t digit_value(char c) {
  const char lower = static_cast<char>(c | 0x20);  // the bit in which the two cases differ
  if (c >= '0' && c <= '9') return static_cast<std::uint32_t>(c - '0');
  if (lower >= 'a' && lower <= 'f') return static_cast<std::uint32_t>(lower - 'a' + 10);
  return no_digit;
}

// The library converts to 64 bits, where the nearest number stands for one that does not fit, and
// keeps the lower half.
std::uint64_t next_value(std::uint64_t value, std::uint32_t base, std::uint32_t digit,
                         std::uint64_t limit) {
  // Before the product, which could wrap round to something small.
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
  // Where the library's 64-bit numbers end, which is one further below zero than above.
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

// --- numbers out of 64-bit words --------------------------------------------------------------
//
// Eight characters at a time, first character lowest.

// High bits where a byte, an exclusive-or with '0', is no decimal digit. Right up to the first of
// them: its carry may spoil those behind.
// 0x76 carries 10 and more into the high bit; what has it already is none either.
std::uint64_t no_digits(std::uint64_t digits) { return digits | (digits + each(0x76)); }

// Eight digits 0..9: neighbours become pairs, and one product with two shifted powers of ten adds
// up two pairs at once.
std::int32_t decimal_value(std::uint64_t digits) {
  std::uint64_t v = (digits * 10) + (digits >> 8);  // pairs in every second byte
  constexpr std::uint64_t pair = 0x000000FF000000FFU;
  v = ((v & pair) * (100 + (std::uint64_t{1000000} << 32))) +
      (((v >> 16) & pair) * (1 + (std::uint64_t{10000} << 32)));
  return static_cast<std::int32_t>(v >> 32);
}

// --- the usual columns ------------------------------------------------------------------------
//
// Every byte of the line is tested, and the tests of a line end in one branch.

struct column_faults {
  std::uint64_t bad = 0;       // a bit for anything wrong
  std::uint64_t high = 0;      // high bits at what should be digits and is not
  std::uint64_t last = ~0ULL;  // bit 0x10 of each column's last character: a digit
};

// Decimal column: blanks, at most one minus behind them, digits up to the last place. That the
// first character is a blank is tested with what stands between the columns.
std::int32_t decimal_column(const char* p, column_faults& fault) {
  const std::uint64_t text = eight_at(p);
  const std::uint64_t with_bit = text & each(0x10);  // digits have this bit, blank and minus not
  const std::uint64_t first = with_bit & (0 - with_bit);
  const std::uint64_t in_front = (first >> 4) - 1;  // 0xFF before the first digit
  const std::uint64_t digits = (text ^ each('0')) & ~in_front;
  fault.high |= no_digits(digits);
  fault.last &= text;
  const std::uint64_t odd = (text ^ each(' ')) & in_front;
  const std::uint64_t sign = odd == 0 ? 0 : (first >> 12) * (' ' ^ '-');
  fault.bad |= odd ^ sign;
  const std::int32_t number = decimal_value(digits);
  return odd == 0 ? number : -number;
}

// One printed line whose first eight characters are `head`; false when it is none.
bool printed_columns(const char* p, std::uint64_t head, std::array<std::int32_t, 5>& v) {
  column_faults fault;
  fault.bad = eight_at(p) ^ head;
  v[0] = printed_phase(p, fault.bad);
  for (std::size_t card = 0; card < 4; ++card) {
    v[card + 1] = decimal_column(p + 16 + (9 * card), fault);
  }
  fault.bad |= between_columns(p);
  fault.bad |= (fault.high & each(0x80)) | (~fault.last & (std::uint64_t{0x10} << 56));
  return fault.bad == 0;
}

// --- other columns ----------------------------------------------------------------------------
//
// Six plain numbers, white space between them, none wider than its column: then the widths split
// nothing. Every line is known to have plain_window characters behind its start, so the reader
// looks at whole words and where the text ends need not be asked.

// A line of the usual columns has 52 characters; twice that and more is left to the full scan.
constexpr std::ptrdiff_t longest_plain_line = 128;

constexpr bool is_gap(char c) { return c == ' ' || c == '\t' || c == '\r'; }
constexpr bool ends_number(char c) { return is_gap(c) || c == '\n'; }

// Moves over white space; at `limit` or a few characters behind it, it stops anywhere.
const char* behind_gap(const char* p, const char* limit) {
  while (p < limit) {
    p += std::countr_zero(eight_at(p) ^ each(' ')) / 8;
    if (!is_gap(*p)) break;
    ++p;
  }
  return p;
}

bool take_plain_decimal(const char*& p, std::int32_t& number) {
  const bool negative = *p == '-';
  const int sign = negative || *p == '+' ? 1 : 0;
  p += sign;
  const std::uint64_t text = eight_at(p) ^ each('0');
  const int digits = std::countr_zero(no_digits(text) & each(0x80)) / 8;
  if (digits == 0 || digits + sign > 7 || !ends_number(p[digits])) return false;
  p += digits;
  const std::int32_t value = decimal_value(text << (64 - 8 * digits));
  number = negative ? -value : value;
  return true;
}

bool take_plain_hexadecimal(const char*& p, std::int32_t& number) {
  const std::uint64_t text = eight_at(p);
  // White space has neither of the two bits that digits and letters have.
  const int digits = std::countr_zero(~((text >> 4) | (text >> 6)) & each(0x01)) / 8;
  if (digits == 0 || digits > 7 || !ends_number(p[digits])) return false;
  p += digits;
  const int unused = 64 - 8 * digits;
  const std::uint64_t t = (text << unused) | (each('0') >> (64 - unused));
  std::uint64_t bad = 0;
  number = hexadecimal_value(t | ((t >> 1) & each(0x20)), bad);  // in lower case
  return bad == 0;
}

// Returns the start of the next line, or null when this one is not plain.
const char* plain_columns(const char* p, char block, std::array<std::int32_t, 5>& v) {
  const char* const limit = p + longest_plain_line;
  p = behind_gap(p, limit);
  if (p[0] != block || !is_gap(p[1])) return nullptr;
  p = behind_gap(p + 1, limit);
  if (!take_plain_hexadecimal(p, v[0])) return nullptr;
  for (std::size_t k = 1; k < v.size(); ++k) {
    p = behind_gap(p, limit);
    if (!take_plain_decimal(p, v[k])) return nullptr;
  }
  p = behind_gap(p, limit);
  return *p == '\n' ? p + 1 : nullptr;
}

void store(const std::array<std::int32_t, 5>& v, std::size_t n, const column_places& to) {
  to.phase[n] = v[0];
  for (std::size_t card = 0; card < 4; ++card) to.reading[card][n] = v[card + 1];
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

std::size_t printed_lines_plain(const char* p, std::uint64_t head, std::size_t lines,
                                const column_places& to) {
  for (std::size_t n = 0; n < lines; ++n, p += printed_line) {
    std::array<std::int32_t, 5> v;  // NOLINT(*-member-init): set before it is read
    if (!printed_columns(p, head, v)) return n;
    store(v, n, to);
  }
  return lines;
}

std::size_t take_printed_lines(std::string_view text, std::int32_t block, std::size_t most,
                               const column_places& to) {
  // The words have their first character lowest. Elsewhere every line gets the full scan.
  if constexpr (std::endian::native != std::endian::little) return 0;
  const std::size_t lines = std::min(most, text.size() / printed_line);
  // The block's digit and seven blanks. A line of another block fails like any odd line: whoever
  // reads on then sees the new block.
  const std::uint64_t head = (each(' ') & ~std::uint64_t{0xFF}) |
                             static_cast<std::uint64_t>('0' + static_cast<char>(block));
#ifdef __x86_64__
  static const bool side_by_side = __builtin_cpu_supports("avx2") != 0;
  if (side_by_side) return printed_lines_avx2(text.data(), head, lines, to);
#endif
  return printed_lines_plain(text.data(), head, lines, to);
}

plain_lines take_plain_lines(std::string_view text, std::int32_t block, std::size_t most,
                             const column_places& to) {
  if constexpr (std::endian::native != std::endian::little) return {};
  const char* p = text.data();
  const char* const end = p + text.size();
  const char digit = static_cast<char>('0' + block);
  std::size_t n = 0;
  while (n < most && static_cast<std::size_t>(end - p) >= plain_window) {
    std::array<std::int32_t, 5> v;  // NOLINT(*-member-init): set before it is read
    const char* const next = plain_columns(p, digit, v);
    if (next == nullptr) break;
    store(v, n++, to);
    p = next;
  }
  return {n, static_cast<std::size_t>(p - text.data())};
}

}  // namespace rawfile
