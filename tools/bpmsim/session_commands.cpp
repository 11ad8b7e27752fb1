// The subcommands that make what sessions read: series, raw, text, orbits, template, tree.
#include <fmt/core.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "commands.hpp"
#include "machine_options.hpp"
#include "options.hpp"
#include "orbits.hpp"
#include "raw.hpp"
#include "run_time.hpp"
#include "series.hpp"
#include "site.hpp"
#include "standard_output.hpp"
#include "template_file.hpp"
#include "text.hpp"
#include "text_run.hpp"
#include "tree.hpp"

namespace commands {
namespace {

using namespace options;

int run_series(sim::series_setup& s) {
  // Typed paths may begin with a variable, as at the session's questions.
  s.base = util::fullfilename(s.base);
  sim::make_series(s);
  util::print_line(fmt::format(
      "{} BPMs, {} orbits each, {} to {}: {}", s.bpms, s.orbits, sim::series_file_name(s.first),
      sim::series_file_name(s.first + s.bpms - 1), sim::series_directory(s.base)));
  return 0;
}

// Takes over what was loaded into the electronics; no name, nothing.
void load_coefficients(sim::raw_setup& s, const std::string& path) {
  if (path.empty()) return;
  auto loaded = sim::read_coefficients(util::fullfilename(path));
  if (!loaded) give_up(util::line_of(loaded.why));
  s.loaded = std::move(*loaded);
}

std::shared_ptr<std::string> add_coefficients(CLI::App& app) {
  auto path = std::make_shared<std::string>();
  options::add_text({&app}, "--coefficients", *path,
                    "gains.load of a session: gain coefficients loaded since, by name of the BPM");
  return path;
}

int run_raw(const sim::raw_setup& s) {
  // Told when all are written: a run that fails halfway has one line, its fault.
  for (const std::string& path : sim::make_raw_files(s)) {
    util::print_line(fmt::format("{} BPMs, {} bunches of {} turns: {}",
                                 sim::instrument_names(s).size(), s.bunches, s.turns, path));
  }
  return 0;
}

int run_text(sim::text_run_setup& s) {
  s.directory = util::fullfilename(s.directory);
  util::print_line(
      fmt::format("{} BPMs, {} turns each: {}", s.bpms, s.turns, sim::make_text_run(s)));
  return 0;
}

int run_orbits(sim::orbits_setup& s) {
  s.archive = util::fullfilename(s.archive);
  sim::make_orbits(s);
  util::print_line(fmt::format("{} orbits from {} on, {} BPMs each, below {}; listed in {}",
                               s.orbits, s.first, s.bpms, s.archive, s.command));
  return 0;
}

// A template says gains without readings, so it needs no chamber and no beam.
int run_template(const sim::template_setup& s) {
  sim::make_template(s);
  util::print_line(fmt::format("gains of {} BPMs: {}", s.bpms, s.file));
  return 0;
}

// A word of a shell line, as people paste it or `eval` it: in quotes unless it is plain.
std::string shell_word(const std::string& text) {
  // All others are quoted, whether this shell needs it or not: they differ in what is special.
  constexpr std::string_view plain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+./:,@%";
  if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) return text;
  std::string word = "'";
  for (const char c : text) {
    if (c == '\'') {
      word += "'\\''";
    } else {
      word += c;
    }
  }
  return word + "'";
}

int run_tree(sim::tree_setup& s) {
  s.directory = util::fullfilename(s.directory);
  const auto tables = sim::make_tree(s);
  if (!tables) give_up(util::line_of(tables.why));
  // What a site put there itself stays; a new tree says nothing of its tables.
  for (const sim::table_report& r : *tables) {
    if (r.left) util::tell_line(sim::line_of(r));
  }
  util::print_line(fmt::format("{} BPMs, {} turns; raw runs {} to {}, text runs {}", s.raw.bpms,
                               s.raw.turns, s.raw.run - sim::older_runs, s.raw.run,
                               s.raw.run - sim::older_runs - 1));
  // To be pasted as it stands, wherever the next command is typed.
  util::print_line(
      fmt::format("export KOVR_ONLINE={}",
                  shell_word(std::filesystem::absolute(s.directory + "/online").string())));
  return 0;
}

}  // namespace

