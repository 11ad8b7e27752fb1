#include "gain_model.hpp"

#include <cmath>

namespace gain_fit_mod {
namespace {

// The total that a combination is divided by, each time summed anew: the formula is written down
// here as it is promised, and the batch sums are held to it.
void divide_by_total(const parameters& gain_loc, const signals& but, combination& b) {
  double S = 0;
  for (int i = 1; i <= 4; ++i) S += but(i) * gain_loc(i);
  for (int i = 1; i <= 4; ++i) b(i) /= S;
}

combination with_signs(const signals& but, const signals& signs) {
  combination b;
  for (int i = 1; i <= 4; ++i) b(i) = but(i) * signs(i);
  return b;
}

// Gains 1..4 stand first in parameters and gains alike.
template <class gain_carrier>
double dot(const gain_carrier& gain_loc, const combination& b) {
  double sum = 0;
  for (int i = 1; i <= 4; ++i) sum += gain_loc(i) * b(i);
  return sum;
}

}  // namespace

void bvecs(const signals& but, combination& Bpmmp, combination& Bpmpm, combination& Bppmm) {
  Bpmmp = with_signs(but, spmmp);
  Bpmpm = with_signs(but, spmpm);
  Bppmm = with_signs(but, sppmm);
}

double chi1(const parameters& param, const signals& but) {
  combination Bpmmp;
  combination Bpmpm;
  combination Bppmm;
  bvecs(but, Bpmmp, Bpmpm, Bppmm);
  // Divided before the sums, element by element: this order is part of the promise, and the last
  // bits of every residual hang on it.
  divide_by_total(param, but, Bpmmp);
  divide_by_total(param, but, Bpmpm);
  divide_by_total(param, but, Bppmm);
  const double X = dot(param, Bpmpm);
  const double Y = dot(param, Bppmm);
  const double arg = X * Y;
  const double s1 = std::sin(param(6) * arg);
  const double s2 = std::sin((2 * param(6)) * arg);
  const double s3 = std::sin((2 * param(6)) * arg);  // not three times: the model is meant so
  const double Q = dot(param, Bpmmp);
  return param(5) * ((s1 + param(7) * s2) + param(8) * s3) - Q;
}

// Each step starts from the parameters as they were given: stepped back and forth in one copy they
// would come to rest a rounding away.
derivatives chi1_derivatives(const parameters& param, const signals& but) {
  derivatives dyda;
  for (int i = 1; i <= max_parameters; ++i) {
    parameters work = param;
    work(i) += derivative_step;
    const double y_p = chi1(work, but);
    work = param;
    work(i) -= derivative_step;
    const double y_m = chi1(work, but);
    // Central: what a one-sided quotient leaves out is of first order in the step, this of second.
    dyda(i) = ((y_p - y_m) * 0.5) / derivative_step;
  }
  return dyda;
}

double unnormalised_residual(const gains& gain, double c, const signals& but, double current,
                             double weight) {
  combination Bpmmp;
  combination Bpmpm;
  combination Bppmm;
  bvecs(but, Bpmmp, Bpmpm, Bppmm);
  // The weight holds the gains at unit length: without it all gains zero would fit anything.
  double G = 0;
  for (int i = 1; i <= 4; ++i) G += gain(i) * gain(i);
  const double P = dot(gain, Bpmmp);
  const double R = dot(gain, Bpmpm);
  const double T = dot(gain, Bppmm);
  return (P - (c / current) * R * T) + weight * (G - 1);
}

parameters parameters_of(const gains& gain, const coefficient_set& coefficients) {
  parameters param;
  gain_to_a(gain, param);
  for (int i = 1; i <= 4; ++i) param(4 + i) = coefficients(i);
  return param;
}

void gain_to_a(const gains& from, parameters& a) {
  for (int i = 1; i <= 4; ++i) a(i) = from(i);
}

void a_to_gain(gains& to, const parameters& a) {
  for (int i = 1; i <= 4; ++i) to(i) = a(i);
}

}  // namespace gain_fit_mod
