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

// Told and passed on: one file that fails must not cost the others.
void tell(session_state& s, const util::status& fault) {
  if (!fault) return;
  s.exit_status = 1;
  util::tell_line("cannot write " + util::line_of(*fault));
}

// The pictures; the lines of those that could not be written.
std::string draw_pictures(const session_state& s, const std::string& folder) {
  std::string lines;
  const auto note = [&lines](const util::status& fault) {
    if (fault) lines += util::line_of(*fault) + "\n";
  };
  note(report::write_report_html(folder + "report.html", s.results));
  note(report::write_gains_png(folder + "gains.png", s.results));
  if (s.pdf.empty()) return lines;
  const auto size = s.pdf == "letter" ? report::paper::letter : report::paper::a4;
  note(report::write_gains_pdf(folder + "gains.pdf", s.results, size));
  return lines;
}

// In a process of its own: the numbers are written, whatever becomes of the pictures.
void write_report(session_state& s, const std::string& folder) {
  util::apart work;
  if (util::begin_apart(work)) util::end_apart(work, draw_pictures(s, folder));
  std::string lines = util::wait_apart(work);
  // How it ended, where it could not say which picture failed.
  if (!lines.empty() && lines.back() != '\n') lines.insert(0, "the pictures: ");
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    s.exit_status = 1;
    util::tell_line("cannot write " + lines.substr(0, end));
    lines.erase(0, end + 1);
  }
}

}  // namespace

void write_results(session_state& s) {
  // First: every file below is made of the same rows.
  add_rows_of_left_out(s);
  s.results.info.directory = util::output_path(std::string{s.directory.trimmed()});
  s.results.info.title = data_title(s);
  const std::string folder = s.results.info.directory + "/";
  const auto& rows = s.results.bpm;
  // What programs load comes before what people look at: a run that is killed here has its numbers.
  tell(s, report::write_gains_csv(folder + "gains.csv", rows));
  tell(s, util::write_whole_file(folder + "gains.load", report::gains_load_text(rows, about(s))));
  if (s.list_coefficients) {
    tell(s, util::write_whole_file(folder + "button_coeff.dat",
                                   report::button_coeff_text(rows, listed_now(), about(s))));
  }
  if (s.list_orbits) tell(s, report::write_orbits_csv(folder + "orbits.csv", rows));
  write_report(s, folder);
}

}  // namespace driver
