// One number for many results: equal wherever the same bits come out. And random numbers that are
// the same everywhere, for the readings that the results are of.
#pragma once
#include <cstdint>
#include <cstring>
#include <span>

struct bits_hash {
  std::uint64_t value = 0xcbf29ce484222325;
  void add(std::span<const double> numbers) {
    for (const double number : numbers) {
      std::uint64_t bits = 0;
      std::memcpy(&bits, &number, sizeof bits);
      for (int byte = 0; byte < 8; ++byte)
        value = (value ^ ((bits >> (8 * byte)) & 255)) * 0x100000001b3;
    }
  }
};

/// Even numbers in -1..1 [-].
inline double next_random(std::uint64_t& state) {
  state = state * 6364136223846793005 + 1442695040888963407;
  return static_cast<double>(state >> 11) * 0x1p-52 - 1;
}
