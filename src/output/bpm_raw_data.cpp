#include <initializer_list>
#include <string>

#include "bpm_data_files.hpp"
#include "combinations.hpp"
#include "fields.hpp"
#include "file_units.hpp"

namespace output {
namespace {

// The file being written: from the first orbit of a BPM to the first of another, or to the end.
struct raw_file {
  int m_last = -1;  // BPM of the call before; -1 before the first
  int lun24 = 0;    // its unit
};
raw_file raw;

// In these files the signals stand as recorded.
constexpr gain_fit_mod::gains gain_loc{{1, 1, 1, 1}};

void put_caption(std::string& line, std::initializer_list<std::string_view> captions) {
  line += "#";
  for (const std::string_view caption : captions) util::put_text(line, caption, util::real_width);
}

void write_header(const run_record& run, const gain_fit_mod::bpm_data& bpm) {
  const int unit = raw.lun24;
  for (const std::string& line : file_list_lines(run)) util::write_line(unit, line);
  util::write_line(unit, "&button_sums");

  std::string line = " BPM = ";
  util::put_integer(line, bpm.bpm, 5);
  util::write_line(unit, line);

  // The field cuts its text to " true_ga", and the orbit is the one whose number comes after the
  // last file's: both kept for compatibility.
  line.clear();
  util::put_text(line, " true_gain = ", 8);
  for (const double g : bpm.header_gain.item) util::put_exponent(line, g);
  util::write_line(unit, line);

  line.clear();
  util::put_text(line, " const = ", 11);
  // What the fit before this BPM left: its own comes later. Kept for compatibility.
  util::put_exponent(line, bpm.const_before);
  util::write_line(unit, line);
  for (const char* offset : {" delta_h =  0.  ", " delta_v =  0.  "}) {
    line.clear();
    util::put_text(line, offset, 18);
    util::write_line(unit, line);
  }
  for (const char* text : {"#/", "", ""}) util::write_line(unit, text);

  line.clear();
  put_caption(line, {" ", " ", "", "", "", "Bpmpm.G X ", "", "", "", "", ""});
  util::write_line(unit, line);
  line.clear();
  put_caption(line, {"x", "y", "Bpmmp.G", "Bpmpm.G", "Bppmm.G", "Bppmm.G/I", "I", "button 1",
                     "button 2", "button 3", "button 4"});
  util::write_line(unit, line);
}

}  // namespace

void write_bpm_raw_data(const run_record& run, const gain_fit_mod::bpm_data& bpm, int orbit_num) {
  // Orbits come one by one and BPM by BPM, so one open file is enough.
  if (bpm.bpm != raw.m_last) {
    close_bpm_raw_data();
    raw.lun24 = util::lunget();
    util::open_output(raw.lun24, path_of(run.directory, bpm.name, ".dat"));
    write_header(run, bpm);
    raw.m_last = bpm.bpm;
  }
  const auto orbits = static_cast<int>(bpm.orbits.size());
  if (orbit_num < 1 || orbit_num > orbits) {
    util::subscript_error("orbit_data", orbit_num, 1, orbits);
  }
  const auto at_orbit = static_cast<std::size_t>(orbit_num) - 1;
  const store::bpm_struct& reading = bpm.orbits[at_orbit];
  const double current = bpm.current[at_orbit];
  const combinations at = combine({reading.button.item}, gain_loc);
  std::string line;
  for (const double value :
       {reading.x, reading.y, at.Q, at.X, at.Y, at.X * at.Y / current, current})
    util::put_exponent(line, value);
  for (const double signal : reading.button.item) util::put_exponent(line, signal);
  util::write_line(raw.lun24, line);
}

void close_bpm_raw_data() {
  if (raw.lun24 != 0) util::close_unit(raw.lun24);
  raw = {};
}

}  // namespace output
