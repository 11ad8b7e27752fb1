#include "bpm_loop.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bpm_data_files.hpp"
#include "bpm_result.hpp"
#include "bpm_verdict.hpp"
#include "chamber_table.hpp"
#include "fields.hpp"
#include "fit_gains.hpp"
#include "gain_fit_mod.hpp"
#include "interrupt.hpp"
#include "jobs.hpp"
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

// One BPM on its way through the loop: what is made of it, on any thread, and what is told and written
// of it then, in the order of the BPMs.
struct bpm_in_work {
  int bpm = -1;
  int norbits = 0;           // kept
  kept_sets kept{};          // what the data sets gave of them
  bpm_table own_table{};     // of the site; null where the site has none for it
  bool site_tables = false;  // the site's tables were loaded: no other will do
  std::string told;          // lines of the transcript before those of the fits
  util::text_block diagnostics;
  output::raw_data_text raw;
  int positions = 0;  // orbits in both
  fit::fits_told steps;
  fit::bpm_result result;
  bpm_verdict verdict;
  util::text_block fitted;
  std::exception_ptr fault;  // what ended the making: all above is what was made before
};

// Moves the orbits in which the BPM has a signal together at the front. In place, because everything
// behind it, the writers too, numbers the BPM's orbits without gaps. What lies behind them afterwards
// is stale and nobody's.
void compact(bpm_in_work& b, int norbits_save, const std::vector<data_set>& sets) {
  std::size_t sets_begun = 0;
  const auto column = fit::orbit_data.edit_column(b.bpm, norbits_save);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < column.size(); ++i) {
    if (!all_zero(column[i])) {
      note_set(sets, i, kept, sets_begun, b.kept);
      if (kept != i) column[kept] = column[i];
      ++kept;
      continue;
    }
    b.told += " No data for bpm  ";
    util::put_integer(b.told, b.bpm, 10);
    b.told += "  on orbit  ";
    util::put_integer(b.told, static_cast<long long>(i) + 1, 10);
    b.told += '\n';
  }
  b.norbits = static_cast<int>(kept);
  util::put_integer(b.told, b.norbits, 10);
  b.told += "  orbits for BPM  ";
  util::put_integer(b.told, b.bpm, 10);
  b.told += '\n';
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
fit::bpm_data data_of_bpm(const output::run_record& run, const bpm_in_work& b) {
  // The header of the raw-data file shows the truth of the orbit whose number follows the count of
  // files: kept for compatibility.
  const auto header_orbit = fit::orbit_data(run.files_so_far + 1);
  return {.bpm = b.bpm,
          .name = std::string{fit::bpm_names(b.bpm).trimmed()},
          .orbits = fit::orbit_data.column(b.bpm, b.norbits),
          .current =
              std::span{fit::orbit_data.current_of.item}.first(static_cast<std::size_t>(b.norbits)),
          .true_gain = {fit::orbit_data(1).detector(b.bpm).true_gain.item},
          .header_gain = {header_orbit.detector(b.bpm).true_gain.item}};
}

