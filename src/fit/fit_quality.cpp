#include "fit_quality.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>

namespace gain_fit_mod {
namespace {

constexpr double no_value = std::numeric_limits<double>::infinity();

// Limits on the worse of uncertainty and spread. Of 1875 wrong gains a first limit of 0.005 let 307
// pass, 0.0012 lets 135, and none of 650 healthy BPMs comes near it.
constexpr double good_to = 0.0012;
constexpr double doubtful_to = 0.02;

// Between what one plane alone reaches (6.3) and what sound data have (59).
constexpr double least_excitation = 10;

// Buttons of one BPM are made alike; a gain this far from its fellows is a false minimum, in which
// the fit has switched a button off.
constexpr double smallest_share = 0.2;

constexpr std::array<std::string_view, 4> button_names{"BI", "BO", "TI", "TO"};

// --- one orbit, and all of them, at the end of a fit ----------------------------------------------

// Am, k and the sum of h2 and h3, then gains 1..4: the curve is eliminated first.
constexpr std::size_t n_curve = 3;
constexpr std::size_t n_gains = 4;
constexpr std::size_t n_columns = n_curve + n_gains;
using columns = std::array<double, n_columns>;
using curvature = std::array<columns, n_columns>;

struct orbit_slopes {
  double X = 0, Y = 0;
  columns by{};  // slopes of the residual; by a gain: times the gain, so that steps are relative
};

// In closed form: a verdict does not hang on the last digits, as the fit's own slopes do.
orbit_slopes slopes_of(const signals& but, const one_fit& fit) {
  std::array<double, n_gains> share{};
  double S = 0;
  for (int k = 1; k <= 4; ++k) S += fit.gain(k) * but(k);
  orbit_slopes at;
  double Q = 0;
  for (int k = 1; k <= 4; ++k) {
    const double part = fit.gain(k) * but(k) / S;
    share[static_cast<std::size_t>(k) - 1] = part;
    at.X += spmpm(k) * part;
    at.Y += sppmm(k) * part;
    Q += spmmp(k) * part;
  }
  const auto [Am, k, h2, h3] = fit.coefficients.item;
  const double h = h2 + h3;
  const double u = at.X * at.Y;
  const double sine = std::sin(k * u);
  const double cosine = std::cos(k * u);
  const double sine2 = 2 * sine * cosine;
  const double steepness = cosine + 2 * h * (cosine * cosine - sine * sine);
  for (std::size_t i = 0; i < n_gains; ++i) {
    const int button = static_cast<int>(i) + 1;
    // Shares add up to 1: a gain that grows moves X and Y towards its own button, by the distance.
    const double u_moves = (spmpm(button) - at.X) * at.Y + (sppmm(button) - at.Y) * at.X;
    at.by[n_curve + i] = share[i] * (Am * k * steepness * u_moves - (spmmp(button) - Q));
  }
  at.by[0] = sine + h * sine2;
  at.by[1] = Am * u * steepness;
  at.by[2] = Am * sine2;
  return at;
}

// What the readings look like under a fit.
struct fit_landscape {
  curvature N{};              // sums over the orbits of the products of slopes
  double sd_X = 0, sd_Y = 0;  // [-]
};

// A sum for a standard deviation, about a value near the mean: squares of the whole X would drown
// the little by which a quiet beam moves.
struct deviation_sum {
  double about = 0, sum = 0, squares = 0;
};

void add(deviation_sum& d, double value) {
  d.sum += value - d.about;
  d.squares += (value - d.about) * (value - d.about);
}

double standard_deviation(const deviation_sum& d, double n) {
  return std::sqrt(std::max(d.squares - d.sum * d.sum / n, 0.0) / n);
}

fit_landscape landscape_of(std::span<const signals> readings, const one_fit& fit) {
  fit_landscape land;
  const orbit_slopes first = slopes_of(readings.front(), fit);
  deviation_sum X{first.X};
  deviation_sum Y{first.Y};
  for (const signals& but : readings) {
    const orbit_slopes at = slopes_of(but, fit);
    add(X, at.X);
    add(Y, at.Y);
    for (std::size_t i = 0; i < n_columns; ++i)
      for (std::size_t j = 0; j <= i; ++j) land.N[i][j] += at.by[i] * at.by[j];
  }
  const auto n = static_cast<double>(readings.size());
  land.sd_X = standard_deviation(X, n);
  land.sd_Y = standard_deviation(Y, n);
  return land;
}

// --- uncertainty ----------------------------------------------------------------------------------

constexpr std::size_t n_free = n_columns - 1;  // one gain is held
using free_matrix = std::array<std::array<double, n_free>, n_free>;

// The curvature without a held gain, as the triangle L of A = L L^T, with each parameter in the
// unit that makes its diagonal 1. What is left of a pivot then tells how far a column depends on
// those before it.
struct triangle {
  free_matrix L{};
  std::array<double, n_free> unit{};  // what 1 is in sums over the orbits; squared, the diagonal
  bool sound = true;                  // every gain moves the residuals in a way of its own
};

triangle factor(const curvature& N, std::size_t held) {
  // Rounding of sums over thousands of orbits, beside a diagonal of 1.
  constexpr double rounding = 1e-13;
  std::array<std::size_t, n_free> at{};
  triangle t;
  for (std::size_t i = 0; i < n_free; ++i) {
    at[i] = i < held ? i : i + 1;
    t.unit[i] = std::sqrt(N[at[i]][at[i]]);
  }
  for (std::size_t i = 0; i < n_free; ++i) {
    bool in_use = t.unit[i] > 0;
    for (std::size_t j = 0; j <= i && in_use; ++j) {
      double rest = N[at[i]][at[j]] / (t.unit[i] * t.unit[j]);
      for (std::size_t m = 0; m < j; ++m) rest -= t.L[i][m] * t.L[j][m];
      if (j < i) {
        t.L[i][j] = t.L[j][j] > 0 ? rest / t.L[j][j] : 0;
      } else if (rest > rounding) {
        t.L[i][i] = std::sqrt(rest);
      }
    }
    // A parameter of the curve that the others can stand in for takes nothing from the gains: with
    // little curvature in the data h and k often do the same. It is left out; a gain is not.
    if (!(t.L[i][i] > 0) && i >= n_curve) t.sound = false;
  }
  return t;
}

// Standard deviation of parameter `of` for a residual of 1: the length of L^-1 e.
double deviation_of(const triangle& t, std::size_t of) {
  std::array<double, n_free> v{};
  double squares = 0;
  for (std::size_t i = of; i < n_free; ++i) {
    double rest = i == of ? 1 : 0;
    for (std::size_t m = of; m < i; ++m) rest -= t.L[i][m] * v[m];
    v[i] = rest / t.L[i][i];
    squares += v[i] * v[i];
  }
  return std::sqrt(squares) / t.unit[of];
}

// Largest standard deviation of a gain relative to the held one, whichever is held.
double largest_uncertainty(const curvature& N, double rms_residual) {
  double largest = 0;
  for (std::size_t held = n_curve; held < n_columns; ++held) {
    const triangle t = factor(N, held);
    if (!t.sound) return no_value;
    for (std::size_t i = n_curve; i < n_free; ++i) largest = std::max(largest, deviation_of(t, i));
  }
  // The same noise for all: one factor at the end, instead of weights in every sum.
  return largest * rms_residual;
}

double largest_spread(const four_fits& fits) {
  double largest = 0;
  for (int k = 2; k <= 4; ++k) {
    double lowest = no_value;
    double highest = -no_value;
    for (const one_fit& fit : fits.fit) {
      const double ratio = fit.gain(1) / fit.gain(k);
      lowest = std::min(lowest, ratio);
      highest = std::max(highest, ratio);
    }
    largest = std::max(largest, highest - lowest);
  }
  return largest;
}

// --- what makes a verdict needless ----------------------------------------------------------------

std::string listed(const std::array<double, 4>& values) {
  return fmt::format("{:.4g} {:.4g} {:.4g} {:.4g}", values[0], values[1], values[2], values[3]);
}

// The orbit that makes the chi-square no number: its signals cancel, or are no numbers themselves.
std::string chi_square_fault(std::span<const signals> readings, const one_fit& fit) {
  for (std::size_t i = 0; i < readings.size(); ++i) {
    if (std::isfinite(chi1(parameters_of(fit.gain, fit.coefficients), readings[i]))) continue;
    return fmt::format("orbit {} makes the chi-square no number: its signals are {}", i + 1,
                       listed(readings[i].item));
  }
  return "the chi-square is not a number";
}

// Why a fit's gains cannot be gains; empty when they can.
std::string gain_fault(const four_fits& fits) {
  for (std::size_t f = 0; f < fits.fit.size(); ++f) {
    const auto& g = fits.fit.at(f).gain.item;
    const auto finite = [](double value) { return std::isfinite(value); };
    if (!std::all_of(g.begin(), g.end(), finite)) {
      return fmt::format("fit {} ended at a gain that is no number: {}", f + 1, listed(g));
    }
    const auto [least, most] = std::minmax_element(g.begin(), g.end());
    // Negative gains fail as well: the least is then below any share of the most.
    if (!(*least > smallest_share * *most)) {
      return fmt::format("fit {} ended at a gain below a fifth of the largest: {}", f + 1,
                         listed(g));
    }
  }
  return {};
}

std::string singular_fault(const four_fits& fits) {
  for (std::size_t f = 0; f < fits.fit.size(); ++f) {
    if (fits.fit.at(f).singular) {
      return fmt::format("fit {} ended at a singular matrix; did the beam move enough?", f + 1);
    }
  }
  return {};
}

// --- saturation -----------------------------------------------------------------------------------

// Readings that stand at a button's maximum: one in a hundred of a button that works would be
// chance, unless readings repeat anyway; then those at the next lower value repeat as well.
constexpr int least_at_maximum = 5;
constexpr int share_at_maximum = 100;  // one in so many
constexpr int times_the_next = 3;
// Simulated buttons that stop at full scale in 1.4 % of the readings make gains wrong by 0.3 %, in
// 2.4 % by 0.7 %, in 4.3 % by 2 %, in 8 % by 4 %.
constexpr int share_that_ruins = 25;

struct top_readings {
  double most = -no_value, next = -no_value;
  int at_most = 0, at_next = 0;
};

top_readings top_of(std::span<const signals> readings, int button) {
  top_readings top;
  for (const signals& but : readings) {
    const double b = but(button);
    if (b > top.most) {
      top.next = top.most;
      top.at_next = top.at_most;
      top.most = b;
      top.at_most = 1;
    } else if (b == top.most) {  // exactly: a saturated channel says the same number each time
      ++top.at_most;
    } else if (b > top.next) {
      top.next = b;
      top.at_next = 1;
    } else if (b == top.next) {
      ++top.at_next;
    }
  }
  return top;
}

struct saturation {
  std::string buttons;  // in words; empty: none
  bool ruins = false;   // too often for gains that are good to a percent
};

saturation saturation_of(std::span<const signals> readings) {
  saturation found;
  const auto n = static_cast<int>(readings.size());
  for (int k = 1; k <= 4; ++k) {
    const top_readings top = top_of(readings, k);
    // A button that never says anything else belongs to a beam that stands still.
    const bool saturated = top.at_most < n && top.at_most >= least_at_maximum &&
                           top.at_most * share_at_maximum >= n &&
                           top.at_most >= times_the_next * top.at_next;
    if (!saturated) continue;
    found.ruins = found.ruins || top.at_most * share_that_ruins > n;
    found.buttons +=
        fmt::format("button {} is saturated, {} of {} readings are {:.4g}; ",
                    button_names.at(static_cast<std::size_t>(k) - 1), top.at_most, n, top.most);
  }
  return found;
}

// --- the verdict ----------------------------------------------------------------------------------

// Why the figures below are not worth taking; empty when they are.
std::string fault_of(std::span<const signals> readings, const four_fits& fits) {
  if (readings.size() <= free_parameters) {
    return fmt::format("{} orbits for {} free parameters", readings.size(), free_parameters);
  }
  const one_fit& last = fits.fit.back();  // its chi-square is the one that all tables show
  // Chi-square first: an orbit without a number spoils gains and matrix too, and is what can be
  // mended.
  if (!std::isfinite(last.chisq)) return chi_square_fault(readings, last);
  std::string fault = gain_fault(fits);
  return fault.empty() ? singular_fault(fits) : fault;
}

std::string percent(double value) {
  return std::isfinite(value) ? fmt::format("{:.4g} %", 100 * value) : "beyond measure";
}

std::string figures_of(const gain_quality& q) {
  return fmt::format("largest uncertainty {}, repetitions within {}", percent(q.uncertainty),
                     percent(q.spread));
}

std::string quiet_beam(const fit_landscape& land, double rms_residual) {
  const double least = least_excitation * rms_residual;
  const std::string_view plane = land.sd_X >= least ? " in Y" : land.sd_Y >= least ? " in X" : "";
  return fmt::format(
      "the beam hardly moved{}: sd X {:.4g}, sd Y {:.4g}, expected at least {} times the rms "
      "residual of {:.4g}",
      plane, land.sd_X, land.sd_Y, least_excitation, rms_residual);
}

}  // namespace

gain_quality judge_gains(std::span<const signals> readings, const four_fits& fits) {
  gain_quality q;
  q.uncertainty = no_value;
  q.spread = no_value;
  const std::string open = "WARNING: gains NOT determined by these data: ";
  // Looked for before any fault: a full scale is often the reason for one, and is told in front of
  // it.
  const saturation saturated = saturation_of(readings);
  if (const std::string fault = fault_of(readings, fits); !fault.empty()) {
    q.reason = open + saturated.buttons + fault;
    return q;
  }
  const one_fit& last = fits.fit.back();
  // Above 0: too few orbits were refused with the faults.
  const auto degrees_of_freedom = static_cast<double>(readings.size() - free_parameters);
  const double rms_residual = std::max(residual_floor, std::sqrt(last.chisq / degrees_of_freedom));
  const fit_landscape land = landscape_of(readings, last);
  q.excitation = std::min(land.sd_X, land.sd_Y) / rms_residual;
  q.uncertainty = largest_uncertainty(land.N, rms_residual);
  q.spread = largest_spread(fits);
  const double worse = std::max(q.uncertainty, q.spread);
  if (!(q.excitation >= least_excitation)) {
    q.reason = open + quiet_beam(land, rms_residual);
  } else if (!(worse <= doubtful_to) || saturated.ruins) {
    q.reason = open + saturated.buttons + figures_of(q) + "; did the beam move enough?";
  } else if (worse <= good_to && saturated.buttons.empty()) {
    q.verdict = gain_verdict::determined;
    q.reason = "gains determined: " + figures_of(q);
  } else {
    q.verdict = gain_verdict::doubtful;
    q.reason = "WARNING: gains doubtful: " + saturated.buttons + figures_of(q);
  }
  return q;
}

}  // namespace gain_fit_mod
