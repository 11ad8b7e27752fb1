#include "bpm_loop.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "bpm_data_files.hpp"
#include "bpm_result.hpp"
#include "bpm_verdict.hpp"
#include "chamber_table.hpp"
#include "fields.hpp"
#include "fit_gains.hpp"
#include "gain_fit_mod.hpp"
#include "interrupt.hpp"
#include "list_io.hpp"
#include "nonlin_bpm_mod.hpp"
#include "progress.hpp"
#include "result_files.hpp"
#include "result_rows.hpp"
#include "run_summaries.hpp"
#include "swap_buttons.hpp"
#include "terminal.hpp"
#include "xy_position.hpp"

namespace driver {
namespace {

namespace fit = gain_fit_mod;

constexpr int diagnostic_unit = 11;  // never opened: its lines land in fort.11

// An orbit of which the BPM has nothing: one that its data set does not hold, or a dead turn. Exact
// zeros are meant; a reader stores what it read or leaves the zeros of a fresh column.
bool all_zero(const store::bpm_struct& reading) {
  const auto& b = reading.button;
  return b(1) == 0 && b(2) == 0 && b(3) == 0 && b(4) == 0;
}

// What the data sets gave one BPM.
struct kept_sets {
  std::vector<int> start;        // its first kept orbit in each set that has one, from 0
  std::vector<std::size_t> set;  // which these are
  bool pedestals_known = true;   // in all of these sets
};

// Notes the data sets that begin at a kept orbit. Several may: a set of which the BPM has no orbit
// leaves its start to the one behind it, and only the last of them owns the orbit.
void note_set(const std::vector<data_set>& sets, std::size_t orbit, std::size_t kept,
              std::size_t& behind, kept_sets& noted) {
  bool begins = false;
  while (behind < sets.size() && orbit >= static_cast<std::size_t>(sets[behind].first)) {
    ++behind;
    begins = true;
  }
  if (!begins) return;
  noted.start.push_back(static_cast<int>(kept));
  noted.set.push_back(behind - 1);
  noted.pedestals_known = noted.pedestals_known && sets[behind - 1].pedestals_known;
}

// Moves the orbits in which the BPM has a signal together at the front; norbits counts them. In
// place, because everything behind it, the writers too, numbers the BPM's orbits without gaps. What
// lies behind norbits afterwards is stale and nobody's.
kept_sets compact(int norbits_save, const std::vector<data_set>& sets) {
  kept_sets noted;
  std::size_t sets_begun = 0;
  const auto column = fit::orbit_data.edit_column(fit::bpm, norbits_save);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < column.size(); ++i) {
    if (!all_zero(column[i])) {
      note_set(sets, i, kept, sets_begun, noted);
      if (kept != i) column[kept] = column[i];
      ++kept;
      continue;
    }
    std::string line = " No data for bpm  ";
    util::put_integer(line, fit::bpm, 10);
    line += "  on orbit  ";
    util::put_integer(line, static_cast<long long>(i) + 1, 10);
    util::print_line(line);
  }
  fit::norbits = static_cast<int>(kept);
  std::string line;
  util::put_integer(line, fit::norbits, 10);
  line += "  orbits for BPM  ";
  util::put_integer(line, fit::bpm, 10);
  util::print_line(line);
  return noted;
}

// The multipliers of the true gains, 1 where the truth is not known. Kept for compatibility: the
// fit puts its own start values in their place.
void set_start_gains() {
  const auto& true_gain = fit::orbit_data(1).detector(fit::bpm).true_gain;
  for (int i = 1; i <= 4; ++i) fit::gain(i) = true_gain(i) != 0 ? 1 / true_gain(i) : 1.0;
}

// One line of orbit.dat. Means without orbits are not numbers, and stand there as such.
void write_orbit_record(const session_state& s, const fit::bpm_result& result) {
  std::string line;
  util::put_integer(line, result.data.bpm, 10);
  util::put_fixed(line, result.motion.mean_x);
  util::put_fixed(line, result.motion.mean_y);
  util::write_line(s.orbit_table.number(), line);
}

// What the files say about the run as a whole.
output::run_record run_of(const session_state& s) {
  return {.directory = s.directory,
          .label = std::string{fit::in_file_0.trimmed()},
          .rd_files = s.rd_files,
          .files_so_far = s.files_so_far,
          .gain_correct = fit::gain_correct,
          .type = s.type};
}

// The BPM in work: its kept orbits where they lie in the store, and what stands beside them.
fit::bpm_data data_of_bpm(const output::run_record& run, const std::string& name) {
  // The header of the raw-data file shows the truth of the orbit whose number follows the count of
  // files: kept for compatibility. The amplitude beside it is the BPM's before, for the same reason.
  const auto header_orbit = fit::orbit_data(run.files_so_far + 1);
  return {.bpm = fit::bpm,
          .name = name,
          .orbits = fit::orbit_data.column(fit::bpm, fit::norbits),
          .current = std::span{fit::orbit_data.current_of.item}.first(
              static_cast<std::size_t>(fit::norbits)),
          .true_gain = {fit::orbit_data(1).detector(fit::bpm).true_gain.item},
          .header_gain = {header_orbit.detector(fit::bpm).true_gain.item},
          .const_before = fit::const_};
}

// Positions of all kept orbits, into the store and the raw-data file. They replace what a reader or
// the tables put there: the described files show the linear position of every kind of data alike.
void write_positions(const output::run_record& run, const fit::bpm_data& data) {
  util::write_line(diagnostic_unit,
                   " BPM = " + util::list_line().integer(fit::bpm).str().substr(1));
  std::string line;
  for (int orbit = 1; orbit <= fit::norbits; ++orbit) {
    store::bpm_struct& reading = fit::orbit_data.edit(orbit, fit::bpm);
    const whole_signals det = whole_signals_of(reading.button, fit::bpm, orbit);
    xy_position(fit::bpm, det, reading.x, reading.y);

    // Orbit by orbit, so that a run that ends half way leaves the same number of lines in both.
    line.clear();
    for (const double signal : reading.button.item) util::put_exponent(line, signal);
    util::write_line(diagnostic_unit, line);

    output::write_bpm_raw_data(run, data, orbit);
  }
}

// A common factor of the gains cannot be seen: times S1/S2 the sum of the four equals the sum of
// their squares, so that equal gains stand at 1 and all BPMs fit one scale.
void add_to_plot(session_state& s, const fit::bpm_result& result) {
  ++s.plotted;
  s.bpm_max = std::max(s.bpm_max, static_cast<double>(result.data.bpm));
  s.bpm_min = std::min(s.bpm_min, static_cast<double>(result.data.bpm));
  double s1 = 0;
  double s2 = 0;
  for (int k = 1; k <= 4; ++k) {
    const double inverse = 1 / result.combined.summary_gain(k);
    s.bpm_gain(k, s.plotted) = inverse;
    s1 += inverse;
    s2 += inverse * inverse;
  }
  for (int k = 1; k <= 4; ++k) {
    s.bpm_gain(k, s.plotted) *= s1 / s2;
    s.bpm_mat(k, s.plotted) = result.data.bpm;
  }
}

// Gains that the data do not determine look as confident in the tables as any others: say so.
void warn_of_poor_gains(const fit::bpm_result& result, const bpm_verdict& verdict) {
  if (verdict.word == calibration::verdict_word::determined) return;
  util::tell_line(fmt::format("BPM {} ({}): {}", result.data.bpm, result.data.name, verdict.line));
}

// The calibration of one BPM against its table, and the verdict that all places show: it is made
// once, here, and replaces the words of the four fits in the record that the writers get.
bpm_verdict judge(session_state& s, fit::bpm_result& result, const kept_sets& kept) {
  const bool told = s.stand_in.has_value();
  const bool site_tables = !nonlin_bpm_mod::nonlin_bpm_first_call;
  const calibration_setting setting{.table = table_of_bpm(result.data.bpm, site_tables, s.stand_in),
                                    .set_start = kept.start,
                                    .sigma_p = kept.pedestals_known
                                                   ? calibration::pedestals_subtracted
                                                   : calibration::pedestals_left_in};
  // Told once a session, when the first BPM needs it: a session of raw data never does.
  if (!told && s.stand_in) {
    util::tell_line(fmt::format(
        "no table of these chambers: calibrated as in {}; name yours with --chamber FILE",
        s.stand_in->name));
  }
  bpm_verdict verdict = verdict_of(result, setting);
  result.quality.reason = verdict.line;
  return verdict;
}

// One BPM from its readings to its lines in every file. The order is that of the transcript: its
// count of orbits, its name, the fits line by line; warnings stand between them on standard error.
void treat_bpm(session_state& s, const output::run_record& run) {
  const kept_sets kept = compact(s.norbits_save.get(), s.sets);
  if (fit::expert && s.just_one) {
    expert::ask_swap(fit::orbit_data.edit_column(fit::bpm, fit::norbits));
  }
  const std::string name{fit::bpm_names(fit::bpm).trimmed()};
  std::string line;
  util::put_integer(line, fit::bpm, 12);
  util::print_line(line + " " + name);
  util::write_line(s.file_list.number(), s.file.all());
  set_start_gains();

  const fit::bpm_data data = data_of_bpm(run, name);
  write_positions(run, data);
  fit::bpm_result result = fit::result_of(data);
  write_orbit_record(s, result);
  fit::tell(result.fits.events);
  // The described faces read the last fit in the context, and the next BPM's header its amplitude.
  fit::leave_in_context(result.fits);
  const bpm_verdict verdict = judge(s, result, kept);
  warn_of_poor_gains(result, verdict);
  output::write_bpm_fitted_data(run, result);
  output::write_rd_out(run, result);
  output::write_rd_err(run, result);
  s.fitted.push_back({data.bpm, data.name, verdict.word});
  s.results.bpm.push_back(
      row_of_fitted(result, verdict, coefficients_of(s.sets, kept.set, data.bpm)));
  add_to_plot(s, result);
  // What is fitted is on disk: whatever ends the run, it takes the BPM in work at most.
  util::flush_all_units();
}

// What was fitted is worth as much as in a run that came to its end.
[[noreturn]] void leave(session_state& s) {
  s.interrupted = true;
  s.results.info.ended = "interrupted";
  write_results(s);
  util::leave_interrupted();
}

}  // namespace

void treat_bpms(session_state& s) {
  const int last = s.bpm_count.get();
  const output::run_record run = run_of(s);
  util::progress progress("fitting BPMs", last);
  // An interrupt ends the run between two BPMs: what one of them leaves in the files is whole.
  util::watch_interrupts();
  for (int index = 0; index <= last; ++index) {
    if (util::interrupted()) leave(s);
    progress.at(index);
    // One chosen BPM is looked at in every pass, until it was treated or the indices are through: a
    // BPM silent in orbit 1 is told as often as there are indices. Kept for compatibility.
    if (!s.just_one) fit::bpm = index;
    if (all_zero(fit::orbit_data(1).detector(fit::bpm))) {
      util::print_line(util::list_line().text(" no data for bpm ").integer(fit::bpm).str());
      continue;
    }
    treat_bpm(s, run);
    if (s.just_one) break;
  }
  if (util::interrupted()) leave(s);
  util::restore_interrupts();
}

}  // namespace driver
