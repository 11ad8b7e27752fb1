// A node is left out of a bucket's list only where another one is nearer to every reading of the
// bucket, by more than the rounding of single precision: then a look at all nodes cannot end there
// either, and both find the same node.
//
// The cosine of a node and a reading is linear in the reading, and so in its two differences and
// its skew: the most that one node can be ahead of another in a box is what it is ahead at the
// middle plus the box's half widths times the slopes.
#include "start_map.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace nonlin_bpm_mod {
namespace {

constexpr int side = start_map::side;
// Boxes of so many buckets in a row are looked at first: what is left out of one is not asked again.
constexpr int coarse = 4;
// Skew that readings may have beside that of clean beams: some 5 % of gain error.
constexpr double skew_margin = 0.03;
// Sums of four products in single precision are wrong by less than 1e-6 each.
constexpr double rounding = 4e-6;
// Boxes are larger than buckets by more than the differences are rounded.
constexpr double overlap = 1e-9;

// Signals of sum 1 as their two differences and the skew.
using shape = std::array<double, 3>;

constexpr std::array<std::array<double, 4>, 3> signs{
    {{-1, 1, -1, 1}, {-1, -1, 1, 1}, {1, -1, -1, 1}}};

template <class Signals>
double along(std::size_t axis, const Signals& v) {
  double sum = 0;
  for (std::size_t k = 0; k < 4; ++k) sum += signs[axis][k] * v[k];
  return sum;
}

shape shape_of(const four& phi) {
  const std::array<double, 4> v{phi[0], phi[1], phi[2], phi[3]};
  const double sum = v[0] + v[1] + v[2] + v[3];
  return {along(0, v) / sum, along(1, v) / sum, along(2, v) / sum};
}

struct box {
  shape low{1, 1, 1}, high{-1, -1, -1};
};

void widen(box& b, const shape& s) {
  for (std::size_t i = 0; i < 3; ++i) {
    b.low[i] = std::min(b.low[i], s[i]);
    b.high[i] = std::max(b.high[i], s[i]);
  }
}

int bucket_at(double difference) {
  return std::clamp(static_cast<int>((difference + 1) * (side / 2.0)), 0, side - 1);
}
double edge_of(int bucket) { return bucket / (side / 2.0) - 1; }

std::size_t number_of(int ix, int iy) {
  return static_cast<std::size_t>(iy) * side + static_cast<std::size_t>(ix);
}

// Every bucket that a cell with data reaches gets the range of skews at the cell's corners.
void note_cell(const table_struct& table, int ix, int iy, start_map& map) {
  box reach;
  for (const int dy : {0, 1})
    for (const int dx : {0, 1}) {
      const four& phi = table.grid(ix + dx, iy + dy).b.phi.v;
      if (!(phi[0] > 0)) return;
      widen(reach, shape_of(phi));
    }
  for (int by = bucket_at(reach.low[1]); by <= bucket_at(reach.high[1]); ++by)
    for (int bx = bucket_at(reach.low[0]); bx <= bucket_at(reach.high[0]); ++bx) {
      start_map::bucket& b = map.buckets[number_of(bx, by)];
      b.low_skew = std::min(b.low_skew, reach.low[2] - skew_margin);
      b.high_skew = std::max(b.high_skew, reach.high[2] + skew_margin);
    }
}

// What a node's cosine is at a shape: base + slope . shape.
struct linear_cosine {
  double base = 0;
  shape slope{};
};

linear_cosine linear_of(const std::array<float, 4>& f) {
  std::array<double, 4> quarter{};
  for (std::size_t k = 0; k < 4; ++k) quarter[k] = double{f[k]} / 4;
  return {quarter[0] + quarter[1] + quarter[2] + quarter[3],
          {along(0, quarter), along(1, quarter), along(2, quarter)}};
}

// The most that node n can be ahead of node m in the box.
double most_ahead(const linear_cosine& n, const linear_cosine& m, const box& b) {
  double ahead = n.base - m.base;
  for (std::size_t i = 0; i < 3; ++i) {
    const double slope = n.slope[i] - m.slope[i];
    ahead += slope * ((b.low[i] + b.high[i]) / 2) + std::abs(slope) * ((b.high[i] - b.low[i]) / 2);
  }
  return ahead;
}

double in_the_middle(const linear_cosine& n, const box& b) {
  double cosine = n.base;
  for (std::size_t i = 0; i < 3; ++i) cosine += n.slope[i] * ((b.low[i] + b.high[i]) / 2);
  return cosine;
}

// Those of the nodes that can be the nearest in the box.
std::vector<std::uint32_t> nearest_in(const box& b, const std::vector<linear_cosine>& cosine,
                                      const std::vector<std::uint32_t>& nodes) {
  // Nearly all are behind the one that is nearest to the middle.
  const std::uint32_t middle =
      *std::max_element(nodes.begin(), nodes.end(), [&](std::uint32_t n, std::uint32_t m) {
        return in_the_middle(cosine[n], b) < in_the_middle(cosine[m], b);
      });
  const auto always_behind = [&](std::uint32_t n, std::uint32_t m) {
    return most_ahead(cosine[n], cosine[m], b) < -rounding;
  };
  std::vector<std::uint32_t> left;
  for (const std::uint32_t n : nodes)
    if (!always_behind(n, middle)) left.push_back(n);
  std::vector<std::uint32_t> nearest;
  for (const std::uint32_t n : left)
    if (std::none_of(left.begin(), left.end(),
                     [&](std::uint32_t m) { return always_behind(n, m); })) {
      nearest.push_back(n);
    }
  return nearest;
}

// The box of the buckets from (bx, by) on, `buckets` in both directions, that have a range of skews.
box box_of(const start_map& map, int bx, int by, int buckets) {
  box b{{edge_of(bx) - overlap, edge_of(by) - overlap, 1},
        {edge_of(bx + buckets) + overlap, edge_of(by + buckets) + overlap, -1}};
  for (int y = by; y < by + buckets; ++y)
    for (int x = bx; x < bx + buckets; ++x) {
      const start_map::bucket& at = map.buckets[number_of(x, y)];
      b.low[2] = std::min(b.low[2], at.low_skew - overlap);
      b.high[2] = std::max(b.high[2], at.high_skew + overlap);
    }
  return b;
}

void fill_list(const std::vector<std::uint32_t>& nodes, start_map::bucket& b, start_map& map) {
  b.first = static_cast<std::uint32_t>(map.node.size());
  map.node.insert(map.node.end(), nodes.begin(), nodes.end());
  while ((map.node.size() - b.first) % start_map::abreast != 0) map.node.push_back(nodes.back());
  b.count = static_cast<std::uint32_t>(map.node.size()) - b.first;
}

}  // namespace

