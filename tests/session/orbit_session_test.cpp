// Whole sessions on orbit data, through the real binary and a simulated orbit archive.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "session_harness.hpp"

namespace {

namespace fs = std::filesystem;
using session::contains;
using session::read_file;

// A facility tree with six orbits, numbers 41..46, of 50 BPMs, and a command file that lists them.
struct orbit_tree {
  session::scratch here;
  session::settings how = session::at_site(here.path());
  orbit_tree() {
    session::simulate(here.path(), "orbits --orbits 6 --first 41 --bpms 50 --signal 100000", how);
  }
  session::outcome run(const std::vector<std::string>& answers) const {
    return session::butngain(here.path(), answers, how);
  }
  void write(const std::string& name, const std::string& text) const {
    session::write_file(here.path() / name, text);
  }
};

// Orbit data leave the range of BPMs open, and the session ends where it needs that range. What it
// wrote until then is on disk.
void expect_the_required_end(const orbit_tree& tree, const session::outcome& run) {
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "butngain: run-time error: bpm_count is used before it is given a value\n");
  const fs::path results = tree.here.run_directory();
  EXPECT_EQ(read_file(results / "orbit.dat"), "       bpm       avg_x       avg_y\n");
  EXPECT_TRUE(fs::exists(results / "file_list.dat"));
  // The last line of all: the check line of BPM 50.
  EXPECT_TRUE(contains(run.out, "\n butngain,1,50 "));
}

TEST(orbit_session, reads_the_listed_orbits_and_ends_at_the_bpm_loop) {
  // An empty answer names the usual command file.
  for (const char* name : {"", "bpm_gain_anal_1.input"}) {
    const orbit_tree tree;
    const auto run = tree.run({"O", name, "11", "-1"});
    expect_the_required_end(tree, run);
    EXPECT_TRUE(contains(run.out, " Data written to file bpm_gain_anal_1.input_out\n"));
    // Nobody names the session's own out_file: a hundred NUL characters stand for it.
    EXPECT_TRUE(contains(run.out, " Data written to file " + std::string(100, '\0') + "\n"));
    const std::string listed = read_file(tree.here.path() / "bpm_gain_anal_1.input_out");
    EXPECT_TRUE(contains(listed, "\n     6          46     10.0000    50  ")) << listed;

    // The check line shows BPM 50 of the first orbit: the last line of its button file.
    const auto file = read_file(tree.here.path() / "machine_data/orbit/00/butns.41");
    auto signals = session::numbers_of(session::lines_of(file).back());
    ASSERT_EQ(signals.size(), 5U);
    signals.erase(signals.begin());
    EXPECT_EQ(session::numbers_of(run.out.substr(run.out.find(" butngain,1,50 ") + 15)), signals);
  }
}

TEST(orbit_session, offers_no_bpm_but_all_and_zero) {
  const orbit_tree tree;
  const auto run = tree.run({"O", "", "11", "12", "50", "-2", "0"});
  expect_the_required_end(tree, run);
  std::string row;
  for (int i = 0; i < 20; ++i) row += "   0";
  for (const char* refused : {"          12", "          50", "          -2"}) {
    EXPECT_TRUE(contains(run.out, std::string{" No data for bpm "} + refused +
                                      "  choose another\n Available bpms are: \n" + row + "\n"));
  }
  EXPECT_FALSE(contains(run.out, " No data for bpm            0"));
}

TEST(orbit_session, a_list_with_gaps_leaves_empty_slots) {
  const orbit_tree tree;
  tree.write("gaps.input", "&bpm_gain_anal_params\n fit_bpm_idx = 50\n orbit(2) = 41, , 42\n/\n");
  const auto run = tree.run({"O", "gaps.input", "0", "-1"});
  expect_the_required_end(tree, run);
  // Orbit 1 is empty, so the check line shows zeros.
  EXPECT_TRUE(
      contains(run.out, " butngain,1,50       0.0000      0.0000      0.0000      0.0000\n"));
  const auto lines = session::lines_of(read_file(tree.here.path() / "gaps.input_out"));
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[2].substr(0, 38), "     2          41      1.0000    50  ");
  EXPECT_EQ(lines[3].substr(0, 38), "     4          42      1.0000    50  ");
}

TEST(orbit_session, a_list_file_offers_bpms_1_to_100) {
  const orbit_tree tree;
  tree.write("steering.cal", "cu1 = -100\n! pairs\n41 42 0.98 0.01\nno pair\n43 44 1.01 0.01\n");
  const auto run = tree.run({"O", "steering.cal", "100", "-1"});
  expect_the_required_end(tree, run);
  EXPECT_TRUE(contains(run.out, " Error steering.cal:4: expected"));
  EXPECT_TRUE(contains(run.out, " index=         100 fit_bpm_idx(bpm_index)=         100\n"));
  EXPECT_EQ(session::lines_of(read_file(tree.here.path() / "steering.cal_out")).size(), 6U);
}

// Names as Tab completes them.
TEST(orbit_session, a_command_file_behind_a_variable_opens) {
  const orbit_tree tree;
  tree.write("one.input", "&bpm_gain_anal_params\n fit_bpm_idx = 50\n orbit = 41\n/\n");
  const auto run = tree.run({"O", "$NOT_SET_HERE/one.input", "$KOVR_ONLINE/one.input", "0", "-1"});
  expect_the_required_end(tree, run);
  EXPECT_TRUE(contains(run.out, "environment variable NOT_SET_HERE is not set\n")) << run.out;
  EXPECT_TRUE(fs::exists(tree.here.path() / "one.input_out"));
}

TEST(orbit_session, bad_input_ends_with_one_clear_line) {
  const orbit_tree tree;
  tree.write("bad.input", "&bpm_gain_anal_params\n orbit = 41, 42x\n/\n");
  tree.write("absent.input", "&bpm_gain_anal_params\n fit_bpm_idx = 1 orbit = 41, 47\n/\n");
  const struct {
    std::vector<std::string> answers;
    const char* message;
    const char* shown;
  } ends[] = {
      {{"O", "missing.input", "also_missing.input"},
       "end of input at \"Input command file :\"",
       " ERROR: CANNOT OPEN FILE: also_missing.input\n"},
      {{"O", "bad.input"},
       "bad.input:2: orbit: found \"42x\", expected a whole number",
       " ERROR READING bad.input\n"},
      {{"O", "", "101"}, "subscript 101 of fit_bpm_idx is outside 0..100", " Index ? "},
      {{"O", "", "-1"}, "subscript -1 of fit_bpm_idx is outside 0..100", " Index ? "},
      {{"O", "absent.input", "0"},
       "/00/butns.47, the button file of orbit 2 in the list: No such file or directory",
       " fit_bpm_idx(bpm_index)=           1\n"},
  };
  for (const auto& [answers, message, shown] : ends) {
    const auto run = tree.run(answers);
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_TRUE(contains(run.err, std::string{message} + "\n")) << run.err;
    EXPECT_EQ(session::lines_of(run.err).size(), 1U) << run.err;
    EXPECT_TRUE(contains(run.out, shown)) << run.out;
  }
}

}  // namespace
