// Changes planted in made runs are found, and nothing else is.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <random>

#include "bpm_trend.hpp"
#include "calendar.hpp"
#include "gains_csv.hpp"
#include "made_runs.hpp"
#include "run_json.hpp"
#include "scratch_fixture.hpp"
#include "time_axis.hpp"
#include "trend_command.hpp"

namespace {

namespace fs = std::filesystem;
using report::four;
using report::verdict;

TEST(calendar, moments) {
  const struct {
    const char* text;
    double day;
  } cases[] = {{"1970-01-01", 0},
               {"1970-01-02T12:00:00+00:00", 1.5},
               {"1970-01-02 12:00", 1.5},
               {"1970-01-02T12:00:00+12:00", 1},
               {"1970-01-01T19:00:00-0500", 1},
               {"2024-02-29T00:00:00Z", 19782}};
  for (const auto& [text, day] : cases) {
    ASSERT_TRUE(report::day_of(text)) << text;
    EXPECT_NEAR(*report::day_of(text), day, 1e-9) << text;
    EXPECT_NEAR(*report::day_of(report::iso_text(day)), day, 1e-5) << text;
  }
  for (const char* text : {"", "2023-02-29", "2024-13-01", "2024-01-01T25:00", "2024-01-01x",
                           "2024-01-01T12:00+", "24-01-01", "2024-01-01T12:00:00+01:00 "}) {
    EXPECT_FALSE(report::day_of(text)) << text;
  }
}

// Whatever the span, from minutes to centuries, there are some dates and they do not touch.
TEST(time_axis, dates_have_room) {
  for (double days = 0.01; days < 1e5; days *= 3) {
    for (const double width : {110.0, 300.0, 1100.0}) {
      const auto ticks = report::time_ticks(18000.3, 18000.3 + days, width);
      ASSERT_FALSE(ticks.empty());
      EXPECT_LE(static_cast<double>(ticks.size() * ticks[0].text.size()) * 5, width) << days;
      EXPECT_LE(ticks.size(), 1 + static_cast<std::size_t>(width / 38)) << days;
    }
  }
}

// What is left when the mean is taken away, as files give gains.
four with_mean_0(four v) {
  const double mean = (v[0] + v[1] + v[2] + v[3]) / 4;
  for (double& x : v) x -= mean;
  return v;
}

TEST(moved_buttons, the_simplest_explanation) {
  const struct {
    const char* what;
    four moved;
    std::size_t count, button;
    bool or_others;
  } cases[] = {{"one", {0, 0, 5e-3, 0}, 1, 2, false},
               {"one, down", {-5e-3, 0, 0, 0}, 1, 0, false},
               {"one, the others by less than counts", {1e-5, -2e-5, 0, 5e-3}, 1, 3, false},
               {"two", {5e-3, 0, -3e-3, 0}, 2, 0, false},
               {"two alike", {5e-3, 5e-3, 0, 0}, 2, 0, true},
               {"all, against their middle of 1e-3", {6e-3, -3e-3, 2e-3, 0}, 4, 0, false}};
  for (const auto& [what, moved, count, button, or_others] : cases) {
    const auto found = report::explain(with_mean_0(moved), 1e-10, {});
    EXPECT_EQ(found.count, count) << what;
    EXPECT_EQ(found.or_others, or_others) << what;
    if (or_others) continue;
    EXPECT_EQ(found.button, button) << what;
    const double middle = count == 4 ? 1e-3 : 0;
    for (std::size_t k = 0; k < 4; ++k) {
      EXPECT_NEAR(found.change[k], moved[k] - middle, 3e-5) << what << k;
    }
  }
}

// --- series of one BPM --------------------------------------------------------------------------

struct noise {
  std::mt19937_64 random;
  double draw(double sigma) { return std::normal_distribution<double>(0, sigma)(random); }
};

struct kind_of_series {
  const char* what;
  int runs = 200;
  double scatter = 1e-4;
  std::function<void(int run, double months, four& ln_t, noise&)> change;
  std::size_t steps = 0, wild = 0;
  bool drift = false, slow = false;
  std::size_t button = 0;  // of the first step, or of the drift
};

report::trend_data data_of(const kind_of_series& kind, unsigned seed) {
  noise from{std::mt19937_64{seed}};
  report::trend_data data;
  data.bpm.push_back({1, "1W", {}, {}});
  for (int run = 0; run < kind.runs; ++run) {
    report::trend_run made;
    made.day = 18000 + 7 * run;
    data.run.push_back(made);
    report::trend_point p{.run = static_cast<std::uint32_t>(run), .usable = true};
    p.verdict = verdict::determined;
    for (double& v : p.gain) v = from.draw(kind.scatter);
    kind.change(run, 7 * run / report::days_of_month, p.gain, from);
    p.gain = with_mean_0(p.gain);
    // As runs state them: noise that is too small for the scatter, E that is much too large.
    p.noise = 0.7 * kind.scatter;
    p.error = 7 * kind.scatter;
    data.bpm[0].point.push_back(p);
  }
  return data;
}

void nothing(int, double, four&, noise&) {}

const kind_of_series kinds[] = {
    {.what = "nothing", .change = nothing},
    {.what = "nothing, five runs", .runs = 5, .change = nothing},
    {.what = "nothing, a thousand runs", .runs = 1000, .change = nothing},
    {.what = "nothing, but much scatter", .scatter = 2e-3, .change = nothing},
    {.what = "a step of ten times the scatter, in twelve runs",
     .runs = 12,
     .change = [](int run, double, four& t, noise&) { t[2] += run < 6 ? 0 : 1e-3; },
     .steps = 1,
     .button = 2},
    {.what = "a step of five times the scatter",
     .scatter = 1e-3,
     .change = [](int run, double, four& t, noise&) { t[2] += run < 130 ? 0 : 5e-3; },
     .steps = 1,
     .button = 2},
    {.what = "a step that two runs have seen",
     .runs = 30,
     .change = [](int run, double, four& t, noise&) { t[3] -= run < 28 ? 0 : 5e-3; },
     .steps = 1,
     .button = 3},
    {.what = "the last run is off",
     .runs = 30,
     .change = [](int run, double, four& t, noise&) { t[3] -= run < 29 ? 0 : 5e-3; },
     .wild = 1},
    {.what = "one run is off",
     .change = [](int run, double, four& t, noise&) { t[0] += run == 70 ? 0.02 : 0; },
     .wild = 1},
    {.what = "two neighbours are off, each its own way",
     .change =
         [](int run, double, four& t, noise&) {
           t[0] += run == 70 ? 0.02 : 0;
           t[1] += run == 71 ? 0.01 : 0;
         },
     .wild = 2},
    {.what = "away for two runs, and back",
     .change = [](int run, double, four& t, noise&) { t[1] += run == 50 || run == 51 ? 5e-3 : 0; },
     .steps = 2,
     .button = 1},
    {.what = "three steps",
     .change =
         [](int run, double, four& t, noise&) {
           t[0] += (run < 40 ? 0 : 2e-3) + (run < 150 ? 0 : -3e-3);
           t[1] -= run < 90 ? 0 : 1e-3;
         },
     .steps = 3,
     .button = 0},
    {.what = "a drift",
     .change = [](int, double months, four& t, noise&) { t[3] += 1e-3 * months; },
     .drift = true,
     .button = 3},
    {.what = "a drift that makes half its scatter a month, in a year",
     .runs = 52,
     .scatter = 1e-3,
     .change = [](int, double months, four& t, noise&) { t[3] -= 1e-3 * months; },
     .drift = true,
     .button = 3},
    {.what = "a drift and a step of the same button",
     .change = [](int run, double months, four& t,
                  noise&) { t[1] += 1e-3 * months + (run < 77 ? 0 : 5e-3); },
     .steps = 1,
     .drift = true,
     .button = 1},
    {.what = "seasons",
     .change = [](int, double months, four& t,
                  noise&) { t[2] += 1e-3 * std::sin(months * 0.5236); },
     .slow = true},
    {.what = "a drift that begins half way",
     .change = [](int, double months, four& t,
                  noise&) { t[2] += 1e-3 * std::max(months - 23, 0.0); },
     .slow = true},
};

// Three seeds of each: counts must be right in all.
TEST(bpm_trend, steps_drifts_and_wild_runs_are_told_apart) {
  for (const kind_of_series& kind : kinds) {
    for (const unsigned seed : {1U, 2U, 3U}) {
      SCOPED_TRACE(fmt::format("{}, seed {}", kind.what, seed));
      const auto data = data_of(kind, seed);
      const auto b = report::trends_of(data, {})[0];
      EXPECT_EQ(b.steps.size(), kind.steps);
      EXPECT_EQ(b.wild.size(), kind.wild);
      EXPECT_EQ(b.drift.told, kind.drift);
      EXPECT_EQ(b.slow.told, kind.slow);
      if (!b.steps.empty()) {
        EXPECT_EQ(b.steps[0].moved.button, kind.button);
        EXPECT_EQ(b.steps[0].moved.count, 1U);
      }
      if (b.drift.told) {
        EXPECT_EQ(b.drift.moved.button, kind.button);
      }
    }
  }
}

// The error of a level is that of the scatter seen, not of E: its own estimate holds.
TEST(bpm_trend, errors_of_steps_can_be_believed) {
  double squares = 0;
  constexpr unsigned seeds = 60;
  const kind_of_series kind{
      .what = "step", .runs = 40, .change = [](int run, double, four& t, noise&) {
        t[2] += run < 20 ? 0 : 5e-3;
      }};
  for (unsigned seed = 1; seed <= seeds; ++seed) {
    const auto data = data_of(kind, seed);
    const auto b = report::trends_of(data, {})[0];
    ASSERT_EQ(b.steps.size(), 1U);
    EXPECT_EQ(b.steps[0].before, 19U);
    EXPECT_EQ(b.steps[0].behind, 20U);
    const double off = (b.steps[0].moved.change[2] - 5e-3) / b.steps[0].moved.error;
    squares += off * off / seeds;
  }
  // Of 60 squares the mean is 1 to 0.18; memory and wandering make errors rather too large.
  EXPECT_GT(squares, 0.3);
  EXPECT_LT(squares, 1.6);
}

// Buttons that stood still are shown where they were, not a quarter of the step lower.
TEST(bpm_trend, only_the_button_that_moved_is_shown_to_move) {
  const auto data = data_of(kinds[5], 1);
  const auto b = report::trends_of(data, {})[0];
  EXPECT_NEAR(b.explained.back()[2], 5e-3, 6e-4);
  for (const std::size_t k : {0U, 1U, 3U}) EXPECT_NEAR(b.explained.back()[k], 0, 6e-4) << k;
}

// --- folders of runs ----------------------------------------------------------------------------

struct found_count {
  int planted = 0, found = 0, wrong_button = 0, false_alarms = 0;
};

void count(const report::trend_data& data, const made::many_runs& runs, found_count& all) {
  for (const report::bpm_trend& b : report::trends_of(data, {})) {
    const auto p = std::find_if(runs.changes.begin(), runs.changes.end(),
                                [&b](const made::planted& c) { return c.bpm == b.series->bpm; });
    if (p == runs.changes.end()) {
      all.false_alarms += changed(b) ? 1 : 0;
      continue;
    }
    ++all.planted;
    const auto button = static_cast<std::size_t>(p->button);
    if (p->step != 0) {
      const auto at = static_cast<std::size_t>(p->at_run);
      const bool found = b.steps.size() == 1 && b.steps[0].before < at && b.steps[0].behind >= at &&
                         std::abs(b.steps[0].moved.change[button] - p->step) < 5e-4;
      all.found += found ? 1 : 0;
      all.wrong_button += found && b.steps[0].moved.button == button ? 0 : 1;
      all.false_alarms += b.drift.told || b.slow.told ? 1 : 0;
    } else {
      const bool found = b.drift.told && std::abs(b.drift.moved.change[button] - p->drift) < 1e-4;
      all.found += found ? 1 : 0;
      all.wrong_button += found && b.drift.moved.button == button ? 0 : 1;
      all.false_alarms += b.steps.empty() && !b.slow.told ? 0 : 1;
    }
  }
}

struct trend_of_many : scratch::fixture {};
// Two hundred weeks of a hundred BPMs: what was planted is found in the right button, and at most one
// of a hundred BPMs is said to have changed that did not.
TEST_F(trend_of_many, planted_changes_are_found_among_a_hundred_bpms) {
  found_count all;
  for (const unsigned seed : {1U, 2U, 3U}) {
    const made::many_runs runs{.seed = seed,
                               .changes = {{.bpm = 7, .button = 2, .step = 5e-3, .at_run = 120},
                                           {.bpm = 31, .button = 0, .step = -5e-3, .at_run = 12},
                                           {.bpm = 12, .button = 1, .drift = 1e-3}}};
    const std::string folder = place / std::to_string(seed);
    made::write_runs(folder, runs);
    const auto data = report::read_trend_data({.folders = {folder}});
    ASSERT_TRUE(data) << util::line_of(data.why);
    ASSERT_EQ(data->run.size(), 200U);
    ASSERT_EQ(data->bpm.size(), 100U);
    found_count one;
    count(*data, runs, one);
    EXPECT_LE(one.false_alarms, 1) << "seed " << seed;
    all.planted += one.planted;
    all.found += one.found;
    all.wrong_button += one.wrong_button;
    all.false_alarms += one.false_alarms;
  }
  fmt::print("planted {}, found {}, in a wrong button {}, false alarms {} in 300 BPMs\n",
             all.planted, all.found, all.wrong_button, all.false_alarms);
  EXPECT_EQ(all.planted, 9);
  EXPECT_EQ(all.found, 9);
  EXPECT_EQ(all.wrong_button, 0);
}

struct trend_folder : scratch::fixture {
  // A run of one BPM.
  void run(const std::string& name, const std::string& started, double gain,
           const std::string& ended = "whole", const std::string& digest = {},
           const std::vector<std::string>& arguments = {}) const {
    report::bpm_row row;
    row.bpm = 3;
    row.name = "3W";
    row.verdict = verdict::determined;
    row.gain = {gain, 1, 1, 1};
    row.sigma = {1e-4, 1e-4, 1e-4, 1e-4};
    row.error = 5e-4;
    report::run_results results;
    results.info.started = started;
    results.info.ended = ended;
    results.info.arguments = arguments;
    results.info.inputs = {{"RD-004" + name.substr(0, 3) + ".dat", 1, digest}};
    fs::create_directories(place / name);
    ASSERT_FALSE(report::write_gains_csv(place / name + "/gains.csv", {row}));
    ASSERT_FALSE(report::write_run_json(place / name + "/run.json", results));
  }
  // Runs of six weeks, with a step of half a per cent in the middle.
  void six_weeks() const {
    for (int i = 0; i < 6; ++i) {
      run(fmt::format("{}/20260101_000000", 100 + i),
          fmt::format("2026-01-{:02}T10:00:00+01:00", 1 + 5 * i),
          (i < 3 ? 1.0 : 1.005) + 1e-5 * (i % 3));
    }
  }
  static int status(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "trend");
    testing::internal::CaptureStdout();
    const int status = report::trend_command(static_cast<int>(arguments.size()), arguments.data());
    static_cast<void>(testing::internal::GetCapturedStdout());
    return status;
  }
};

