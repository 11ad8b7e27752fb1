// The bits of calibrations, as one number: equal wherever the same bits come out.
//
//     calibration_hash    a line for each instruction set of this machine
//
// Readings and table are made with additions, multiplications, divisions and square roots alone, so
// that they are the same everywhere too. The error figure of the verdict is left out: powers and
// logarithms of the C library are in it.
#include <fmt/format.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <span>
#include <vector>

#include "calibration.hpp"
#include "orbit_kernels.hpp"
#include "table_cells.hpp"

namespace {

struct hash {
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

// Even numbers in -1..1 [-].
double next_random(std::uint64_t& state) {
  state = state * 6364136223846793005 + 1442695040888963407;
  return static_cast<double>(state >> 11) * 0x1p-52 - 1;
}

constexpr double radius = 45e-3;  // [m]

// The wall charge at a button's angle, with its slopes: n / d, n = 1 - r^2 and
// d = 1 + r^2 - 2 (x c + y s), c = s = +-sqrt(1/2).
struct charge {
  double value, by_x, by_y;
};
charge charge_at(double x, double y, std::size_t k) {
  constexpr double half = 0.70710678118654752;
  const double c = k == 1 || k == 3 ? half : -half, s = k >= 2 ? half : -half;
  const double rr = x * x + y * y, n = 1 - rr, d = 1 + rr - 2 * (x * c + y * s);
  return {n / d, (-2 * x * d - n * (2 * x - 2 * c)) / (d * d),
          (-2 * y * d - n * (2 * y - 2 * s)) / (d * d)};
}

nonlin_bpm_mod::table_struct make_table() {
  nonlin_bpm_mod::table_nodes nodes;
  nodes.x = nodes.y = {61, -24e-3, 24e-3};
  for (int iy = 1; iy <= nodes.y.n; ++iy) {
    for (int ix = 1; ix <= nodes.x.n; ++ix) {
      nonlin_bpm_mod::table_node node;
      for (std::size_t k = 0; k < 4; ++k) {
        const charge at = charge_at(nodes.x.at(ix) / radius, nodes.y.at(iy) / radius, k);
        node.phi.at(k) = at.value / 4;
        node.dphi_dx.at(k) = at.by_x / (4 * radius);
        node.dphi_dy.at(k) = at.by_y / (4 * radius);
      }
      node.out = false;
      nodes.node.push_back(node);
    }
  }
  nonlin_bpm_mod::table_struct table;
  nonlin_bpm_mod::build_table(nodes, table);
  return table;
}

// A beam within +-0.1 pipe radii of (x, y); the current walks by `walk` a step.
struct beam {
  int orbits = 400;
  double x = 0, y = 0;
  double walk = 0;
  int sets = 1;
};
std::array<std::vector<double>, 4> readings_of(const beam& b) {
  constexpr std::array<double, 4> gain{1.04, 0.97, 1.01, 0.93};
  std::array<std::vector<double>, 4> column;
  std::uint64_t state = 1;
  double current = 1e5;
  for (int orbit = 0; orbit < b.orbits; ++orbit) {
    const double x = b.x + 0.1 * next_random(state), y = b.y + 0.1 * next_random(state);
    current *= 1 + b.walk * next_random(state);
    for (std::size_t k = 0; k < 4; ++k) {
      column.at(k).push_back(current * gain.at(k) *
                             (charge_at(x, y, k).value + 1e-4 * next_random(state)));
    }
  }
  column[2][static_cast<std::size_t>(b.orbits) / 3] *= 1.4;  // a wild reading
  return column;
}

std::uint64_t hash_of_calibrations(const nonlin_bpm_mod::table_struct& table,
                                   std::string_view instruction_set) {
  hash h;
  for (const beam& b : {beam{}, beam{1000, 0.1, 0.05, 0, 2}, beam{131, 0.2, 0.15, 0, 1},
                        beam{400, 0, 0, 1e-2, 1}}) {
    const auto column = readings_of(b);
    std::vector<int> starts;
    for (int set = 0; set < b.sets; ++set) starts.push_back(set * b.orbits / b.sets);
    calibration::bpm_run run;
    for (std::size_t k = 0; k < 4; ++k) run.signal.at(k) = column.at(k);
    run.set_start = starts;
    run.table = &table;
    run.sigma_p = calibration::pedestals_subtracted;
    run.instruction_set = instruction_set;
    const calibration::record r = calibration::calibrate(run);
    for (const auto* fit : {&r.free, &r.steady, &r.wide}) {
      h.add(fit->t.item);
      h.add(fit->covariance.item);
      h.add(fit->pedestal.item);
      h.add(std::array{fit->noise, fit->noise_v, fit->chi_square, fit->persistence});
    }
    for (const auto& trouble : r.trouble) h.add(std::array{trouble.chi_square, trouble.shift});
    for (const auto& place : r.place) h.add(std::array{place.x, place.y, place.residual});
  }
  return h.value;
}

}  // namespace

int main() {
  const auto table = make_table();
  std::set<std::uint64_t> hashes;
  for (const std::string_view name : calibration::instruction_sets()) {
    const std::uint64_t h = hash_of_calibrations(table, name);
    hashes.insert(h);
    fmt::print("{:<10}{:016x}\n", name, h);
  }
  return hashes.size() == 1 ? 0 : 1;
}
