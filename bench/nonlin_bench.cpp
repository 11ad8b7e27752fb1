// What a position costs, against a plain form of the same fit measured in the same run.
//
// The plain form keeps one record per button, works out all six derivatives of one button after the
// other by Horner's rule, and inverts the normal matrix of every step with LAPACK. Same table, same
// start, same stopping rule: both end at the same place, which is checked first.
//
//     build/release/bench/nonlin_bench
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cell_kernel.hpp"
#include "linear_algebra.hpp"
#include "nonlin_bpm_mod.hpp"
#include "position_fit.hpp"
#include "table_cells.hpp"
#include "table_file.hpp"
#include "table_maker.hpp"
#include "table_writer.hpp"

namespace {

using namespace nonlin_bpm_mod;

constexpr int bpm = 20;  // one of the arc table

// --- the plain form -----------------------------------------------------------------------------

struct plain_node {
  std::array<button_struct, 4> b;
};
std::vector<plain_node> plain_nodes;

using plain_signals = std::array<std::array<double, 6>, 4>;  // p, d/dx, d/dy, then second ones

bool plain_interpolate(double x1, double x2, plain_signals& d) {
  const table_struct& table = *func_bpm;
  const int ix = locate(table.x.item, x1), iy = locate(table.y.item, x2);
  if (ix == 0 || iy == 0 || ix == table.grid.nx || iy == table.grid.ny) return false;
  const double hx = table.x(ix + 1) - table.x(ix), hy = table.y(iy + 1) - table.y(iy);
  const double t = (x1 - table.x(ix)) / hx, u = (x2 - table.y(iy)) / hy;
  const plain_node& node = plain_nodes[table.grid.offset(ix, iy)];
  for (std::size_t k = 0; k < 4; ++k) {
    const auto& c = node.b[k].c;
    double p = 0, pu = 0, puu = 0, pt = 0, ptt = 0, ptu = 0;
    for (int i = 4; i >= 1; --i) {
      p = t * p + ((c(i, 4) * u + c(i, 3)) * u + c(i, 2)) * u + c(i, 1);
      pu = t * pu + (3 * c(i, 4) * u + 2 * c(i, 3)) * u + c(i, 2);
      puu = t * puu + 6 * c(i, 4) * u + 2 * c(i, 3);
      pt = u * pt + (3 * c(4, i) * t + 2 * c(3, i)) * t + c(2, i);
      ptt = u * ptt + 6 * c(4, i) * t + 2 * c(3, i);
      if (i > 1) ptu = t * ptu + (i - 1) * ((3 * c(i, 4) * u + 2 * c(i, 3)) * u + c(i, 2));
    }
    d[k] = {p, pt / hx, pu / hy, ptt / (hx * hx), puu / (hy * hy), ptu / (hx * hy)};
  }
  return d[0][0] != 0;
}

struct plain_trial {
  double x = 0, y = 0, scale = 0, chi2 = 0;
  plain_signals d{};
  std::array<double, 4> residual{};
};

bool plain_evaluate(const std::array<double, 4>& v, double x, double y, plain_trial& at) {
  if (!plain_interpolate(x, y, at.d)) return false;
  double pv = 0, pp = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    pv += at.d[k][0] * v[k];
    pp += at.d[k][0] * at.d[k][0];
  }
  at.x = x;
  at.y = y;
  at.scale = pv / pp;
  at.chi2 = 0;
  for (std::size_t k = 0; k < 4; ++k) {
    at.residual[k] = at.scale * at.d[k][0] - v[k];
    at.chi2 += at.residual[k] * at.residual[k];
  }
  return true;
}

