// battery: beams, BPMs and troubles of every kind, to see whether a verdict can be believed.
//
// Each kind is simulated with fresh BPMs, fitted and calibrated; nobody looks at the truth before the
// verdict stands. What counts: gains called determined whose error is above 2e-3 (none may be), and
// sound runs that are not called determined.
#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "beam_run.hpp"
#include "nonlin_bpm_mod.hpp"

namespace sim {

enum class battery_chamber { round, ellipse, racetrack };

/// A stretch of a run that goes on otherwise than the one before.
struct stretch {
  double part = 1;             // of the orbits, in parts of the other stretches'
  double motion = 1;           // factor on spreads and amplitudes
  double current = 1;          // factor
  double x = 0, y = 0;         // added to the closed orbit [m]
  bool new_set = false;        // a data set of its own begins here
  bool new_pedestals = false;  // that have been subtracted anew: what is left differs
};

/// One kind of run.
struct battery_kind {
  std::string name;
  bool sound = false;  // the gains can be had from such a run: determined is the right word
  bool blind = false;  // no data can tell what is wrong: counted apart
  sim::beam beam{};
  electronics_setup electronics{};  // what is said of single buttons is said of BPM 1
  chamber_change change{};
  battery_chamber chamber = battery_chamber::round;
  int orbits = 1000;
  std::vector<stretch> stretches;  // none: the run is one piece
  bool draw_allowances = false;  // pedestals and slopes are drawn from what the calibration allows
};

/// All kinds, in the order in which they are shown.
std::vector<battery_kind> battery_kinds();

/// Kinds drawn at random, each from the seed and its number: sound ones, and such with one or two
/// troubles. Nobody can have chosen a limit for them.
std::vector<battery_kind> random_kinds(int n, std::uint64_t seed);

struct battery_setup {
  int bpms = 25;          // of each kind
  double sigma_p = 3e-4;  // what is said to be known of the pedestals, in parts of the signal
  std::uint64_t seed = 1;
  int random = 0;    // above 0: so many random kinds in place of the others
  std::string only;  // kinds whose name contains this; empty: all
};

/// What became of one kind.
struct kind_result {
  std::array<int, 4> words{};       // determined, weak, not determined, suspect
  std::array<int, 4> fits_words{};  // the same for the gains of the four fits
  double rms = 0, worst = 0;        // of the BPMs' errors
  double E = 0;                     // rms of the calibration's own figure
  int wrong = 0;                    // determined with an error above 2e-3
  int fits_wrong = 0;               // the same of the four fits
  std::string usual_reason;         // of the verdicts that are not determined: the most frequent
  double pull_squares = 0, pull_sum = 0;  // over the ratios of all BPMs
  int pulls = 0;
};

/// An error above this, called determined, is a false word [-].
inline constexpr double false_above = 2e-3;

/// What a BPM of a kind reads.
struct battery_run {
  run_signals made;
  std::vector<int> set_start;  // first orbit of every data set; empty: all are one
};

/// The chamber that the beam of a kind passes, and the table of the one that was drawn.
std::shared_ptr<const solved_chamber> passed_by(const battery_kind& kind);
const nonlin_bpm_mod::table_struct& table_for(battery_chamber which);

/// The run of one fresh BPM.
/// given    chamber  passed_by(kind)
///          seed     with the BPM's number it chooses the random numbers
battery_run make_run(const battery_kind& kind, const std::shared_ptr<const solved_chamber>& chamber,
                     std::uint64_t seed, int bpm, const battery_setup& s);

/// Runs one kind; ix_kind chooses the random numbers.
kind_result run_kind(const battery_kind& kind, std::size_t ix_kind, const battery_setup& s);

}  // namespace sim