// Positions of all kept orbits, into the store and the raw-data file. They replace what a reader or
// the tables put there: the described files show the linear position of every kind of data alike.
void find_positions(bpm_in_work& b, const output::run_record& run) {
  util::add_line(b.diagnostics, " BPM = " + util::list_line().integer(b.bpm).str().substr(1));
  b.raw = output::begin_raw_data(run, b.result.data);
  // Of a line of the raw data the signals are the last four numbers: here they are a line of their own.
  constexpr std::size_t signals_line = std::size_t{4} * util::real_width + 1;
  for (int orbit = 1; orbit <= b.norbits; ++orbit) {
    store::bpm_struct& reading = fit::orbit_data.edit(orbit, b.bpm);
    const whole_signals det = whole_signals_of(reading.button, b.bpm, orbit);
    xy_position(b.bpm, det, reading.x, reading.y);
    output::add_raw_data(b.raw, b.result.data, orbit);
    const std::string_view all = util::view(b.raw.text);
    util::add(b.diagnostics, all.substr(all.size() - signals_line));
    b.positions = orbit;
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
void judge(session_state& s, bpm_in_work& b) {
  bpm_table table = b.own_table;
  if (!b.site_tables) {
    const stand_in_table& stand_in = stand_in_of(s);
    table = {&stand_in.table, stand_in.given};
  }
  const calibration_setting setting{.table = table,
                                    .set_start = b.kept.start,
                                    .sigma_p = b.kept.pedestals_known
                                                   ? calibration::pedestals_subtracted
                                                   : calibration::pedestals_left_in};
  b.verdict = verdict_of(b.result, setting);
  b.result.quality.reason = b.verdict.line;
}

// --- one BPM: begun and made on any thread ----------------------------------------------------------

void begin(session_state& s, bpm_in_work& b) { compact(b, s.norbits_save.get(), s.sets); }

// From the kept orbits to all texts about them. Nothing outside the BPM's own record and column is
// written; the amplitude of the BPM before, which its raw data show, is put in when they are written.
void make(session_state& s, const output::run_record& run, bpm_in_work& b) {
  b.result.data = data_of_bpm(run, b);
  util::put_integer(b.told, b.bpm, 12);
  b.told += " " + b.result.data.name + "\n";
  find_positions(b, run);
  const fit::bpm_data data = b.result.data;
  b.result = fit::result_of(data);
  b.steps = fit::text_of(b.result.fits.events);
  b.result.fits.events = {};  // told: a BPM that waits for its turn need not keep them
  judge(s, b);
  b.fitted = output::fitted_data_text(run, b.result, &b.raw);
}

// What the BPM holds until it is written [bytes].
std::size_t held_by(const bpm_in_work& b) {
  return b.told.capacity() + b.diagnostics.capacity + b.raw.text.capacity + b.steps.lines.capacity +
         b.fitted.capacity;
}

// --- told and written, in the order of the BPMs -----------------------------------------------------

// Orbits of the diagnostic file and of the raw data belong together: a raw-data file that cannot be
// opened leaves the first of them there.
void write_positions(const output::run_record& run, bpm_in_work& b) {
  const std::string_view lines = util::view(b.diagnostics);
  const std::size_t first_orbit = lines.find('\n') + 1;
  const std::size_t second_orbit = lines.find('\n', first_orbit) + 1;
  const bool any = b.positions > 0;
  util::write_text(diagnostic_unit, any ? lines.substr(0, second_orbit) : lines);
  if (!any) return;
  output::set_const_before(b.raw, fit::const_);
  output::write_bpm_file(run, b.result.data.name, ".dat", b.raw.text);
  if (b.positions > 1) util::write_text(diagnostic_unit, lines.substr(second_orbit));
}

// Told once a session, with the first BPM that needs it: a session of raw data never does.
void tell_stand_in(session_state& s, const bpm_in_work& b) {
  if (b.site_tables || s.stand_in->given || s.stand_in_told) return;
  s.stand_in_told = true;
  util::tell_line(
      fmt::format("no table of these chambers: calibrated as in {}; name yours with --chamber FILE",
                  s.stand_in->name));
}

// The order is that of the transcript: count of orbits, name, the fits line by line; warnings stand
// between them on standard error.
void tell_and_write(session_state& s, const output::run_record& run, bpm_in_work& b) {
  fit::norbits = b.norbits;
  util::print_text(b.told);
  util::write_line(s.file_list.number(), s.file.all());
  set_start_gains();
  write_positions(run, b);
  // Behind what was made before: a reading that cannot be used ends the run at its orbit.
  if (b.fault) util::end_as_postponed(b.fault);
  write_orbit_record(s, b.result);
  fit::tell(b.steps);
  // The described faces read the last fit in the context, and the next BPM's header its amplitude.
  fit::leave_in_context(b.result.fits);
  tell_stand_in(s, b);
  warn_of_poor_gains(b.result, b.verdict);
  output::write_bpm_file(run, b.result.data.name, ".dat_fit", b.fitted);
  output::write_rd_out(run, b.result);
  output::write_rd_err(run, b.result);
  s.fitted.push_back({b.bpm, b.result.data.name, b.verdict.word});
  // Here and not beside the fits: rows stay, and memory that stays would lie among that of the threads,
  // which then could not be given back.
  s.results.bpm.push_back(
      row_of_fitted(b.result, b.verdict, coefficients_of(s.sets, b.kept.set, b.bpm)));
  add_to_plot(s, b.result);
  // What is fitted is on disk: whatever ends the run, it takes the BPM in work at most.
  util::flush_all_units();
  write_gains_so_far(s);
}

// What was fitted is worth as much as in a run that came to its end.
[[noreturn]] void leave(session_state& s) {
  s.interrupted = true;
  s.results.info.ended = "interrupted";
  write_results(s);
  util::leave_interrupted();
}

// A BPM that an expert looks at alone: between its orbits and its fits stands a question.
void treat_with_question(session_state& s, const output::run_record& run, bpm_in_work& b) {
  begin(s, b);
  fit::norbits = b.norbits;
  util::print_text(std::exchange(b.told, {}));
  expert::ask_swap(fit::orbit_data.edit_column(b.bpm, b.norbits));
  make(s, run, b);
  tell_and_write(s, run, b);
}

// What the loop visits.
struct visit {
  int bpm = -1;
  bool silent = false;  // nothing in orbit 1
  bpm_table own_table{};
};

std::vector<visit> visits_of(const session_state& s, bool site_tables) {
  std::vector<visit> visits;
  const int last = s.bpm_count.get();
  for (int index = 0; index <= last; ++index) {
    // One chosen BPM is looked at in every pass, until it was treated or the indices are through: a
    // BPM silent in orbit 1 is told as often as there are indices. Kept for compatibility.
    visit v{.bpm = s.just_one ? fit::bpm : index};
    v.silent = all_zero(fit::orbit_data(1).detector(v.bpm));
    // Its table is chosen before the threads begin: the choice is a variable of the process.
    if (!v.silent && site_tables) v.own_table = site_table_of(v.bpm);
    visits.push_back(v);
    if (!v.silent && s.just_one) break;
  }
  return visits;
}

}  // namespace

const stand_in_table& stand_in_of(session_state& s) {
  // No call_once: an exception for want of memory would pass through the C library there, which has
  // none to let it pass.
  const std::lock_guard lock(s.stand_in_mutex);
  if (!s.stand_in) s.stand_in = round_pipe_table();
  return *s.stand_in;
}

void treat_bpms(session_state& s) {
  const output::run_record run = run_of(s);
  util::progress progress("fitting BPMs", s.bpm_count.get());
  // An interrupt ends the run between two BPMs: what one of them leaves in the files is whole.
  util::watch_interrupts();
  const bool site_tables = !nonlin_bpm_mod::nonlin_bpm_first_call;
  const std::vector<visit> visits = visits_of(s, site_tables);
  std::vector<std::unique_ptr<bpm_in_work>> made(visits.size());
  const bool question = fit::expert && s.just_one;
  const auto make_one = [&](std::size_t i) -> std::size_t {
    if (visits[i].silent) return 0;
    made[i] = std::make_unique<bpm_in_work>();
    bpm_in_work& b = *made[i];
    b.bpm = visits[i].bpm;
    b.site_tables = site_tables;
    b.own_table = visits[i].own_table;
    if (question) return 0;
    try {
      begin(s, b);
      make(s, run, b);
    } catch (...) {
      b.fault = std::current_exception();
    }
    return held_by(b);
  };
  const auto take_one = [&](std::size_t i) {
    progress.at(static_cast<long long>(i));
    fit::bpm = visits[i].bpm;
    if (visits[i].silent) {
      util::print_line(util::list_line().text(" no data for bpm ").integer(fit::bpm).str());
    } else if (question) {
      treat_with_question(s, run, *made[i]);
    } else {
      tell_and_write(s, run, *made[i]);
    }
    made[i] = nullptr;
  };
  const std::size_t taken = util::make_in_order(
      {.count = visits.size(), .make = make_one, .take = take_one, .stop = util::interrupted},
      util::jobs);
  if (taken < visits.size() || util::interrupted()) leave(s);
  util::restore_interrupts();
}

}  // namespace driver
