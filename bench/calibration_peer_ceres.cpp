// Ceres, with Schur elimination: every orbit's place and intensity are a block of their own, so that
// what remains to be solved are the unknowns that all share.
#include <ceres/ceres.h>

#include <algorithm>
#include <cmath>
#include <ctime>

#include "calibration_peers.hpp"
#include "cell_kernel.hpp"

namespace {
using namespace calibration_peers;

// The gains, once for all orbits of an evaluation.
struct gains_of_step : ceres::EvaluationCallback {
  explicit gains_of_step(const shared_values& of) : shared(of) {}
  void PrepareForEvaluation(bool /*jacobians*/, bool /*new_point*/) override {
    for (std::size_t k = 0; k < 4; ++k) {
      double log_t = 0;
      for (std::size_t i = 0; i < n_z; ++i) log_t += shared[i] * gain_direction[i][k];
      t[k] = std::exp(log_t);
    }
  }
  const shared_values& shared;
  std::array<double, 4> t{};
};

// Half of an orbit's readings: for blocks of two the library has code of fixed size, and is faster by
// a quarter than with blocks of four.
constexpr std::size_t rows = 2;
struct orbit_cost final : ceres::SizedCostFunction<rows, n_shared, 3> {
  orbit_cost(const task& whole_task, const orbit& one, std::size_t first_button,
             const gains_of_step& gains_now)
      : whole(whole_task), at(one), first(first_button), gains(gains_now) {}

  bool Evaluate(double const* const* p, double* residuals, double** jacobians) const override {
    const double* const shared = p[0];
    nonlin_bpm_mod::cell_values cell{};
    if (!nonlin_bpm_mod::evaluate_cell<false>(*whole.table, p[1][0], p[1][1], cell)) return false;
    // The harmonics and n times those one lower: real and imaginary parts of powers of X + iY.
    const double X = p[1][0] / whole.R0, Y = p[1][1] / whole.R0;
    std::array<double, n_h + 2> f{1, 0};
    for (std::size_t i = 2; i < f.size(); i += 2) {
      f[i] = f[i - 2] * X - f[i - 1] * Y;
      f[i + 1] = f[i - 2] * Y + f[i - 1] * X;
    }
    std::array<double, 4> part{}, by_x{}, by_y{};
    for (std::size_t i = 0; i < n_h; i += 2) {
      const double n = static_cast<double>(i / 2 + 1) / whole.R0;
      const double re = n * f[i], im = n * f[i + 1];
      const double a = shared[n_z + n_p + i], b = shared[n_z + n_p + i + 1];
      part[sign_of[i]] += a * f[i + 2];
      part[sign_of[i + 1]] += b * f[i + 3];
      by_x[sign_of[i]] += a * re;
      by_x[sign_of[i + 1]] += b * im;
      by_y[sign_of[i]] -= a * im;
      by_y[sign_of[i + 1]] += b * re;
    }
    const double intensity = std::exp(p[1][2]);
    for (std::size_t row = 0; row < rows; ++row) {
      const std::size_t k = first + row;
      const auto over = [k](const std::array<double, 4>& of) {
        return (of[0] + sign[1][k] * of[1]) + (sign[2][k] * of[2] + sign[3][k] * of[3]);
      };
      const double scale = whole.weight * gains.t[k] * intensity;
      const double model = scale * (4 * cell.phi[static_cast<int>(k)] + over(part));
      residuals[row] = model + whole.weight * (shared[n_z + k] - at.b[k]);
      if (jacobians == nullptr) continue;
      if (double* const j = jacobians[0]; j != nullptr) {
        double* const to = j + row * n_shared;
        for (std::size_t i = 0; i < n_z; ++i) to[i] = model * gain_direction[i][k];
        for (std::size_t i = 0; i < n_p; ++i) to[n_z + i] = i == k ? whole.weight : 0;
        for (std::size_t i = 0; i < n_h; ++i)
          to[n_z + n_p + i] = scale * sign[sign_of[i]][k] * f[i + 2];
      }
      if (double* const j = jacobians[1]; j != nullptr) {
        j[row * 3] = scale * (4 * cell.dx[static_cast<int>(k)] + over(by_x));
        j[row * 3 + 1] = scale * (4 * cell.dy[static_cast<int>(k)] + over(by_y));
        j[row * 3 + 2] = model;
      }
    }
    return true;
  }

