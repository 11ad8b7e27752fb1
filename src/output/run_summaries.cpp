#include "run_summaries.hpp"

#include <array>
#include <cmath>
#include <initializer_list>
#include <span>
#include <string>

#include "fields.hpp"
#include "file_units.hpp"
#include "gain_fit_mod.hpp"

namespace output {
namespace {

// Units of the tables being written; 0 before the first line of a session.
int lun26 = 0;  // "_out"
int lun27 = 0;  // "_err"

constexpr int name_width = 12;  // of the 16 characters of a BPM's name; the rest is cut

// Named after the last data file of the run, and begun by the first BPM: a run that fits none leaves
// no table that looks like a result.
int begin_table(const run_record& run, std::string_view suffix) {
  const int unit = util::lunget();
  util::open_output(unit, path_of(run.directory, run.label, suffix));
  for (const std::string& line : file_list_lines(run)) util::write_line(unit, line);
  return unit;
}

void put_all_fixed(std::string& line, std::span<const double> numbers) {
  for (const double v : numbers) util::put_fixed(line, v);
}

void put_captions(std::string& line, std::initializer_list<std::string_view> texts) {
  for (const std::string_view text : texts) util::put_text(line, text, util::real_width);
}

void put_name_and_blanks(std::string& line, std::string_view name) {
  util::put_blanks(line, 4);
  util::put_padded(line, name, name_width);
}

// Four coefficient columns stand under one caption, and what follows is not aligned with its data:
// kept for compatibility.
std::string out_caption() {
  std::string line;
  util::put_text(line, "! BPM ", 7);
  put_captions(line, {"h_min", "h_max", "h_max-h_min", "v_min", "v_max", "v_max-v_min", " gain(1)",
                      " gain(2)", " gain(3)", " gain(4)", "coeff"});
  util::put_blanks(line, 18);
  put_captions(line, {"chis"});
  util::put_blanks(line, 18);
  put_captions(line, {"name"});
  util::put_blanks(line, 4);
  put_captions(line, {"button ave", "rms but ave"});
  util::put_blanks(line, 18);
  put_captions(line, {" true_gain"});
  return line;
}

// The fifth fit has a place in the session's tables and none here: four are made.
std::string err_caption() {
  std::string line;
  util::put_blanks(line, 3);
  util::put_text(line, "bpm", 3);
  for (int fit = 1; fit <= 4; ++fit) {
    util::put_blanks(line, 4);
    put_captions(line, {" ", " ", "1/gain", " ", "chis"});
  }
  util::put_blanks(line, 26);
  put_captions(line, {"average gain"});
  util::put_blanks(line, 36);
  put_captions(line, {"rms_gain"});
  util::put_blanks(line, 12);
  put_captions(line, {" true_gain"});
  return line;
}

// The correction line stands in the table of every kind of data: 0 and "fake" for synthetic ones.
void begin_out(const run_record& run) {
  lun26 = begin_table(run, "_out");
  std::string line = " gain_correct = ";
  util::put_blanks(line, 1);
  util::put_integer(line, run.gain_correct, 2);
  line.append(", ").append(util::trim_right(run.type)).append(" to tbt data");
  util::write_line(lun26, line);
  util::write_line(lun26, out_caption());
}

}  // namespace

void write_rd_out(const run_record& run, const gain_fit_mod::bpm_result& result) {
  if (lun26 == 0) begin_out(run);

  std::string line;
  util::put_integer(line, result.data.bpm, 7);
  const auto& [h_min, h_max, v_min, v_max] = result.motion.extremes;
  put_all_fixed(line, std::array{h_min, h_max, h_max - h_min, v_min, v_max, v_max - v_min});
  // Inverse multipliers: what the buttons make of a signal, as the operators of a table expect it.
  for (const double g : result.combined.summary_gain.item) util::put_fixed(line, 1 / g);
  put_all_fixed(line, result.combined.coefficients.item);
  util::put_fixed(line, result.combined.summary_chisq);
  put_name_and_blanks(line, result.data.name);
  util::put_blanks(line, 4);
  const auto n = static_cast<double>(result.data.orbits.size());
  const auto& [sum, squares] = result.totals;
  util::put_fixed(line, sum / n);
  // From two sums, so that no orbit is visited twice; a beam that stands still may come out as the
  // root of a rounding error below zero, which is shown as no number.
  util::put_fixed(line, std::sqrt((squares - sum * sum / n) / n));
  put_all_fixed(line, result.data.true_gain.item);
  util::write_line(lun26, line);
}

void write_rd_err(const run_record& run, const gain_fit_mod::bpm_result& result) {
  using gain_fit_mod::ind;
  if (lun27 == 0) {
    lun27 = begin_table(run, "_err");
    util::write_line(lun27, err_caption());
  }

  std::string line;
  util::put_blanks(line, 3);
  util::put_integer(line, result.data.bpm, 4);
  // Kept for compatibility: the context's counter stands at 5 afterwards.
  for (ind = 1; ind <= 4; ++ind) {
    const gain_fit_mod::gains& gain = result.fits.fit.at(static_cast<std::size_t>(ind) - 1).gain;
    util::put_blanks(line, 3);
    // Relative to button 1, which makes the four fits comparable: each has a factor of its own.
    for (int k = 1; k <= 4; ++k) util::put_fixed(line, gain(1) / gain(k));
    util::put_fixed(line, chisq_shown(result.fits));
  }
  util::put_blanks(line, 4);
  put_all_fixed(line, result.combined.ratio.item);
  put_all_fixed(line, result.combined.ratio_scatter.item);
  put_name_and_blanks(line, result.data.name);
  put_all_fixed(line, result.data.true_gain.item);
  util::write_line(lun27, line);
}

void close_run_summaries() {
  for (int* unit : {&lun26, &lun27}) {
    if (*unit != 0) util::close_unit(*unit);
    *unit = 0;
  }
}

}  // namespace output