TEST_F(trend_folder, runs_that_say_nothing_are_left_out_with_the_reason) {
  run("a/deep/run", "2026-03-01T10:00:00+01:00", 1);
  run("first", "2026-02-01T10:00:00+01:00", 1);
  run("killed", "2026-02-02T10:00:00+01:00", 1, "running");
  run("faulty", "2026-02-03T10:00:00+01:00", 1, "run-time error: out of memory");
  run("no_gains", "2026-02-04T10:00:00+01:00", 1);
  fs::remove(place / "no_gains/gains.csv");
  run("no_record", "2026-02-05T10:00:00+01:00", 1);
  fs::remove(place / "no_record/run.json");
  run("cut", "2026-02-06T10:00:00+01:00", 1);
  scratch::write(place / "cut/gains.csv", "bpm,name\n1,2\n");
  run("torn", "2026-02-07T10:00:00+01:00", 1);
  scratch::write(place / "torn/run.json", "{\"version\":");
  run(".scratch/run", "2026-02-07T10:00:00+01:00", 1);
  run("old", "2026-02-08T10:00:00+01:00", 1, "whole", "abc");
  run("new", "2026-02-09T10:00:00+01:00", 1, "whole", "abc", {"--output", "new"});
  run("other columns", "2026-02-10T10:00:00+01:00", 1, "whole", "abc", {"--columns", "5,6,7,8"});
  const auto data = report::read_trend_data({.folders = {"."}});
  ASSERT_TRUE(data);
  std::vector<std::string> used;
  for (const auto& r : data->run) used.push_back(r.directory);
  EXPECT_EQ(used, (std::vector<std::string>{"first", "new", "other columns", "a/deep/run"}));
  const std::map<std::string, std::string> expected{
      {"killed", "did not end"},    {"faulty", "out of memory"}, {"no_gains", "no gains.csv"},
      {"no_record", "no run.json"}, {"cut", "cut/gains.csv:1"},  {"torn", "is no JSON"},
      {"old", "later: new"}};
  EXPECT_EQ(data->left_out.size(), expected.size());
  for (const auto& out : data->left_out) {
    ASSERT_TRUE(expected.contains(out.directory)) << out.directory;
    EXPECT_NE(out.why.find(expected.at(out.directory)), std::string::npos) << out.why;
  }
}