  const task& whole;
  const orbit& at;
  std::size_t first;
  const gains_of_step& gains;
};

struct prior_cost final : ceres::SizedCostFunction<n_shared, n_shared> {
  explicit prior_cost(const task& whole_task) : whole(whole_task) {}
  bool Evaluate(double const* const* p, double* residuals, double** jacobians) const override {
    for (std::size_t i = 0; i < n_shared; ++i) residuals[i] = whole.prior[i] * p[0][i];
    if (jacobians == nullptr || jacobians[0] == nullptr) return true;
    std::fill_n(jacobians[0], n_shared * n_shared, 0.0);
    for (std::size_t i = 0; i < n_shared; ++i) jacobians[0][i * n_shared + i] = whole.prior[i];
    return true;
  }
  const task& whole;
};

// Wide open from the start, the trust region lets it go the straight way, as ours does: 4 steps
// instead of 22.
constexpr double own_radius = 1e4, wide_radius = 1e8;

template <ceres::LinearSolverType solver>
answer run_from(const task& whole, double radius) {
  shared_values shared = whole.ours;
  std::vector<std::array<double, 3>> own;
  for (const orbit& one : whole.orbits) own.push_back(one.end);
  gains_of_step gains(shared);
  ceres::Problem::Options problem_options;
  problem_options.evaluation_callback = &gains;
  ceres::Problem problem(problem_options);
  ceres::Solver::Options options;
  options.linear_solver_ordering = std::make_shared<ceres::ParameterBlockOrdering>();
  for (std::size_t j = 0; j < own.size(); ++j) {
    for (std::size_t k = 0; k < 4; k += rows) {
      problem.AddResidualBlock(new orbit_cost(whole, whole.orbits[j], k, gains), nullptr,
                               shared.data(), own[j].data());  // owned by the problem
    }
    options.linear_solver_ordering->AddElementToGroup(own[j].data(), 0);
  }
  problem.AddResidualBlock(new prior_cost(whole), nullptr, shared.data());
  options.linear_solver_ordering->AddElementToGroup(shared.data(), 1);
  options.linear_solver_type = solver;
  options.max_num_iterations = 200;
  options.initial_trust_region_radius = radius;
  options.function_tolerance = 1e-8;
  options.gradient_tolerance = 0;
  options.parameter_tolerance = 0;
  options.num_threads = 1;
  options.logging_type = ceres::SILENT;
  answer found;
  problem.Evaluate({}, &found.cost_ours, nullptr, nullptr, nullptr);

  shared = {};
  for (std::size_t j = 0; j < own.size(); ++j) own[j] = whole.orbits[j].start;
  ceres::Solver::Summary summary;
  const std::clock_t start = std::clock();
  ceres::Solve(options, &problem, &summary);
  found.seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  for (std::size_t k = 0; k < 4; ++k) {
    for (std::size_t i = 0; i < n_z; ++i) found.log_t[k] += shared[i] * gain_direction[i][k];
  }
  found.cost = summary.final_cost;
  found.steps = summary.num_successful_steps + summary.num_unsuccessful_steps;
  return found;
}

template <ceres::LinearSolverType solver>
answer run(const task& whole) {
  return run_from<solver>(whole, wide_radius);
}
answer run_as_it_comes(const task& whole) {
  return run_from<ceres::SPARSE_SCHUR>(whole, own_radius);
}

const bool entered = enter("Ceres, as it comes", run_as_it_comes) &&
                     enter("Ceres, sparse Schur", run<ceres::SPARSE_SCHUR>) &&
                     enter("Ceres, dense Schur", run<ceres::DENSE_SCHUR>);

}  // namespace
