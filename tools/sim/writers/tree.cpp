#include "tree.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

#include "directories.hpp"
#include "file_units.hpp"
#include "random.hpp"
#include "rawfile_location.hpp"
#include "run_time.hpp"
#include "tables.hpp"
#include "text_file.hpp"
#include "text_run.hpp"
#include "whole_file.hpp"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr int ring_bpms = 110;  // indices 1..110 stand along the ring; later names repeat places

void check(const std::error_code& fault, const std::string& path) {
  if (fault) util::run_time_error(fmt::format("cannot make {}: {}", path, fault.message()));
}

// Names spread evenly over the ring, with commas between.
std::string spread_names(int bpms) {
  const std::vector<std::string> ring = ring_names();
  std::string names;
  for (int i = 0; i < bpms; ++i) {
    if (i > 0) names += ',';
    // In whole numbers: the same names on every machine, none of them twice, as there are no more
    // BPMs than places.
    names += ring[static_cast<std::size_t>(i * ring_bpms / bpms)];
  }
  return names;
}

// The raw runs' set-up as the tree wants it.
raw_setup raw_runs(const tree_setup& s) {
  raw_setup raw = s.raw;
  raw.out.clear();
  raw.tree = s.directory + "/online";
  raw.names = spread_names(raw.bpms);
  // Oldest first: the newest run is the one that the options name.
  raw.run = s.raw.run - older_runs;
  raw.runs = older_runs + 1;
  raw.bunches = 2;
  raw.bunch_step = 2;  // the ring's bunches 1 and 3 are the operators' 1 and 2
  raw.empty = 1;
  return raw;
}

void move_file(const std::string& from, const std::string& to) {
  std::error_code fault;
  fs::rename(from, to, fault);
  check(fault, to);
}

// The oldest raw run goes into the offline archive.
void put_offline(int run) {
  const std::string from = rawfile::online_path(run);
  const std::string to = rawfile::offline_path(run);
  make_directory(fs::path{to}.parent_path().string());
  move_file(from, to);
  // The truth goes with its run, or nothing found in the archive could be compared with it.
  move_file(raw_truth_path(from), raw_truth_path(to));
}

// The newest raw run stands in the text archive too: its version tells it from text runs.
void put_into_text_archive(int run, const std::string& archive) {
  const std::string path = fmt::format("{}/{}", archive, text_run_name(text_form::plain, run));
  auto run_file = util::open_text_file(rawfile::online_path(run));
  if (!run_file) util::run_time_error(util::line_of(run_file.why));
  util::unfinished_file copy;
  auto fault = util::begin_whole_file(copy, path);
  if (fault) util::run_time_error(util::line_of(*fault));
  while (util::next_line(*run_file)) util::put(copy, run_file->line + "\n");
  if (run_file->trouble) util::run_time_error(util::line_of(*run_file->trouble));
  fault = util::finish(copy);
  if (fault) util::run_time_error("writing " + util::line_of(*fault));
}

// Text signals are thousands of counts, so their readings are larger; their pedestals are gone.
text_run_setup text_runs(const tree_setup& s, text_form form, const std::string& directory) {
  text_run_setup text;
  text.machine = s.raw.machine;
  text.machine.electronics.signal = electronics_setup{}.signal;
  text.machine.electronics.pedestal = 0;
  text.machine.electronics.pedestal_spread = 0;
  text.form = form;
  text.directory = directory;
  text.run = s.raw.run - older_runs - 1;
  text.bpms = std::min(s.raw.bpms, last_text_bpm);
  text.turns = s.raw.turns;
  return text;
}

void write_offsets(const tree_setup& s, const std::string& directory) {
  make_directory(directory);
  const util::unit_handle file{util::lunget()};
  util::open_whole_output(file.number(), directory + "/offset.bpm");
  for (int bpm = 1; bpm <= ring_bpms; ++bpm) {
    // Bunch -1 is none that any run has: the offsets' numbers are their own.
    random_stream stream = make_stream(s.raw.machine.seed, purpose::readout, bpm, -1);
    const double vertical = s.offset_spread * normal(stream);
    const double horizontal = s.offset_spread * normal(stream);
    util::write_line(file.number(),
                     fmt::format("{:4} {:8.4f} {:8.4f}", bpm, vertical / mm, horizontal / mm));
  }
}

}  // namespace

std::string tree_fault(const tree_setup& s) {
  if (s.raw.bpms < 1 || s.raw.bpms > ring_bpms) {
    return fmt::format("--bpms must be 1 to {}, not {}", ring_bpms, s.raw.bpms);
  }
  if (s.offset_spread < 0) return "--offset-spread must not be negative";
  if (s.raw.run <= older_runs + 1 || s.raw.run > last_text_run) {
    return fmt::format("--run must be {} to {}, not {}", older_runs + 2, last_text_run, s.raw.run);
  }
  // Everything is looked at before anything is written: half a tree would be taken for a whole one.
  if (auto fault = raw_fault(raw_runs(s)); !fault.empty()) return fault;
  return text_run_fault(text_runs(s, text_form::plain, ""));
}

util::outcome<std::vector<table_report>> make_tree(const tree_setup& s) {
  const std::string online = s.directory + "/online";
  const int newest = s.raw.run;
  const int thousands = (newest - older_runs - 1) / 1000;
  make_raw_files(raw_runs(s));
  put_offline(newest - older_runs);

  const std::string tsharc = online + "/archive/tsharc/raw";
  const std::string sharc = online + "/archive/sharc/raw";
  make_text_run(text_runs(s, text_form::plain, fmt::format("{}/{:02}", tsharc, thousands)));
  make_text_run(text_runs(s, text_form::older, fmt::format("{}/{:02}", sharc, thousands)));
  const std::string archive = fmt::format("{}/{:02}", tsharc, newest / 1000);
  make_directory(archive);
  put_into_text_archive(newest, archive);

  write_offsets(s, online + "/machine_data/meas/orbit");
  tables_setup tables{online + "/machine_data/meas/orbit/nonlin_bpm", s.replace_tables, {}};
  // The round pipe of the options has no tables: trees of a seed stay what they were before there
  // were other chambers.
  if (s.raw.machine.source == chamber_source::file) tables.chamber = s.raw.machine.chamber;
  return make_tables(tables);
}

}  // namespace sim