void fill_start_map(table_struct& table) {
  start_map map;
  map.buckets.resize(std::size_t{side} * side);
  for (int iy = 1; iy < table.grid.ny; ++iy)
    for (int ix = 1; ix < table.grid.nx; ++ix) note_cell(table, ix, iy, map);

  std::vector<linear_cosine> cosine;
  std::vector<std::uint32_t> all;
  for (std::size_t n = 0; n < table.start.size(); ++n) {
    const auto& f = table.cosines[0][n / start_group::size].f;
    const std::size_t i = n % start_group::size;
    map.cosine.push_back({f[0].v[i], f[1].v[i], f[2].v[i], f[3].v[i]});
    cosine.push_back(linear_of(map.cosine.back()));
    all.push_back(static_cast<std::uint32_t>(n));
  }
  for (int y = 0; y < side; y += coarse)
    for (int x = 0; x < side; x += coarse) {
      const box whole = box_of(map, x, y, coarse);
      if (whole.low[2] > whole.high[2]) continue;
      const std::vector<std::uint32_t> likely = nearest_in(whole, cosine, all);
      for (int by = y; by < y + coarse; ++by)
        for (int bx = x; bx < x + coarse; ++bx) {
          start_map::bucket& b = map.buckets[number_of(bx, by)];
          if (b.low_skew > b.high_skew) continue;
          fill_list(nearest_in(box_of(map, bx, by, 1), cosine, likely), b, map);
        }
    }
  table.near = std::move(map);
}

}  // namespace nonlin_bpm_mod