void add_series(CLI::App& app, int& status) {
  // Options point into the record, which so must live as long as the command line.
  auto s = std::make_shared<sim::series_setup>();
  // The directory that the session will look in: without --dir the two meet.
  s->base = std::string{site::fake_data_dir};
  CLI::App& sub =
      *app.add_subcommand("series", "make a synthetic series with known gains, one file per BPM");
  options::add_text({&sub}, "--dir", s->base, "base directory, as the session knows it");
  add_whole({&sub}, "--bpms", s->bpms, "number of BPMs: one file each");
  add_whole({&sub}, "--orbits", s->orbits, "number of orbits: lines per file");
  // Two series in one directory: the second can begin behind the first.
  add_whole({&sub}, "--first", s->first, "number of the first file");
  add_passages(sub, s->machine);
  const auto chosen = add_machine(sub, s->machine);
  sub.callback([s, chosen, &status] {
    // First the chamber: whether a beam fits is asked of it.
    settle(s->machine, *chosen);
    refuse_if(sim::series_fault(*s));
    status = run_series(*s);
  });
}

void add_raw(CLI::App& app, int& status) {
  auto s = std::make_shared<sim::raw_setup>(sim::usual_raw_setup());
  CLI::App& sub =
      *app.add_subcommand("raw", "make raw data files as the BPM electronics write them");
  // A path for one file by itself, a tree for runs that a session finds by number.
  options::add_text({&sub}, "--out", s->out,
                    "path of the file; without it the run goes into the facility tree");
  options::add_text({&sub}, "--tree", s->tree, "root of the facility tree; without it KOVR_ONLINE");
  add_whole({&sub}, "--run", s->run, "run number, of the first run");
  // Several in one go have one truth of gains and pedestals, and motion and noise of their own.
  add_whole({&sub}, "--runs", s->runs, "consecutive runs");
  add_whole({&sub}, "--bpms", s->bpms, "number of BPMs, from the ring's list");
  // For names that no ring has: how a reader takes an unknown BPM is tried with them.
  options::add_text({&sub}, "--names", s->names, "names of the BPMs instead, with commas between");
  add_whole({&sub}, "--bunches", s->bunches, "number of bunches");
  add_whole({&sub}, "--bunch-step", s->bunch_step, "from one filled bunch to the next");
  // Counted from the last bunch, as the empty ones are: bunch 1 stays as it is in every run.
  add_whole({&sub}, "--block-1", s->block_1, "so many of the last bunches are in timing block 1");
  add_whole({&sub}, "--empty", s->empty, "so many of the last bunches hold no beam");
  add_whole({&sub}, "--turns", s->turns, "turns of each bunch");
  // What correction 3 divides by: without a spread a forgotten division would go unnoticed.
  add_real({&sub}, "--coefficient-spread", s->coefficient_spread,
           "rms of the file's gain coefficients about 1");
  const auto coefficients = add_coefficients(sub);
  add_word({&sub}, "--species", {"positrons", "electrons", "dual"}, s->species,
           "particles in the ring");
  options::add_text({&sub}, "--timing-setup", s->timing_setup, "such as 14ns_VAR_G or 4ns_P_FIX_G");
  options::add_text({&sub}, "--when", s->when,
                    "date and time of the first run; the next ones a minute later each");
  add_whole({&sub}, "--condx", s->condx, "the ring's condition number");
  add_real({&sub}, "--current", s->current, "beam current", milliamperes);
  add_passages(sub, s->machine);
  const auto chosen = add_machine(sub, s->machine);
  sub.callback([s, chosen, coefficients, &status] {
    settle(s->machine, *chosen);
    refuse_if(sim::raw_fault(*s));
    // Before anything is written: a list that does not do leaves no run half made.
    load_coefficients(*s, *coefficients);
    status = run_raw(*s);
  });
}

void add_text(CLI::App& app, int& status) {
  auto s = std::make_shared<sim::text_run_setup>();
  CLI::App& sub =
      *app.add_subcommand("text", "make a text run of the older kinds, with the truth beside it");
  options::add_text({&sub}, "--dir", s->directory, "directory of the run");
  // In the order of the enumeration: the place of a word is its value.
  add_word({&sub}, "--form", {"plain", "swapped", "older"}, s->form,
           "plain text run, the same with positions first (RDe), or the older electronics' (kbpm)");
  add_whole({&sub}, "--run", s->run, "run number");
  // By number, not by the ring's list: text runs know no other names.
  add_whole({&sub}, "--bpms", s->bpms, "number of BPMs, from 1W on");
  add_whole({&sub}, "--turns", s->turns, "turns of each BPM");
  add_passages(sub, s->machine);
  const auto chosen = add_machine(sub, s->machine);
  sub.callback([s, chosen, &status] {
    settle(s->machine, *chosen);
    refuse_if(sim::text_run_fault(*s));
    status = run_text(*s);
  });
}

