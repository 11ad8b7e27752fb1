// Whole sessions on synthetic data, through the real binary.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "session_harness.hpp"

namespace {

namespace fs = std::filesystem;
using session::contains;
using session::lines_of;
using session::numbers_of;
using session::read_file;

constexpr const char* series_dir = "inputs_1000random_xy_and_timing_offset";
constexpr const char* data_label = "inputs_1000random_xy_and_timing_offset.dat";

// n orbits of one BPM, nearly centred, with unit gains: enough for what does not look at gains.
std::string plain_orbits(int n) {
  std::string text = "x y b1 b2 b3 b4 g1 g2 g3 g4\n";
  for (int i = 0; i < n; ++i) {
    const int dx = (i * 37 % 101) - 50;
    const int dy = (i * 59 % 97) - 48;
    text += "0.001 0.002 ";
    for (const auto& [sx, sy] : {std::pair{-1, -1}, {1, -1}, {-1, 1}, {1, 1}}) {
      const int skew = sx * sy * dx * dy / 4;
      text += std::to_string(100000 + (200 * sx * dx) + (200 * sy * dy) + skew) + " ";
    }
    text += "1.0 1.0 1.0 1.0\n";
  }
  return text;
}

void put_series_file(const fs::path& base, int number, const std::string& text) {
  session::write_file(base / series_dir / ("exp_" + std::to_string(number) + ".txt"), text);
}

// The lines of a text that hold a part.
std::vector<std::string> lines_with(const std::string& text, const std::string& part) {
  std::vector<std::string> found;
  for (const std::string& line : lines_of(text)) {
    if (contains(line, part)) found.push_back(line);
  }
  return found;
}

TEST(synthetic_session, recovers_the_gains_that_the_simulator_put_in) {
  const session::scratch here;
  session::simulate(here.path(), "series --bpms 3 --orbits 400 --seed 7");
  const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_2.txt", "no"}, {});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(session::without_line_of_files(run.err),
            "butngain: no table of these chambers: calibrated as in a round pipe of 45 mm radius; "
            "name yours with --chamber FILE\n"
            "butngain: 3 BPMs fitted: 3 determined, 0 weak, 0 suspect, 0 not determined\n");

  const fs::path results = here.run_directory();
  const auto table = lines_of(read_file(results / (std::string{data_label} + "_err")));
  ASSERT_EQ(table.size(), 6U);  // file list of two lines, caption, three BPMs
  for (std::size_t i = 3; i < table.size(); ++i) {
    const auto number = numbers_of(table[i]);
    // bpm, four fits of (four ratios, chi-square), averages, scatters, truth
    ASSERT_EQ(number.size(), 1U + 20 + 4 + 4 + 4) << table[i];
    for (std::size_t k = 0; k < 4; ++k) {
      const double truth = number[29 + k] / number[29];
      EXPECT_NEAR(number[21 + k], truth, 1e-3) << "BPM " << number[0] << " button " << k + 1;
    }
  }
  for (const char* name : {"EXP_0.dat", "EXP_2.dat", "EXP_1.dat_fit", "orbit.dat"}) {
    EXPECT_TRUE(fs::exists(results / name)) << name;
  }
}