plain_trial plain_start(const std::array<double, 4>& v) {
  const table_struct& table = *func_bpm;
  double largest = -1;
  std::array<int, 2> best{};
  for (const auto& place : table.start) {
    const plain_node& node = plain_nodes[table.grid.offset(place[0], place[1])];
    double fv = 0, ff = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      fv += node.b[k].phi * v[k];
      ff += node.b[k].phi * node.b[k].phi;
    }
    if (fv * fv / ff > largest) {
      largest = fv * fv / ff;
      best = place;
    }
  }
  plain_trial start, linear;
  plain_evaluate(v, table.x(best[0]), table.y(best[1]), start);
  const auto& r = table.grid(best[0], best[1]).response_mat;
  const double q[] = {v[1] + v[3] - v[0] - v[2], v[2] + v[3] - v[0] - v[1],
                      v[0] + v[1] + v[2] + v[3]};
  std::array<double, 3> a{};
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) a[static_cast<std::size_t>(i - 1)] += r(i, j) * q[j - 1];
  }
  const bool good = plain_evaluate(v, start.x + a[0] / a[2], start.y + a[1] / a[2], linear);
  return good && linear.chi2 < start.chi2 ? linear : start;
}

bool plain_minimize(const button_signals& but, position& x) {
  nonlin_bpm_set_pointers(bpm);
  const double sum = but(1) + but(2) + but(3) + but(4);
  const std::array<double, 4> v{but(1) / sum, but(2) / sum, but(3) / sum, but(4) / sum};
  const double length = (func_bpm->x.item.back() - func_bpm->x.item.front()) / 4;
  plain_trial at = plain_start(v);
  for (int n = 0; n < 30; ++n) {
    std::array<double, 9> h{};
    std::array<double, 3> g{};
    for (std::size_t k = 0; k < 4; ++k) {
      const double j[] = {length * at.scale * at.d[k][1], length * at.scale * at.d[k][2],
                          at.d[k][0]};
      for (std::size_t i = 0; i < 9; ++i) h[i] += j[i / 3] * j[i % 3];
      for (std::size_t i = 0; i < 3; ++i) g[i] += j[i] * at.residual[k];
    }
    if (!linear_algebra::invert_matrix(h, 3)) return false;
    const double sx = -length * (h[0] * g[0] + h[1] * g[1] + h[2] * g[2]);
    const double sy = -length * (h[3] * g[0] + h[4] * g[1] + h[5] * g[2]);
    plain_trial next;
    if (std::abs(sx) < 1e-7 && std::abs(sy) < 1e-7) {
      if (plain_evaluate(v, at.x + sx, at.y + sy, next)) at = next;
      x = {{at.x, at.y, at.scale * sum}};
      return true;
    }
    double part = 1;
    while (part > 1e-4 && !(plain_evaluate(v, at.x + part * sx, at.y + part * sy, next) &&
                            next.chi2 <= at.chi2 * (1 + 1e-12) + 1e-28)) {
      part /= 2;
    }
    if (part <= 1e-4) return false;
    at = next;
  }
  return false;
}

// --- readings -----------------------------------------------------------------------------------

std::vector<button_signals> random_readings, oscillating_readings;

button_signals reading_at(double x, double y) {
  cell_values v;
  button_signals but{};
  if (!evaluate_cell<false>(bpm_arc, x, y, v)) return but;
  for (int k = 1; k <= 4; ++k) but(k) = 1e4 * v.phi[k - 1];
  return but;
}

void make_readings() {
  std::mt19937_64 random(11);
  std::uniform_real_distribution<double> part(-1, 1);
  while (random_readings.size() < 16384) {
    const button_signals but = reading_at(0.03 * part(random), 0.02 * part(random));
    if (but(1) > 0) random_readings.push_back(but);
  }
  for (int turn = 0; turn < 16384; ++turn) {
    oscillating_readings.push_back(
        reading_at(0.002 + 1e-3 * std::sin(3.3 * turn), 1e-3 * std::cos(3.7 * turn)));
  }
}

void check_agreement() {
  for (const button_signals& but : random_readings) {
    position ours{}, plain{};
    double chi2 = 0;
    nonlin_bpm_minimize(bpm, but, ours, chi2);
    if (!plain_minimize(but, plain) || std::hypot(ours(1) - plain(1), ours(2) - plain(2)) > 1e-9) {
      fmt::print(stderr, "the two forms disagree\n");
      std::exit(1);
    }
  }
}

