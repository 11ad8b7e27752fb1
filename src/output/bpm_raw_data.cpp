#include <cstring>
#include <initializer_list>
#include <string>

#include "bpm_data_files.hpp"
#include "combinations.hpp"
#include "fields.hpp"
#include "file_units.hpp"

namespace output {
namespace {

// The file being written by single orbits: from the first of a BPM to the first of another, or to the
// end.
struct raw_file {
  int m_last = -1;  // BPM of the call before; -1 before the first
  int lun24 = 0;    // its unit
};
raw_file open_raw;

// In these files the signals stand as recorded.
constexpr gain_fit_mod::gains gain_loc{{1, 1, 1, 1}};

void put_caption(std::string& line, std::initializer_list<std::string_view> captions) {
  line += "#";
  for (const std::string_view caption : captions) util::put_text(line, caption, util::real_width);
}

}  // namespace

raw_data_text begin_raw_data(const run_record& run, const gain_fit_mod::bpm_data& bpm) {
  raw_data_text raw;
  util::text_block& out = raw.text;
  for (const std::string& line : file_list_lines(run)) util::add_line(out, line);
  util::add_line(out, "&button_sums");

  std::string line = " BPM = ";
  util::put_integer(line, bpm.bpm, 5);
  util::add_line(out, line);

  // The field cuts its text to " true_ga", and the orbit is the one whose number comes after the
  // last file's: both kept for compatibility.
  line.clear();
  util::put_text(line, " true_gain = ", 8);
  for (const double g : bpm.header_gain.item) util::put_exponent(line, g);
  util::add_line(out, line);

  line.clear();
  util::put_text(line, " const = ", 11);
  // What the fit before this BPM left: its own comes later. Kept for compatibility.
  raw.const_at = out.size + line.size();
  util::put_exponent(line, bpm.const_before);
  util::add_line(out, line);
  for (const char* offset : {" delta_h =  0.  ", " delta_v =  0.  "}) {
    line.clear();
    util::put_text(line, offset, 18);
    util::add_line(out, line);
  }
  for (const char* text : {"#/", "", ""}) util::add_line(out, text);

  line.clear();
  put_caption(line, {" ", " ", "", "", "", "Bpmpm.G X ", "", "", "", "", ""});
  util::add_line(out, line);
  line.clear();
  put_caption(line, {"x", "y", "Bpmmp.G", "Bpmpm.G", "Bppmm.G", "Bppmm.G/I", "I", "button 1",
                     "button 2", "button 3", "button 4"});
  util::add_line(out, line);
  raw.orbits_at = out.size;
  // All at once: a table that grows by halves is copied on its way.
  util::room(out, bpm.orbits.size() * raw_data_line);
  return raw;
}

void add_raw_data(raw_data_text& raw, const gain_fit_mod::bpm_data& bpm, int orbit_num) {
  const auto at_orbit = static_cast<std::size_t>(orbit_num) - 1;
  const store::bpm_struct& reading = bpm.orbits[at_orbit];
  const double current = bpm.current[at_orbit];
  const combinations sums = combine({reading.button.item}, gain_loc);
  char* const begin = util::room(raw.text, raw_data_line);
  char* at = begin;
  for (const double value :
       {reading.x, reading.y, sums.Q, sums.X, sums.Y, sums.X * sums.Y / current}) {
    at = util::write_exponent(at, value);
  }
  // The current of most data is that of the orbit before: its text is there already.
  const bool same_current =
      at_orbit > 0 && raw.text.size > raw.orbits_at && current == bpm.current[at_orbit - 1];
  if (same_current) {
    std::memcpy(at, at - raw_data_line, util::real_width);
    at += util::real_width;
  } else {
    at = util::write_exponent(at, current);
  }
  for (const double signal : reading.button.item) at = util::write_exponent(at, signal);
  *at++ = '\n';
  util::end_at(raw.text, at);
}

void set_const_before(raw_data_text& raw, double amplitude) {
  util::write_exponent(raw.text.memory.get() + raw.const_at, amplitude);
}

void write_bpm_file(const run_record& run, std::string_view name, std::string_view suffix,
                    const util::text_block& text) {
  const util::unit_handle file{util::lunget()};
  util::open_output(file.number(), path_of(run.directory, name, suffix));
  util::write_text(file.number(), util::view(text));
}

void write_bpm_raw_data(const run_record& run, const gain_fit_mod::bpm_data& bpm, int orbit_num) {
  raw_data_text raw;
  // Orbits come one by one and BPM by BPM, so one open file is enough.
  if (bpm.bpm != open_raw.m_last) {
    close_bpm_raw_data();
    open_raw.lun24 = util::lunget();
    util::open_output(open_raw.lun24, path_of(run.directory, bpm.name, ".dat"));
    raw = begin_raw_data(run, bpm);
    open_raw.m_last = bpm.bpm;
  }
  const auto orbits = static_cast<int>(bpm.orbits.size());
  if (orbit_num < 1 || orbit_num > orbits) {
    util::subscript_error("orbit_data", orbit_num, 1, orbits);
  }
  add_raw_data(raw, bpm, orbit_num);
  util::write_text(open_raw.lun24, util::view(raw.text));
}

void close_bpm_raw_data() {
  if (open_raw.lun24 != 0) util::close_unit(open_raw.lun24);
  open_raw = {};
}

}  // namespace output
