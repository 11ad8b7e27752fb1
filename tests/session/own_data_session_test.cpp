// butngain fit: gains from columns of four signals, against the truth and against a session on the
// same readings.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "gains_csv.hpp"
#include "session_harness.hpp"

namespace {

namespace fs = std::filesystem;
using session::contains;
using session::lines_of;

constexpr const char* inputs = "inputs_1000random_xy_and_timing_offset/";
constexpr const char* chamber = "bpm.chamber";

// Not a round pipe, so that a table that is not taken shows.
constexpr const char* flat_chamber = R"(nonlin_bpm_chamber 1
name flat
units mm
contour box 40 20 10
button 1 -20 -20 12 strip
button 2 20 -20 12 strip
button 3 -20 20 12 strip
button 4 20 20 12 strip
x_grid 41 -20 20
y_grid 33 -16 16
margin 4
end
)";

struct orbit {
  std::array<std::string, 4> signal;
};

// The readings of one file of a series: columns 3 to 6.
std::vector<orbit> readings_of(const fs::path& file) {
  std::vector<orbit> orbits;
  for (const std::string& line : lines_of(session::read_file(file))) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> word;
    for (std::size_t at = 0; (at = line.find_first_not_of(' ', at)) != std::string::npos;) {
      const std::size_t end = std::min(line.find(' ', at), line.size());
      word.push_back(line.substr(at, end - at));
      at = end;
    }
    orbits.push_back({{word[2], word[3], word[4], word[5]}});
  }
  return orbits;
}

struct own_data : testing::Test {
  session::scratch here;

  session::outcome fit(const std::string& words, std::string_view input = {}) {
    std::vector<std::string> command{BUTNGAIN_BINARY, "fit"};
    for (std::size_t at = 0; at < words.size();) {
      const std::size_t end = std::min(words.find(' ', at), words.size());
      command.push_back(words.substr(at, end - at));
      at = end + 1;
    }
    return session::run(command, here.path(), input);
  }

  void SetUp() override { session::write_file(here.path() / chamber, flat_chamber); }

  std::vector<report::bpm_row> gains_in(const std::string& run) {
    auto rows = report::read_gains_csv(here / (run + "/gains.csv"));
    EXPECT_TRUE(rows) << util::line_of(rows.why);
    return rows ? *rows : std::vector<report::bpm_row>{};
  }

  std::vector<std::vector<orbit>> simulate(int bpms) {
    session::simulate(here.path(), "series --noise 1e-4 --seed 5 --chamber " +
                                       std::string{chamber} + " --bpms " + std::to_string(bpms));
    std::vector<std::vector<orbit>> all;
    for (int i = 0; i < bpms; ++i) {
      all.push_back(readings_of(here.path() / inputs / ("exp_" + std::to_string(i) + ".txt")));
    }
    return all;
  }
};

// Rows of the BPMs in turn, as an archive writes them.
std::string csv_of(const std::vector<std::vector<orbit>>& bpms, const std::string& header) {
  std::string text = header;
  for (std::size_t j = 0; j < bpms[0].size(); ++j) {
    for (std::size_t i = 0; i < bpms.size(); ++i) {
      const auto& [bi, bo, ti, to] = bpms[i][j].signal;
      text += std::to_string(i) + "," + bi + "," + bo + "," + ti + "," + to + "\n";
    }
  }
  return text;
}

