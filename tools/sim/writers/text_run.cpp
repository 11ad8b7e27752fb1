#include "text_run.hpp"

#include <fmt/core.h>

#include <cmath>
#include <vector>

#include "directories.hpp"
#include "file_units.hpp"
#include "run_time.hpp"
#include "truth.hpp"

namespace sim {
namespace {

constexpr double counts_per_unit = 1000;  // of the signals in a text run

std::string four(const buttons& values) {
  std::string text;
  for (int k = 1; k <= 4; ++k) text += fmt::format(" {:11.4f}", values(k) / counts_per_unit);
  return text;
}

// Only the pedestal that is known goes; what a correction would leave in stays in the signals.
buttons without_pedestal(const passage& p, const monitor& at) {
  buttons signal = p.reading;
  // Signals stand in text runs without their pedestals; what a correction does not
  // know of (pedestals left in) stays in.
  for (int k = 1; k <= 4; ++k) signal(k) -= at.electronics.pedestal(k);
  return signal;
}

std::string turn_line(const text_run_setup& s, const passage& p, const monitor& at) {
  const std::string signals = fmt::format("{} {:4} {:4}", four(without_pedestal(p, at)),
                                          shaker_phase(s.machine.beam.x, at.orbit),
                                          shaker_phase(s.machine.beam.y, at.orbit));
  // The true position: a simulation has no better one to write.
  const std::string position = fmt::format(" {:13.6e} {:13.6e}", p.at.x, p.at.y);
  return s.form == text_form::swapped ? position + signals : signals + position;
}

void write_title(const text_run_setup& s, int unit) {
  // The older form has no version; the others have 2, for 3 would make the run raw data.
  if (s.form == text_form::older) {
    util::write_line(unit, fmt::format("KOVR BPM Raw data, run {}", s.run));
    util::write_line(unit, fmt::format("NUM ACTIVE : {}", s.bpms));
    return;
  }
  util::write_line(unit, fmt::format("# turn-by-turn run {}", s.run));
  // The version is what tells a text run from a raw data file under the same name.
  util::write_line(unit, "File_Version : 2");
}

void write_bpm_header(const text_run_setup& s, int unit, const monitor& at) {
  if (s.form == text_form::older) {
    util::write_line(unit, "KOVR BPM : " + text_location(at.bpm));
    return;
  }
  // Read by position: an empty line is passed over, and behind a location two lines and four
  // pedestals follow. Turns before the marker of the bunch are not read.
  util::write_line(unit, "");
  util::write_line(unit, "Location : " + text_location(at.bpm));
  util::write_line(unit, "Pedestals, thousands of counts");
  util::write_line(unit, "# already taken away");
  util::write_line(unit, "#      b1(BI)      b2(BO)      b3(TI)      b4(TO)");
  // The reader does not use them; people may want to know what was taken away.
  util::write_line(unit, four(at.electronics.pedestal));
  util::write_line(unit, "# --- Bunch 1 ---");
}

bpm_truth write_bpm(const text_run_setup& s, const machine& m, int unit, int bpm,
                    const passage_log& log) {
  monitor at = make_monitor(m, {.bpm = bpm, .orbits = s.turns});
  write_bpm_header(s, unit, at);
  for (int turn = 1; turn <= s.turns; ++turn) {
    const passage p = next_passage(m, at);
    util::write_line(unit, turn_line(s, p, at));
    note(log, text_location(bpm), 1, turn, p);
  }
  return truth_of(text_location(bpm), at.electronics);
}

}  // namespace

int shaker_phase(const plane& p, int turn) {
  constexpr double steps = 512;
  constexpr double two_pi = 6.283185307179586;
  // A count of 512 a turn of phase, always positive.
  const double cycles = betatron_phase(p, 1, turn) / two_pi;
  // A phase just below 0 comes to a whole cycle by rounding: the remainder makes it 0, not 512.
  return static_cast<int>(std::floor((cycles - std::floor(cycles)) * steps)) % 512;
}

std::string text_location(int bpm) {
  constexpr int last_west = 49;
  // BPM 50 is 49E and the last one, 98, is 1E.
  constexpr int mirror = 99;
  // Numbered from the west end round the ring: 49W is followed by 49E.
  return bpm <= last_west ? fmt::format("{}W", bpm) : fmt::format("{}E", mirror - bpm);
}

std::string text_run_name(text_form form, int run) {
  // By case and without a default: the compiler then reports a new form that has no name here.
  switch (form) {
    case text_form::older:
      return fmt::format("kbpm-{:05d}.dat", run);
    case text_form::swapped:
      return fmt::format("RDe-{:06d}.dat", run);
    case text_form::plain:
      break;
  }
  // The plain name stands behind the switch, so that every way out of the function has one.
  return fmt::format("RD-{:06d}.dat", run);
}

std::string text_run_fault(const text_run_setup& s) {
  if (s.run < 1 || s.run > last_text_run) {
    return fmt::format("run numbers of text runs go from 1 to {}, not {}", last_text_run, s.run);
  }
  if (s.bpms < 1 || s.bpms > last_text_bpm) {
    return fmt::format("text runs hold 1 to {} BPMs, not {}", last_text_bpm, s.bpms);
  }
  if (s.turns < 1) return fmt::format("at least 1 turn is needed, not {}", s.turns);
  return machine_fault(s.machine, s.bpms);
}

std::string make_text_run(const text_run_setup& s) {
  // Before the chambers are solved: a directory that cannot be made ends the run at once.
  make_directory(s.directory);
  std::string path = fmt::format("{}/{}", s.directory, text_run_name(s.form, s.run));
  machine m = s.machine;
  prepare(m);
  std::vector<bpm_truth> bpms;
  {
    const util::unit_handle file{util::lunget()};
    util::open_whole_output(file.number(), path);
    write_title(s, file.number());
    // Begins beside the run under the truth's name, so that the two are found together.
    const passage_log log = open_passage_log(m, path + ".truth");
    for (int bpm = 1; bpm <= s.bpms; ++bpm) {
      bpms.push_back(write_bpm(s, m, file.number(), bpm, log));
    }
  }
  // When the run is closed: a truth stands only beside a run that is whole.
  write_truth(path + ".truth", "a text run", s.machine, bpms);
  return path;
}

}  // namespace sim
