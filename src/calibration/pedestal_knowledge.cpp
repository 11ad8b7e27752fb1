#include "pedestal_knowledge.hpp"

#include <algorithm>
#include <cmath>

namespace calibration {
namespace {

// Knowledge without any doubt would have an infinite weight [median signal].
constexpr double least_pedestal = 1e-10;

// B' (C + v 1)^-1 B of the columns B = [p, covariance of p with ln t_1..4], by elimination.
using pedestal_products = std::array<std::array<double, 5>, 5>;
pedestal_products products_of(const fit_result& fit, double v) {
  std::array<std::array<double, 9>, 4> a{};
  for (int k = 1; k <= 4; ++k) {
    auto& row = a[static_cast<std::size_t>(k - 1)];
    for (int m = 1; m <= 4; ++m) {
      row[static_cast<std::size_t>(m - 1)] = fit.pedestal_covariance(k, m);
      row[static_cast<std::size_t>(m) + 4] = fit.shared_covariance(m, k);
    }
    row[static_cast<std::size_t>(k - 1)] += v;
    row[4] = fit.pedestal(k);
  }
  pedestal_products products{};
  // Knowledge that is added makes the matrix positive definite. What is taken out was part of C, so
  // that v is below -C: negative definite. No pivots either way.
  for (std::size_t i = 0; i < 4; ++i) {
    for (std::size_t m = 0; m < 5; ++m) {
      for (std::size_t n = 0; n < 5; ++n) products[m][n] += a[i][4 + m] * a[i][4 + n] / a[i][i];
    }
    for (std::size_t j = i + 1; j < 4; ++j) {
      const double part = a[j][i] / a[i][i];
      for (std::size_t k = i; k < 9; ++k) a[j][k] -= part * a[i][k];
    }
  }
  return products;
}

double weight_of(double rms) {
  const double at_least = std::max(rms, least_pedestal);
  return 1 / (at_least * at_least);
}

}  // namespace

double pedestal_chi_square(const fit_result& wide, double sigma_p) {
  return products_of(wide, sigma_p * sigma_p)[0][0];
}

ratios_under with_prior(const fit_result& fit, double prior, double other) {
  const double added = weight_of(other) - weight_of(prior);
  pedestal_products by{};
  if (added != 0) by = products_of(fit, 1 / added);
  ratios_under under;
  for (int k = 2; k <= 4; ++k) {
    // Ratios to button 1: the common factor of the four is the intensity's.
    const auto i = static_cast<std::size_t>(k);
    under.value[i - 2] = std::log(fit.t(k) / fit.t(1)) - by[i][0] + by[1][0];
    under.variance[i - 2] = fit.covariance(k, k) + fit.covariance(1, 1) - 2 * fit.covariance(k, 1) -
                            by[i][i] - by[1][1] + 2 * by[i][1];
  }
  return under;
}

}  // namespace calibration
