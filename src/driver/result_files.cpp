#include "result_files.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "apart.hpp"
#include "fault.hpp"
#include "file_units.hpp"
#include "gain_fit_mod.hpp"
#include "gains_csv.hpp"
#include "gains_load.hpp"
#include "jobs.hpp"
#include "nonlin_bpm_mod.hpp"
#include "orbits_csv.hpp"
#include "report_page.hpp"
#include "result_rows.hpp"
#include "run_time.hpp"
#include "session_summary.hpp"
#include "whole_file.hpp"

namespace driver {
namespace {

namespace fit = gain_fit_mod;

// The store keeps a BPM's silent orbits too: a count of all would hide why it was left out.
int orbits_with_signal(const session_state& s, int bpm) {
  const auto column = fit::orbit_data.column(bpm, s.norbits_save.get());
  return static_cast<int>(std::count_if(column.begin(), column.end(), has_signal));
}

void add_rows_of_left_out(session_state& s) {
  auto& rows = s.results.bpm;
  // No orbit of theirs was treated, so any set may tell what the electronics divide by.
  std::vector<std::size_t> every_set(s.sets.size());
  std::iota(every_set.begin(), every_set.end(), std::size_t{0});
  for (const store::bpm_remark& remark : all_not_fitted(s)) {
    rows.push_back(row_of_left_out(remark, orbits_with_signal(s, remark.bpm),
                                   coefficients_of(s.sets, every_set, remark.bpm)));
  }
  // Fitted and left out among each other: people look for a BPM by its number.
  std::sort(rows.begin(), rows.end(),
            [](const report::bpm_row& a, const report::bpm_row& b) { return a.bpm < b.bpm; });
}

// What the readings were, for those who load what came of them. Without the time: the same readings
// give the same file.
std::string about(const session_state& s) {
  const std::string text = s.results.info.title + "; ";
  // 0 as long as no raw run was read, and only raw files name coefficients.
  if (fit::gain_correct == 0)
    return text + "the readings name no old coefficients: 1 stands for them";
  return text +
         (fit::gain_correct == 3
              ? "correction 3: readings divided by the old coefficients; new = old x gain"
              : fmt::format("correction {}: readings not divided by the old coefficients; new = "
                            "their mean x gain",
                            fit::gain_correct));
}

// The list of factors that is in force; nothing where the session did not need the tables.
std::vector<report::listed_multiplier> listed_now() {
  std::vector<report::listed_multiplier> listed;
  if (nonlin_bpm_mod::nonlin_bpm_first_call) return listed;
  for (int bpm = 1; bpm <= nonlin_bpm_mod::max_bpm; ++bpm) {
    const report::four factor = nonlin_bpm_mod::bpm_calib(bpm).coeff.item;
    // Exactly: 1 is what stands where no list named the BPM.
    if (factor != report::four{1, 1, 1, 1}) listed.push_back({bpm, factor});
  }
  return listed;
}

// Told and passed on: one file that fails must not cost the others. Returns whether all went well.
bool tell(const util::status& fault) {
  if (fault) util::tell_line("cannot write " + util::line_of(*fault));
  return !fault;
}

// The pictures; the lines of those that could not be written.
std::string draw_pictures(const report::run_results& results, const std::string& pdf,
                          const std::string& folder) {
  std::string lines;
  const auto note = [&lines](const util::status& fault) {
    if (fault) lines += util::line_of(*fault) + "\n";
  };
  note(report::write_report_html(folder + "report.html", results, util::jobs));
  note(report::write_gains_png(folder + "gains.png", results));
  if (pdf.empty()) return lines;
  const auto size = pdf == "letter" ? report::paper::letter : report::paper::a4;
  note(report::write_gains_pdf(folder + "gains.pdf", results, size));
  return lines;
}

// In a process of its own: the numbers are written, whatever becomes of the pictures.
bool write_report(const report::run_results& results, const std::string& pdf,
                  const std::string& folder) {
  util::apart work;
  if (util::begin_apart(work)) util::end_apart(work, draw_pictures(results, pdf, folder));
  std::string lines = util::wait_apart(work);
  const bool all_well = lines.empty();
  // How it ended, where it could not say which picture failed.
  if (!lines.empty() && lines.back() != '\n') lines.insert(0, "the pictures: ");
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    util::tell_line("cannot write " + lines.substr(0, end));
    lines.erase(0, end + 1);
  }
  return all_well;
}

}  // namespace

bool write_run_files(const report::run_results& results, const std::string& about,
                     const wanted_files& wanted) {
  const std::string folder = results.info.directory + "/";
  const auto& rows = results.bpm;
  // What programs load comes before what people look at: a run that is killed here has its numbers.
  bool all_well = tell(report::write_gains_csv(folder + "gains.csv", rows));
  all_well &=
      tell(util::write_whole_file(folder + "gains.load", report::gains_load_text(rows, about)));
  if (!wanted.button_coeff.empty()) {
    all_well &= tell(util::write_whole_file(folder + "button_coeff.dat", wanted.button_coeff));
  }
  if (wanted.orbits) {
    all_well &= tell(report::write_orbits_csv(folder + "orbits.csv", rows));
  }
  all_well &= write_report(results, wanted.pdf, folder);
  return all_well;
}

void write_gains_so_far(const session_state& s) {
  const std::string folder = util::output_path(std::string{s.directory.trimmed()});
  // Not told: the whole file is written at the end, and what is wrong with the folder is said then.
  static_cast<void>(report::write_gains_csv(folder + "/gains.csv", s.results.bpm));
}

void write_results(session_state& s) {
  // First: every file is made of the same rows.
  add_rows_of_left_out(s);
  s.results.info.directory = util::output_path(std::string{s.directory.trimmed()});
  s.results.info.title = data_title(s);
  wanted_files wanted{.orbits = s.list_orbits, .pdf = s.pdf, .button_coeff = {}};
  if (s.list_coefficients) {
    wanted.button_coeff = report::button_coeff_text(s.results.bpm, listed_now(), about(s));
  }
  if (!write_run_files(s.results, about(s), wanted)) s.exit_status = 1;
}

}  // namespace driver