TEST_F(own_data, gains_are_those_of_a_session_and_of_the_truth) {
  const auto bpms = simulate(3);
  session::write_file(here.path() / "d.csv", csv_of(bpms, "bpm,BI,BO,TI,TO\n"));
  const auto done =
      fit("d.csv --chamber bpm.chamber --pedestals subtracted --output new/found --orbits");
  ASSERT_EQ(done.status, 0) << done.err;
  const auto found = gains_in("new/found");
  ASSERT_EQ(found.size(), 3U);

  // The session's indices of a series count from 0 too.
  const auto session = session::butngain(here.path(), {"F", "exp_0.txt", "exp_2.txt", "no"},
                                         {.arguments = {"--chamber", chamber}});
  ASSERT_EQ(session.status, 0) << session.err;
  const auto expected = gains_in(here.run_directory().filename().string());
  ASSERT_EQ(expected.size(), 3U);
  const auto truth = lines_of(session::read_file(here.path() / inputs / "truth.dat"));
  const auto printed = lines_of(done.out);
  for (std::size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const report::bpm_row& row = found[i];
    EXPECT_EQ(row.bpm, static_cast<int>(i));
    EXPECT_EQ(row.verdict, report::verdict::determined);
    // One procedure on the same readings, so to the bit.
    EXPECT_EQ(row.gain, expected[i].gain);
    EXPECT_EQ(row.error, expected[i].error);
    EXPECT_EQ(row.fit_gain, expected[i].fit_gain);
    EXPECT_EQ(row.orbits_used, expected[i].orbits_used);
    const auto of_bpm = session::numbers_of(truth[truth.size() - 3 + i]);
    for (std::size_t k = 1; k < 4; ++k) {
      EXPECT_NEAR(std::log(row.gain[k] / row.gain[0]), std::log(of_bpm[k] / of_bpm[0]),
                  4 * row.error);
    }
    EXPECT_TRUE(printed.at(i).starts_with("BPM " + std::to_string(i) + " ("));
    EXPECT_TRUE(contains(printed[i], "): determined; error"));
  }
  EXPECT_TRUE(contains(done.err, "butngain: 3 BPMs fitted: 3 determined"));
  for (const char* name : {"report.html", "gains.png", "gains.load", "run.json", "orbits.csv"}) {
    EXPECT_TRUE(fs::exists(here.path() / "new/found" / name)) << name;
  }
}

TEST_F(own_data, places_before_the_gains_have_the_scale_of_the_chamber) {
  // Near the axis difference over sum is exact; gains of 1 leave nothing else to differ.
  session::simulate(here.path(),
                    "series --bpms 1 --spread 0.2 --gain-spread 0 --chamber bpm.chamber");
  std::string text;
  for (const auto& [signal] : readings_of(here.path() / inputs / "exp_0.txt")) {
    for (const std::string& b : signal) text += b + " ";
    text += "\n";
  }
  ASSERT_EQ(fit("- --chamber bpm.chamber --output r --orbits", text).status, 0);
  const auto passages = lines_of(session::read_file(here.path() / inputs / "exp_0.txt"));
  const auto rows = lines_of(session::read_file(here.path() / "r/orbits.csv"));
  ASSERT_GT(rows.size(), 100U);
  std::vector<double> made;
  for (const std::string& line : passages) {
    if (line[0] != '#') made.push_back(session::numbers_of(line)[0] * 1e3);
  }
  for (std::size_t j = 1; j < 100; ++j) {
    std::string line = rows[j];
    std::replace(line.begin(), line.end(), ',', ' ');
    // bpm, name, orbit, four signals, then the place before [mm].
    EXPECT_NEAR(session::numbers_of(line).at(7), made[j - 1], 1e-3);
  }
}

TEST_F(own_data, the_same_rows_in_any_form_give_the_same_gains) {
  const auto bpms = simulate(1);
  std::string plain, other;
  for (const auto& [signal] : bpms[0]) {
    const auto& [bi, bo, ti, to] = signal;
    plain += bi + " " + bo + " " + ti + " " + to + "\n";
    other += "x;" + to + ";" + bi + ";;" + bo + ";" + ti + "\r\n";
  }
  // Two data sets, with a row that lacks a reading and one without a signal.
  const std::size_t half = plain.find('\n', plain.size() / 2) + 1;
  session::write_file(here.path() / "one.txt", plain.substr(0, half) + "1 nan 2 3\n0 0 0 0\n");
  session::write_file(here.path() / "two.txt", plain.substr(half));
  session::write_file(here.path() / "other.csv", "when;D;A;note;B;C\r\n" + other);
  ASSERT_EQ(fit("- --chamber bpm.chamber --output a", plain).status, 0);
  ASSERT_EQ(fit("other.csv --columns A,B,c,D --chamber bpm.chamber --output b").status, 0);
  const auto sets = fit("one.txt two.txt --chamber bpm.chamber --output c");
  ASSERT_EQ(sets.status, 0);
  EXPECT_TRUE(contains(sets.err, "BPM 1 (1): of ")) << sets.err;
  EXPECT_TRUE(contains(sets.err, " rows 1 lack a signal and 1 are all 0; left out")) << sets.err;
  const auto a = gains_in("a"), b = gains_in("b"), c = gains_in("c");
  ASSERT_EQ(a.size(), 1U);
  EXPECT_EQ(a[0].name, "1");
  EXPECT_EQ(a[0].gain, b.at(0).gain);
  EXPECT_EQ(a[0].verdict, report::verdict::weak);  // pedestals that are not known
  EXPECT_EQ(c.at(0).orbits, a[0].orbits);
  // A course of the current for each set: nearly the same, and not to the bit.
  EXPECT_NE(c[0].gain, a[0].gain);
  EXPECT_NEAR(c[0].gain[1], a[0].gain[1], a[0].error);
}