TEST(synthetic_session, transcript_and_side_files) {
  const session::scratch here;
  put_series_file(here.path(), 4, "0.1 0.2 400 100 200 300 1.0 2.0 4.0 0.5\n" + plain_orbits(2));
  const auto run = session::butngain(here.path(), {"f", "exp_4.txt", "", "no"});
  ASSERT_EQ(run.status, 0) << run.err;
  const auto lines = lines_of(run.out);

  const fs::path results = here.run_directory();
  const std::string name = results.filename().string();
  ASSERT_GE(lines.size(), 4U);
  EXPECT_EQ(lines[0].substr(0, 21), "   date = " + name.substr(0, 8) + "   ");
  EXPECT_EQ(lines[0].substr(21, 6), name.substr(9));
  EXPECT_EQ(lines[0].size(), 31U);
  EXPECT_EQ(lines[1], " create directory = " + name);
  EXPECT_EQ(lines[2],
            " TBT data (T), Orbit data(O) or fake data (F) ?  First fake file name (e.g. exp_0.txt)"
            " Last fake file name (e.g.  exp_120.txt) truth =       1.0000      1.0000      1.0000"
            "      1.0000");
  EXPECT_EQ(lines[3], " inverse =       1.0000      1.0000      1.0000      1.0000");
  EXPECT_EQ(lines[4], " butngain,1,50       0.0000      0.0000      0.0000      0.0000");
  EXPECT_EQ(lines[5], "  no data for bpm            0");
  EXPECT_EQ(lines[6], "         3  orbits for BPM           1");
  EXPECT_EQ(lines[7], "           1 EXP_4");
  EXPECT_TRUE(contains(run.out, "\noutput written to directory " + name + "\n"));
  EXPECT_EQ(lines.back(), " Postscript (p) or Gif (g) ? <CR = no>:");

  EXPECT_EQ(read_file(results / "file_list.dat"), std::string(100, '\0') + "\n");
  const auto orbit_table = lines_of(read_file(results / "orbit.dat"));
  ASSERT_EQ(orbit_table.size(), 2U);
  EXPECT_EQ(orbit_table[0], "       bpm       avg_x       avg_y");

  // The diagnostic file: a line for the BPM, then the signals of every kept orbit.
  const auto diagnostic = lines_of(read_file(here.path() / "fort.11"));
  ASSERT_EQ(diagnostic.size(), 4U);
  EXPECT_EQ(diagnostic[0], " BPM =            1");
  EXPECT_EQ(diagnostic[1], "  0.4000D+03  0.1000D+03  0.2000D+03  0.3000D+03");

  // The echo holds whole 300-character lines, comments left out.
  const auto echo = lines_of(read_file(here.path() / "fort.67"));
  ASSERT_EQ(echo.size(), 3U);
  EXPECT_EQ(echo[0].size(), 300U);
}

// A BPM silent in orbit 1 is passed over whatever comes later; silent later orbits are dropped.
TEST(synthetic_session, orbits_without_signal) {
  const session::scratch here;
  const std::string silent = "0 0 0 0 0 0 1 1 1 1\n";
  const std::string orbit = "0 0 1000 1100 1200 1010 1 1 1 1\n";
  put_series_file(here.path(), 0, silent + plain_orbits(30));
  put_series_file(here.path(), 1, orbit + silent + plain_orbits(29));
  const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_1.txt", "no"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(contains(run.out, "  no data for bpm            1\n"));
  EXPECT_TRUE(contains(run.out, " No data for bpm           2  on orbit           2\n"));
  EXPECT_TRUE(contains(run.out, "        30  orbits for BPM           2\n"));
  EXPECT_FALSE(fs::exists(here.run_directory() / "EXP_0.dat"));
  EXPECT_EQ(lines_with(read_file(here.run_directory() / "EXP_1.dat"), "D+").size(), 30U + 2);
}

// Short lines end a file; a value of the wrong type leaves it and all behind it as they were.
TEST(synthetic_session, short_and_wrong_lines) {
  const session::scratch here;
  put_series_file(here.path(), 0,
                  "0.5 0.6 11 12 13 14 1 1 1 1\n"
                  "0.7 0.8 21 oops 23 24 2 2 2 2\n"
                  "0.9, 1.0 2*31 33 34 1d0 2*1.5 1\n"
                  "1 2 41 42 43\n"
                  "0 0 51 52 53 54 1 1 1 1\n");
  const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "", "no"});
  const auto echo = lines_of(read_file(here.path() / "fort.11"));
  ASSERT_EQ(echo.size(), 4U) << run.out << run.err;
  EXPECT_EQ(echo[2], "  0.2100D+02  0.1200D+02  0.1300D+02  0.1400D+02");
  EXPECT_EQ(echo[3], "  0.3100D+02  0.3100D+02  0.3300D+02  0.3400D+02");
}

