#include "truth.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "file_units.hpp"
#include "list_io.hpp"
#include "run_time.hpp"
#include "series.hpp"
#include "site.hpp"
#include "text.hpp"

namespace sim {
namespace {

namespace fs = std::filesystem;

std::string four(const buttons& values) {
  std::string text;
  // The shortest text that reads back as the same number.
  for (int k = 1; k <= 4; ++k) text += fmt::format(" {:>19}", fmt::format("{}", values(k)));
  return text;
}

util::unit_handle open_to_read(const std::string& path) {
  util::unit_handle file{util::lunget()};
  // No truth, no comparison: nothing sensible can follow.
  if (const int fault = util::open_old(file.number(), path); fault != 0) {
    util::run_time_error(fmt::format("cannot open {}: {}", path, util::system_text(fault)));
  }
  return file;
}

bool take_four(util::list_record& record, buttons& values) {
  for (int k = 1; k <= 4; ++k) {
    const std::optional<double> v = util::take_real(record);
    if (!v) return false;
    values(k) = *v;
  }
  return true;
}

std::vector<bpm_truth> read_truth_file(const std::string& path) {
  const util::unit_handle file = open_to_read(path);
  std::vector<bpm_truth> bpms;
  for (util::list_record record; util::read_record(file.number(), record);) {
    // Empty lines are passed over by the reader of records, so there is a first character.
    if (util::trim(record.text).front() == '#') continue;
    bpm_truth bpm;
    if (util::take(record, bpm.name) != util::taken::value || !take_four(record, bpm.true_gain) ||
        !take_four(record, bpm.pedestal)) {
      util::run_time_error(
          fmt::format("{}:{}: expected a BPM name, four gains and four pedestals, found \"{}\"",
                      path, record.line, util::trim(record.text)));
    }
    bpms.push_back(bpm);
  }
  return bpms;
}

// The gains that stand in the first line of one series file; nothing when it holds none.
std::optional<buttons> gains_of_series_file(const std::string& path) {
  const util::unit_handle file = open_to_read(path);
  for (util::list_record record; util::read_record(file.number(), record);) {
    // The session tells header lines by their x; so does this.
    if (record.text.find('x') != std::string::npos) continue;
    // Position and readings come before the gains.
    for (int i = 1; i <= 6; ++i) {
      if (!util::take_real(record)) return std::nullopt;
    }
    buttons gain{};
    if (!take_four(record, gain)) return std::nullopt;
    return gain;
  }
  return std::nullopt;
}

std::vector<bpm_truth> read_series_gains(const std::string& directory) {
  std::vector<std::pair<int, std::string>> files;
  std::error_code fault;
  // What cannot be listed has no files: the caller then says that no gains are known.
  for (const auto& entry : fs::directory_iterator(directory, fault)) {
    if (const auto number = series_number(entry.path().filename().string())) {
      files.emplace_back(*number, entry.path().string());
    }
  }
  // By number, not by name: exp_9 comes before exp_10.
  std::sort(files.begin(), files.end());
  std::vector<bpm_truth> bpms;
  for (const auto& [number, path] : files) {
    const auto gain = gains_of_series_file(path);
    if (!gain) util::run_time_error(fmt::format("{}: no line of ten values", path));
    // A series does not tell its pedestals; they are 0 here.
    bpms.push_back({series_bpm_name(number), *gain, {}, {}});
  }
  return bpms;
}

}  // namespace

bpm_truth truth_of(const std::string& name, const bpm_electronics& e) {
  return {name, e.true_gain, e.pedestal, e.pedestal_left};
}

void write_truth(const std::string& path, const std::string& what, const machine& m,
                 const std::vector<bpm_truth>& bpms) {
  const util::unit_handle file{util::lunget()};
  util::open_whole_output(file.number(), path);
  util::write_line(file.number(),
                   fmt::format("# truth of {}, made by bpmsim {}", what, site::version));
  for (const std::string& line : machine_lines(m))
    util::write_line(file.number(), fmt::format("# {}", line));
  util::write_line(file.number(),
                   "# BPM, true gains of BI BO TI TO, pedestals of BI BO TI TO [ADC counts]");
  for (const bpm_truth& bpm : bpms) {
    util::write_line(file.number(),
                     fmt::format("{:<12}{}{}", bpm.name, four(bpm.true_gain), four(bpm.pedestal)));
    // As a comment: readers of the truth take nine words a line.
    if (bpm.left.item == buttons{}.item) continue;
    util::write_line(file.number(),
                     fmt::format("# pedestals left in: {}{}", bpm.name, four(bpm.left)));
  }
}

passage_log open_passage_log(const machine& m, const std::string& truth_path) {
  passage_log log;
  // A line a passage is as much as the data themselves; hence on request only.
  if (!m.every_passage) return log;
  log.file = util::unit_handle{util::lunget()};
  util::open_whole_output(log.file.number(), truth_path + ".passages");
  util::write_line(log.file.number(),
                   "# BPM, bunch, orbit, x y [m], intensity, true gains of BI BO TI TO");
  return log;
}

void note(const passage_log& log, const std::string& bpm, int bunch, int orbit, const passage& p) {
  // Callers note every passage and need not ask; a number of 0 is a log that nobody wanted.
  if (log.file.number() == 0) return;
  util::write_line(log.file.number(),
                   fmt::format("{:<12} {:4} {:6} {:16.9e} {:16.9e} {:.12g}{}", bpm, bunch, orbit,
                               p.at.x, p.at.y, p.intensity, four(p.gain)));
}

std::vector<bpm_truth> read_truth(const std::string& path) {
  const fs::path at{path};
  std::vector<bpm_truth> bpms;
  // The truth file first, where there is one: it knows pedestals, the lines of a series only gains.
  if (!fs::is_directory(at)) {
    bpms = read_truth_file(path);
  } else if (fs::exists(at / truth_file_name)) {
    bpms = read_truth_file((at / truth_file_name).string());
  } else if (fs::is_directory(series_directory(path))) {
    // Once more from there; a series has no series directory in it, so this ends.
    return read_truth(series_directory(path));
  } else {
    // A series from elsewhere has no truth file, but its lines hold the gains.
    bpms = read_series_gains(path);
  }
  if (bpms.empty()) util::run_time_error(fmt::format("{}: no BPM with known gains", path));
  return bpms;
}

}  // namespace sim
