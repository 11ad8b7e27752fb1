// The bits of positions, as one number: equal wherever the same bits come out.
//
//     position_hash    a line for each way to fit; status 1 when they differ
//
// Table and readings are made with additions, multiplications and divisions alone, so that they are
// the same everywhere too; three_by_three.cpp stands in for LAPACK.
#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <span>
#include <string_view>
#include <vector>

#include "bits_hash.hpp"
#include "nonlin_bpm_mod.hpp"
#include "position_fit.hpp"
#include "table_cells.hpp"

namespace {
using namespace nonlin_bpm_mod;

// A round pipe of 40 mm; nodes beyond 34 mm are outside.
constexpr double pipe = 0.04;
constexpr double usable_radius = 0.034;

// A button sees the wall charge at its angle: with c = s = +-sqrt(1/2), and lengths in pipe radii,
// (1 - r^2) / (1 + r^2 - 2 (x c + y s)). With the slopes [1/m].
void fill_node(double at_x, double at_y, table_node& node) {
  constexpr double sqrt_half = 0.70710678118654752;
  const double sign_x[] = {-1, +1, -1, +1};
  const double sign_y[] = {-1, -1, +1, +1};
  const double x = at_x / pipe;
  const double y = at_y / pipe;
  const double rr = x * x + y * y;
  node.out = rr * (pipe * pipe) > usable_radius * usable_radius;
  for (std::size_t k = 0; k < 4; ++k) {
    const double c = sign_x[k] * sqrt_half;
    const double s = sign_y[k] * sqrt_half;
    const double above = 1 - rr;
    const double below = (1 + rr) - 2 * (x * c + y * s);
    node.phi[k] = above / below;
    node.dphi_dx[k] = (-2 * x * below - above * (2 * x - 2 * c)) / (below * below) / pipe;
    node.dphi_dy[k] = (-2 * y * below - above * (2 * y - 2 * s)) / (below * below) / pipe;
  }
}

bool make_table(table_struct& table) {
  table_nodes nodes;
  nodes.x = {.n = 81, .first = -0.030, .last = 0.030};
  nodes.y = {.n = 61, .first = -0.030, .last = 0.030};
  for (int iy = 1; iy <= nodes.y.n; ++iy)
    for (int ix = 1; ix <= nodes.x.n; ++ix)
      fill_node(nodes.x.at(ix), nodes.y.at(iy), nodes.node.emplace_back());
  return build_table(nodes, table).empty();
}

// Beams all over the table and beyond it, clean, noisy and with wrong gains; signals that no beam
// makes; and what is no signal at all.
std::vector<button_signals> make_readings() {
  constexpr int beams = 30000;
  constexpr double decade[] = {1e-4, 1e-3, 1e-2, 0.1, 1, 10, 100, 1e3};
  const double gain_errors[] = {0, 1e-3, 0.05};
  std::vector<button_signals> readings;
  std::uint64_t state = 1;
  for (int i = 0; i < beams; ++i) {
    table_node node;
    const double x = 0.033 * next_random(state);
    fill_node(x, 0.033 * next_random(state), node);
    button_signals& but = readings.emplace_back();
    for (int k = 1; k <= 4; ++k)
      but(k) = 1e4 * node.phi[static_cast<std::size_t>(k - 1)] *
               (1 + gain_errors[i % 3] * next_random(state));
  }
  for (int i = 0; i < 3000; ++i)
    for (double& signal : readings.emplace_back().item) {
      const double size = next_random(state);
      signal = (1.2 + next_random(state)) * decade[static_cast<std::size_t>(4 * (size + 1)) % 8];
    }
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double infinite = std::numeric_limits<double>::infinity();
  for (const double strange : {nan, infinite, 0.0, -1.0, -1e300, 1e308}) {
    readings.push_back({{1, 1, strange, 1}});
    readings.push_back({{strange, strange, strange, strange}});
  }
  return readings;
}

// All results of one way to fit, for every bad button.
template <class Fit>
std::uint64_t hash_of(const std::vector<button_signals>& readings, const Fit& fit) {
  bits_hash h;
  calib_struct calib;
  calib.coeff = {{1, 1.02, 0.99, 1.01}};
  std::vector<position> x(readings.size());
  std::vector<double> chi2(readings.size());
  for (calib.ix_bad_button = 0; calib.ix_bad_button <= 4; ++calib.ix_bad_button) {
    fit(calib, x, chi2);
    for (const position& one : x) h.add(one.item);
    h.add(chi2);
  }
  return h.value;
}

}  // namespace

int main() {
  table_struct table;
  if (!make_table(table)) return 1;
  const std::vector<button_signals> readings = make_readings();
  std::set<std::uint64_t> hashes;
  const auto tell = [&](std::string_view name, std::uint64_t h) {
    hashes.insert(h);
    fmt::print("{:<10}{:016x}\n", name, h);
  };
  for (const std::string_view name : position_instruction_sets())
    tell(name, hash_of(readings, [&](const auto& calib, auto& x, auto& chi2) {
           fit_positions_with(name, table, calib, readings, x, chi2);
         }));
  tell("single", hash_of(readings, [&](const auto& calib, auto& x, auto& chi2) {
         for (std::size_t i = 0; i < readings.size(); ++i)
           fit_position(table, calib, readings[i], x[i], chi2[i]);
       }));
  return hashes.size() == 1 ? 0 : 1;
}
