// Changes worked out by hand, and what a script learns from the exit status.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "compare_runs.hpp"
#include "gains_csv.hpp"
#include "scratch_fixture.hpp"

namespace {

using report::verdict;

report::bpm_row row(int bpm, const report::four& gain, double error,
                    verdict word = verdict::determined) {
  report::bpm_row r;
  r.bpm = bpm;
  r.name = std::to_string(bpm) + "W";
  r.verdict = word;
  r.gain = gain;
  r.error = error;
  return r;
}

report::comparison compare(std::vector<std::vector<report::bpm_row>> runs) {
  std::vector<report::read_run> read;
  for (auto& rows : runs) {
    read.emplace_back();
    read.back().directory = "run" + std::to_string(read.size());
    read.back().bpm = std::move(rows);
  }
  return report::compare_runs(std::move(read), {});
}

// TI by 0.4 %, errors 3e-4 and 4e-4: ln 1.004 = 3.992e-3 over 5e-4 is 7.984. A common factor, here
// 1.7, changes nothing.
TEST(compare_runs, by_hand) {
  const auto c =
      compare({{row(1, {1, 1, 1, 1}, 3e-4)}, {row(1, {1.7, 1.7, 1.7 * 1.004, 1.7}, 4e-4)}});
  ASSERT_EQ(c.bpm.size(), 1U);
  ASSERT_EQ(c.bpm[0].since.size(), 1U);
  const report::gain_change& change = c.bpm[0].since[0];
  EXPECT_NEAR(change.change, 3.99202e-3, 1e-8);
  EXPECT_NEAR(change.error, 5e-4, 1e-15);
  EXPECT_EQ(change.button, 2U);
  EXPECT_NEAR(change.of_button, 3.99202e-3, 1e-8);
  EXPECT_TRUE(change.beyond);
}

TEST(compare_runs, both_limits_must_be_passed) {
  const struct {
    const char* what;
    double change, error;
    bool beyond;
  } cases[] = {{"3.9 errors", 3.9e-3, 1e-3, false},
               {"4.1 errors", 4.1e-3, 1e-3, true},
               {"40 errors below the floor", 4e-4, 1e-5, false},
               {"60 errors above it", 6e-4, 1e-5, true}};
  for (const auto& [what, change, error, beyond] : cases) {
    const double each = error / std::sqrt(2.0);
    const auto c =
        compare({{row(1, {1, 1, 1, 1}, each)}, {row(1, {1, std::exp(-change), 1, 1}, each)}});
    EXPECT_EQ(c.bpm[0].since[0].beyond, beyond) << what;
    EXPECT_EQ(c.bpm[0].disagree.size(), beyond ? 1U : 0U) << what;
  }
}

TEST(compare_runs, what_is_not_determined_or_not_there_never_changes) {
  const report::four one{1, 1, 1, 1}, other{1.1, 1, 1, 1};
  auto renamed = row(5, other, 1e-4);
  renamed.name = "5E";
  const auto c = compare({{row(1, one, 1e-4), row(2, one, 1e-4, verdict::suspect),
                           row(3, one, 1e-4), row(4, one, report::unknown), row(5, one, 1e-4)},
                          {row(1, other, 1e-4, verdict::not_determined), row(2, other, 1e-4),
                           row(4, other, 1e-4), renamed}});
  for (const auto& b : c.bpm) EXPECT_TRUE(b.since.empty() && b.disagree.empty()) << b.name;
  const std::string text = report::comparison_text(c);
  for (const char* line :
       {"no BPM has gains in two of the runs", "BPM 1 (1W): not determined in run 2",
        "BPM 2 (2W): suspect in run 1", "BPM 3 (3W): not there in run 2",
        "BPM 4 (4W): without calibrated gains in run 1", "BPM 5 (5E): not there in run 1"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << '\n' << text;
  }
}

// The odd run of three stands in both lines.
TEST(compare_runs, names_the_runs_that_disagree) {
  const report::four one{1, 1, 1, 1}, other{1, 1, 1, 1.01};
  const auto c = compare({{row(1, one, 1e-4)}, {row(1, other, 1e-4)}, {row(1, one, 1e-4)}});
  ASSERT_EQ(c.bpm[0].disagree.size(), 2U);
  const std::string text = report::comparison_text(c);
  EXPECT_NE(text.find("\n  1 and 2: 1 BPM: 1 (1W)\n  2 and 3: 1 BPM: 1 (1W)\n"), std::string::npos)
      << text;
  EXPECT_FALSE(report::comparison_png(c).empty());
}

TEST(comparison_csv, has_as_many_fields_in_every_line) {
  const auto c = compare({{row(1, {1, 1, 1, 1}, 1e-4),
                           row(2, report::unknown_four, report::unknown, verdict::not_fitted)},
                          {row(1, {1.2, 1, 1, 1}, 1e-4)}});
  const std::string csv = report::comparison_csv(c);
  std::size_t begin = 0, lines = 0;
  while (begin < csv.size()) {
    const std::size_t end = csv.find('\n', begin);
    EXPECT_EQ(std::count(csv.begin() + static_cast<std::ptrdiff_t>(begin),
                         csv.begin() + static_cast<std::ptrdiff_t>(end), ','),
              16);
    begin = end + 1;
    ++lines;
  }
  EXPECT_EQ(lines, 4U);  // header, BPM 1 twice, BPM 2 once
}

struct compare_command : scratch::fixture {
  void run(const char* name, const std::vector<report::bpm_row>& rows) const {
    std::filesystem::create_directory(place / name);
    ASSERT_FALSE(report::write_gains_csv(place / name + "/gains.csv", rows));
  }
  static int status(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "compare");
    return report::compare_command(static_cast<int>(arguments.size()), arguments.data());
  }
};

TEST_F(compare_command, tells_by_its_status) {
  run("a", {row(1, {1, 1, 1, 1}, 1e-4)});
  run("b", {row(1, {1.01, 1, 1, 1}, 1e-4)});
  EXPECT_EQ(status({"a", "a"}), 0);
  EXPECT_EQ(status({"a", "b", "--csv", "c.csv", "--picture", "c.png"}), 1);
  EXPECT_TRUE(scratch::content("c.csv").starts_with("bpm,name,run,"));
  EXPECT_TRUE(scratch::content("c.png").starts_with("\x89PNG"));
  EXPECT_EQ(status({"a", "b", "--floor", "0.02"}), 0);
  EXPECT_EQ(status({"a", "b/gains.csv"}), 1);
}

TEST_F(compare_command, faults_are_one_line_with_file_and_line) {
  run("a", {row(1, {1, 1, 1, 1}, 1e-4)});
  run("twice", {row(1, {1, 1, 1, 1}, 1e-4), row(1, {1, 1, 1, 1}, 1e-4)});
  run("cut", {row(1, {1, 1, 1, 1}, 1e-4), row(2, {1, 1, 1, 1}, 1e-4)});
  const std::string whole = scratch::content("cut/gains.csv");
  scratch::write("cut/gains.csv", whole.substr(0, whole.size() - 30));
  const struct {
    std::vector<const char*> arguments;
    const char* line;
  } cases[] = {{{"a", "nowhere"}, "butngain: nowhere: No such file or directory\n"},
               {{"a", "cut"}, "butngain: cut/gains.csv:3: "},
               {{"a", "twice"}, "butngain: twice/gains.csv: BPM 1 (1W) stands twice"},
               {{"a"}, "butngain: "},
               {{"a", "a", "--csv", "nowhere/c.csv"}, "butngain: nowhere/c.csv: No such file"}};
  for (const auto& c : cases) {
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(status(c.arguments), 2) << c.line;
    testing::internal::GetCapturedStdout();
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(told.starts_with(c.line)) << told;
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
  }
}

}  // namespace
