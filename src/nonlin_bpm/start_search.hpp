// start_search: the node that a position fit starts from.
#pragma once
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "lookup_table.hpp"

namespace nonlin_bpm_mod {

using eight_counts [[gnu::vector_size(32), gnu::aligned(32)]] = std::int32_t;
// Asks the memory for what will be needed: the table is larger than the nearest caches.
inline void fetch(const void* first, const void* last) {
  constexpr std::ptrdiff_t line = 64;
  for (const char* at = static_cast<const char*>(first); at < last; at += line) {
    __builtin_prefetch(at);
  }
}
inline void fetch_node(const table_struct& table, std::size_t nearest) {
  const auto [ix, iy] = table.start[nearest];
  const grid_struct& node = table.grid.item[table.grid.offset(ix, iy)];
  fetch(&node.b.phi, &node + 1);
}

// The start node whose signals point most nearly in the direction of the readings; the first of
// equals. Every lane keeps the best of its own nodes: a later one must be better to take its place.
inline std::size_t nearest_of_all(const std::vector<start_group>& groups,
                                  const std::array<float, 4>& v) {
  // Four searches take turns: one alone would wait at every group for its last comparison.
  struct search {
    eight_floats largest = eight_floats{} - 1;
    eight_counts at{};
  };
  std::array<search, start_group::abreast> searches;
  eight_counts group{};
  for (std::size_t first = 0; first < groups.size(); first += searches.size()) {
    for (std::size_t i = 0; i < searches.size(); ++i) {
      const auto& f = groups[first + i].f;
      const eight_floats cosine = f[0].v * v[0] + f[1].v * v[1] + f[2].v * v[2] + f[3].v * v[3];
      search& own = searches[i];
      const eight_counts better = cosine > own.largest;
      own.largest = better ? cosine : own.largest;
      own.at = better ? group : own.at;
      group += 1;
    }
  }
  const auto join = [](search& into, const search& other) {
    const eight_counts better =
        (other.largest > into.largest) | ((other.largest == into.largest) & (other.at < into.at));
    into.largest = better ? other.largest : into.largest;
    into.at = better ? other.at : into.at;
  };
  join(searches[0], searches[1]);
  join(searches[2], searches[3]);
  join(searches[0], searches[2]);
  const search& found = searches[0];
  std::size_t best = 0;
  float best_cosine = -2;
  for (std::size_t i = 0; i < start_group::size; ++i) {
    const std::size_t node = static_cast<std::size_t>(found.at[i]) * start_group::size + i;
    if (found.largest[i] > best_cosine || (found.largest[i] == best_cosine && node < best)) {
      best_cosine = found.largest[i];
      best = node;
    }
  }
  return best;
}

// The same node, from the short list of the reading's bucket where there is one.
inline std::size_t nearest_start(const table_struct& table, const std::array<double, 4>& signal,
                                 int bad) {
  std::array<float, 4> v{};
  for (std::size_t k = 0; k < 4; ++k) v[k] = static_cast<float>(signal[k]);
  const std::vector<start_group>& all = table.cosines[static_cast<std::size_t>(bad)];
  if (bad != 0) return nearest_of_all(all, v);
  const double x = (signal[1] + signal[3]) - (signal[0] + signal[2]);
  const double y = (signal[2] + signal[3]) - (signal[0] + signal[1]);
  const double skew = (signal[0] + signal[3]) - (signal[1] + signal[2]);
  if (!(std::abs(x) < 1 && std::abs(y) < 1)) return nearest_of_all(all, v);
  constexpr double per_unit = start_map::side / 2.0;
  const auto column = static_cast<std::size_t>((x + 1) * per_unit);
  const auto row = static_cast<std::size_t>((y + 1) * per_unit);
  const start_map::bucket& bucket = table.near.buckets[row * start_map::side + column];
  if (!(skew >= bucket.low_skew && skew <= bucket.high_skew)) return nearest_of_all(all, v);
  const std::uint32_t* const node = &table.near.node[bucket.first];
  std::size_t best = 0;
  float largest = -2;
  for (std::size_t first = 0; first < bucket.count; first += start_map::abreast) {
    std::array<float, start_map::abreast> cosine;
    for (std::size_t i = 0; i < start_map::abreast; ++i) {
      const auto& f = table.near.cosine[node[first + i]];
      cosine[i] = f[0] * v[0] + f[1] * v[1] + f[2] * v[2] + f[3] * v[3];
    }
    for (std::size_t i = 0; i < start_map::abreast; ++i) {
      const bool better = cosine[i] > largest;
      largest = better ? cosine[i] : largest;
      best = better ? node[first + i] : best;
    }
  }
  return best;
}

}  // namespace nonlin_bpm_mod
