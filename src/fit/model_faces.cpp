#include "model_faces.hpp"

namespace gain_fit_mod {
namespace {

// Signals of one orbit out of the column of its BPM; zeros for a BPM that nothing was written to.
signals reading(std::span<const store::bpm_struct> column, int orbit) {
  return column.empty() ? signals{}
                        : signals{column[static_cast<std::size_t>(orbit - 1)].button.item};
}

}  // namespace

void chi1_square(double& chis) {
  // Gathered once: gains and coefficients of the context are the same for all orbits.
  const parameters param = parameters_of(gain, coefficients);
  const auto column = orbit_data.column(bpm, norbits);
  chis = 0;
  for (int orbit = 1; orbit <= norbits; ++orbit) {
    const double r = chi1(param, reading(column, orbit));
    chis += r * r;
  }
  // The mean, where the solver's chi-square is the sum: they differ by the number of orbits.
  chis /= norbits;
}

void derivative1(const parameters& param, const signals& but, derivatives& dyda, int iterm) {
  // Beyond the last orbit dyda keeps what it had.
  if (iterm <= norbits) dyda = chi1_derivatives(param, but);
}

void mrqmin_funcs1(std::span<const double> /*xx*/, std::span<const double> a,
                   std::span<double> yfit, mrqmin_mod::matrix& dyda) {
  parameters param;
  for (int i = 1; i <= max_parameters; ++i) param(i) = a[static_cast<std::size_t>(i - 1)];

  const auto column = orbit_data.column(bpm, norbits);
  for (int iterm = 1; iterm <= nterms; ++iterm) {
    // nterms may exceed norbits: further terms repeat the last orbit, reading and derivatives both.
    if (iterm <= norbits) last_reading = reading(column, iterm);
    derivative1(param, last_reading, last_derivatives, iterm);
    const auto row = dyda.row(iterm);
    // Copied, not bound: the solver's matrix is its own and may be wider than nvar.
    for (int j = 1; j <= nvar; ++j) row[static_cast<std::size_t>(j - 1)] = last_derivatives(j);
    yfit[static_cast<std::size_t>(iterm - 1)] = chi1(param, last_reading);
  }
}

double chi(const gains& gains_in, double c, const signals& but, double current) {
  return unnormalised_residual(gains_in, c, but, current, weight);
}

}  // namespace gain_fit_mod
