#include "raw.hpp"

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "directories.hpp"
#include "kbpmfio.hpp"
#include "list_io.hpp"
#include "raw_records.hpp"
#include "rawfile_location.hpp"
#include "run_time.hpp"
#include "site.hpp"
#include "text.hpp"
#include "text_file.hpp"
#include "truth.hpp"
#include "whole_file.hpp"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr int most_instruments = 120;
constexpr std::size_t longest_name = 9;    // the file's field for it
constexpr std::size_t longest_setup = 19;  // in the instrument header
// File names hold six digits.
constexpr int last_run = 999999;

// The number of a BPM in the ring, by its name; 0 for a name that the ring does not know.
int ring_number(const std::string& name) {
  const std::vector<std::string> ring = ring_names();
  const auto found = std::find(ring.begin(), ring.end(), name);
  return found == ring.end() ? 0 : static_cast<int>(found - ring.begin()) + 1;
}

// --- files ------------------------------------------------------------------------------------

std::int32_t in_column(double reading, const std::string& name, int turn) {
  const double rounded = std::round(reading);
  // A longer number would be split between its column and the next when it is read back.
  if (rounded < -999999 || rounded > 9999999) {
    util::run_time_error(fmt::format("{}, turn {}: reading {:g} does not fit seven columns", name,
                                     turn + 1, rounded));
  }
  return static_cast<std::int32_t>(rounded);
}

// The data lines of one bunch. Its motion is its own; the electronics are the BPM's.
void write_bunch(rawfile::kbpmfio_stream& file, const raw_setup& s, monitor at, int bunch,
                 const rawfile::RDV3_INST_DATA& header, const buttons& left,
                 const std::string& name, const passage_log& log) {
  const int block = block_of(s, bunch);
  const bool has_beam = bunch < s.bunches - s.empty;
  // The tables keep pointing here, so the array has to live as long as lines are written.
  std::array<std::int32_t, 6> columns{block};
  rawfile::kbpmfio_map_data_line(columns);
  for (int turn = 0; turn < s.turns; ++turn) {
    // Also without beam, so that a bunch's turns go on alike; such a passage is no truth of the
    // file.
    const passage p = next_passage(s.machine, at);
    passage told = p;
    for (int k = 1; k <= 4; ++k) told.gain(k) *= left(k);
    if (has_beam) note(log, name, bunch + 1, turn + 1, told);
    columns[1] = phase_word(s, turn);
    for (int card = 0; card < rawfile::num_cards; ++card) {
      const int k = button_of_card[card];
      // The simulated reading holds the electronics' pedestal; the file's own, of its timing block,
      // takes its place, and without beam that is all there is.
      const double signal = has_beam ? p.reading(k) - at.electronics.pedestal(k) : 0;
      const double reading = double{header.pedestals(block, card)} +
                             (double{header.gain_coeffs(block, card)} * signal);
      columns[static_cast<std::size_t>(card) + 2] = in_column(reading, name, turn);
    }
    static_cast<void>(rawfile::kbpmfio_rw_file_section(file, rawfile::KBPMFIO_WRITE, 1,
                                                       rawfile::RDV3_raw_data_spec));
  }
}

// Puts the coefficients that were loaded into timing block 0 of the header.
// Returns what is left of each button's gain: drawn over loaded coefficient.
buttons load_coefficients(const raw_setup& s, const std::string& name,
                          rawfile::RDV3_INST_DATA& header) {
  buttons left{{1, 1, 1, 1}};
  const auto found = s.loaded.find(name);
  if (found == s.loaded.end()) return left;
  for (int card = 0; card < rawfile::num_cards; ++card) {
    const int k = button_of_card[card];
    float& coefficient = header.gain_coeffs(0, card);
    const auto loaded = static_cast<float>(found->second(k));  // as the file keeps it
    left(k) = double{coefficient} / double{loaded};
    coefficient = loaded;
  }
  return left;
}

