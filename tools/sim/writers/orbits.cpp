#include "orbits.hpp"

#include <fmt/core.h>

#include <filesystem>
#include <numbers>
#include <vector>

#include "directories.hpp"
#include "file_units.hpp"
#include "random.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "truth.hpp"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr int values_per_line = 10;

// The button files' directory per thousand orbits, as the session looks for it.
fs::path directory_of(const orbits_setup& s, int number) {
  return fs::path{s.archive} / fmt::format("{:02d}", number / 1000);
}

// One orbit's own amplitude and phase.
void draw_oscillation(plane& p, random_stream& stream) {
  // Negative amplitudes too: with the phase from the whole circle the distribution is symmetric.
  p.amplitude *= (2 * uniform(stream)) - 1;
  p.phase += 2 * std::numbers::pi * uniform(stream);
}

void write_button_file(const orbits_setup& s, int number, const machine& m,
                       std::vector<monitor>& monitors, const passage_log& log) {
  const fs::path directory = directory_of(s, number);
  make_directory(directory);
  const util::unit_handle file{util::lunget()};
  util::open_whole_output(file.number(), directory / fmt::format("butns.{}", number));
  util::write_line(file.number(), fmt::format("c Closed orbit {}, simulated", number));
  if (!s.no_currents) {
    util::write_line(file.number(), fmt::format("E T1      {:.6g}", s.electrons));
    util::write_line(file.number(), fmt::format("P T1      {:.6g}", s.positrons));
  }
  for (monitor& at : monitors) {
    const passage p = next_passage(m, at);
    // Taken first: a reading that does not fit ends the run before its passage is noted.
    const auto count = counts(p, at);
    note(log, std::to_string(at.bpm), 1, number, p);
    util::write_line(file.number(), fmt::format(" {:4} {:11} {:11} {:11} {:11}", at.bpm, count(1),
                                                count(2), count(3), count(4)));
  }
}

// "name = first, first + 1, ..." over several lines.
// Ten to a line: a namelist's lines are short, and people read these files.
std::string numbers(const char* name, int first, int n) {
  std::string text = fmt::format(" {} =", name);
  for (int i = 0; i < n; ++i) {
    // Namelists may break anywhere between values; short lines are for people.
    if (i > 0) text += i % values_per_line == 0 ? ",\n        " : ",";
    text += fmt::format(" {}", first + i);
  }
  return text;
}

void write_command_file(const orbits_setup& s) {
  const util::unit_handle file{util::lunget()};
  util::open_whole_output(file.number(), s.command);
  const auto write = [&](const std::string& line) { util::write_line(file.number(), line); };
  write("&bpm_gain_anal_params");
  write(numbers("fit_bpm_idx", 1, s.bpms));
  write(fmt::format(" read_current_from_butns_file = .{}.", !s.no_currents));
  // Nothing is cut: a simulated orbit is no worse than another unless troubles were asked for.
  write(" sigma_cutoff = 0\n chisq_cutoff = 0");
  write(numbers("orbit", s.first, s.orbits));
  write("/");
}

// Neighbouring orbits as pairs; the results of a measurement that was perfect.
void write_list_file(const orbits_setup& s) {
  const util::unit_handle file{util::lunget()};
  util::open_whole_output(file.number(), s.list);
  const auto write = [&](const std::string& line) { util::write_line(file.number(), line); };
  write("# simulated: orbit1 orbit2 ratio error");
  write("cu1 = 0\ncu2 = 100\ndcu = 100\nfit_cal = 1.0\ncorstr_cal = 1.0");
  // An odd last orbit has no partner and stays out of the list.
  for (int i = 0; i + 1 < s.orbits; i += 2) {
    write(fmt::format(" {} {} 1.0000 0.0000", s.first + i, s.first + i + 1));
  }
}

}  // namespace

orbits_setup default_orbits() {
  orbits_setup s;
  s.archive = site::orbit_dir;
  plane& x = s.machine.beam.x;
  plane& y = s.machine.beam.y;
  // A closed orbit has no random part: what differs from orbit to orbit is one oscillation.
  x.spread = y.spread = 0;
  x.amplitude = 6 * mm;
  y.amplitude = 4 * mm;
  x.advance = 37.8 * degree;  // about ten oscillations over a hundred BPMs
  y.advance = 34.5 * degree;
  return s;
}

std::string orbits_fault(const orbits_setup& s) {
  if (s.orbits < 1 || s.orbits > most_orbits_listed) {
    return fmt::format("a command file lists 1 to {} orbits, not {}", most_orbits_listed, s.orbits);
  }
  if (s.first < 1 || s.first > 1000000000) {
    return fmt::format("the first orbit's number must lie in 1..1000000000, but is {}", s.first);
  }
  if (s.bpms < 1 || s.bpms > most_button_bpms) {
    return fmt::format("a button file holds 1 to {} BPMs, not {}", most_button_bpms, s.bpms);
  }
  if (s.electrons < 0 || s.positrons < 0) return "currents must not be negative";
  return machine_fault(s.machine, s.bpms);
}

void make_orbits(const orbits_setup& s) {
  machine m = s.machine;
  prepare(m);
  std::vector<monitor> monitors;
  std::vector<bpm_truth> truth;
  for (int bpm = 1; bpm <= s.bpms; ++bpm) {
    monitors.push_back(make_monitor(m, {.bpm = bpm, .orbits = s.orbits}));
    truth.push_back(truth_of(std::to_string(bpm), monitors.back().electronics));
  }
  // BPMs count from 1: stream 0 is the whole beam's.
  random_stream stream = make_stream(s.machine.seed, purpose::motion, 0);
  const std::string truth_path = fs::path{s.archive} / truth_file_name;
  // The file of single passages is opened before the first orbit's.
  make_directory(directory_of(s, s.first));
  const passage_log log = open_passage_log(m, truth_path);
  for (int i = 0; i < s.orbits; ++i) {
    // The beam changes from orbit to orbit, the BPMs do not: the monitors stay.
    machine of_orbit = m;
    draw_oscillation(of_orbit.beam.x, stream);
    draw_oscillation(of_orbit.beam.y, stream);
    write_button_file(s, s.first + i, of_orbit, monitors, log);
  }
  // After the button files: a command file that stands there lists orbits that do.
  write_command_file(s);
  if (!s.list.empty()) write_list_file(s);
  write_truth(truth_path, "closed orbits", s.machine, truth);
}

}  // namespace sim
