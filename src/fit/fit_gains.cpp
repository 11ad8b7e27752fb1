#include "fit_gains.hpp"

#include <array>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "fields.hpp"
#include "gain_batch.hpp"
#include "gain_fit_mod.hpp"
#include "list_io.hpp"
#include "mrqmin.hpp"
#include "terminal.hpp"

namespace gain_fit_mod {
namespace {

// Start values and limits are single-precision literals, widened: the results hang on their bits.
constexpr double start_amplitude{0.19467656F};
constexpr double start_scale{10.404831F};
constexpr double start_h2{-0.011293941F};  // still times the amplitude
constexpr double start_h3{0.0030660552F};  // likewise
constexpr double damping_converged{1e-21F};
constexpr double damping_stuck = 100;
constexpr double chisq_converged{1.2e-11F};
constexpr int max_iterations = 100;

constexpr std::size_t n_parameters{max_parameters};

// One repetition's hold on the solver.
struct fit_work {
  std::vector<double> xx, yy, sig;         // one value per orbit
  parameters a{};                          // gains and curve as the solver moves them
  std::array<bool, n_parameters> maska{};  // true = free
  mrqmin_mod::matrix covar{"covar", max_parameters, max_parameters};
  mrqmin_mod::matrix alpha{"alpha", max_parameters, max_parameters};
  double chisq = 0;
  double alamda = -1;
};

// --- lines on standard output -------------------------------------------------------------------

void put_chis_and_gains(std::string& line, double chis, std::span<const double> gains_shown) {
  util::put_text(line, " chis2 = ", 9);
  util::put_exponent(line, chis);
  line += " gain ";
  for (const double g : gains_shown) util::put_fixed(line, g);
}

void tell_start(double chis) {
  std::string line;
  put_chis_and_gains(line, chis, gain.item);
  util::print_line(line);
}

void tell_progress(const fit_work& fit) {
  const std::span all{fit.a.item};
  static std::string line;  // keeps its memory: a run writes hundreds of these per BPM
  line.clear();
  put_chis_and_gains(line, fit.chisq, all.first(4));
  util::put_text(line, " coef = ", 8);
  for (const double c : all.last(4)) util::put_fixed(line, c);
  util::put_text(line, " alambda = ", 8);  // the field keeps " alambda": columns stay put
  util::put_exponent(line, fit.alamda);
  util::print_line(line);
}

void tell_final(double chisq) {
  std::string line;
  util::put_text(line, "final", 8);
  put_chis_and_gains(line, chisq, gain.item);
  util::put_text(line, " const = ", 8);  // the field keeps " const ="
  util::put_fixed(line, const_);
  util::print_line(line);
}

// --- steps of one repetition --------------------------------------------------------------------

void load_start_values() {
  gain.fill(1);
  coefficients = {{start_amplitude, start_scale, start_h2, start_h3}};
  coefficients(3) /= coefficients(1);
  coefficients(4) /= coefficients(1);
}

void gain_and_coefficients_to(parameters& a) {
  gain_to_a(gain, a);
  for (int i = 1; i <= 4; ++i) a(4 + i) = coefficients(i);
}

void gain_and_coefficients_from(const parameters& a) {
  a_to_gain(gain, a);
  for (int i = 1; i <= 4; ++i) coefficients(i) = a(4 + i);
}

void prepare(fit_work& fit) {
  const auto n = static_cast<std::size_t>(norbits);
  fit.xx.resize(n);
  std::iota(fit.xx.begin(), fit.xx.end(), 1.0);
  fit.yy.assign(n, 0.0);
  fit.sig.assign(n, 1.0);
  gain_and_coefficients_to(fit.a);
  fit.alamda = -1;
}

double mean_square(const fit_work& fit) {
  double chis = 0;
  if (literal_form) {
    chi1_square(chis);
  } else {
    chis = batch_sums.chi_square(fit.a.item) / norbits;
  }
  return chis;
}

void step(fit_work& fit) {
  const mrqmin_mod::problem p{.x = fit.xx,
                              .y = fit.yy,
                              .sig = fit.sig,
                              .maska = fit.maska,
                              .funcs = mrqmin_funcs1,
                              .sums = literal_form ? nullptr : &batch_sums};
  mrqmin_mod::mrqmin(p, fit.a.item, fit.covar, fit.alpha, fit.chisq, fit.alamda);
}

// Only the first pair initialises the solver; the later ones go on from the curvature of the pair
// before, and from its damping. The values that the full fit starts from depend on it.
void sweep_pairs(fit_work& fit) {
  for (int j = 0; j <= 3; ++j) {
    const int p = ((ind + j - 1) % 4) + 1;
    const int q = (p % 4) + 1;
    fit.maska.fill(false);
    fit.maska.at(static_cast<std::size_t>(p - 1)) = true;
    fit.maska.at(static_cast<std::size_t>(q - 1)) = true;
    step(fit);
    tell_progress(fit);
  }
  fit.alamda = 0;
  step(fit);
  util::print_line(util::list_line().text(" ").str());
}

bool has_ended(const fit_work& fit, int iteration) {
  // A chi-square that is not a number ends nothing: rejected steps then drive the damping up.
  return iteration > 0 && (fit.alamda < damping_converged || fit.alamda > damping_stuck ||
                           iteration > max_iterations || fit.chisq < chisq_converged);
}

// Everything moves but gain ind. The finishing call yields the covariance matrix.
void fit_all_but_held(fit_work& fit) {
  fit.maska.fill(true);
  fit.maska.at(static_cast<std::size_t>(ind - 1)) = false;
  fit.alamda = -1;
  bool last_call = false;
  for (int iteration = 0; !last_call; ++iteration) {
    if (has_ended(fit, iteration)) {
      fit.alamda = 0;
      last_call = true;
    }
    step(fit);
    gain_and_coefficients_from(fit.a);
    tell_progress(fit);
  }
  const_ = coefficients(1);
}

void save(const fit_work& fit, chis_saved& chis_save, gains_saved& gain_save,
          coeffs_saved& coeff_save, covar_saved& covar_save) {
  for (int i = 1; i <= 4; ++i) {
    chis_save(i) = fit.chisq;  // all four, each time: the last fit's value is the one that stays
    coeff_save(ind, i) = coefficients(i);
    gain_save(ind, i) = gain(i);
  }
  for (int i = 1; i <= max_parameters; ++i)
    for (int j = 1; j <= max_parameters; ++j) covar_save(ind, i, j) = fit.covar(i, j);
}

}  // namespace

void fit_gains(chis_saved& chis_save, gains_saved& gain_save, coeffs_saved& coeff_save,
               covar_saved& covar_save) {
  nterms = norbits;
  nvar = max_parameters;
  covar_save.fill(0);
  gain_save.fill(0);
  if (!literal_form) load_batch();
  fit_work fit;
  for (const int held : {1, 2, 3, 4}) {
    ind = held;
    std::string line = " ind = ";
    util::put_integer(line, ind, 12);
    util::print_line(line);

    load_start_values();
    prepare(fit);
    tell_start(mean_square(fit));
    sweep_pairs(fit);
    fit_all_but_held(fit);
    save(fit, chis_save, gain_save, coeff_save, covar_save);
    tell_final(fit.chisq);
  }
}

}  // namespace gain_fit_mod