// One instrument; returns what is true about it.
bpm_truth write_instrument(rawfile::kbpmfio_stream& file, const raw_setup& s, int bpm, int ix_run,
                           const std::string& name, const passage_log& log) {
  // The header is the BPM's, whatever the bunch; gains and pedestals come from this seat.
  const seat first_seat{bpm, 0, s.turns, ring_number(name)};
  const monitor first = make_monitor(s.machine, first_seat);
  const rawfile::RDV3_INST_DATA drawn = instrument_header(s, first, name);
  rawfile::RDV3_INST_DATA header = drawn;
  const buttons left = load_coefficients(s, name, header);
  rawfile::kbpmfio_map_instrument_header(header);
  rawfile::kbpmfio_rw_instrument_header(file, rawfile::KBPMFIO_WRITE);
  static_cast<void>(rawfile::kbpmfio_rw_file_section(file, rawfile::KBPMFIO_WRITE,
                                                     rawfile::num_RDV3_raw_data_label_specs,
                                                     rawfile::RDV3_raw_data_label_specs));
  for (int bunch = 0; bunch < s.bunches; ++bunch) {
    // Every bunch of every run has motion and noise of its own; electronics and chamber are the
    // BPM's.
    const int stream = (ix_run * rawfile::max_bunches) + bunch;
    seat of_bunch = first_seat;
    of_bunch.bunch = stream;
    // Readings come from the electronics as they are built, not from what was loaded.
    const buttons in_bunch = block_of(s, bunch) == 0 ? left : buttons{{1, 1, 1, 1}};
    write_bunch(file, s, make_monitor(s.machine, of_bunch), bunch, drawn, in_bunch, name, log);
  }
  bpm_truth truth = truth_of(name, first.electronics);
  for (int k = 1; k <= 4; ++k) truth.true_gain(k) *= left(k);
  return truth;
}

void write_run(const raw_setup& s, int ix_run, std::time_t when, const std::string& path) {
  const std::vector<std::string> names = instrument_names(s);
  make_directory(fs::path{path}.parent_path());
  rawfile::kbpmfio_output file;
  // Written under a scratch name, so that a run that ends early leaves no half of a file.
  const auto scratch = util::make_scratch(path);
  if (!scratch) {
    util::run_time_error(fmt::format("cannot open {} for writing: {}", path, scratch.why.what));
  }
  if (const auto fault = rawfile::open_for_writing(file, *scratch)) {
    util::run_time_error(fmt::format("cannot open {} for writing: {}", path, fault->what));
  }
  // Headers by name, not in passing: the tables write from where they were pointed to.
  rawfile::RDV3_FILE_HEADER header =
      file_header(s, s.run + ix_run, when, static_cast<int>(names.size()));
  rawfile::RDV3_KOVR_HEADER kovr = kovr_header(s);
  rawfile::kbpmfio_map_file_header(header);
  rawfile::kbpmfio_rw_file_header(file, rawfile::KBPMFIO_WRITE);
  rawfile::kbpmfio_map_kovr_header(kovr);
  rawfile::kbpmfio_rw_kovr_header(file, rawfile::KBPMFIO_WRITE);
  std::vector<bpm_truth> truth;
  // After the run's file could be opened: a path that fails leaves no log behind.
  const passage_log log = open_passage_log(s.machine, raw_truth_path(path));
  for (std::size_t i = 0; i < names.size(); ++i) {
    truth.push_back(write_instrument(file, s, static_cast<int>(i) + 1, ix_run, names[i], log));
  }
  // Checked before the truth is written: a file cut short by a full disk ends the run here.
  rawfile::close(file);
  if (const int reason = util::put_in_place(*scratch, path); reason != 0) {
    util::write_error(path, reason);
  }
  write_truth(
      raw_truth_path(path),
      fmt::format("raw data file {}: {} bunches of {} turns, the last {} in timing block 1; "
                  "pedestals of block 0",
                  fs::path{path}.filename().string(), s.bunches, s.turns, s.block_1),
      s.machine, truth);
}

// The tree's run index with this run in it, once.
void enter_in_index(int run, std::time_t when) {
  const std::string path = util::fullfilename(site::run_index);
  std::string lines;
  auto old = util::open_text_file(path);
  // One that is there and cannot be read has entries that would be lost.
  if (!old && fs::exists(path)) util::run_time_error(util::line_of(old.why));
  while (old && util::next_line(*old)) {
    util::list_record record;
    util::start_record(record, old->line);
    // A run that is made again moves to the end, with its new time.
    if (util::take_int(record) != run) lines += old->line + "\n";
  }
  if (old && old->trouble) util::run_time_error(util::line_of(*old->trouble));
  if (lines.empty()) lines = "# run, date, time\n";
  // In universal time: the same options write the same index on every machine.
  lines += fmt::format("{} {:%Y-%m-%d %H:%M:%S}\n", run, fmt::gmtime(when));
  make_directory(fs::path{path}.parent_path());
  // The index is read by running sessions: it changes in one step.
  if (const auto fault = util::write_whole_file(path, lines)) {
    util::run_time_error("writing " + util::line_of(*fault));
  }
}

}  // namespace

std::vector<std::string> instrument_names(const raw_setup& s) {
  std::vector<std::string> names;
  if (s.names.empty()) {
    names = ring_names();
    names.resize(std::min(names.size(), static_cast<std::size_t>(s.bpms)));
    return names;
  }
  // One round beyond the last comma: an empty name at the end is seen, and refused.
  for (std::size_t at = 0; at <= s.names.size();) {
    const std::size_t comma = std::min(s.names.find(',', at), s.names.size());
    names.push_back(s.names.substr(at, comma - at));
    at = comma + 1;
  }
  return names;
}

