// Several numbers side by side: the arithmetic that a processor does on `width` orbits at once.
//
// Plain operators on these types act on every lane for itself, so each lane gets the bits that a
// single number would get. The same text serves one, two and four lanes; the compiler turns it into
// the instructions of the file it is compiled in. A width stands for one instruction set: the
// linker keeps one copy of a template, so no width may be used in two files of different flags.
#pragma once
#include <cstdint>

namespace gain_fit_mod {

template <int width>
struct lanes {
  // gcc 12 drops the attribute from a using declaration.
  typedef double real __attribute__((vector_size(8 * width)));        // NOLINT(modernize-use-using)
  typedef std::int64_t bits __attribute__((vector_size(8 * width)));  // NOLINT(modernize-use-using)

  static real load(const double* from) {
    real value;
    __builtin_memcpy(&value, from, sizeof value);
    return value;
  }
  static void store(double* to, real value) { __builtin_memcpy(to, &value, sizeof value); }
  static bits as_bits(real value) { return __builtin_bit_cast(bits, value); }
  static real as_real(bits value) { return __builtin_bit_cast(real, value); }
  static real magnitude(real value) { return as_real(as_bits(value) & INT64_MAX); }
};

/// Whether any lane of a mask is set.
template <int width, class mask>
bool any_lane(mask m) {
  std::int64_t found = 0;
  for (int i = 0; i < width; ++i) found |= m[i];
  return found != 0;
}

}  // namespace gain_fit_mod
