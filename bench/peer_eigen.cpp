#include <Eigen/Dense>
#include <unsupported/Eigen/NonLinearOptimization>

#include "fit_peers.hpp"

namespace {

struct functor {
  using Scalar = double;
  using InputType = Eigen::VectorXd;
  using ValueType = Eigen::VectorXd;
  using JacobianType = Eigen::MatrixXd;
  enum { InputsAtCompileTime = Eigen::Dynamic, ValuesAtCompileTime = Eigen::Dynamic };

  const peers::fit_task& task;
  int inputs() const { return peers::n_free; }
  int values() const { return static_cast<int>(task.orbit.size()); }
  int operator()(const Eigen::VectorXd& p, Eigen::VectorXd& residual) const {
    peers::evaluate(task, p.data(), residual.data(), nullptr, 0, 0);
    return 0;
  }
  int df(const Eigen::VectorXd& p, Eigen::MatrixXd& jacobian) const {
    peers::evaluate(task, p.data(), nullptr, jacobian.data(), 1, task.orbit.size());
    return 0;
  }
};

double run() {
  return peers::four_fits([](const peers::fit_task& task) {
    const auto start = peers::start_values();
    Eigen::VectorXd p = Eigen::Map<const Eigen::VectorXd>(start.data(), peers::n_free);
    functor f{task};
    Eigen::LevenbergMarquardt<functor> lm(f);
    lm.parameters.ftol = peers::tolerance;
    lm.parameters.xtol = peers::tolerance;
    lm.parameters.gtol = peers::tolerance;
    lm.parameters.maxfev = peers::max_steps;
    lm.minimize(p);
    return lm.fvec.squaredNorm();
  });
}

const bool entered = peers::enter("Eigen LevenbergMarquardt", run);

}  // namespace
