#include "four_fits.hpp"

#include <algorithm>
#include <numeric>

#include "gain_batch.hpp"
#include "mrqmin.hpp"

namespace gain_fit_mod {
namespace {

// Start values: the curve of a round pipe with buttons of the usual width, which later chambers are
// near enough to. They and the limits are single-precision literals, widened: the results hang on
// their bits.
constexpr double start_amplitude{0.19467656F};
constexpr double start_scale{10.404831F};
constexpr double start_h2{-0.011293941F};    // still times the amplitude
constexpr double start_h3{0.0030660552F};    // likewise
constexpr double damping_converged{1e-21F};  // eighteen accepted steps from 0.001 on
constexpr double damping_stuck = 100;        // five rejected ones: no step is small enough
constexpr double chisq_converged{1.2e-11F};
constexpr int max_iterations = 100;

constexpr std::size_t n_parameters{max_parameters};

constexpr coefficient_set start_coefficients{
    {start_amplitude, start_scale, start_h2 / start_amplitude, start_h3 / start_amplitude}};

// What the solver asks of the model, over one BPM's readings.
struct model_of_readings {
  std::span<const signals> readings;
  signal_batch batch;  // unless literal
  trial_values found;  // by the last question for chi-square
  solver::residual_sums sums;
  solver::model literal;
};

parameters parameters_from(std::span<const double> a) {
  parameters param;
  // The solver knows plain vectors only; the model wants names and bounds.
  std::copy_n(a.begin(), n_parameters, param.item.begin());
  return param;
}

// Residuals and derivatives orbit by orbit, as the formulas stand.
void evaluate_literally(std::span<const signals> readings, std::span<const double> a,
                        std::span<double> yfit, solver::matrix& dyda) {
  const parameters param = parameters_from(a);
  for (std::size_t n = 0; n < readings.size(); ++n) {
    const derivatives by = chi1_derivatives(param, readings[n]);
    std::ranges::copy(by.item, dyda.row(static_cast<int>(n) + 1).begin());
    yfit[n] = chi1(param, readings[n]);
  }
}

// The batch's products, packed as the solver wants them.
void put_curvature(const model_of_readings& model, std::span<const double> a,
                   std::span<const bool> maska, solver::matrix& alpha, std::span<double> beta) {
  product_sums sums;
  product_sums_at(model.batch, a, maska, model.found, sums);
  const auto n_free = static_cast<int>(std::count(maska.begin(), maska.end(), true));
  for (int j = 0; j < n_free; ++j) {
    // The batch fills one triangle; the elimination reads the whole square.
    for (int k = 0; k < n_free; ++k) alpha(j + 1, k + 1) = sums.of[std::max(j, k)][std::min(j, k)];
    beta[static_cast<std::size_t>(j)] = sums.of[residual_column][j];
  }
}

// The solver's questions refer to the record that they are made in: it must not move afterwards.
void prepare_model(model_of_readings& model, const fit_manner& manner) {
  if (manner.literal) {
    model.literal = [&model](auto /*x*/, auto a, auto yfit, auto& dyda) {
      evaluate_literally(model.readings, a, yfit, dyda);
    };
    return;
  }
  model.batch = make_batch(model.readings, manner.instruction_set);
  model.sums.chi_square = [&model](auto a) { return chi_square(model.batch, a, model.found); };
  model.sums.curvature = [&model](auto a, auto maska, auto& alpha, auto beta) {
    put_curvature(model, a, maska, alpha, beta);
  };
}

double mean_square(model_of_readings& model, const fit_manner& manner, const parameters& a) {
  const auto n = static_cast<double>(model.readings.size());
  if (!manner.literal) return chi_square(model.batch, a.item, model.found) / n;
  double chis = 0;
  for (const signals& but : model.readings) {
    const double r = chi1(a, but);
    chis += r * r;
  }
  return chis / n;
}

// One repetition's hold on the solver.
struct repetition {
  int held = 0;
  solver::problem problem;
  std::vector<double> xx, yy, sig;         // one value per orbit
  parameters a{};                          // gains and curve as the solver moves them
  std::array<bool, n_parameters> maska{};  // true = free
  solver::matrix covar{"covar", max_parameters, max_parameters};
  solver::matrix alpha{"alpha", max_parameters, max_parameters};
  double chisq = 0;
  double alamda = -1;
  solver::fit_state state;
};

void prepare(repetition& r, const model_of_readings& model) {
  const std::size_t n = model.readings.size();
  r.xx.resize(n);
  std::iota(r.xx.begin(), r.xx.end(), 1.0);
  // The model is the residual itself, to be fitted to 0 with one weight for all orbits.
  r.yy.assign(n, 0.0);
  r.sig.assign(n, 1.0);
  // Spans into this very record: r must not move from here on.
  r.problem = {.x = r.xx,
               .y = r.yy,
               .sig = r.sig,
               .maska = r.maska,
               .funcs = model.literal,
               .sums = model.literal ? nullptr : &model.sums};
}

void start(repetition& r, int held) {
  r.held = held;
  r.a = parameters_of({{1, 1, 1, 1}}, start_coefficients);
  r.alamda = -1;
}

void note(std::vector<fit_event>& events, fit_event::kind what, const repetition& r) {
  // By value: the solver goes on with all of it.
  events.push_back({what, r.held, r.chisq, r.a, r.alamda});
}

void step(repetition& r, std::vector<fit_event>& events) {
  // No fault can come of it: the sizes agree, and each repetition begins with an initialising call.
  static_cast<void>(
      solver::mrqmin(r.problem, r.a.item, r.covar, r.alpha, r.chisq, r.alamda, r.state));
  // Before the event of the step itself: a session tells the matrix while the step is being made.
  if (r.state.zero_pivot) note(events, fit_event::kind::zero_pivot, r);
}

// Only the first pair initialises the solver; the later ones go on from the curvature of the pair
// before, and from its damping. The values that the full fit starts from depend on it.
void sweep_pairs(repetition& r, std::vector<fit_event>& events) {
  for (int j = 0; j <= 3; ++j) {
    const int p = ((r.held + j - 1) % 4) + 1;
    // Buttons are numbered from 1, so the remainder is taken before the 1 is added.
    const int q = (p % 4) + 1;
    r.maska.fill(false);
    r.maska.at(static_cast<std::size_t>(p - 1)) = true;
    r.maska.at(static_cast<std::size_t>(q - 1)) = true;
    step(r, events);
    note(events, fit_event::kind::step, r);
  }
  r.alamda = 0;
  step(r, events);
  note(events, fit_event::kind::sweep_end, r);
}

bool has_ended(const repetition& r, int iteration) {
  // A chi-square that is not a number ends nothing: rejected steps then drive the damping up.
  return iteration > 0 && (r.alamda < damping_converged || r.alamda > damping_stuck ||
                           iteration > max_iterations || r.chisq < chisq_converged);
}

// Everything moves but the held gain. The finishing call yields the covariance matrix.
void fit_all_but_held(repetition& r, std::vector<fit_event>& events) {
  r.maska.fill(true);
  r.maska.at(static_cast<std::size_t>(r.held - 1)) = false;
  r.alamda = -1;
  // Judged before each step, so that a fit which has ended makes exactly one call more.
  bool last_call = false;
  for (int iteration = 0; !last_call; ++iteration) {
    if (has_ended(r, iteration)) {
      r.alamda = 0;
      last_call = true;
    }
    step(r, events);
    note(events, fit_event::kind::step, r);
  }
}

one_fit result_of(const repetition& r) {
  one_fit fit;
  a_to_gain(fit.gain, r.a);
  for (int i = 1; i <= 4; ++i) fit.coefficients(i) = r.a(4 + i);
  fit.chisq = r.chisq;
  fit.singular = r.state.zero_pivot;
  for (int i = 1; i <= max_parameters; ++i)
    for (int j = 1; j <= max_parameters; ++j) fit.covariance(i, j) = r.covar(i, j);
  return fit;
}

}  // namespace

four_fits fit_readings(std::span<const signals> readings, const fit_manner& manner) {
  model_of_readings model;
  model.readings = readings;
  prepare_model(model, manner);
  four_fits fits;
  repetition r;
  prepare(r, model);
  // One repetition record for all four: its matrices go on being used, its start values do not.
  for (const int held : {1, 2, 3, 4}) {
    start(r, held);
    r.chisq = mean_square(model, manner, r.a);
    note(fits.events, fit_event::kind::start, r);
    sweep_pairs(r, fits.events);
    fit_all_but_held(r, fits.events);
    fits.fit.at(static_cast<std::size_t>(held - 1)) = result_of(r);
    note(fits.events, fit_event::kind::final, r);
  }
  return fits;
}

}  // namespace gain_fit_mod
