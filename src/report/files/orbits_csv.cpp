#include "orbits_csv.hpp"

#include "csv_text.hpp"
#include "whole_file.hpp"

namespace report {
namespace {

void put_reals(std::string& line, std::initializer_list<double> values) {
  for (const double value : values) {
    line += ',';
    put_real(line, value);
  }
}

std::string lines_of(const bpm_row& row) {
  // Index and name in every line, so that a line says all by itself: programs sort, cut and join
  // lines.
  // The same for all orbits of the BPM.
  const std::string begin = std::to_string(row.bpm) + ',' + field_text(row.name) + ',';
  std::string text;
  for (const orbit_row& at : row.orbit) {
    text += begin;
    text += std::to_string(at.orbit);
    put_reals(text, {at.signal[0], at.signal[1], at.signal[2], at.signal[3]});
    put_reals(text, {at.before_x_mm, at.before_y_mm, at.after_x_mm, at.after_y_mm});
    put_reals(text, {at.intensity, at.residual});
    // A number, not a word: what reads columns of numbers can select by it.
    text += at.used ? ",1\n" : ",0\n";
  }
  return text;
}

}  // namespace

util::status write_orbits_csv(const std::string& path, const std::vector<bpm_row>& rows) {
  util::unfinished_file file;
  if (auto fault = util::begin_whole_file(file, path)) return fault;
  util::put(file,
            "bpm,name,orbit,signal_1,signal_2,signal_3,signal_4,before_x_mm,before_y_mm,"
            "after_x_mm,after_y_mm,intensity,residual,used\n");
  // Faults of writing are kept for the end: nothing stands under the name before that.
  for (const bpm_row& row : rows) util::put(file, lines_of(row));
  return util::finish(file);
}

}  // namespace report