// Analysed in one night: what counts is when data were taken, by number of the run or by folder.
TEST_F(trend_folder, times_come_from_a_file_where_there_is_one) {
  for (const char* name : {"101", "102", "103"}) run(name, "2026-03-01T10:00:00+01:00", 1);
  scratch::write("times", "# run index\n004101 2020-01-03 12:00\n4102 2020-01-02 12:00\n");
  scratch::write("times.csv", "run,time\n101,2020-01-03\n102,2020-01-02T12:00:00Z\n");
  for (const char* file : {"times", "times.csv"}) {
    const auto data = report::read_trend_data({.folders = {"."}, .times = file});
    ASSERT_TRUE(data) << util::line_of(data.why);
    ASSERT_EQ(data->run.size(), 3U);
    EXPECT_EQ(data->run[0].directory, "102") << file;
    EXPECT_EQ(data->run[1].directory, "101") << file;
    EXPECT_EQ(data->run[0].day, 18263.5) << file;
  }
  scratch::write("bad", "4101 2020-01-03\n4102 yesterday\n");
  EXPECT_EQ(report::read_trend_data({.folders = {"."}, .times = "bad"}).why.where, "bad:2");
}

TEST_F(trend_folder, tells_by_its_status_and_leaves_its_files) {
  six_weeks();
  EXPECT_EQ(status({".", "--output", "out"}), 1);
  EXPECT_EQ(status({".", "--output", "out", "--floor", "0.01"}), 0);
  EXPECT_EQ(status({".", "--until", "2026-01-11"}), 0);
  // Five runs are just enough, and the fifth is of the last day.
  EXPECT_EQ(status({".", "--until", "2026-01-21"}), 1);
  EXPECT_EQ(status({".", "--bpm", "3W", "--output", "out"}), 1);
  EXPECT_EQ(status({".", "--bpm", "3", "--since", "2026-01-01T10:00:00+01:00", "--output", "out"}),
            1);
  const std::string html = scratch::content("out/trend.html");
  EXPECT_NE(html.find("1 of 1 BPM changed: 3W (BI +0.4"), std::string::npos);
  for (const char* outside : {"http://", "https://", "src="}) {
    EXPECT_EQ(html.find(outside), std::string::npos) << outside;
  }
  for (const char* picture : {"out/trend.png", "out/changes.png"}) {
    EXPECT_TRUE(scratch::content(picture).starts_with("\x89PNG")) << picture;
  }
  const auto changes = scratch::lines_of("out/changes.csv");
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_TRUE(changes[1].starts_with("step,3,3W,BI,4.9")) << changes[1];
  EXPECT_NE(changes[1].find("102/20260101_000000,2026-01-11T09:00:00Z,103/20260101_000000"),
            std::string::npos)
      << changes[1];
  for (const char* file : {"out/changes.csv", "out/trend.csv"}) {
    const auto lines = scratch::lines_of(file);
    for (const std::string& line : lines) {
      EXPECT_EQ(std::count(line.begin(), line.end(), ','),
                std::count(lines[0].begin(), lines[0].end(), ','))
          << line;
    }
  }
  EXPECT_EQ(scratch::lines_of("out/trend.csv").size(), 7U);
}

