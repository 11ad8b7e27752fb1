// Sessions on several threads: every byte as on one.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "session_harness.hpp"

namespace {

namespace fs = std::filesystem;
using session::contains;

using texts = std::vector<std::string>;

// All that a session leaves, by name: its outputs and its files, without its date. Two files of it
// tell times and threads.
using left = std::map<std::string, std::string>;

left session_with(const session::scratch& here, const texts& answers, const texts& options) {
  fs::remove_all(here.path() / "run");
  session::settings how = session::at_site(here.path() / "t/online");
  how.arguments = options;
  how.arguments.insert(how.arguments.end(), {"--output", "run"});
  const auto done = session::butngain(here.path(), answers, how);
  left all{{"status", std::to_string(done.status)}, {"out", done.out}, {"err", done.err}};
  std::string name;
  for (const auto& entry : fs::recursive_directory_iterator(here.path() / "run")) {
    if (entry.is_directory()) {
      name = entry.path().filename();
    } else if (entry.path().filename() != "run.json") {
      all[entry.path().filename()] = session::read_file(entry.path());
    }
  }
  for (auto& [file, text] : all) {
    for (std::size_t at = 0; (at = text.find(name, at)) != std::string::npos;) {
      text.replace(at, name.size(), "RUN");
    }
  }
  std::string& out = all["out"];
  out.erase(0, out.find('\n') + 1);  // date and time
  return all;
}

void expect_same(const left& one, const left& other) {
  EXPECT_EQ(one.size(), other.size());
  for (const auto& [name, text] : one) {
    const auto found = other.find(name);
    if (found == other.end()) {
      ADD_FAILURE() << name << " is missing";
    } else if (text != found->second) {
      ADD_FAILURE() << name << " differs:\n"
                    << text.substr(0, 2000) << "\nand\n"
                    << found->second.substr(0, 2000);
    }
  }
}

TEST(side_by_side_session, leaves_every_byte_as_on_one_thread) {
  const session::scratch here;
  session::simulate(here.path(), "series --bpms 9 --orbits 150 --noise 1e-4 --seed 5");
  session::simulate(here.path(), "tree t --bpms 12 --turns 150 --dead 3:2 --seed 3");
  // A BPM without its first orbits, one without orbits, one whose beam stands still, one with a
  // value that cannot be read: warnings, and lines about orbits, come between those of the others.
  const fs::path series = here.path() / "inputs_1000random_xy_and_timing_offset";
  std::string silent, still;
  for (int orbit = 0; orbit < 150; ++orbit) {
    silent +=
        orbit % 7 == 3 ? "0 0 0 0 0 0 1 1 1 1\n" : "1e-3 0 1000000 1100000 900000 950000 1 1 1 1\n";
    still += "0 0 1000000 1000000 1000000 1000000 1 1 1 1\n";
  }
  session::write_file(series / "exp_2.txt", silent);
  session::write_file(series / "exp_5.txt", still);
  session::write_file(series / "exp_6.txt", "0 0 0 0 0 0 1 1 1 1\n" + still);
  const struct {
    const char* what;
    texts answers;
    const char* told;  // on standard error
  } cases[] = {{"series", {"F", "exp_0.txt", "exp_8.txt", "no"}, "BPM 6 (EXP_5): "},
               {"raw", {"T", "1000", "4566", "3", "1", "2", "", "n", "-1", "no"}, "not fitted"},
               {"one BPM", {"T", "1000", "4566", "3", "1", "2", "", "n", "28", "no"}, "1 BPM"},
               {"several sets",
                {"T", "1000", "4566", "3", "1", "2", "", "y", "1000", "4566", "1", "1", "2", "",
                 "n", "-1", "no"},
                "fitted"}};
  for (const auto& [what, answers, told] : cases) {
    SCOPED_TRACE(what);
    const auto alone = session_with(here, answers, {});
    EXPECT_EQ(alone.at("status"), "0");
    EXPECT_TRUE(contains(alone.at("err"), told)) << alone.at("err");
    for (const char* threads : {"2", "7"}) {
      SCOPED_TRACE(threads);
      expect_same(alone, session_with(here, answers, {"--jobs", threads}));
    }
  }
}

// Ended between two BPMs, with each that was told whole in every table.
TEST(side_by_side_session, that_is_terminated_has_whole_bpms_in_order) {
  const session::scratch here;
  session::simulate(here.path(), "series --bpms 60 --orbits 400 --seed 5");
  for (const char* threads : {"1", "3"}) {
    SCOPED_TRACE(threads);
    const auto done = session::run(
        {"/bin/sh", "-c",
         "\"$0\" --batch --data F --first exp_0.txt --last exp_59.txt --jobs " +
             std::string{threads} +
             " > out 2> err & while ! test -s */EXP_4.dat_fit; do :; done; kill -TERM $!; wait $!",
         BUTNGAIN_BINARY},
        here.path(), "", {.seconds = 60});
    EXPECT_EQ(done.status, 128 + SIGTERM) << session::read_file(here.path() / "err");
    EXPECT_TRUE(contains(session::read_file(here.path() / "err"),
                         "butngain: terminated; what was fitted so far is written\n"));
    const fs::path run = here.run_directory();
    const auto table = session::lines_of(session::read_file(run / "orbit.dat"));
    ASSERT_FALSE(table.empty());
    const std::size_t bpms = table.size() - 1;
    EXPECT_GE(bpms, 5U);
    EXPECT_LT(bpms, 60U);
    for (std::size_t i = 0; i < 60; ++i) {
      const std::string name = "EXP_" + std::to_string(i);
      EXPECT_EQ(fs::exists(run / (name + ".dat")), i < bpms) << name;
      if (i >= bpms) continue;
      EXPECT_EQ(session::numbers_of(table[i + 1]).at(0), static_cast<double>(i + 1));
      EXPECT_EQ(session::lines_of(session::read_file(run / (name + ".dat"))).size(), 413U);
    }
    fs::remove_all(run);
  }
}

TEST(jobs_option, takes_whole_numbers_of_threads) {
  const session::scratch here;
  for (const char* wrong : {"0", "-1", "two", "1e3", "4096"}) {
    const auto refused = session::butngain(here.path(), {}, {.arguments = {"--jobs", wrong}});
    EXPECT_EQ(refused.status, 2) << wrong;
    EXPECT_EQ(session::lines_of(refused.err).size(), 1U) << refused.err;
    EXPECT_TRUE(contains(refused.err, "--jobs")) << refused.err;
  }
}

}  // namespace