// One line on standard error for each file that was not used as a whole; the tables stay silent.
TEST(synthetic_session, what_of_a_file_could_not_be_used_is_told) {
  const std::string good = "0.1 0.2 11 12 13 14 1 1 1 1\n";
  const struct {
    const char* what;
    std::string text;
    const char* told;  // behind the path; empty: nothing is told
  } cases[] = {
      {"blank lines at the end", good + "\n \n", ""},
      {"a header", "x y\n" + good, ""},
      {"a blank line between", good + "\n" + good + "\n" + good,
       ": line 2 ends the file, lines not read behind it: 2\n"},
      {"a short line", good + "1 2 3\n" + good,
       ":2: found \"1 2 3\", expected ten values; line 2 ends the file, lines not read behind it: "
       "1\n"},
      {"two words", good + "0.1 y 1 2 3 4 1 1 1 1\n" + good + "0 0 1 2 3 ? 1 1 1 1\n",
       ":2: found \"y\", expected a number; lines with faults: 2\n"},
      {"an exponent in a whole number", "0 0 1.0E6 2 3 4 1 1 1 1\n",
       ":1: found \"1.0E6\", expected a whole number such as 1000000\n"},
      {"a byte-order mark", "\xEF\xBB\xBF" + good,
       ":1: found a byte-order mark before \"0.1\", expected a number\n"},
      {"old line ends", "x y\r0 0 1 2 3 4 1 1 1 1\r",
       ":1: found \"x y\", expected LF or CR LF behind it, not CR; no orbit\n"},
      {"control characters", good + "\x1b[2J\n", ":2: found \"\\x1b[2J\", expected a number\n"},
      {"nothing", "", ": no orbit\n"}};
  const session::scratch here;
  std::string told;
  int number = 0;
  for (const auto& one : cases) {
    if (one.told[0] != '\0') {
      told += std::string{"butngain: ./"} + series_dir + "/exp_" + std::to_string(number) + ".txt" +
              one.told;
    }
    put_series_file(here.path(), number++, one.text);
  }
  put_series_file(here.path(), number, "");
  const auto run = session::butngain(
      here.path(), {"F", "exp_0.txt", "exp_" + std::to_string(number) + ".txt", "no"});
  told += std::string{"butngain: ./"} + series_dir + "/exp_" + std::to_string(number) +
          ".txt: no orbit\n";
  EXPECT_EQ(run.err.substr(0, told.size()), told);
  EXPECT_TRUE(contains(run.err, ": the last file has no orbit, and its number holds for all\n"));
}

// The file has more orbits than the thousand that are used.
TEST(synthetic_session, a_first_name_without_a_number_is_asked_again) {
  const session::scratch here;
  put_series_file(here.path(), 3, plain_orbits(1500));
  const auto run = session::butngain(
      here.path(), {"F", "exp_3", "exp_a.txt", "", "exp_-1.txt", "exp_3.txt", "", "no"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_TRUE(contains(run.out, "      1000  orbits for BPM           1\n"));
  for (const char* answer : {"exp_3", "exp_a.txt", "", "exp_-1.txt"}) {
    EXPECT_TRUE(contains(run.out, " \"" + std::string{answer} +
                                      "\" is not a name with the first number of a series"))
        << run.out;
  }
}

struct refused_case {
  const char* what;
  std::vector<std::string> answers;
  std::string message;
};

TEST(synthetic_session, what_cannot_go_on_says_so_in_one_line_and_ends_with_status_1) {
  const session::scratch here;
  put_series_file(here.path(), 0, plain_orbits(5));
  put_series_file(here.path(), 1, plain_orbits(3001));
  fs::create_directory(here.path() / series_dir / "exp_2.txt");
  fs::create_symlink("/dev/zero", here.path() / series_dir / "exp_3.txt");
  const std::vector<refused_case> cases = {
      {"no answer at all",
       {},
       R"~(end of input at "TBT data (T), Orbit data(O) or fake data (F) ?")~"},
      {"no first name", {"F"}, R"~(end of input at "First fake file name (e.g. exp_0.txt)")~"},
      {"no last name",
       {"F", "exp_0.txt"},
       R"~(end of input at "Last fake file name (e.g.  exp_120.txt)")~"},
      {"3001 orbits", {"F", "exp_1.txt", ""}, "subscript 3001 of orbit_data is outside 1..3000"},
      {"a file without line ends", {"F", "exp_3.txt", ""}, "exp_3.txt:1: no line end within"},
      {"a directory as data file", {"F", "exp_2.txt", ""}, "exp_2.txt: Is a directory"},
      {"no BPM chosen", {"X"}, R"~(end of input at "which bpm ? (-1 for all)")~"},
      {"other data and all BPMs", {"X", "-1"}, "bpm_count is used before it is given a value"}};
  for (const auto& [what, answers, message] : cases) {
    SCOPED_TRACE(what);
    const auto run = session::butngain(here.path(), answers);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.err, message)) << run.err;
    EXPECT_EQ(lines_of(run.err).size(), 1U) << run.err;
  }
}

