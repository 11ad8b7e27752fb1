// What the fuzz targets share. A target is one source that defines fuzz::read, a line in
// CMakeLists.txt and a folder of seeds; everything about the fuzzer itself is in target.cpp.
#pragma once
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "fault.hpp"
#include "run_time.hpp"

namespace fuzz {

/// Reads one input in all ways that the target has. Defined by the target.
void read(std::string_view text);

/// Ends the program where it does not hold: the fuzzer keeps the input, and the trace names the line.
void check(bool holds);

/// How a text comes to a reader.
enum class way { file, pipe };

/// Puts the text under a path, the same for all texts and ways, so that faults can be compared.
/// Through a pipe it comes in pieces and once: for one opening.
/// given    number  texts of different numbers are held side by side
const std::string& held(std::string_view text, way by, int number = 0);

/// What a reader of a path makes of the text as a file and through a pipe.
template <class reader>
auto both_ways(std::string_view text, reader read_path) {
  auto first = read_path(held(text, way::file));
  auto second = read_path(held(text, way::pipe));
  return std::pair{std::move(first), std::move(second)};
}

bool same(const util::fault& a, const util::fault& b);
bool same(const util::status& a, const util::status& b);

/// Bit by bit; for numbers and records of numbers.
bool same_bytes(const void* a, const void* b, std::size_t size);
template <class T>
bool same_bits(const T& a, const T& b) {
  return same_bytes(&a, &b, sizeof(T));
}
template <class T>
bool same_bits(std::span<T> a, std::span<T> b) {
  return a.size() == b.size() && same_bytes(a.data(), b.data(), a.size_bytes());
}

struct run_ended {};

/// A run that ends inside the library comes back to the fuzz target instead.
/// returns  false for a run that ended: the right answer to a file that asks for it
template <class action>
bool until_the_run_ends(action act) {
  util::end_process = [](int /*status*/) { throw run_ended{}; };
  try {
    act();
  } catch (const run_ended&) {
    return false;
  }
  return true;
}

}  // namespace fuzz