TEST_F(own_data, bpms_have_their_numbers_or_their_place_and_none_is_lost) {
  ASSERT_EQ(fit("- --chamber bpm.chamber --output numbers", "12 1 2 3 4\n7 1 2 3 4\n").status, 0);
  ASSERT_EQ(fit("- --chamber bpm.chamber --output names", "12W 1 2 3 4\n07 nan 1 1 1\n").status, 0);
  const auto numbers = gains_in("numbers"), names = gains_in("names");
  ASSERT_EQ(numbers.size(), 2U);
  EXPECT_EQ(numbers[0].bpm, 7);
  EXPECT_EQ(numbers[1].name, "12");
  ASSERT_EQ(names.size(), 2U);
  EXPECT_EQ(names[0].bpm, 1);
  EXPECT_EQ(names[0].verdict, report::verdict::not_determined);
  EXPECT_EQ(names[1].name, "07");
  EXPECT_EQ(names[1].verdict, report::verdict::not_fitted);
}

TEST_F(own_data, what_cannot_be_used_is_one_line_and_leaves_nothing) {
  session::write_file(here.path() / "short", "1 2 3 4\n1 2 3\n");
  session::write_file(here.path() / "word", "BI BO TI TO\n1 2 x 4\n");
  const struct {
    const char* words;
    int status;
    const char* line;
  } cases[] = {
      {"--chamber bpm.chamber", 2, "FILE is required"},
      {"short", 2, "--chamber is required"},
      {"short --chamber nowhere", 2, "--chamber: "},
      {"short --chamber short", 2, "--chamber: short:1: "},
      {"short --chamber bpm.chamber --columns A,B", 2, "--columns: A,B, expected four columns"},
      {"short --chamber bpm.chamber --pedestals -1", 2, "--pedestals: -1, expected"},
      {"- - --chamber bpm.chamber", 2, "standard input cannot be read twice"},
      {"nowhere --chamber bpm.chamber", 1, "nowhere: No such file"},
      {". --chamber bpm.chamber", 1, ".: Is a directory"},
      {"short --chamber bpm.chamber", 1, "short:2: found 3 fields, expected 4 as in the first"},
      {"word --chamber bpm.chamber", 1, "word:2: found \"x\", expected signal 3 as a number"},
      {"word --columns A,BO,TI,TO --chamber bpm.chamber", 1, "word:1: no column A, expected"},
      {"- --chamber bpm.chamber", 1, "standard input: no rows, expected columns"},
  };
  for (const auto& [words, status, line] : cases) {
    SCOPED_TRACE(words);
    const auto done = fit(words + std::string{" --output left"});
    EXPECT_EQ(done.status, status);
    EXPECT_TRUE(contains(done.err, line)) << done.err;
    EXPECT_EQ(lines_of(done.err).size(), 1U) << done.err;
    EXPECT_EQ(done.out, "");
    EXPECT_FALSE(fs::exists(here.path() / "left"));
  }
}

TEST_F(own_data, a_file_that_cannot_be_written_is_named_and_the_others_follow) {
  fs::create_directories(here.path() / "run/gains.csv");
  const auto done = fit("- --chamber bpm.chamber --output run", "1 2 3 4\n");
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(contains(done.err, "cannot write run/gains.csv: ")) << done.err;
  EXPECT_TRUE(fs::exists(here.path() / "run/report.html"));
  const std::string record = session::read_file(here.path() / "run/run.json");
  EXPECT_TRUE(
      contains(record, "\"command\": \"butngain fit - --chamber bpm.chamber --output run\""));
  EXPECT_TRUE(contains(record, "\"exit_status\": 1"));
  // Its record has no dialog to be gone through again.
  const auto again =
      session::butngain(here.path(), {}, {.arguments = {"--repeat", "run/run.json"}});
  EXPECT_EQ(again.status, 2);
  EXPECT_TRUE(contains(again.err, "its command was \"butngain fit - ")) << again.err;
}

}  // namespace