TEST(synthetic_session, unusable_bpm_answers_are_told_and_asked_again) {
  const session::scratch here;
  const auto run = session::butngain(here.path(), {"", "q", "abc", "7", "0"});
  EXPECT_EQ(run.status, 1);  // no data: the loop's bound was never given
  EXPECT_TRUE(contains(run.out, R"("abc" is not a whole number)")) << run.out;
  EXPECT_TRUE(contains(run.out,
                       " No data for bpm            7  choose another\n"
                       " Available bpms are: \n   0   0   0"));
  EXPECT_TRUE(contains(run.out, " Data written to file " + std::string(100, '\0') + "\n"));
}

TEST(synthetic_session, a_full_disk_or_a_missing_directory_never_ends_in_success) {
  const session::scratch here;
  put_series_file(here.path(), 0, plain_orbits(400));
  fs::create_symlink("/dev/full", here.path() / "fort.67");
  const auto full = session::butngain(here.path(), {"F", "exp_0.txt", "", "no"});
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.err, "butngain: run-time error: writing fort.67: No space left on device\n");

  fs::remove(here.path() / "fort.67");
  const auto silent = session::butngain(here.path(), {"F", "exp_0.txt", "", "no"},
                                        {.standard_output = "/dev/full"});
  EXPECT_EQ(silent.status, 1);
  EXPECT_TRUE(contains(silent.err, "writing standard output: No space left on device"));

  // A working directory that is gone: making the run's directory fails silently, the first open
  // does not.
  const auto gone = session::run(
      {"/bin/sh", "-c", "mkdir gone && cd gone && rmdir ../gone && exec \"$0\"", BUTNGAIN_BINARY},
      here.path(), "X\n-1\n");
  EXPECT_EQ(gone.status, 1);
  EXPECT_FALSE(contains(gone.out, "create directory"));
  EXPECT_TRUE(contains(gone.err, "orbit.dat for writing: its directory could not be made: No such"))
      << gone.err;
}

// The directory cannot be made for want of permission; a user told that a file "does not exist"
// looks in the wrong place. The superuser may write anywhere and becomes somebody else first.
TEST(synthetic_session, a_working_directory_without_permission_is_named_as_the_reason) {
  const session::scratch here;
  fs::permissions(here.path(), fs::perms{0555});
  std::vector<std::string> command{BUTNGAIN_BINARY};
  if (geteuid() == 0) {
    command = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
               BUTNGAIN_BINARY};
    if (!fs::exists(command[0])) GTEST_SKIP() << "no setpriv here";
  }
  const auto run = session::run(command, here.path(), "X\n-1\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.err,
                       "orbit.dat for writing: its directory could not be made: "
                       "Permission denied\n"))
      << run.err;
  EXPECT_EQ(lines_of(run.err).size(), 1U) << run.err;
}

TEST(synthetic_session, the_store_has_room_for_5000_files) {
  const session::scratch here;
  for (int number = 0; number <= 5000; ++number) {
    put_series_file(here.path(), number, "0 0 1 2 3 4 1 1 1 1\n");
  }
  const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_9999.txt"});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.out, " k =      5001  > n_bpms\n"));
  EXPECT_TRUE(contains(run.err, "subscript 5001 of dets is outside 1..5000")) << run.err;
}

TEST(synthetic_session, waits_for_a_file_that_is_still_to_come) {
  const session::scratch here;
  put_series_file(here.path(), 0, plain_orbits(40));
  fs::rename(here.path() / series_dir / "exp_0.txt", here.path() / "later.txt");
  const auto waiting =
      session::butngain(here.path(), {"F", "exp_0.txt", "exp_1.txt", "no"}, {.seconds = 1});
  EXPECT_TRUE(waiting.timed_out);
  EXPECT_EQ(waiting.err, std::string{"butngain: waiting for ./"} + series_dir +
                             "/exp_0.txt; the last file asked for is exp_1.txt\n");

  const std::string bring =
      std::string{"(sleep 0.3; mv later.txt "} + series_dir + "/exp_0.txt) & exec \"$0\"";
  const auto come = session::run({"/bin/sh", "-c", bring, BUTNGAIN_BINARY}, here.path(),
                                 "F\nexp_0.txt\nexp_1.txt\nno\n");
  EXPECT_EQ(come.status, 0) << come.err;  // exp_1 is missing but last, so the series ends there
  EXPECT_TRUE(
      contains(come.err, "/exp_1.txt, the last file asked for, is not there; files read: 1"))
      << come.err;
}

}  // namespace
