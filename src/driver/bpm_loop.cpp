#include "bpm_loop.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "bpm_data_files.hpp"
#include "combine_fits.hpp"
#include "fields.hpp"
#include "fit_quality.hpp"
#include "gain_fit_mod.hpp"
#include "interrupt.hpp"
#include "list_io.hpp"
#include "progress.hpp"
#include "run_summaries.hpp"
#include "terminal.hpp"
#include "xy_position.hpp"

namespace driver {
namespace {

namespace fit = gain_fit_mod;

constexpr int diagnostic_unit = 11;  // never opened: its lines land in fort.11

bool all_zero(const store::bpm_struct& reading) {
  const auto& b = reading.button;
  return b(1) == 0 && b(2) == 0 && b(3) == 0 && b(4) == 0;
}

// Moves the orbits in which the BPM has a signal together at the front; norbits counts them.
void compact(int norbits_save) {
  const auto column = fit::orbit_data.edit_column(fit::bpm, norbits_save);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < column.size(); ++i) {
    if (!all_zero(column[i])) {
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
}

// Expert only: exchanges two buttons that were cabled the wrong way round.
void ask_swap() {
  std::string answer = util::upcase(util::trim(util::ask_or_end(" Swap ? ")));
  if (answer != "Y") return;
  for (;;) {
    util::list_record pair = util::ask_record(" Pair to swap (i.e. 2,3) ");
    const auto i1 = util::take_int(pair);
    const auto i2 = util::take_int(pair);
    if (!i1 || !i2) {
      util::tell_bad_answer(pair.text, "a pair of button numbers; type two, such as 2,3");
      continue;
    }
    for (auto& reading : fit::orbit_data.edit_column(fit::bpm, fit::norbits)) {
      std::swap(reading.button(*i1), reading.button(*i2));
    }
    return;
  }
}

// The multipliers of the true gains, 1 where the truth is not known. Kept for compatibility: the
// fit puts its own start values in their place.
void set_start_gains() {
  const auto& true_gain = fit::orbit_data(1).detector(fit::bpm).true_gain;
  for (int i = 1; i <= 4; ++i) fit::gain(i) = true_gain(i) != 0 ? 1 / true_gain(i) : 1.0;
}

void write_orbit_record(const session_state& s, double sum_x, double sum_y) {
  std::string line;
  util::put_integer(line, fit::bpm, 10);
  util::put_fixed(line, sum_x / fit::norbits);
  util::put_fixed(line, sum_y / fit::norbits);
  util::write_line(s.orbit_table.number(), line);
}

// Positions of all kept orbits, the raw-data file and the orbit table's record.
// Returns the extreme positions; current is that of the last orbit afterwards.
output::position_extremes write_positions(const session_state& s, const std::string& name,
                                          double& current) {
  util::write_line(diagnostic_unit,
                   " BPM = " + util::list_line().integer(fit::bpm).str().substr(1));
  output::position_extremes extremes{99, -99, 99, -99};
  double sum_x = 0;
  double sum_y = 0;
  std::string line;
  for (int orbit = 1; orbit <= fit::norbits; ++orbit) {
    store::bpm_struct& reading = fit::orbit_data.edit(orbit, fit::bpm);
    const whole_signals det = whole_signals_of(reading.button, fit::bpm, orbit);
    xy_position(fit::bpm, det, reading.x, reading.y);
    extremes.h_max = std::max(extremes.h_max, reading.x);
    extremes.h_min = std::min(extremes.h_min, reading.x);
    extremes.v_max = std::max(extremes.v_max, reading.y);
    extremes.v_min = std::min(extremes.v_min, reading.y);
    sum_x += reading.x;
    sum_y += reading.y;

    line.clear();
    for (const double signal : reading.button.item) util::put_exponent(line, signal);
    util::write_line(diagnostic_unit, line);

    current = fit::orbit_data(orbit).current();
    output::write_bpm_raw_data(s.directory, fit::bpm, name, orbit,
                               fit::signals{reading.button.item}, s.rd_files, s.files_so_far,
                               current);
  }
  write_orbit_record(s, sum_x, sum_y);
  return extremes;
}

// A common factor of the gains cannot be seen: times S1/S2 the sum of the four equals the sum of
// their squares, so that equal gains stand at 1 and all BPMs fit one scale.
void add_to_plot(session_state& s) {
  ++s.plotted;
  s.bpm_max = std::max(s.bpm_max, static_cast<double>(fit::bpm));
  s.bpm_min = std::min(s.bpm_min, static_cast<double>(fit::bpm));
  double s1 = 0;
  double s2 = 0;
  for (int k = 1; k <= 4; ++k) {
    const double inverse = 1 / fit::gain(k);
    s.bpm_gain(k, s.plotted) = inverse;
    s1 += inverse;
    s2 += inverse * inverse;
  }
  for (int k = 1; k <= 4; ++k) {
    s.bpm_gain(k, s.plotted) *= s1 / s2;
    s.bpm_mat(k, s.plotted) = fit::bpm;
  }
}

// Gains that the data do not determine look as confident in the tables as any others: say so.
void warn_of_poor_gains(const std::string& name, const fit::gain_quality& quality) {
  if (quality.verdict == fit::gain_verdict::determined) return;
  std::fflush(stdout);
  util::erase_progress();
  fmt::print(stderr, "butngain: BPM {} ({}): {}\n", fit::bpm, name, quality.reason);
}

void fit_bpm(session_state& s, const std::string& name, const output::position_extremes& extremes,
             double current) {
  static fit::chis_saved chis_save;
  static fit::gains_saved gain_save;
  static fit::coeffs_saved coeff_save;
  static fit::covar_saved covar_save;
  const std::vector<fit::signals> readings = fit::current_readings();
  const fit::four_fits fits = fit::fit_readings(readings);
  fit::tell(fits.events);
  fit::save(fits, chis_save, gain_save, coeff_save, covar_save);
  fit::leave_in_context(fits);
  const fit::gain_quality quality = fit::judge_gains(readings, fits);
  warn_of_poor_gains(name, quality);
  s.fitted.push_back({fit::bpm, name, quality.verdict});

  const combined_fit combined =
      average_good_fits(chis_save, gain_save, coeff_save, fit::gain, fit::coefficients);
  double bpppp = 0;
  double bpppp2 = 0;
  output::write_bpm_fitted_data(s.directory, fit::bpm, name, chis_save, gain_save, coeff_save,
                                covar_save, combined.chis, quality.reason, extremes, s.rd_files,
                                s.files_so_far, current, bpppp, bpppp2);

  const double chis = summary_gains(chis_save, gain_save, combined.good, fit::gain);
  util::bounded<double, 1, 5, "average_gain"> average_gain;
  util::bounded<double, 1, 5, "rms_gain"> rms_gain;
  gain_ratio_statistics(gain_save, average_gain, rms_gain);
  output::write_rd_out(s.directory, extremes, chis, bpppp, bpppp2, fit::coefficients,
                       s.files_so_far, s.rd_files, s.type);
  output::write_rd_err(s.directory, gain_save, chis_save, average_gain, rms_gain, s.files_so_far,
                       s.rd_files);
}

void treat_bpm(session_state& s) {
  compact(s.norbits_save.get());
  if (fit::expert && s.just_one) ask_swap();
  const std::string name{fit::bpm_names(fit::bpm).trimmed()};
  std::string line;
  util::put_integer(line, fit::bpm, 12);
  util::print_line(line + " " + name);
  util::write_line(s.file_list.number(), s.file.all());
  set_start_gains();
  double current = 0;
  const output::position_extremes extremes = write_positions(s, name, current);
  fit_bpm(s, name, extremes, current);
  add_to_plot(s);
}

}  // namespace

void treat_bpms(session_state& s) {
  const int last = s.bpm_count.get();
  util::progress progress("fitting BPMs", last);
  util::watch_interrupts();
  for (int index = 0; index <= last; ++index) {
    if (util::interrupted()) util::leave_interrupted();
    progress.at(index);
    if (!s.just_one) fit::bpm = index;
    if (all_zero(fit::orbit_data(1).detector(fit::bpm))) {
      util::print_line(util::list_line().text(" no data for bpm ").integer(fit::bpm).str());
      continue;
    }
    treat_bpm(s);
    if (s.just_one) break;
  }
  if (util::interrupted()) util::leave_interrupted();
  util::restore_interrupts();
}

}  // namespace driver
