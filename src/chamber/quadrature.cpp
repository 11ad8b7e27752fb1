#include "quadrature.hpp"

#include <cmath>
#include <numbers>

namespace chamber_solver {

gauss_rule make_gauss_rule(int n) {
  gauss_rule rule;
  rule.node.resize(static_cast<std::size_t>(n));
  rule.weight.resize(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    // Newton on the Legendre polynomial; the start is near enough for five steps to be plenty.
    double x = -std::cos(std::numbers::pi * (i + 0.75) / (n + 0.5));
    double slope = 0;
    for (int step = 0; step < 8; ++step) {
      // Recurrence of the polynomials: p_k from the two before it.
      double p = 1, before = 0;
      // Three-term recurrence: stable upward within -1..1, where coefficients of powers cancel.
      for (int k = 1; k <= n; ++k) {
        const double next = ((2 * k - 1) * x * p - (k - 1) * before) / k;
        before = p;
        p = next;
      }
      slope = n * (x * p - before) / (x * x - 1);
      x -= p / slope;
    }
    rule.node[static_cast<std::size_t>(i)] = x;
    // The slope is one step older than x; eight steps leave no difference between the two.
    rule.weight[static_cast<std::size_t>(i)] = 2 / ((1 - x * x) * slope * slope);
  }
  return rule;
}

std::vector<double> interpolation_matrix(const std::vector<double>& from,
                                         const std::vector<double>& to) {
  std::vector<double> matrix;
  matrix.reserve(from.size() * to.size());
  // Rows are targets: a product with the values at `from` runs along memory.
  for (const double x : to) {
    for (std::size_t j = 0; j < from.size(); ++j) {
      // Lagrange's form: a dozen nodes are too few for its rounding to matter.
      double product = 1;
      for (std::size_t k = 0; k < from.size(); ++k) {
        if (k != j) product *= (x - from[k]) / (from[j] - from[k]);
      }
      matrix.push_back(product);
    }
  }
  return matrix;
}

}  // namespace chamber_solver
