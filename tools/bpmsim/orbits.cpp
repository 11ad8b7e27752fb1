#include "orbits.hpp"

#include <fmt/core.h>

#include <filesystem>
#include <numbers>
#include <vector>

#include "file_units.hpp"
#include "machine_options.hpp"
#include "random.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "terminal.hpp"
#include "text.hpp"
#include "truth.hpp"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr int values_per_line = 10;

// What the options of the subcommand set; filled by the command line, read by the work.
orbits_setup setup;

// The button files' directory per thousand orbits, as the session looks for it.
fs::path directory_of(const orbits_setup& s, int number) {
  return fs::path{s.archive} / fmt::format("{:02d}", number / 1000);
}

// One orbit's own amplitude and phase.
void draw_oscillation(plane& p, random_stream& stream) {
  p.amplitude *= (2 * uniform(stream)) - 1;
  p.phase += 2 * std::numbers::pi * uniform(stream);
}

void write_button_file(const orbits_setup& s, int number, const machine& m,
                       std::vector<monitor>& monitors) {
  const fs::path directory = directory_of(s, number);
  std::error_code fault;
  fs::create_directories(directory, fault);
  if (fault) {
    util::run_time_error(
        fmt::format("cannot make directory {}: {}", directory.string(), fault.message()));
  }
  const util::unit_handle file{util::lunget()};
  util::open_output(file.number(), directory / fmt::format("butns.{}", number));
  util::write_line(file.number(), fmt::format("c Closed orbit {}, simulated", number));
  if (!s.no_currents) {
    util::write_line(file.number(), fmt::format("E T1      {:.6g}", s.electrons));
    util::write_line(file.number(), fmt::format("P T1      {:.6g}", s.positrons));
  }
  for (monitor& at : monitors) {
    const auto count = counts(next_passage(m, at), at);
    util::write_line(file.number(), fmt::format(" {:4} {:11} {:11} {:11} {:11}", at.bpm, count(1),
                                                count(2), count(3), count(4)));
  }
}

// "name = first, first + 1, ..." over several lines.
std::string numbers(const char* name, int first, int n) {
  std::string text = fmt::format(" {} =", name);
  for (int i = 0; i < n; ++i) {
    if (i > 0) text += i % values_per_line == 0 ? ",\n        " : ",";
    text += fmt::format(" {}", first + i);
  }
  return text;
}

void write_command_file(const orbits_setup& s) {
  const util::unit_handle file{util::lunget()};
  util::open_output(file.number(), s.command);
  const auto write = [&](const std::string& line) { util::write_line(file.number(), line); };
  write("&bpm_gain_anal_params");
  write(numbers("fit_bpm_idx", 1, s.bpms));
  write(fmt::format(" read_current_from_butns_file = .{}.", !s.no_currents));
  write(" sigma_cutoff = 0\n chisq_cutoff = 0");
  write(numbers("orbit", s.first, s.orbits));
  write("/");
}

// Neighbouring orbits as pairs; the results of a measurement that was perfect.
void write_list_file(const orbits_setup& s) {
  const util::unit_handle file{util::lunget()};
  util::open_output(file.number(), s.list);
  const auto write = [&](const std::string& line) { util::write_line(file.number(), line); };
  write("# simulated: orbit1 orbit2 ratio error");
  write("cu1 = 0\ncu2 = 100\ndcu = 100\nfit_cal = 1.0\ncorstr_cal = 1.0");
  for (int i = 0; i + 1 < s.orbits; i += 2) {
    write(fmt::format(" {} {} 1.0000 0.0000", s.first + i, s.first + i + 1));
  }
}

std::string setup_fault() { return orbits_fault(setup); }

int run_orbits() {
  setup.archive = util::fullfilename(setup.archive);
  make_orbits(setup);
  util::print_line(fmt::format("{} orbits from {} on, {} BPMs each, below {}; listed in {}",
                               setup.orbits, setup.first, setup.bpms, setup.archive,
                               setup.command));
  return 0;
}

}  // namespace

orbits_setup default_orbits() {
  orbits_setup s;
  s.archive = site::orbit_dir;
  plane& x = s.machine.beam.x;
  plane& y = s.machine.beam.y;
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
  std::vector<monitor> monitors;
  std::vector<bpm_truth> truth;
  for (int bpm = 1; bpm <= s.bpms; ++bpm) {
    monitors.push_back(make_monitor(s.machine, bpm));
    const bpm_electronics& e = monitors.back().electronics;
    truth.push_back({std::to_string(bpm), e.true_gain, e.pedestal});
  }
  // BPMs count from 1: stream 0 is the whole beam's.
  random_stream stream = make_stream(s.machine.seed, purpose::motion, 0);
  for (int i = 0; i < s.orbits; ++i) {
    machine of_orbit = s.machine;
    draw_oscillation(of_orbit.beam.x, stream);
    draw_oscillation(of_orbit.beam.y, stream);
    write_button_file(s, s.first + i, of_orbit, monitors);
  }
  write_command_file(s);
  if (!s.list.empty()) write_list_file(s);
  write_truth(fs::path{s.archive} / truth_file_name, "closed orbits", s.machine, truth);
}

cli::command orbits_command() {
  setup = default_orbits();
  std::vector<cli::option> options{
      {"--dir", &setup.archive, "directory of the button files, as the session knows it"},
      {"--command", &setup.command, "command file to write"},
      {"--list", &setup.list, "list file of orbit pairs to write as well"},
      {"--orbits", &setup.orbits, "number of orbits: one file each"},
      {"--first", &setup.first, "number of the first orbit"},
      {"--bpms", &setup.bpms, "number of BPMs in each file"},
      {"--electrons", cli::real_value{&setup.electrons, 1, "mA"}, "electron current"},
      {"--positrons", cli::real_value{&setup.positrons, 1, "mA"}, "positron current"},
      {"--no-currents", &setup.no_currents, "files without currents"}};
  for (cli::option& o : machine_options(setup.machine)) options.push_back(std::move(o));
  return {"orbits", "make button files with simulated closed orbits, and a command file",
          std::move(options), setup_fault, run_orbits};
}

}  // namespace sim
