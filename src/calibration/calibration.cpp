#include "calibration.hpp"

#include <algorithm>
#include <cmath>

#include "input_check.hpp"
#include "one_fit.hpp"
#include "pedestal_knowledge.hpp"
#include "trouble_test.hpp"

namespace calibration {
namespace {

// An orbit leaves one number, or two, for what all orbits share; with fewer than these the priors
// would answer instead of the data.
constexpr std::size_t least_orbits = 10;
constexpr double too_persistent = 0.3;  // an intensity that is not smooth and not white
constexpr double pedestal_limit = 13;   // chi-square of four pedestals: 1e-2 by chance
// By how much a steady intensity must better the error to be worth its assumption: a jitter far
// above the noise adds little, and may hide a current that goes with the place.
constexpr double worth_it = 0.85;
// A slope of the current this far beyond what a steady current may have is none: chi-square of two.
constexpr double slope_limit = 13;
// Knowledge of the pedestals is a promise, and gains may hang on it. They must stay right when it is
// wrong by this factor: within so much, and so many standard deviations.
constexpr double withstood = 3;
constexpr double right_within = 2e-3;
constexpr double right_sigmas = 1.5;
constexpr double noise_sigmas = 2.5;
constexpr double free_sigmas = 2;
constexpr double witness_to = 2e-3;
// What the harmonics beyond the fifth may do to a gain, at the place where X^2 + Y^2 = 1.
constexpr double left_out_harmonics = 0.15;
// Places whose spread across is this part of that along lie on a line: the fit then has more than
// one minimum, and the error figure knows of one alone.
constexpr double line_part = 0.01;
constexpr double undetermined_from = 1e-2;
constexpr double determined_to = 1e-3;
// The table of any symmetric chamber is good for any other this near to its axis, and what is left
// of the difference there [m; -].
constexpr double stand_in_to = 2e-3;
constexpr double stand_in_error = 4e-4;
constexpr double largest_log_gain = 0.5;
constexpr double most_outliers = 0.05;
constexpr double most_at_edge = 0.02;
// A chi-square of three, and the least change of a gain ratio that hurts.
constexpr double change_limit = 30;
constexpr double least_change = 1e-3;
// A chi-square of one: certain, or likely and of an effect that hurts.
constexpr double bent_limit = 20, bent_likely = 9;
constexpr double least_bent = 3e-4, bent_hurts = 1e-3;
// Pedestals of a data set, in parts of what is said to be known of them.
constexpr double set_pedestal_limit = 3;
// A button off by a tolerance dx along the wall of a pipe of radius R: 1.1 dx/R of its gain ratio.
constexpr double mechanical_factor = 1.1;

bool moves_in_time(const trouble_size& t) {
  return t.kind == trouble_kind::drift || t.kind == trouble_kind::bend ||
         t.kind == trouble_kind::step;
}

// The change of the gains in time that the readings ask for most, if they do.
void find_change(record& r) {
  // Data sets with pedestals of their own look like gains that step from set to set.
  double by_sets = 0;
  for (const trouble_size& t : r.trouble) {
    if (t.kind == trouble_kind::pedestals_of_set) by_sets = std::max(by_sets, t.chi_square);
  }
  for (const trouble_size& t : r.trouble) {
    if (!moves_in_time(t) || t.chi_square < by_sets || t.chi_square < change_limit ||
        t.size < least_change)
      continue;
    r.moved_gains = std::max(r.moved_gains, t.size);
    r.moved_sigma = std::max(r.moved_sigma, std::sqrt(t.chi_square));
  }
}

// Whether the readings ask for cross-talk or compression.
bool has_other_signals(const record& r) {
  return std::any_of(r.trouble.begin(), r.trouble.end(), [](const trouble_size& t) {
    if (t.kind != trouble_kind::cross_talk && t.kind != trouble_kind::compression) return false;
    return (t.chi_square > bent_limit && t.shift > least_bent) ||
           (t.chi_square > bent_likely && t.shift > bent_hurts);
  });
}

// Whether one data set has other pedestals than the rest.
bool sets_differ(const record& r, double sigma_p) {
  return std::any_of(r.trouble.begin(), r.trouble.end(), [sigma_p](const trouble_size& t) {
    return t.kind == trouble_kind::pedestals_of_set && t.chi_square > change_limit &&
           std::abs(t.size) > set_pedestal_limit * sigma_p;
  });
}

// Whether W's pedestals and gains mean anything: not when the current is neither smooth nor a walk.
bool has_pedestals(const record& r) {
  return r.wide.converged && r.wide.persistence < too_persistent;
}

// Largest difference of ln(t_k/t_1) between two fits.
double distance(const fit_result& a, const fit_result& b) {
  double most = 0;
  for (int k = 2; k <= 4; ++k) {
    most = std::max(most, std::abs(std::log(a.t(k) / a.t(1)) - std::log(b.t(k) / b.t(1))));
  }
  return most;
}

// Whether the gains are right even if the pedestals are some times what is said to be known of them:
// seen from a fit that believes so, how far may the chosen gains be from the truth?
bool withstands_pedestals(const bpm_run& run, const record& r) {
  const bool open = has_pedestals(r);
  const double prior = open ? pedestals_left_in : run.sigma_p;
  const double other = std::min(withstood * run.sigma_p, std::max(prior, pedestals_left_in));
  const ratios_under under = with_prior(open ? r.wide : r.free, prior, other);
  const fit_result& fit = chosen_fit(r);
  double apart = 0, variance = 0;  // means of three ratios
  for (int k = 2; k <= 4; ++k) {
    const auto i = static_cast<std::size_t>(k - 2);
    const double shift = under.value[i] - std::log(fit.t(k) / fit.t(1));
    apart += shift * shift / 3;
    variance += under.variance[i] / 3;
  }
  return std::sqrt(apart) + right_sigmas * std::sqrt(variance) <= right_within;
}

// Mean sixth power of the places' distance from the axis, in parts of where difference over sum
// reaches its end in either plane.
double sixth_power(const record& r, const central_slopes& slope) {
  double sum = 0, n = 0;
  for (const orbit_place& place : r.place) {
    if (!place.used) continue;
    sum += std::pow(std::hypot(place.x * slope.x, place.y * slope.y) / std::sqrt(2.0), 6);
    ++n;
  }
  return n > 0 ? sum / n : 0;
}

// Whether the beam moved along a line: from the principal axes of its places.
bool moved_along_a_line(const record& r) {
  double n = 0, x = 0, y = 0, xx = 0, xy = 0, yy = 0;
  for (const orbit_place& place : r.place) {
    if (!place.used) continue;
    ++n;
    x += place.x;
    y += place.y;
    xx += place.x * place.x;
    xy += place.x * place.y;
    yy += place.y * place.y;
  }
  if (n < 2) return true;
  const double a = xx / n - x / n * (x / n), b = xy / n - x / n * (y / n);
  const double c = yy / n - y / n * (y / n);
  const double half_difference = std::hypot((a - c) / 2, b);
  const double large = (a + c) / 2 + half_difference;
  return (a + c) / 2 - half_difference < line_part * line_part * large;
}

// The error, larger when fits that rest on less lead to other gains, by more than is to be expected:
// W trusts in no pedestals, T1 in no steady current.
double error_of(const record& r) {
  const fit_result& fit = chosen_fit(r);
  if (!has_pedestals(r)) return fit.E;
  const double from_wide = distance(r.wide, fit);
  // The fits share their readings; W's own noise stands for that of the distance.
  const double by_noise = noise_sigmas * r.wide.E_noise;
  double variance = fit.E * fit.E + std::max(0.0, from_wide * from_wide - by_noise * by_noise);
  // A T1 that knows little is no witness: its pedestals and gains then hang together far beyond what
  // a covariance describes.
  if (r.chosen == fit_kind::steady_intensity && r.free.converged && r.free.E <= witness_to) {
    const double from_free = distance(r.free, fit);
    // Of two estimates of which one knows all that the other does, the difference has the
    // difference of their variances.
    const double expected = r.free.E * r.free.E - fit.E * fit.E;
    variance +=
        std::max(0.0, from_free * from_free - free_sigmas * free_sigmas * std::max(0.0, expected));
  }
  return std::sqrt(variance);
}

// How far the mean of the places lies from the axis [m].
double off_axis(const record& r) {
  double x = 0, y = 0, n = 0;
  for (const orbit_place& place : r.place) {
    if (!place.used) continue;
    x += place.x;
    y += place.y;
    ++n;
  }
  return n > 0 ? std::hypot(x, y) / n : HUGE_VAL;
}

verdict_reason find_reason(const bpm_run& run, const record& r, double E) {
  const fit_result& fit = chosen_fit(r);
  // Gains that are open cannot accuse anything, so their size of error is asked first; the negated
  // comparison also catches an E that is not a number.
  if (!(E <= undetermined_from)) return verdict_reason::error_too_large;
  if (!fit.converged) return verdict_reason::no_convergence;
  if (moved_along_a_line(r)) return verdict_reason::one_line;
  if (r.pedestal_chi >= pedestal_limit || r.slope_chi >= slope_limit ||
      sets_differ(r, run.sigma_p)) {
    return verdict_reason::pedestals;
  }
  for (int k = 1; k <= 4; ++k) {
    if (std::abs(std::log(fit.t(k))) > largest_log_gain) return verdict_reason::unlikely_gains;
  }
  // Shares are of all usable orbits: those that were left out are the ones that are looked for.
  const int all = fit.orbits + fit.outliers;
  if (fit.outliers > most_outliers * all) return verdict_reason::many_outliers;
  if (fit.at_edge > most_at_edge * all) return verdict_reason::at_the_edge;
  if (r.moved_sigma > 0) return verdict_reason::gains_change;
  if (has_other_signals(r)) return verdict_reason::other_signals;
  if (!run.own_table && off_axis(r) > stand_in_to) return verdict_reason::stand_in_table;
  // Open pedestals do no harm where T1 finds them, as from two currents: it trusts in no slope.
  const bool finds_pedestals = r.free.converged && r.free.E <= determined_to;
  if (run.sigma_p >= pedestals_left_in && !finds_pedestals) {
    return verdict_reason::pedestals_not_known;
  }
  if (E > determined_to) return verdict_reason::error_large;
  // Gains that trust in no steady current must lie near as well, however little they know.
  if (!withstands_pedestals(run, r) || (r.free.converged && distance(r.free, fit) > right_within)) {
    return verdict_reason::pedestals_not_checked;
  }
  return verdict_reason::none;
}

verdict_word word_for(verdict_reason reason) {
  switch (reason) {
    case verdict_reason::none:
      return verdict_word::determined;
    case verdict_reason::pedestals_not_known:
    case verdict_reason::stand_in_table:
    case verdict_reason::error_large:
    case verdict_reason::pedestals_not_checked:
      return verdict_word::weak;
    case verdict_reason::no_table:
    case verdict_reason::few_orbits:
    case verdict_reason::no_convergence:
    case verdict_reason::error_too_large:
    case verdict_reason::one_line:
      return verdict_word::not_determined;
    default:
      return verdict_word::suspect;
  }
}

// The same words for the gains of the four fits: their distance from the calibration is an error.
void judge_fits(const four_fits& fits, record& r) {
  for (int f = 1; f <= 4; ++f) {
    for (int k = 2; k <= 4; ++k) {
      const double here = std::log(r.t(k) / r.t(1));
      // Upside down: a session's gains multiply the signals, t is what the button makes of them.
      const double there = std::log(fits(f, 1) / fits(f, k));
      const double apart = std::abs(there - here);
      r.fits_differ = std::isfinite(apart) ? std::max(r.fits_differ, apart) : HUGE_VAL;
    }
  }
  judgement j = r.verdict;
  j.E = std::hypot(j.E, r.fits_differ);
  const bool carried = j.word == verdict_word::suspect || j.word == verdict_word::not_determined;
  if (!carried && !(j.E <= undetermined_from)) {
    j.word = verdict_word::not_determined;
    j.reason = verdict_reason::error_too_large;
  } else if (j.word == verdict_word::determined && j.E > determined_to) {
    j.word = verdict_word::weak;
    j.reason = verdict_reason::error_large;
  }
  r.fits_verdict = j;
}

void fill_places(const fit_state& state, const usable_orbits& orbits, std::size_t n, record& r) {
  r.place.resize(n);
  for (const orbit_block& block : state.block) {
    for (std::size_t j = 0; j < block.count; ++j) {
      orbit_place& place = r.place[orbits.number[block.first + j]];
      place = {block.x[j], block.y[j], std::exp(block.L[j]) * orbits.median_signal, block.ur[j],
               block.keep_u[j] != 0};
    }
  }
}

}  // namespace

const fit_result& chosen_fit(const record& r) {
  switch (r.chosen) {
    case fit_kind::steady_intensity:
      return r.steady;
    case fit_kind::wide_pedestals:
      return r.wide;
    default:
      return r.free;
  }
}

record calibrate(const bpm_run& run) {
  record r;
  const auto stop = [&r](verdict_reason reason) {
    r.verdict = {word_for(reason), reason, 0, HUGE_VAL};
    return r;
  };
  if (run.table == nullptr) return stop(verdict_reason::no_table);
  const usable_orbits orbits = take_usable(run);
  const std::size_t n = orbits.b.size();
  if (n < least_orbits) return stop(verdict_reason::few_orbits);
  r.median_signal = orbits.median_signal;
  const judgement readings = check_readings(run);
  if (readings.reason != verdict_reason::none) {
    r.verdict = readings;
    r.verdict.E = HUGE_VAL;
  }
  if (readings.reason == verdict_reason::dead_button ||
      readings.reason == verdict_reason::stuck_button)
    return r;

