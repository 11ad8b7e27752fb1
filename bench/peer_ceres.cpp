#include <ceres/ceres.h>

#include "fit_peers.hpp"

namespace {

struct cost : ceres::CostFunction {
  explicit cost(const peers::fit_task& of) : task(of) {
    set_num_residuals(static_cast<int>(of.orbit.size()));
    mutable_parameter_block_sizes()->push_back(peers::n_free);
  }
  bool Evaluate(double const* const* p, double* residuals, double** jacobians) const override {
    double* jacobian = jacobians == nullptr ? nullptr : jacobians[0];
    peers::evaluate(task, p[0], residuals, jacobian, peers::n_free, 1);
    return true;
  }
  const peers::fit_task& task;
};

template <ceres::LinearSolverType solver>
double run() {
  return peers::four_fits([](const peers::fit_task& task) {
    auto p = peers::start_values();
    ceres::Problem problem;
    problem.AddResidualBlock(new cost(task), nullptr, p.data());  // owned by the problem
    ceres::Solver::Options options;
    options.linear_solver_type = solver;
    options.max_num_iterations = peers::max_steps;
    options.function_tolerance = peers::tolerance;
    options.gradient_tolerance = peers::tolerance;
    options.parameter_tolerance = peers::tolerance;
    options.logging_type = ceres::SILENT;
    ceres::Solver::Summary summary;
    ceres::Solve(options, &problem, &summary);
    return 2 * summary.final_cost;
  });
}

const bool entered = peers::enter("Ceres, dense QR", run<ceres::DENSE_QR>) &&
                     peers::enter("Ceres, Cholesky", run<ceres::DENSE_NORMAL_CHOLESKY>);

}  // namespace
