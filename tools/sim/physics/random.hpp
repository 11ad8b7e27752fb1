// Random numbers that repeat: one seed gives the same numbers on every machine.
//
// The engine is the 64-bit Mersenne twister, whose output the language fixes bit by bit; the
// distributions of the standard library are not fixed, so the two that are needed stand here. Every
// purpose and every BPM has a stream of its own: more orbits, another noise or one more BPM change
// nothing else in a simulation with the same seed.
#pragma once
#include <cstdint>
#include <random>

namespace sim {

/// What a stream of random numbers is for.
enum class purpose : std::uint64_t {
  gains = 1,
  motion = 2,
  readout = 3,
  current = 4,
  troubles = 5
};

struct random_stream {
  std::mt19937_64 engine;
};

/// The stream of this seed, purpose, BPM (1, 2, ...) and bunch.
random_stream make_stream(std::uint64_t seed, purpose what, int bpm, int bunch = 0);

/// Uniform in [0, 1): the upper 53 bits of one number of the engine.
double uniform(random_stream& stream);

/// Normal with mean 0 and rms 1, from two uniform numbers (Box and Muller, cosine only: nothing is
/// kept from call to call, so every reading takes the same count of numbers).
double normal(random_stream& stream);

}  // namespace sim
