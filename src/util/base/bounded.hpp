// Arrays that know their declared bounds and the name that messages use.
//
// A subscript outside the bounds ends the run through subscript_error. In hot loops take a
// checked span once (orbit store, `item`), not a check per element.
#pragma once
#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "run_time.hpp"

namespace util {

/// A short text usable as a template argument: the name of an array or a variable.
struct label {
  static constexpr std::size_t capacity = 40;  // twice the longest name in use
  std::array<char, capacity> text{};
  // Implicit on purpose, so that a literal can stand as the template argument.
  template <std::size_t n>
  consteval label(const char (&literal)[n]) {  // NOLINT(*-explicit-*,*-c-arrays)
    static_assert(n <= capacity, "name too long");
    std::copy_n(literal, n, text.begin());
  }
  constexpr std::string_view view() const { return std::string_view{text.data()}; }
};

/// Fixed array with declared bounds lo..hi, both included, and the name that messages use.
/// A subscript outside the bounds ends the run (subscript_error). No memory beyond the items.
template <class T, int lo, int hi, label name>
struct bounded {
  static_assert(lo <= hi);
  std::array<T, std::size_t{hi - lo + 1}> item{};
  static constexpr int lower = lo;
  static constexpr int upper = hi;
  constexpr T& operator()(int i) { return item[offset(i)]; }
  constexpr const T& operator()(int i) const { return item[offset(i)]; }
  static constexpr std::size_t offset(int i) {
    if (i < lo || i > hi) subscript_error(name.view(), i, lo, hi);
    return static_cast<std::size_t>(i - lo);
  }
  constexpr void fill(const T& value) { item.fill(value); }
};

/// Two-dimensional array with declared bounds lo1..hi1 by lo2..hi2; the second subscript runs
/// fastest in memory. Errors as for bounded; the message tells which subscript it was.
template <class T, int lo1, int hi1, int lo2, int hi2, label name>
struct bounded2 {
  static_assert(lo1 <= hi1 && lo2 <= hi2);
  static constexpr std::size_t columns = std::size_t{hi2 - lo2 + 1};
  std::array<T, std::size_t{hi1 - lo1 + 1} * columns> item{};
  constexpr T& operator()(int i, int j) { return item[offset(i, j)]; }
  constexpr const T& operator()(int i, int j) const { return item[offset(i, j)]; }
  static constexpr std::size_t offset(int i, int j) {
    if (i < lo1 || i > hi1) subscript_error(name.view(), i, lo1, hi1, 1);
    if (j < lo2 || j > hi2) subscript_error(name.view(), j, lo2, hi2, 2);
    return (static_cast<std::size_t>(i - lo1) * columns) + static_cast<std::size_t>(j - lo2);
  }
  constexpr void fill(const T& value) { item.fill(value); }
};

/// Three-dimensional array with declared bounds; the last subscript runs fastest in memory. Errors
/// as for bounded2.
template <class T, int lo1, int hi1, int lo2, int hi2, int lo3, int hi3, label name>
struct bounded3 {
  static_assert(lo1 <= hi1 && lo2 <= hi2 && lo3 <= hi3);
  static constexpr std::size_t rows = std::size_t{hi2 - lo2 + 1};
  static constexpr std::size_t columns = std::size_t{hi3 - lo3 + 1};
  std::array<T, std::size_t{hi1 - lo1 + 1} * rows * columns> item{};
  constexpr T& operator()(int i, int j, int k) { return item[offset(i, j, k)]; }
  constexpr const T& operator()(int i, int j, int k) const { return item[offset(i, j, k)]; }
  static constexpr std::size_t offset(int i, int j, int k) {
    if (i < lo1 || i > hi1) subscript_error(name.view(), i, lo1, hi1, 1);
    if (j < lo2 || j > hi2) subscript_error(name.view(), j, lo2, hi2, 2);
    if (k < lo3 || k > hi3) subscript_error(name.view(), k, lo3, hi3, 3);
    return (((static_cast<std::size_t>(i - lo1) * rows) + static_cast<std::size_t>(j - lo2)) *
            columns) +
           static_cast<std::size_t>(k - lo3);
  }
  constexpr void fill(const T& value) { item.fill(value); }
};

}  // namespace util
