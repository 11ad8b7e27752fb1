// Printed lines on x86-64 processors with AVX2: the four readings of a line side by side, a column in
// each 64-bit lane. Only these procedures are compiled for them; they run when the processor was
// asked.
#include "printed_lines.hpp"

#ifdef __x86_64__
#include <immintrin.h>

namespace rawfile {
namespace {

// Columns as they were printed: blanks, at most one minus behind them, digits up to the last place.
// The tests are those of the plain form, lane by lane.
struct four_columns {
  __m128i low, high;  // cards 0 and 1, cards 2 and 3, in the first two places of each
  bool good;
};

[[gnu::target("avx2")]] inline four_columns columns_at(const char* p) {
  // Cards 0 and 1 end at p + 24 and p + 33, 2 and 3 18 characters on. The first character of every
  // column is one of the blanks between them, which the caller tests: any blank can stand for it.
  const auto* const first = reinterpret_cast<const __m128i*>(p + 17);
  const auto* const second = reinterpret_cast<const __m128i*>(p + 35);
  const __m256i both = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(first)),
                                               _mm_loadu_si128(second), 1);
  const __m256i places = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(-1, 0, 1, 2, 3, 4, 5, 6, -1, 9, 10, 11, 12, 13, 14, 15));
  const __m256i text = _mm256_or_si256(_mm256_shuffle_epi8(both, places), _mm256_set1_epi64x(' '));

  const __m256i zero = _mm256_setzero_si256();
  const __m256i ones = _mm256_cmpeq_epi8(zero, zero);
  const __m256i with_bit = _mm256_and_si256(text, _mm256_set1_epi8(0x10));
  const __m256i begin = _mm256_and_si256(with_bit, _mm256_sub_epi64(zero, with_bit));
  const __m256i in_front = _mm256_add_epi64(_mm256_srli_epi64(begin, 4), ones);
  const __m256i digits =
      _mm256_andnot_si256(in_front, _mm256_xor_si256(text, _mm256_set1_epi8('0')));
  // The high bit of each byte that is no digit; of each lane whose last character may be one.
  const int wrong = _mm256_movemask_epi8(
      _mm256_or_si256(digits, _mm256_add_epi8(digits, _mm256_set1_epi8(0x76))));
  const int ended = _mm256_movemask_pd(_mm256_castsi256_pd(_mm256_slli_epi64(with_bit, 3)));

  const __m256i odd = _mm256_and_si256(_mm256_xor_si256(text, _mm256_set1_epi8(' ')), in_front);
  // What a minus in front of the first digit leaves of blanks.
  const __m256i minus =
      _mm256_mullo_epi16(_mm256_srli_epi64(begin, 12), _mm256_set1_epi16(' ' ^ '-'));
  const __m256i no_sign = _mm256_cmpeq_epi64(odd, zero);
  const __m256i plain = _mm256_or_si256(no_sign, _mm256_cmpeq_epi64(odd, minus));
  const int fronts = _mm256_movemask_pd(_mm256_castsi256_pd(plain));

  // Pairs of digits, then of pairs; the products of bytes need the digits as the unsigned ones.
  const __m256i pairs = _mm256_maddubs_epi16(digits, _mm256_set1_epi16(0x010A));
  const __m256i fours = _mm256_madd_epi16(pairs, _mm256_set1_epi32((1 << 16) + 100));
  const __m256i value =
      _mm256_madd_epi16(_mm256_packus_epi32(fours, fours), _mm256_set1_epi32((1 << 16) + 10000));
  const __m256i negative =
      _mm256_shuffle_epi32(_mm256_xor_si256(no_sign, ones), _MM_SHUFFLE(2, 0, 2, 0));
  const __m256i number = _mm256_sub_epi32(_mm256_xor_si256(value, negative), negative);
  return {_mm256_castsi256_si128(number), _mm256_extracti128_si256(number, 1),
          wrong == 0 && ended == 15 && fronts == 15};
}

}  // namespace

[[gnu::target("avx2")]] std::size_t printed_lines_avx2(const char* p, std::uint64_t head,
                                                       std::size_t lines, const column_places& to) {
  for (std::size_t n = 0; n < lines; ++n, p += printed_line) {
    std::uint64_t bad = eight_at(p) ^ head;
    const std::int32_t phase = printed_phase(p, bad);
    bad |= between_columns(p);
    const four_columns columns = columns_at(p);
    if (bad != 0 || !columns.good) return n;
    to.phase[n] = phase;
    to.reading[0][n] = _mm_cvtsi128_si32(columns.low);
    to.reading[1][n] = _mm_extract_epi32(columns.low, 1);
    to.reading[2][n] = _mm_cvtsi128_si32(columns.high);
    to.reading[3][n] = _mm_extract_epi32(columns.high, 1);
  }
  return lines;
}

}  // namespace rawfile
#endif
