#include "gain_fit_mod.hpp"

#include <cmath>

namespace gain_fit_mod {
namespace {

// The reading and the derivatives of the data point before: a point beyond norbits repeats them.
signals last_reading{};
derivatives last_derivatives{};

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

double dot(const parameters& gain_loc, const combination& b) {
  double sum = 0;
  for (int i = 1; i <= 4; ++i) sum += gain_loc(i) * b(i);
  return sum;
}

// Signals of one orbit out of the column of its BPM; zeros for a BPM that nothing was written to.
signals reading(std::span<const store::bpm_struct> column, int orbit) {
  return column.empty() ? signals{}
                        : signals{column[static_cast<std::size_t>(orbit - 1)].button.item};
}

parameters current_parameters() {
  parameters param;
  gain_to_a(gain, param);
  for (int i = 1; i <= 4; ++i) param(4 + i) = coefficients(i);
  return param;
}

}  // namespace

void reset() {
  orbit_data.clear();
  norbits = 0;
  bpm = -1;
  dets.fill(0);
  bpm_names.fill({});
  gain.fill(0);
  coefficients.fill(0);
  const_ = 0;
  intercept = 0;
  weight = 0;
  arb_gain.fill(0);
  gain_correct = 0;
  rd_number = 0;
  in_file = {};
  in_file_0 = {};
  expert = false;
  nvar = 0;
  ind = 0;
  nterms = 0;
  last_reading.fill(0);
  last_derivatives.fill(0);
}

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

void chi1_square(double& chis) {
  const parameters param = current_parameters();
  const auto column = orbit_data.column(bpm, norbits);
  chis = 0;
  for (int orbit = 1; orbit <= norbits; ++orbit) {
    const double r = chi1(param, reading(column, orbit));
    chis += r * r;
  }
  chis /= norbits;
}

void derivative1(const parameters& param, const signals& but, derivatives& dyda, int iterm) {
  if (iterm > norbits) return;

  for (int i = 1; i <= max_parameters; ++i) {
    parameters work = param;
    work(i) += derivative_step;
    const double y_p = chi1(work, but);
    work = param;
    work(i) -= derivative_step;
    const double y_m = chi1(work, but);
    dyda(i) = ((y_p - y_m) * 0.5) / derivative_step;
  }
}

void mrqmin_funcs1(std::span<const double> /*xx*/, std::span<const double> a,
                   std::span<double> yfit, mrqmin_mod::matrix& dyda) {
  parameters param;
  for (int i = 1; i <= max_parameters; ++i) param(i) = a[static_cast<std::size_t>(i - 1)];

  const auto column = orbit_data.column(bpm, norbits);
  for (int iterm = 1; iterm <= nterms; ++iterm) {
    if (iterm <= norbits) last_reading = reading(column, iterm);
    derivative1(param, last_reading, last_derivatives, iterm);
    const auto row = dyda.row(iterm);
    for (int j = 1; j <= nvar; ++j) row[static_cast<std::size_t>(j - 1)] = last_derivatives(j);
    yfit[static_cast<std::size_t>(iterm - 1)] = chi1(param, last_reading);
  }
}

double chi(const gains& gains_in, double c, const signals& but, double current) {
  combination Bpmmp;
  combination Bpmpm;
  combination Bppmm;
  bvecs(but, Bpmmp, Bpmpm, Bppmm);
  double P = 0;
  double R = 0;
  double T = 0;
  double G = 0;
  for (int i = 1; i <= 4; ++i) {
    P += Bpmmp(i) * gains_in(i);
    R += Bpmpm(i) * gains_in(i);
    T += Bppmm(i) * gains_in(i);
    G += gains_in(i) * gains_in(i);
  }
  return (P - (c / current) * R * T) + weight * (G - 1);
}

void gain_to_a(const gains& from, parameters& a) {
  for (int i = 1; i <= 4; ++i) a(i) = from(i);
}

void a_to_gain(gains& to, const parameters& a) {
  for (int i = 1; i <= 4; ++i) to(i) = a(i);
}

}  // namespace gain_fit_mod
