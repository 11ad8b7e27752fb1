#include "random.hpp"

#include <cmath>
#include <numbers>

namespace sim {
namespace {

// The finalizer of the splitmix64 generator: neighbouring numbers give unrelated ones.
std::uint64_t mixed(std::uint64_t v) {
  v += 0x9e3779b97f4a7c15U;
  v = (v ^ (v >> 30U)) * 0xbf58476d1ce4e5b9U;
  v = (v ^ (v >> 27U)) * 0x94d049bb133111ebU;
  return v ^ (v >> 31U);
}

}  // namespace

random_stream make_stream(std::uint64_t seed, purpose what, int bpm, int bunch) {
  // One after the other, not all in one sum: BPM 1 of bunch 2 is not BPM 2 of bunch 1.
  std::uint64_t key = mixed(seed);
  key = mixed(key ^ static_cast<std::uint64_t>(what));
  key = mixed(key ^ static_cast<std::uint64_t>(bpm));
  key = mixed(key ^ static_cast<std::uint64_t>(bunch));
  return {std::mt19937_64{key}};
}

double uniform(random_stream& stream) {
  // 53 bits are what a double holds: with more, the largest number would round up to 1.
  return static_cast<double>(stream.engine() >> 11U) * 0x1p-53;
}

double normal(random_stream& stream) {
  // 1 - u is never 0, so the logarithm is finite. Radius before angle, in statements of their own:
  // the order of two calls within one expression is the compiler's.
  const double radius = std::sqrt(-2.0 * std::log(1.0 - uniform(stream)));
  return radius * std::cos(2.0 * std::numbers::pi * uniform(stream));
}

}  // namespace sim
