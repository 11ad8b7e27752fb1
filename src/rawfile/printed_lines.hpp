// Lines printed with the data format, in words of eight characters, first character lowest: what the
// forms for different processors share. On other machines (big-endian) nobody comes here.
#pragma once
#include <cstdint>
#include <cstring>

#include "data_line.hpp"

namespace rawfile {

constexpr std::uint64_t each(std::uint64_t byte) { return byte * 0x0101010101010101U; }

inline std::uint64_t eight_at(const char* p) {
  std::uint64_t word = 0;
  std::memcpy(&word, p, sizeof word);
  return word;
}

/// Eight hexadecimal digits, lower case. Sets a bit of `bad` for anything else.
inline std::int32_t hexadecimal_value(std::uint64_t text, std::uint64_t& bad) {
  const std::uint64_t letter = (text >> 6) & each(0x01);
  const std::uint64_t t = text - (letter * ('a' - '9' - 1));  // letters behind the digits: 0x3A..3F
  bad |= (t & each(0xF0)) ^ each(0x30);
  bad |= ((t + each(0x80 - 0x3A)) ^ (letter << 7)) & each(0x80);  // there, but nothing else is
  const std::uint64_t value = t & each(0x0F);
  std::uint64_t v = ((value << 4) | (value >> 8)) & 0x00FF00FF00FF00FFU;
  v = ((v << 8) | (v >> 16)) & 0x0000FFFF0000FFFFU;
  return static_cast<std::int32_t>(static_cast<std::uint32_t>((v << 16) | (v >> 32)));
}

/// The phase word of a printed line. The first of the eight characters is the head's last blank.
inline std::int32_t printed_phase(const char* p, std::uint64_t& bad) {
  return hexadecimal_value((eight_at(p + 7) & ~std::uint64_t{0xFF}) | '0', bad);
}

inline std::uint16_t two_at(const char* p) {
  std::uint16_t word = 0;
  std::memcpy(&word, p, sizeof word);
  return word;
}

/// 0 where two blanks stand between the columns of a printed line, and the line end behind them.
inline std::uint64_t between_columns(const char* p) {
  constexpr std::uint16_t blanks = 0x2020;
  return static_cast<std::uint64_t>((two_at(p + 15) ^ blanks) | (two_at(p + 24) ^ blanks) |
                                    (two_at(p + 33) ^ blanks) | (two_at(p + 42) ^ blanks) |
                                    (p[51] ^ '\n'));
}

/// The lines as take_printed_lines takes them, one after the other from p on, `lines` at most; head
/// is what the first eight characters of each must be.
/// returns  how many, up to the first that does not fit
std::size_t printed_lines_plain(const char* p, std::uint64_t head, std::size_t lines,
                                const column_places& to);
#ifdef __x86_64__
/// The same with instructions that not every processor has.
std::size_t printed_lines_avx2(const char* p, std::uint64_t head, std::size_t lines,
                               const column_places& to);
#endif

}  // namespace rawfile