raw_setup usual_raw_setup() {
  raw_setup s;
  // A centred beam of five digits leaves two of a column for gains, coefficients and far orbits.
  s.machine.electronics.signal = 20000;
  s.machine.electronics.pedestal = 100;
  s.machine.electronics.pedestal_spread = 10;
  return s;
}

std::vector<std::string> ring_names() {
  // The order is that of the BPMs' numbers, which choose chambers and tables: never sort it.
  std::vector<std::string> names{"X5C", "X5D", "X6A", "X6B", "X6C",
                                 "X6D", "9W",  "9AW", "10W", "10AW"};
  for (int i = 11; i <= 49; ++i) names.push_back(fmt::format("{:02d}W", i));
  for (int i = 49; i >= 11; --i) names.push_back(fmt::format("{:02d}E", i));
  for (const char* name : {"10AE", "10E", "9AE", "9E"}) names.emplace_back(name);
  for (int i = 1; i <= 4; ++i) {
    for (const char letter : {'A', 'B', 'C', 'D'}) names.push_back(fmt::format("X{}{}", i, letter));
  }
  for (const char* name : {"X5A", "X5B", "12W2", "12W3", "47W_XBSM"}) names.emplace_back(name);
  return names;
}

std::string raw_truth_path(const std::string& raw_path) {
  return fs::path{raw_path}.replace_extension(".truth").string();
}

std::string raw_fault(const raw_setup& s) {
  const auto outside = [](const char* what, int value, int least, int most) {
    return fmt::format("{} must be {} to {}, not {}", what, least, most, value);
  };
  if (s.bpms < 1 || s.bpms > static_cast<int>(ring_names().size())) {
    return outside("--bpms", s.bpms, 1, static_cast<int>(ring_names().size()));
  }
  const auto names = instrument_names(s);
  if (names.size() > most_instruments) {
    return fmt::format("a file has at most {} instruments, not {}", most_instruments, names.size());
  }
  for (const std::string& name : names) {
    if (name.empty() || name.size() > longest_name || name.find(' ') != std::string::npos) {
      return fmt::format("--names: a name has 1 to {} characters and no blank, not \"{}\"",
                         longest_name, name);
    }
  }
  if (s.runs < 1) return fmt::format("at least 1 run is needed, not {}", s.runs);
  if (s.run < 0 || s.run > last_run - s.runs + 1) return outside("--run", s.run, 0, last_run);
  if (s.turns < 1) return fmt::format("at least 1 turn is needed, not {}", s.turns);
  if (s.bunch_step < 1) return fmt::format("--bunch-step must be 1 or more, not {}", s.bunch_step);
  // The pattern has a bit for every place in the ring, and the last bunch must find its own.
  const int most_bunches = (rawfile::max_bunches - 1) / s.bunch_step + 1;
  if (s.bunches < 1 || s.bunches > most_bunches) {
    return outside("--bunches (with this step)", s.bunches, 1, most_bunches);
  }
  if (s.block_1 < 0 || s.block_1 > s.bunches) {
    return outside("--block-1", s.block_1, 0, s.bunches);
  }
  if (s.empty < 0 || s.empty > s.bunches) return outside("--empty", s.empty, 0, s.bunches);
  if (s.timing_setup.empty() || s.timing_setup.size() > longest_setup) {
    return fmt::format("--timing-setup has 1 to {} characters", longest_setup);
  }
  if (s.coefficient_spread < 0) return "--coefficient-spread must not be negative";
  std::time_t when = 0;
  if (!time_of(s, when)) {
    return fmt::format("--when: expected YYYY-MM-DD hh:mm:ss, found \"{}\"", s.when);
  }
  // Each run would replace the one before.
  if (!s.out.empty() && s.runs > 1) return "--out names one file; several runs need --tree";
  if (s.out.empty() && s.tree.empty() && std::getenv("KOVR_ONLINE") == nullptr) {
    return "--out or --tree is needed, or KOVR_ONLINE set";
  }
  return machine_fault(s.machine, static_cast<int>(names.size()));
}

std::vector<std::string> make_raw_files(const raw_setup& s) {
  raw_setup ready = s;
  prepare(ready.machine);
  // In a tree the files lie where the session looks for them.
  if (!s.tree.empty()) setenv("KOVR_ONLINE", util::fullfilename(s.tree).c_str(), 1);
  std::time_t when = 0;
  time_of(s, when);
  std::vector<std::string> paths;
  for (int ix_run = 0; ix_run < s.runs; ++ix_run, when += 60) {
    paths.push_back(s.out.empty() ? rawfile::online_path(s.run + ix_run) : s.out);
    write_run(ready, ix_run, when, paths.back());
    if (s.out.empty()) enter_in_index(s.run + ix_run, when);
  }
  return paths;
}

}  // namespace sim
