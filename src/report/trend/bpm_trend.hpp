// bpm_trend: what became of the gains of one BPM: steps, drift, wild runs, or nothing.
//
// How much gains scatter from run to run. A run states two errors: the noise s of its readings, and
// E, in which are the allowances for chamber, pedestals and current. The latter are mostly the same
// in all runs of a BPM, so gains scatter by less than E, as a rule, and by more than s. One number c
// a BPM says where in between,
//     scatter^2 = s^2 + c^2 E^2 / 2
// of one button (E is of the ratio of two), from the differences of neighbouring runs: their median,
// which neither steps nor some wild runs move. Few runs say little about c: it is drawn to the
// median of all BPMs, and where these are few too, to 1, the error as stated.
//
// Neighbouring runs scatter alike when the beam's orbit remembers: the mean of many is then known less
// well than if each stood for itself. How much less, the residuals tell, and errors of steps and
// drifts are larger by that.
//
// Gains may wander besides, with temperatures or as electronics age. When runs that are further
// apart in time differ by more than neighbours do, beyond a straight line, the excess a day counts
// as a random walk, and makes errors of steps and drifts larger.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

#include "change_search.hpp"
#include "trend_data.hpp"

namespace report {

/// A step, between two runs.
struct trend_step {
  std::size_t before = 0, behind = 0;  ///< the runs, in trend_data::run
  double errors = 0;                   ///< its size in units of its error
  moved_gains moved;
  bool made_otherwise = false;  ///< the two runs differ in the program's version or in the tables
};

/// One run whose gains are off, with those before and behind it agreeing.
struct wild_run {
  std::size_t run = 0;  ///< in trend_data::run
  double errors = 0;
  moved_gains moved;    ///< against what the other runs say
  bool at_end = false;  ///< the last run or the first: it may as well be the beginning of a step
};

/// Drift a month.
struct trend_drift {
  moved_gains moved;
  double errors = 0;
  bool told = false;  ///< clear, and more than the floor over all runs
};

/// A slow change that is no straight line: between the two times where the mean of some runs is
/// furthest apart, steps and drift taken out.
struct slow_change {
  std::size_t from = 0, to = 0;  ///< in trend_data::run
  double errors = 0;
  moved_gains moved;
  bool told =
      false;  ///< the level wanders as clearly as a change must be, and by more than the floor
};

enum class trend_word {
  changed,  ///< steps, or a drift or slow change that is told
  quiet,    ///< nothing but, perhaps, single runs that are off
  few,      ///< too few usable runs to judge
  never     ///< no run determined it
};

struct bpm_trend {
  const bpm_series* series = nullptr;
  trend_word word = trend_word::never;
  std::vector<std::size_t> used;   ///< usable points, in series->point
  std::vector<double> scatter;     ///< of a button, at each of them [-]
  double usual_scatter = unknown;  ///< their median
  double memory = 1;               ///< variance of means of runs, over that of independent ones
  double wander = 0;               ///< rms of the random walk over a month [-]
  std::vector<trend_step> steps;   ///< by time
  trend_drift drift;
  slow_change slow;
  std::vector<wild_run> wild;   ///< by time
  std::vector<four> explained;  ///< what the explanation says at each used point
  /// ln gain with the common factor that the explanation sets free: buttons that did not move stay
  /// where they were; 0 in the mean of the first level.
  std::vector<four> shown;
};

/// All BPMs of the runs, in the order of the data.
/// note     points into the data
std::vector<bpm_trend> trends_of(const trend_data& data, const trend_limits& limits);

/// How much a BPM changed: by it the worst comes first. Steps, the drift over all runs, and the slow
/// change count.
double size_of_changes(const bpm_trend& b, const trend_data& data);

/// Whether something changed at all.
bool changed(const bpm_trend& b);

/// Usable runs that a judgement needs.
inline constexpr std::size_t least_runs = 5;

}  // namespace report