// What comes from data is text, wherever it stands.
TEST_F(trend_folder, names_cannot_become_markup) {
  for (int i = 0; i < 6; ++i) {
    report::bpm_row row;
    row.bpm = 1;
    row.name = "<b>&,\"";
    row.verdict = verdict::not_determined;
    row.reason = "<script>alert(1)</script>";
    report::run_results results;
    results.info.started = fmt::format("2026-01-{:02}T10:00:00+01:00", 1 + i);
    results.info.ended = "whole";
    const std::string folder = place / fmt::format("<i>{}", i);
    fs::create_directories(folder);
    ASSERT_FALSE(report::write_gains_csv(folder + "/gains.csv", {row}));
    ASSERT_FALSE(report::write_run_json(folder + "/run.json", results));
  }
  fs::create_directories(place / "<i>cut");
  scratch::write(place / "<i>cut/gains.csv", "");
  EXPECT_EQ(status({"."}), 0);
  const std::string html = scratch::content("trend.html");
  for (const char* raw : {"<script>alert", "<b>&", "<i>"}) {
    EXPECT_EQ(html.find(raw), std::string::npos) << raw;
  }
  EXPECT_NE(html.find("never determined"), std::string::npos);
}

TEST_F(trend_folder, faults_are_one_line) {
  six_weeks();
  fs::create_directories(place / "empty");
  const struct {
    std::vector<const char*> arguments;
    const char* line;
  } cases[] = {{{"nowhere"}, "butngain: nowhere: No such file or directory"},
               {{"empty"}, "butngain: empty: no whole run to look at"},
               {{}, "butngain: DIR is required"},
               {{".", "--since", "yesterday"}, "butngain: --since: found \"yesterday\""},
               {{".", "--since", "2027-01-01"}, "butngain: .: no whole run to look at"},
               {{".", "--bpm", "4W"}, "butngain: .: no such BPM"},
               {{".", "--times", "nowhere"}, "butngain: nowhere: No such file"},
               {{".", "--output", "/dev/null/x"}, "butngain: /dev/null/x: "}};
  for (const auto& c : cases) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(status(c.arguments), 2) << c.line;
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(told.starts_with(c.line)) << told;
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
  }
}

}  // namespace
