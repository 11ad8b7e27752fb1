// What a session leaves for programs and for the control system: gains.csv, gains.load, orbits.csv,
// button_coeff.dat.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "gains_csv.hpp"
#include "session_harness.hpp"

namespace {

namespace fs = std::filesystem;
using report::four;
using session::contains;
using session::lines_of;
using session::read_file;

// A machine with gains of 5 % and pedestals of .3 % in chambers of its own. 43E has a dead button.
session::outcome make_machine(const session::scratch& here, const std::string& name,
                              const std::vector<std::string>& more = {}) {
  std::vector<std::string> arguments{
      "tree",    name,   "--bpms", "4", "--turns",    "200", "--chamber",         "own",
      "--noise", "1e-4", "--seed", "3", "--pedestal", "60",  "--pedestal-spread", "60",
      "--dead",  "3:2"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  // Tables and chambers take seconds of work, which a busy machine may stretch to minutes.
  return session::bpmsim(here.path(), arguments, {.seconds = 600});
}

// The run directory below a place.
fs::path run_in(const fs::path& place) {
  for (const auto& entry : fs::directory_iterator(place)) {
    if (entry.is_directory()) return entry.path();
  }
  ADD_FAILURE() << "no run directory in " << place;
  return {};
}

// A session in a folder of its own; its run directory.
fs::path run_on(const session::scratch& here, const std::string& tree, const std::string& run,
                const std::string& correction, const std::vector<std::string>& options = {}) {
  const fs::path place = here.path() / (tree + run + "_" + correction);
  fs::create_directory(place);
  session::settings how;
  how.seconds = 600;
  how.environment["KOVR_ONLINE"] = (here.path() / tree / "online").string();
  how.arguments = options;
  const auto done =
      session::butngain(place, {"T", "1000", run, correction, "1", "2", "", "n", "-1", "no"}, how);
  EXPECT_EQ(done.status, 0) << done.err;
  return run_in(place);
}

std::vector<report::bpm_row> gains_of(const fs::path& run) {
  auto rows = report::read_gains_csv((run / "gains.csv").string());
  EXPECT_TRUE(rows) << util::line_of(rows.why);
  return rows ? *rows : std::vector<report::bpm_row>{};
}

// What is left of the gains in a machine, by name.
std::map<std::string, four> truth_of(const session::scratch& here, const std::string& tree) {
  std::map<std::string, four> truth;
  const fs::path file = here.path() / tree / "online/kbpmII/raw/04/RD-004566.truth";
  for (const std::string& line : lines_of(read_file(file))) {
    if (line.empty() || line[0] == '#') continue;
    const std::string name = line.substr(0, line.find(' '));
    const auto numbers = session::numbers_of(line.substr(name.size()));
    truth[name] = {numbers[0], numbers[1], numbers[2], numbers[3]};
  }
  return truth;
}

double largest_log_ratio(const four& gain) {
  double most = 0;
  for (const double t : gain) most = std::max(most, std::abs(std::log(t / gain[0])));
  return most;
}

std::vector<std::string> fields_of(const std::string& line) {
  std::vector<std::string> field;
  for (std::size_t at = 0; at <= line.size();) {
    const std::size_t end = std::min(line.find(',', at), line.size());
    field.push_back(line.substr(at, end - at));
    at = end + 1;
  }
  return field;
}

// Means and spreads of gains.csv are those of the places in orbits.csv that took part.
void expect_places_of_orbits(const fs::path& run) {
  std::map<int, std::vector<std::pair<double, double>>> places;
  for (const std::string& line : lines_of(read_file(run / "orbits.csv"))) {
    const auto field = fields_of(line);
    if (field.back() != "1") continue;
    places[std::stoi(field[0])].emplace_back(std::stod(field[9]), std::stod(field[10]));
  }
  int looked_at = 0;
  for (const report::bpm_row& row : gains_of(run)) {
    const auto& of = places[row.bpm];
    EXPECT_EQ(static_cast<std::size_t>(row.orbits_used), of.size()) << row.name;
    if (of.empty()) continue;
    const auto n = static_cast<double>(of.size());
    double x = 0, y = 0, xx = 0, yy = 0;
    for (const auto& at : of) x += at.first / n, y += at.second / n;
    for (const auto& at : of) {
      xx += (at.first - x) * (at.first - x) / n;
      yy += (at.second - y) * (at.second - y) / n;
    }
    EXPECT_NEAR(row.mean_x_mm, x, 1e-6) << row.name;
    EXPECT_NEAR(row.mean_y_mm, y, 1e-6) << row.name;
    EXPECT_NEAR(row.sd_x_mm, std::sqrt(xx), 1e-6) << row.name;
    EXPECT_NEAR(row.sd_y_mm, std::sqrt(yy), 1e-6) << row.name;
    ++looked_at;
  }
  EXPECT_EQ(looked_at, 3);
}

// How far a closed orbit, the mean of difference over sum, is off because of gains: mean over BPMs,
// in parts of the chamber's scale. The signals come from the session, the gains from the simulator.
double orbit_distortion(const fs::path& run, const std::map<std::string, four>& truth) {
  struct sums {
    double n = 0, x = 0, y = 0;
  };
  std::map<std::string, sums> by_bpm;
  for (const std::string& line : lines_of(read_file(run / "orbits.csv"))) {
    const auto field = fields_of(line);
    const auto known = truth.find(field[1]);
    if (known == truth.end()) continue;  // the header
    const auto place = [&](bool corrected) {
      four b{};
      double sum = 0;
      for (std::size_t k = 0; k < 4; ++k) {
        b[k] = std::stod(field[3 + k]) / (corrected ? known->second[k] : 1);
        sum += b[k];
      }
      return std::pair{(b[1] + b[3] - b[0] - b[2]) / sum, (b[2] + b[3] - b[0] - b[1]) / sum};
    };
    const auto [x, y] = place(false);
    const auto [true_x, true_y] = place(true);
    sums& at = by_bpm[field[1]];
    ++at.n;
    at.x += x - true_x;
    at.y += y - true_y;
  }
  double distance = 0;
  for (const auto& [name, at] : by_bpm) distance += std::hypot(at.x, at.y) / at.n;
  return distance / static_cast<double>(by_bpm.size());
}

// Session, load, session: the gains are gone, and with them what they did to the closed orbit. The
// second session reads other passages of the same machine.
TEST(results_session, loading_what_was_found_makes_all_gains_one) {
  const session::scratch here;
  ASSERT_EQ(make_machine(here, "before").status, 0);
  const fs::path first = run_on(here, "before", "4567", "3", {"--orbits"});
  ASSERT_EQ(make_machine(here, "after", {"--coefficients", (first / "gains.load").string()}).status,
            0);
  const fs::path second = run_on(here, "after", "4566", "3", {"--orbits"});
  expect_places_of_orbits(first);

  const auto before = gains_of(first);
  const auto after = gains_of(second);
  ASSERT_EQ(before.size(), 4U);
  ASSERT_EQ(after.size(), 4U);
  for (std::size_t i = 0; i < 4; ++i) {
    SCOPED_TRACE(before[i].name);
    if (before[i].verdict == report::verdict::not_fitted) {
      EXPECT_EQ(before[i].reason, "button BO is below 100 in all of 200 turns");
      continue;
    }
    EXPECT_EQ(after[i].verdict, report::verdict::determined);
    EXPECT_GT(largest_log_ratio(before[i].gain), 0.02);
    EXPECT_LT(largest_log_ratio(after[i].gain), 3 * after[i].error);
  }
  const double distorted = orbit_distortion(first, truth_of(here, "before"));
  const double repaired = orbit_distortion(second, truth_of(here, "after"));
  EXPECT_GT(distorted, 5e-3);  // a tenth of a millimetre: there was something to repair
  EXPECT_GT(distorted / repaired, 50);
  // What was not found keeps what it has, in the machine too.
  const std::string load = read_file(first / "gains.load");
  EXPECT_TRUE(contains(load, "  keep  # not fitted: button BO is below 100")) << load;
  EXPECT_EQ(truth_of(here, "after")["43E"], truth_of(here, "before")["43E"]);
}

// Corrections 1 and 2 leave the old coefficients in the readings: what is to be loaded is the same.
TEST(results_session, what_is_to_be_loaded_does_not_depend_on_the_correction) {
  const session::scratch here;
  ASSERT_EQ(make_machine(here, "t").status, 0);
  const auto truth = truth_of(here, "t");
  fs::path run;
  for (const char* correction : {"1", "2", "3"}) {
    SCOPED_TRACE(correction);
    run = run_on(here, "t", "4567", correction, {"--coefficients"});
    std::map<std::string, std::vector<double>> left;  // new over old coefficient over true gain
    for (const std::string& line : lines_of(read_file(run / "gains.load"))) {
      if (!line.ends_with("  load")) continue;
      const std::string name = line.substr(6, line.find(' ', 6) - 6);
      const auto number = session::numbers_of(line);  // BPM, old, new, change, error
      auto& of_bpm = left[name];
      of_bpm.push_back(number[2] / number[1] / truth.at(name)[of_bpm.size()]);
    }
    EXPECT_EQ(left.size(), 3U);
    for (const auto& [name, of] : left) {
      ASSERT_EQ(of.size(), 4U);
      EXPECT_LT(largest_log_ratio({of[0], of[1], of[2], of[3]}), 1.5e-3) << name;
    }
    // The other file does the same to readings that were divided by the coefficients of before.
    int listed = 0;
    for (const std::string& line : lines_of(read_file(run / "button_coeff.dat"))) {
      const std::size_t comment = line.find("  # ");
      if (comment == std::string::npos || line[0] != ' ') continue;
      const auto f = session::numbers_of(line.substr(0, comment));
      const four& t = truth.at(line.substr(comment + 4));
      EXPECT_LT(largest_log_ratio({f[1] * t[0], f[2] * t[1], f[3] * t[2], f[4] * t[3]}), 1.5e-3)
          << line;
      ++listed;
    }
    EXPECT_EQ(listed, 3);
  }
  // As it is into the site's tree: the next session takes it, and no fit sees its factors.
  const double found = largest_log_ratio(gains_of(run)[0].gain);
  fs::copy_file(run / "button_coeff.dat",
                here.path() / "t/online/machine_data/meas/orbit/nonlin_bpm/button_coeff.dat",
                fs::copy_options::overwrite_existing);
  fs::remove_all(here.path() / "t4567_3");
  EXPECT_EQ(largest_log_ratio(gains_of(run_on(here, "t", "4567", "3"))[0].gain), found);
}

// Files beside the described ones never hide a result: told by name, the rest is written, status 1.
TEST(results_session, a_file_that_cannot_be_written_is_told_and_the_session_goes_on) {
  const session::scratch here;
  ASSERT_EQ(session::bpmsim(here.path(), {"series", "--bpms", "1", "--orbits", "40"}).status, 0);
  // In the place of gains.csv stands a folder, whichever second the run begins in.
  const std::time_t now = std::time(nullptr);
  for (std::time_t t = now; t < now + 30; ++t) {
    std::array<char, 16> name{};
    std::tm local{};
    localtime_r(&t, &local);
    std::strftime(name.data(), name.size(), "%Y%m%d_%H%M%S", &local);
    fs::create_directories(here.path() / name.data() / "gains.csv");
  }
  const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_0.txt", "no"});
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_TRUE(contains(run.err, "/gains.csv: Is a directory\n")) << run.err;
  EXPECT_TRUE(contains(run.err, "butngain: cannot write ")) << run.err;
  const std::size_t at = run.out.find("output written to directory ");
  ASSERT_NE(at, std::string::npos);
  const fs::path written = here.path() / run.out.substr(at + 28, 15);
  EXPECT_TRUE(fs::exists(written / "gains.load"));
  EXPECT_TRUE(fs::exists(written / "EXP_0.dat_fit"));
  EXPECT_TRUE(contains(run.out, "Postscript (p) or Gif (g) ?"));
}

// Orbits that were never calibrated have their signals and linear place, and took part in nothing.
TEST(results_session, orbits_that_were_not_calibrated_are_not_used) {
  const session::scratch here;
  session::simulate(here.path(), "series --bpms 1 --orbits 5");
  session::settings how;
  how.arguments = {"--orbits", "--output", "out"};
  ASSERT_EQ(session::butngain(here.path(), {"F", "exp_0.txt", "", "no"}, how).status, 0);
  const auto lines = lines_of(read_file(run_in(here.path() / "out") / "orbits.csv"));
  ASSERT_EQ(lines.size(), 6U);
  for (std::size_t i = 1; i < lines.size(); ++i) EXPECT_TRUE(lines[i].ends_with(",,,,,0"));
}

// One BPM was chosen: the others are in the data, and so in the file, wherever that goes.
TEST(results_session, every_bpm_that_the_data_hold_has_a_line) {
  const session::scratch here;
  ASSERT_EQ(make_machine(here, "t").status, 0);
  session::settings how;
  how.environment["KOVR_ONLINE"] = (here.path() / "t/online").string();
  how.arguments = {"--output", "elsewhere"};
  const auto run = session::butngain(
      here.path(), {"T", "1000", "4567", "3", "1", "2", "", "n", "28", "no"}, how);
  ASSERT_EQ(run.status, 0) << run.err;
  const auto rows = gains_of(run_in(here.path() / "elsewhere"));
  EXPECT_TRUE(contains(run.err, "; all results: elsewhere/2")) << run.err;
  ASSERT_EQ(rows.size(), 4U);
  for (const report::bpm_row& row : rows) {
    EXPECT_EQ(row.verdict == report::verdict::not_fitted, row.bpm != 28) << row.bpm;
    EXPECT_EQ(row.reason, row.bpm == 28 ? "" : "another BPM was chosen");
  }
  EXPECT_FALSE(contains(run.err, "another BPM")) << run.err;  // nobody asked for them
}

}  // namespace