void add_orbits(CLI::App& app, int& status) {
  // Not the usual beam: orbits that a session can tell apart are frozen oscillations.
  auto s = std::make_shared<sim::orbits_setup>(sim::default_orbits());
  CLI::App& sub = *app.add_subcommand(
      "orbits", "make button files with simulated closed orbits, and a command file");
  options::add_text({&sub}, "--dir", s->archive,
                    "directory of the button files, as the session knows it");
  options::add_text({&sub}, "--command", s->command, "command file to write");
  options::add_text({&sub}, "--list", s->list, "list file of orbit pairs to write as well");
  add_whole({&sub}, "--orbits", s->orbits, "number of orbits: one file each");
  add_whole({&sub}, "--first", s->first, "number of the first orbit");
  add_whole({&sub}, "--bpms", s->bpms, "number of BPMs in each file");
  add_real({&sub}, "--electrons", s->electrons, "electron current", milliamperes);
  add_real({&sub}, "--positrons", s->positrons, "positron current", milliamperes);
  // The command file then asks for none either: the session takes 1 for each orbit.
  add_flag({&sub}, "--no-currents", s->no_currents, "files without currents");
  add_passages(sub, s->machine);
  const auto chosen = add_machine(sub, s->machine);
  sub.callback([s, chosen, &status] {
    settle(s->machine, *chosen);
    refuse_if(sim::orbits_fault(*s));
    status = run_orbits(*s);
  });
}

void add_template(CLI::App& app, int& status) {
  auto s = std::make_shared<sim::template_setup>();
  CLI::App& sub = *app.add_subcommand(
      "template", "make a gain template: button gains by BPM, timing block and gain range");
  options::add_text({&sub}, "--file", s->file, "file to write");
  add_whole({&sub}, "--bpms", s->bpms, "number of BPMs");
  add_real({&sub}, "--gain-spread", s->electronics.gain_spread, "rms of the true gains about 1");
  add_buttons({&sub}, "--gain", s->electronics.gains,
              "true gain of one button, any number of these", true);
  // Small beside the spread of buttons: the ranges of one front end share its parts.
  add_real({&sub}, "--range-spread", s->range_spread,
           "relative rms of the other ranges about range 0");
  add_seed({&sub}, "--seed", s->seed, "of all random numbers: the same seed, the same file");
  sub.callback([s, &status] {
    refuse_if(sim::template_fault(*s));
    status = run_template(*s);
  });
}

void add_tree(CLI::App& app, int& status) {
  auto s = std::make_shared<sim::tree_setup>();
  // A tree is for trying things: as many BPMs as fit on a screen, and a second of work.
  s->raw.bpms = 12;
  s->raw.turns = 1000;
  CLI::App& sub = *app.add_subcommand(
      "tree", "make a small facility tree: raw runs, text runs, tables, offsets, run index");
  add_path({&sub}, "directory", s->directory, "root of the tree");
  add_whole({&sub}, "--run", s->raw.run, "number of the newest raw run");
  add_whole({&sub}, "--bpms", s->raw.bpms, "number of BPMs, spread over the ring");
  add_whole({&sub}, "--turns", s->raw.turns, "turns of every run");
  add_real({&sub}, "--coefficient-spread", s->raw.coefficient_spread,
           "rms of the raw files' gain coefficients about 1");
  const auto coefficients = add_coefficients(sub);
  options::add_text({&sub}, "--when", s->raw.when, "date and time of the oldest raw run");
  add_real({&sub}, "--current", s->raw.current, "beam current", milliamperes);
  // So that a position with its offset forgotten is seen to be off.
  add_real({&sub}, "--offset-spread", s->offset_spread, "rms of the BPMs' position offsets",
           millimetres);
  // Not by default: a site's measured tables are worth more than any that are made here.
  add_flag({&sub}, "--replace", s->replace_tables,
           "replace position tables and calibration lists that stand there");
  add_passages(sub, s->raw.machine);
  const auto chosen = add_machine(sub, s->raw.machine);
  sub.callback([s, chosen, coefficients, &status] {
    settle(s->raw.machine, *chosen);
    refuse_if(sim::tree_fault(*s));
    load_coefficients(s->raw, *coefficients);
    status = run_tree(*s);
  });
}

}  // namespace commands