// --- benches ------------------------------------------------------------------------------------

void plain(benchmark::State& state) {
  std::size_t i = 0;
  position x{};
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(plain_minimize(random_readings[i], x));
    i = (i + 1) % random_readings.size();
  }
}

void fit(benchmark::State& state, const std::vector<button_signals>& readings, int bad_button) {
  bpm_calib(bpm).ix_bad_button = bad_button;
  std::size_t i = 0;
  position x{};
  double chi2 = 0;
  for ([[maybe_unused]] auto _ : state) {
    nonlin_bpm_minimize(bpm, readings[i], x, chi2);
    benchmark::DoNotOptimize(x);
    i = (i + 1) % readings.size();
  }
  bpm_calib(bpm).ix_bad_button = 0;
}

// A thousand at once, as whole data sets are; the time is that of one.
void fit_data_set(benchmark::State& state, std::string_view instruction_set) {
  constexpr std::size_t n = 1024;
  std::vector<position> x(n);
  std::vector<double> chi2(n);
  std::size_t first = 0;
  while (state.KeepRunningBatch(n)) {
    fit_positions_with(instruction_set, bpm_arc, bpm_calib(bpm),
                       std::span(random_readings).subspan(first, n), x, chi2);
    benchmark::DoNotOptimize(x.data());
    first = (first + n) % random_readings.size();
  }
}

void read_table(benchmark::State& state, const std::string& name) {
  for ([[maybe_unused]] auto _ : state) {
    const auto table = read_table_file(name, "bpm_arc");
    if (!table) state.SkipWithError(util::line_of(table.why).c_str());
  }
}

/// Prints what everybody prints, and keeps the processor times for the ratio.
class ratio_reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) times[run.benchmark_name()] = run.GetAdjustedCPUTime();
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  auto work = chamber_solver::begin_table(chamber_solver::default_chamber_at(1));
  for (int iy = 1; iy <= work.nodes.y.n; ++iy) chamber_solver::fill_row(work, iy);
  if (!build_table(work.nodes, bpm_arc).empty()) return 1;
  nonlin_bpm_first_call = false;
  for (const grid_struct& node : bpm_arc.grid.item) {
    plain_nodes.push_back({{node.b(1), node.b(2), node.b(3), node.b(4)}});
  }
  const std::string file = (std::filesystem::temp_directory_path() / "nonlin_bench.table").string();
  sim::write_table(work.nodes, file);
  make_readings();
  check_agreement();

  benchmark::RegisterBenchmark("plain, LAPACK in every step", plain);
  benchmark::RegisterBenchmark("random positions",
                               [](benchmark::State& s) { fit(s, random_readings, 0); });
  std::vector<std::string> ours{"random positions"};
  for (const std::string_view set : position_instruction_sets()) {
    ours.push_back(fmt::format("whole data sets, {}", set));
    benchmark::RegisterBenchmark(ours.back().c_str(),
                                 [set](benchmark::State& s) { fit_data_set(s, set); });
  }
  benchmark::RegisterBenchmark("random, one bad button",
                               [](benchmark::State& s) { fit(s, random_readings, 3); });
  benchmark::RegisterBenchmark("beam oscillating by 1 mm",
                               [](benchmark::State& s) { fit(s, oscillating_readings, 0); });
  benchmark::RegisterBenchmark("read the arc table",
                               [&file](benchmark::State& s) { read_table(s, file); });
  ratio_reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::filesystem::remove(file);
  const double plain_time = reporter.times["plain, LAPACK in every step"];
  for (const std::string& name : ours) {
    if (reporter.times[name] > 0) {
      fmt::print("plain / {}: {:.1f}\n", name, plain_time / reporter.times[name]);
    }
  }
}
