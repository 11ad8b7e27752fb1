// The program itself: what a shell sees of it.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "scratch.hpp"

namespace {

struct outcome {
  int status = -1;
  std::string out;
  std::string err;
};

outcome bpmsim(const scratch::directory& here, const std::string& arguments) {
  const std::string line =
      "cd " + here.path().string() + " && " BPMSIM " " + arguments + " >out 2>err";
  const int ended = std::system(line.c_str());  // NOLINT(*-env33-c): the shell is the point
  return {WIFEXITED(ended) ? WEXITSTATUS(ended) : -1, scratch::content(here / "out"),
          scratch::content(here / "err")};
}

TEST(bpmsim_program, unusable_options_are_told_in_one_line_with_status_2) {
  const scratch::directory here;
  struct wrong {
    const char* arguments;
    const char* text;
  };
  const wrong all[] = {
      {"", "A subcommand is required"},
      {"serie --bpms 3", "no subcommand \"serie\""},
      {"series --bpm 3", "--bpm"},
      {"series --bpms", "--bpms"},
      {"series --bpms three", "--bpms: expected a whole number, found \"three\""},
      {"series --bpms 0", "at least 1 BPM is needed, not 0"},
      {"series --spread nan", "--spread: expected a number, found \"nan\""},
      {"series --spread -5", "spread in x must not be negative"},
      {"series --spread 1 2 3", "3"},
      {"series --orbit 40 -.5e2", "closed orbit and oscillation reach"},
      {"series --shape round", "--shape: expected one of uniform, gaussian, found \"round\""},
      {"series --seed -1", "--seed: expected a whole number from 0"},
      {"series --dead 3", "--dead: expected BPM:BUTTON"},
      {"series --gain 3:1", "--gain: expected BPM:BUTTON:VALUE, found \"3:1\""},
      {"compare truth.dat", "result is required"}};
  for (const auto& [arguments, text] : all) {
    SCOPED_TRACE(arguments);
    const outcome o = bpmsim(here, arguments);
    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(o.err.rfind("bpmsim: ", 0), 0U) << o.err;
    EXPECT_NE(o.err.find(text), std::string::npos) << o.err;
    EXPECT_EQ(o.err.find('\n'), o.err.size() - 1) << o.err;
  }
  EXPECT_FALSE(std::filesystem::exists(here / "inputs_1000random_xy_and_timing_offset"));
}

TEST(bpmsim_program, help_and_version_are_no_error) {
  const scratch::directory here;
  for (const char* arguments : {"--help", "series --help", "compare -h", "--version"}) {
    const outcome o = bpmsim(here, arguments);
    EXPECT_EQ(o.status, 0) << arguments;
    EXPECT_EQ(o.err, "");
    EXPECT_FALSE(o.out.empty());
  }
}

TEST(bpmsim_program, options_reach_the_series_in_their_units) {
  const scratch::directory here;
  const outcome o = bpmsim(here,
                           "series --dir deep/er --bpms 2 --orbits 5 --first 99 --spread 0 "
                           "--orbit 2 -1.5 --gain 1:1:0.75 2:4:1.25 --dead 2:1 --gain-spread 0 "
                           "--amplitude 1 0 --tune 0.5 --radius 30 --signal 1000000");
  ASSERT_EQ(o.status, 0) << o.err;
  const std::string directory = here / "deep/er/inputs_1000random_xy_and_timing_offset";
  const std::string first = scratch::content(directory + "/exp_99.txt");
  EXPECT_NE(first.find("\n  3.000000000e-03 -1.500000000e-03 "), std::string::npos) << first;
  EXPECT_NE(first.find("\n  1.000000000e-03 -1.500000000e-03 "), std::string::npos) << first;
  const std::string second = scratch::content(directory + "/exp_100.txt");
  EXPECT_NE(second.find("e-03           0 "), std::string::npos) << second;
  const std::string truth = scratch::content(directory + "/truth.dat");
  EXPECT_NE(truth.find("round pipe of radius 30 mm"), std::string::npos);
  EXPECT_NE(truth.find("EXP_100"), std::string::npos);
  EXPECT_NE(truth.find(" 1.25 "), std::string::npos);
}

}  // namespace
