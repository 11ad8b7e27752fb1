#include <cminpack.h>

#include "fit_peers.hpp"

namespace {

int model(void* task, int /*m*/, int /*n*/, const double* p, double* residual, double* jacobian,
          int by_parameter, int what) {
  const auto& of = *static_cast<const peers::fit_task*>(task);
  if (what == 1) peers::evaluate(of, p, residual, nullptr, 0, 0);
  if (what == 2)
    peers::evaluate(of, p, nullptr, jacobian, 1, static_cast<std::size_t>(by_parameter));
  return 0;
}

double run() {
  return peers::four_fits([](const peers::fit_task& task) {
    constexpr int n = peers::n_free;
    const int m = static_cast<int>(task.orbit.size());
    auto p = peers::start_values();
    std::vector<double> residual(task.orbit.size());
    std::vector<double> jacobian(task.orbit.size() * n);
    double scale[n], qtf[n], work1[n], work2[n], work3[n];
    std::vector<double> work4(task.orbit.size());
    int pivots[n];
    int residual_calls = 0;
    int jacobian_calls = 0;
    peers::fit_task model_data = task;  // lmder hands it back without const
    lmder(model, &model_data, m, n, p.data(), residual.data(), jacobian.data(), m, peers::tolerance,
          peers::tolerance, peers::tolerance, peers::max_steps, scale, 1, 100, 0, &residual_calls,
          &jacobian_calls, pivots, qtf, work1, work2, work3, work4.data());
    double chisq = 0;
    for (const double r : residual) chisq += r * r;
    return chisq;
  });
}

const bool entered = peers::enter("cminpack lmder", run);

}  // namespace
