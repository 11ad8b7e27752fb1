#include "run_summaries.hpp"

#include <array>
#include <cmath>
#include <initializer_list>
#include <span>
#include <string>

#include "fields.hpp"
#include "file_units.hpp"

namespace output {
namespace {

// Units of the tables being written; 0 before the first line of a session.
int lun26 = 0;  // "_out"
int lun27 = 0;  // "_err"

constexpr int name_width = 12;  // of the 16 characters of a BPM's name

int begin_table(const directory_name& directory, std::string_view suffix, int files_so_far,
                const rd_files_list& rd_files) {
  const int unit = util::lunget();
  util::open_output(unit, path_of(directory, gain_fit_mod::in_file_0.trimmed(), suffix));
  for (const std::string& line : file_list_lines(rd_files, files_so_far))
    util::write_line(unit, line);
  return unit;
}

void put_all_fixed(std::string& line, std::span<const double> numbers) {
  for (const double v : numbers) util::put_fixed(line, v);
}

void put_captions(std::string& line, std::initializer_list<std::string_view> texts) {
  for (const std::string_view text : texts) util::put_text(line, text, util::real_width);
}

void put_name_and_blanks(std::string& line) {
  util::put_blanks(line, 4);
  util::put_padded(line, gain_fit_mod::bpm_names(gain_fit_mod::bpm).all(), name_width);
}

gain_fit_mod::signals true_gain_of_bpm() {
  return {gain_fit_mod::orbit_data(1).detector(gain_fit_mod::bpm).true_gain.item};
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

void begin_out(const directory_name& directory, int files_so_far, const rd_files_list& rd_files,
               std::string_view type) {
  lun26 = begin_table(directory, "_out", files_so_far, rd_files);
  std::string line = " gain_correct = ";
  util::put_blanks(line, 1);
  util::put_integer(line, gain_fit_mod::gain_correct, 2);
  line.append(", ").append(util::trim_right(type)).append(" to tbt data");
  util::write_line(lun26, line);
  util::write_line(lun26, out_caption());
}

}  // namespace

void write_rd_out(const directory_name& directory, const position_extremes& extremes, double chis,
                  double bpppp, double bpppp2, const gain_fit_mod::coefficient_set& coeff,
                  int files_so_far, const rd_files_list& rd_files, std::string_view type) {
  if (lun26 == 0) begin_out(directory, files_so_far, rd_files, type);

  std::string line;
  util::put_integer(line, gain_fit_mod::bpm, 7);
  const auto& [h_min, h_max, v_min, v_max] = extremes;
  put_all_fixed(line, std::array{h_min, h_max, h_max - h_min, v_min, v_max, v_max - v_min});
  for (const double g : gain_fit_mod::gain.item) util::put_fixed(line, 1 / g);
  put_all_fixed(line, coeff.item);
  util::put_fixed(line, chis);
  put_name_and_blanks(line);
  util::put_blanks(line, 4);
  const double n = gain_fit_mod::norbits;
  util::put_fixed(line, bpppp / n);
  util::put_fixed(line, std::sqrt((bpppp2 - bpppp * bpppp / n) / n));
  put_all_fixed(line, true_gain_of_bpm().item);
  util::write_line(lun26, line);
}

void write_rd_err(const directory_name& directory, const gain_fit_mod::gains_saved& gain_save,
                  const gain_fit_mod::chis_saved& chis_save, const average_gains& average_gain,
                  const rms_gains& rms_gain, int files_so_far, const rd_files_list& rd_files) {
  using gain_fit_mod::ind;
  if (lun27 == 0) {
    lun27 = begin_table(directory, "_err", files_so_far, rd_files);
    util::write_line(lun27, err_caption());
  }

  std::string line;
  util::put_blanks(line, 3);
  util::put_integer(line, gain_fit_mod::bpm, 4);
  for (ind = 1; ind <= 4; ++ind) {
    util::put_blanks(line, 3);
    for (int k = 1; k <= 4; ++k) util::put_fixed(line, gain_save(ind, 1) / gain_save(ind, k));
    util::put_fixed(line, chis_save(ind));
  }
  util::put_blanks(line, 4);
  for (int k = 1; k <= 4; ++k) util::put_fixed(line, average_gain(k));
  for (int k = 1; k <= 4; ++k) util::put_fixed(line, rms_gain(k));
  put_name_and_blanks(line);
  put_all_fixed(line, true_gain_of_bpm().item);
  util::write_line(lun27, line);
}

void close_run_summaries() {
  for (int* unit : {&lun26, &lun27}) {
    if (*unit != 0) util::close_unit(*unit);
    *unit = 0;
  }
}

}  // namespace output