  // A dead or stuck button ends it above: the places would rest on nothing. A saturated one is
  // calibrated all the same, so that its gains can be looked at beside the warning.
  // Every orbit's intensity free, then steady: the places and gains of one are nearly the other's.
  fit_setting setting{fit_kind::free_intensity, run.table,
                      run.half_height > 0 ? run.half_height : half_height_of(*run.table),
                      run.sigma_p};
  setting.exact_table = run.exact_table;
  setting.instruction_set = run.instruction_set;
  if (run.tolerance > 0) r.E_mech = mechanical_factor * run.tolerance / setting.R0;
  fit_state free = first_state(orbits, *run.table);
  fit_room room;
  r.free = run_fit(free, setting, room);
  r.trouble = test_troubles(free, setting, r.free);
  // A copy: T1's end must survive, both as a result and as the start of a second attempt.
  fit_state wide = free;
  setting.kind = fit_kind::wide_pedestals;
  r.wide = run_fit(wide, setting, room);
  if (!r.wide.converged || r.wide.persistence >= too_persistent) {
    // Not smooth: perhaps a random walk, whose steps are as good.
    setting.differences = true;
    wide = free;
    r.wide = run_fit(wide, setting, room);
  }
  if (has_pedestals(r)) {
    r.pedestal_chi = pedestal_chi_square(r.wide, run.sigma_p);
    for (const double l : r.wide.l)
      r.slope_chi += l * l / (rms_slope * rms_slope * setting.R0 * setting.R0);
    // Pedestals first: both other fits hold them near 0 and would turn them into gains.
    if (r.pedestal_chi >= pedestal_limit) r.chosen = fit_kind::wide_pedestals;
  }
  // Differences stay chosen for T2: whether the current walks is W's finding about the same beam.
  // W's places are kept only where they are the answer: T2 goes on from them.
  fit_state kept;
  if (r.chosen == fit_kind::wide_pedestals) kept = wide;
  fit_state& steady = wide;
  setting.kind = fit_kind::steady_intensity;
  r.steady = run_fit(steady, setting, room);

  const fit_state* chosen = r.chosen == fit_kind::wide_pedestals ? &kept : &free;
  if (has_pedestals(r) && r.chosen != fit_kind::wide_pedestals && r.steady.converged &&
      !(r.free.converged && worth_it * r.free.E < r.steady.E)) {
    r.chosen = fit_kind::steady_intensity;
    chosen = &steady;
  }
  r.t = chosen_fit(r).t;
  fill_places(*chosen, orbits, run.signal[0].size(), r);
  find_change(r);
  if (readings.reason == verdict_reason::none) {
    double E = run.own_table ? error_of(r) : std::hypot(error_of(r), stand_in_error);
    if (!run.exact_table) {
      E = std::hypot(E, left_out_harmonics * sixth_power(r, slopes_of(*run.table)));
    }
    const verdict_reason reason = find_reason(run, r, E);
    r.verdict = {word_for(reason), reason, 0, E};
  }
  if (run.fits) judge_fits(*run.fits, r);
  return r;
}

}  // namespace calibration
