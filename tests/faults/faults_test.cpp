// What a program does when the system lets it down. The faults come from fault_shim.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "session_harness.hpp"

namespace {

namespace fs = std::filesystem;
using session::contains;
using session::read_file;
using std::to_string;
using texts = std::vector<std::string>;

// A call that fails: which one, on which file, from 1, and why.
struct fault {
  std::string call;
  std::string on;
  int at = 1;
  int why = EIO;
  bool stays = false;
};

session::settings with(const fault& f, const session::scratch& here) {
  session::settings how;
  how.environment = {{"LD_PRELOAD", FAULT_SHIM},
                     {"FAULT_CALL", f.call},
                     {"FAULT_ON", f.on},
                     {"FAULT_AT", to_string(f.at)},
                     {"FAULT_WHY", to_string(f.why)},
                     {"FAULT_STAYS", f.stays ? "1" : ""},
                     {"FAULT_PATIENCE", "10"},
                     {"KOVR_ONLINE", here / "t/online"}};
  return how;
}

// A preloaded library comes before the sanitizer's, which then refuses to begin.
constexpr bool shim_loads =
#ifdef __SANITIZE_ADDRESS__
    false;
#else
    true;
#endif

// What sessions read: raw data with an index, a text run, a series.
void make_inputs(const session::scratch& here) {
  const texts made[] = {{"raw", "--tree", "t/online", "--run", "4565", "--runs", "2", "--bpms", "4",
                         "--turns", "1500"},
                        {"text", "--bpms", "2", "--turns", "1500"},
                        {"series", "--bpms", "2", "--orbits", "900"}};
  for (const texts& arguments : made) {
    const auto run = session::bpmsim(here.path(), arguments);
    ASSERT_EQ(run.status, 0) << run.err;
  }
}

// A session that took half a file for the whole would end with gains, and status 0.
TEST(faults, a_read_that_fails_is_no_end_of_file) {
  if (!shim_loads) GTEST_SKIP() << "built with a sanitizer, which comes first";
  const session::scratch here;
  make_inputs(here);
  const struct {
    const char* what;
    fault f;
    texts answers;
    const char* told;
  } cases[] = {
      {"raw data",
       {"read", "04/RD-004566.dat", 2},
       {"T", "1000", "4566", "3"},
       "RD-004566.dat: reading failed at byte 262144: Input/output error\n"},
      {"plain run",
       {"fread", "RD-004567.dat", 3},
       {"T", "0", "./RD-004567.dat", "n", "-1", "no"},
       "reading failed at byte 65536: Input/output error\n"},
      {"series",
       {"fread", "exp_1.txt", 2},
       {"F", "exp_0.txt", "exp_1.txt", "no"},
       "exp_1.txt:403: reading failed at byte 65536: Input/output error\n"},
      {"run index",
       {"fread", "tbt.idx", 3},
       {"T", "0", "-1"},
       "tbt.idx:0: reading failed at byte 0: Input/output error"},
      {"a series' folder",
       {"stat", "exp_0.txt", 1},
       {"F", "exp_0.txt", "exp_1.txt", "no"},
       "exp_0.txt: Input/output error\n"},
  };
  for (const auto& [what, f, answers, told] : cases) {
    SCOPED_TRACE(what);
    const auto run = session::butngain(here.path(), answers, with(f, here));
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    EXPECT_TRUE(contains(run.err + run.out, told)) << run.out << run.err;
    EXPECT_TRUE(here.run_directory().empty() || !fs::exists(here.run_directory() / "_out"));
  }
  const auto dump = session::run({KBPM_DUMP_BINARY, here / "t/online/kbpmII/raw/04/RD-004566.dat"},
                                 here.path(), "", with({"read", "RD-004566.dat", 2}, here));
  EXPECT_EQ(dump.status, 1);
  EXPECT_TRUE(contains(dump.err, "reading failed at byte 262144: Input/output error\n"))
      << dump.err;
  // Standard input: /proc/self/mem opens, and its first byte is nobody's.
  const auto answers =
      session::run({"/bin/sh", "-c", BUTNGAIN_BINARY " < /proc/self/mem"}, here.path(), "");
  EXPECT_EQ(answers.status, 1);
  EXPECT_TRUE(contains(answers.err, "error: reading standard input: Input/output error\n"))
      << answers.err;
}

// The last reads of a series are those of its checksum: the gains are right without it, but the record
// must not be short of it in silence.
TEST(faults, a_checksum_that_cannot_be_made_is_told) {
  if (!shim_loads) GTEST_SKIP() << "built with a sanitizer, which comes first";
  const session::scratch inputs;
  make_inputs(inputs);
  int without = 0;
  for (int at = 1; at <= 12; ++at) {
    const session::scratch here;
    fs::create_directory_symlink(inputs.path() / "inputs_1000random_xy_and_timing_offset",
                                 here.path() / "inputs_1000random_xy_and_timing_offset");
    const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_1.txt", "no"},
                                       with({"fread", "exp_1.txt", at}, here));
    const bool told = contains(run.err, "exp_1.txt cannot be read once more: run.json has no");
    if (run.status != 0) continue;  // of the readings
    const std::string record = session::read_file(here.run_directory() / "run.json");
    EXPECT_EQ(contains(record, "\"sha256\": null"), told) << at << run.err;
    without += told ? 1 : 0;
  }
  EXPECT_GE(without, 1);
}

// Copied before it was complete, say: what is missing repeats the last values, and a fit believes it.
TEST(faults, a_raw_file_shorter_than_its_header_says_is_told) {
  const session::scratch here;
  make_inputs(here);
  const fs::path run = here.path() / "t/online/kbpmII/raw/04/RD-004566.dat";
  const std::string whole = read_file(run);
  const std::string told =
      ": the file ends at data line 700 of 1500, instrument X6A, expected 4 instruments as the "
      "header says\n";
  std::size_t end = whole.find(": X6A");
  end = whole.find("--BEGIN DATA--", end);
  for (int line = 0; line <= 700; ++line) end = whole.find('\n', end) + 1;
  session::write_file(run, whole.substr(0, end));
  session::settings how;
  how.environment["KOVR_ONLINE"] = here / "t/online";
  const auto loaded = session::butngain(here.path(), {"T", "1000", "4566", "3"}, how);
  EXPECT_TRUE(contains(loaded.err, told)) << loaded.err;
  const auto dump = session::run({KBPM_DUMP_BINARY, run.string()}, here.path(), "");
  EXPECT_EQ(dump.status, 0);
  EXPECT_TRUE(contains(dump.err, told)) << dump.err;
}

// A session of two BPMs with a plot copy, as a shell starts it: "$0" is the program.
session::outcome in_shell(const session::scratch& here, const std::string& command) {
  // Two sessions of one second share a directory, and the second says so.
  fs::remove_all(here.run_directory());
  return session::run({"/bin/sh", "-c", command, BUTNGAIN_BINARY}, here.path(),
                      "F\nexp_0.txt\nexp_1.txt\ng\n");
}

bool ends_in_line(const std::string& text) { return text.empty() || text.back() == '\n'; }

// What the system does to a program from outside: one line for one cause, and the status says so.
TEST(faults, streams_and_limits_are_told_once_with_their_reason) {
  const session::scratch here;
  make_inputs(here);
  const struct {
    const char* what;
    const char* command;
    int status;
    const char* err;  // all of it; "" is not looked at
  } cases[] = {
      {"full output", R"("$0" > /dev/full)", 1,
       "butngain: run-time error: writing standard output: No space left on device\n"},
      {"closed output", R"("$0" >&-)", 1,
       "butngain: run-time error: writing standard output: Bad file descriptor\n"},
      {"closed input", R"("$0" <&- >/dev/null)", 1,
       "butngain: run-time error: reading standard input: Bad file descriptor\n"},
      {"a pager that was left", R"({ "$0"; echo $? >&2; } | head -c 1)", 0,
       "butngain: run-time error: writing standard output: Broken pipe\n1\n"},
      {"a limit for files", R"(ulimit -f 1; "$0" > /dev/null)", 1, ""},
      {"full messages", R"("$0" 2> /dev/full)", 0, ""},
      {"closed messages", R"("$0" 2>&-)", 0, ""},
  };
  for (const auto& [what, command, status, err] : cases) {
    SCOPED_TRACE(what);
    const auto run = in_shell(here, command);
    EXPECT_EQ(run.status, status) << run.out << run.err;
    if (*err != '\0') {
      EXPECT_EQ(run.err, err);
    }
    if (what == std::string{"a limit for files"}) {
      EXPECT_TRUE(contains(run.err, ": File too large\n")) << run.err;
      EXPECT_EQ(session::lines_of(run.err).size(), 1U) << run.err;
    }
    // A message that has no place to go must not go into the first table that is opened.
    const std::string table = read_file(here.run_directory() / "orbit.dat");
    EXPECT_FALSE(contains(table, "butngain:")) << table;
  }
}

// Wherever memory ends: no abort, no exception on the screen, one line, and whole lines in the files.
TEST(faults, no_memory_is_one_line) {
  if (!shim_loads) GTEST_SKIP() << "built with a sanitizer, which comes first";
  const session::scratch here;
  make_inputs(here);
  const texts answers{"F", "exp_0.txt", "exp_1.txt", "no"};
  session::settings counting = with({"malloc", "", 0}, here);
  counting.environment["FAULT_COUNT"] = here / "count";
  ASSERT_EQ(session::butngain(here.path(), answers, counting).status, 0);
  std::int64_t calls = 0;
  const std::string count = read_file(here / "count");
  ASSERT_EQ(count.size(), sizeof calls);
  std::memcpy(&calls, count.data(), sizeof calls);
  ASSERT_GT(calls, 1000);
  constexpr int moments = 12;
  for (int i = 0; i < moments; ++i) {
    const auto at = static_cast<int>(1 + calls * i / moments);
    SCOPED_TRACE(at);
    session::settings how = with({"malloc", "", at, ENOMEM, i % 2 == 0}, here);
    // On threads too, where nobody may end the run but the one that waits for them.
    if (i % 3 != 0) how.arguments = {"--jobs", "3"};
    const auto run = session::butngain(here.path(), answers, how);
    EXPECT_LE(run.status, 2) << run.err;
    if (run.status == 0) continue;  // a library could do without
    const auto lines = session::lines_of(run.err);
    // Of the pictures the summary follows, and a library without memory may just crash.
    const auto tells = [](const std::string& line) {
      return contains(line, "emory") || contains(line, "cannot write the pictures: ");
    };
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), tells), 1) << run.err;
    EXPECT_TRUE(ends_in_line(read_file(here.run_directory() / "orbit.dat")));
  }
}

// What programs read is there whole or not at all, and what was there before stays.
TEST(faults, simulated_files_are_whole_or_not_there) {
  if (!shim_loads) GTEST_SKIP() << "built with a sanitizer, which comes first";
  const std::string series = "inputs_1000random_xy_and_timing_offset";
  const struct {
    const char* what;
    fault f;
    texts arguments;
    std::string file;  // that must not be there
  } cases[] = {
      {"series, full",
       {"fwrite", "exp_0.txt", 500, ENOSPC},
       {"series", "--orbits", "1000"},
       series + "/exp_0.txt"},
      {"series, last block", {"fclose", "exp_0.txt", 1, ENOSPC}, {"series"}, series + "/exp_0.txt"},
      {"series, no memory",
       {"malloc", "", 4000, ENOMEM, true},
       {"series", "--orbits", "3000"},
       series + "/exp_0.txt"},
      {"raw, full", {"fwrite", "r.dat", 500, ENOSPC}, {"raw", "--out", "r.dat"}, "r.dat"},
      {"raw, no name", {"rename", "r.dat", 1, EACCES}, {"raw", "--out", "r.dat"}, "r.dat"},
      {"text, full", {"fwrite", "RD-004567.dat", 300, ENOSPC}, {"text"}, "RD-004567.dat"},
  };
  for (const auto& [what, f, arguments, file] : cases) {
    SCOPED_TRACE(what);
    const session::scratch here;
    const auto made = session::bpmsim(here.path(), arguments, with(f, here));
    EXPECT_EQ(made.status, 1) << made.out << made.err;
    EXPECT_EQ(session::lines_of(made.err).size(), 1U) << made.err;
    EXPECT_FALSE(fs::exists(here.path() / file));
    for (const auto& left : fs::recursive_directory_iterator(here.path())) {
      EXPECT_FALSE(contains(left.path().string(), ".part")) << left.path();
    }
  }
  // An index that cannot be read has entries that would be lost.
  const session::scratch here;
  const texts raw{"raw", "--tree", "t/online", "--turns", "10"};
  ASSERT_EQ(session::bpmsim(here.path(), raw).status, 0);
  const fs::path index = here.path() / "t/online/machine_data/meas/run_index/tbt.idx";
  const std::string before = read_file(index);
  for (const char* call : {"fread", "fopen"}) {
    const auto again = session::bpmsim(here.path(), raw, with({call, "tbt.idx", 1}, here));
    EXPECT_EQ(again.status, 1) << again.err;
    EXPECT_TRUE(contains(again.err, "tbt.idx")) << again.err;
    EXPECT_EQ(read_file(index), before);
  }
}

// Killed while the second BPM is in work: of the first all is on disk.
TEST(faults, what_is_fitted_is_on_disk) {
  if (!shim_loads) GTEST_SKIP() << "built with a sanitizer, which comes first";
  const session::scratch here;
  make_inputs(here);
  const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_1.txt", "no"},
                                     with({"fopen", "EXP_1.dat_fit", 1, 0}, here));
  EXPECT_EQ(run.status, 128 + 9);
  for (const char* table : {"orbit.dat", "inputs_1000random_xy_and_timing_offset.dat_out",
                            "inputs_1000random_xy_and_timing_offset.dat_err"}) {
    SCOPED_TRACE(table);
    const auto text = read_file(here.run_directory() / table);
    EXPECT_TRUE(ends_in_line(text));
    EXPECT_EQ(session::numbers_of(session::lines_of(text).back())[0], 1) << text;
  }
}

// What the fault check found. Of what is told the line is told once, the status says so, and nothing half
// done is left behind: no scratch file, and none in the folder for them.
TEST(faults, what_was_told_badly_once_is_told_now) {
  if (!shim_loads) GTEST_SKIP() << "built with a sanitizer, which comes first";
  const session::scratch inputs;
  make_inputs(inputs);
  const fs::path runs = inputs.path() / "runs";
  for (const char* run : {"first", "second"}) {
    session::settings how = session::at_site(inputs.path() / "t/online");
    how.arguments = {"--batch", "--data=T", "--run=./RD-004567.dat",
                     "--output=" + (runs / run).string()};
    const auto made = session::butngain(inputs.path(), {}, how);
    ASSERT_EQ(made.status, 0) << made.err;
  }
  texts both;
  for (const auto& entry : fs::recursive_directory_iterator(runs)) {
    if (entry.path().filename() == "run.json") both.push_back(entry.path().parent_path());
  }
  ASSERT_EQ(both.size(), 2U);
  session::write_file(inputs.path() / "pipe.chamber",
                      "nonlin_bpm_chamber 1\nname pipe\nunits mm\ncontour circle 45\n"
                      "button 1 -31.8 -31.8 18 disc\nbutton 2 31.8 -31.8 18 disc\n"
                      "button 3 -31.8 31.8 18 disc\nbutton 4 31.8 31.8 18 disc\n"
                      "x_grid 41 -32 32\ny_grid 41 -32 32\nmargin 6\nend\n");
  const std::string chamber = inputs.path() / "pipe.chamber";
  const texts series{"F", "exp_0.txt", "exp_1.txt", "p"};
  const struct {
    const char* what;
    fault f;
    texts program;
    texts answers;
    int status;
    const char* told;
    std::string not_there;  // a file that must not stand
  } cases[] = {
      // The drawing libraries crash without memory, or never end.
      {"picture of a comparison",
       {"malloc", "", 4474, ENOMEM, true},
       {BUTNGAIN_BINARY, "compare", both[0], both[1], "--picture=c.png"},
       {},
       2,
       "butngain: c.png: ",
       "c.png"},
      {"pictures of a trend",
       {"malloc", "", 12991, ENOMEM, true},
       {BUTNGAIN_BINARY, "trend", runs, "--output=."},
       {},
       2,
       "butngain: ./trend.html: ",
       "trend.png"},
      // They keep the drawing in a file of their own until it is whole, and tell nobody that they cannot
      // read it: the page was a head and an end.
      {"page that cannot be read back",
       {"fread", "(deleted)", 1, EIO},
       {BUTNGAIN_BINARY, "--output=."},
       series,
       1,
       "the drawn page is incomplete",
       "inputs_1000random_xy_and_timing_offset.ps"},
      {"table, no name",
       {"rename", "pipe.table", 2, EACCES},
       {BPMSIM_BINARY, "table", chamber, "pipe.table"},
       {},
       1,
       "bpmsim: pipe.table: Permission denied\n",
       "pipe.table"},
      {"table, no memory",
       {"malloc", "", 30000, ENOMEM, true},
       {BPMSIM_BINARY, "table", chamber, "pipe.table"},
       {},
       1,
       "bpmsim: run-time error: out of memory\n",
       "pipe.table"},
      // The default of the run question was blank without a word.
      {"run index",
       {"fopen", "tbt.idx", 1, EMFILE},
       {BUTNGAIN_BINARY},
       {"T", "0", "./RD-004567.dat", "n", "-1", "no"},
       0,
       "tbt.idx: Too many open files\n",
       ""},
  };
  for (const auto& [what, f, program, answers, status, told, not_there] : cases) {
    SCOPED_TRACE(what);
    const session::scratch here;
    for (const auto& entry : fs::directory_iterator(inputs.path())) {
      fs::create_symlink(entry.path(), here.path() / entry.path().filename());
    }
    session::settings how = with(f, here);
    fs::create_directory(here.path() / "scratch");
    how.environment["TMPDIR"] = here / "scratch";
    std::string typed;
    for (const std::string& answer : answers) typed += answer + "\n";
    const auto run = session::run(program, here.path(), typed, how);
    EXPECT_EQ(run.status, status) << run.out << run.err;
    EXPECT_TRUE(contains(run.err + run.out, told)) << run.out << run.err;
    EXPECT_FALSE(contains(run.err, "Fontconfig")) << run.err;
    EXPECT_FALSE(!not_there.empty() && fs::exists(here.path() / not_there));
    EXPECT_TRUE(fs::is_empty(here.path() / "scratch"));
    for (const auto& left : fs::directory_iterator(here.path())) {
      EXPECT_FALSE(contains(left.path().string(), ".part")) << left.path();
    }
  }
}

// A signal that ends a session while it reads leaves whole lines in the file that it writes meanwhile.
TEST(faults, killed_while_reading_leaves_whole_lines) {
  if (!shim_loads) GTEST_SKIP() << "built with a sanitizer, which comes first";
  const session::scratch here;
  make_inputs(here);
  const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_1.txt", "no"},
                                     with({"fread", "exp_1.txt", 2, 0}, here));
  EXPECT_EQ(run.status, 128 + 9);
  const std::string diagnostics = read_file(here.path() / "fort.67");
  EXPECT_GT(diagnostics.size(), 10000U);
  EXPECT_TRUE(ends_in_line(diagnostics)) << diagnostics.substr(diagnostics.size() - 80);
}

// Nothing gives a killed session the time to write its results: what was fitted stands there already,
// but for the BPM whose file was about to take its place.
TEST(faults, killed_between_bpms_leaves_the_gains_of_those_before) {
  if (!shim_loads) GTEST_SKIP() << "built with a sanitizer, which comes first";
  const session::scratch here;
  session::simulate(here.path(), "series --bpms 4 --orbits 60");
  for (int n = 1; n <= 4; ++n) {
    SCOPED_TRACE(n);
    fs::remove_all(here.path() / "run");
    session::settings how = with({"rename", "gains.csv", n, 0}, here);
    how.arguments.insert(how.arguments.end(), {"--output", "run"});
    const auto run = session::butngain(here.path(), {"F", "exp_0.txt", "exp_3.txt", "no"}, how);
    EXPECT_EQ(run.status, 128 + 9);
    fs::path left;
    for (const auto& entry : fs::directory_iterator(here.path() / "run")) {
      if (entry.is_directory()) left = entry.path();  // beside it lies fort.67
    }
    if (n == 1) {
      EXPECT_FALSE(fs::exists(left / "gains.csv"));
      continue;
    }
    const auto lines = session::lines_of(read_file(left / "gains.csv"));
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(n));  // one names the columns
    EXPECT_EQ(lines.back().substr(0, 2), std::to_string(n - 1) + ",");
  }
}

// A carriage return ends a line of PostScript: what follows would be run by whoever prints the page.
TEST(faults, names_of_files_stay_text) {
  const session::scratch here;
  make_inputs(here);
  const std::string name = "run\rshowpage\x1b]0;x\a.dat";
  fs::rename(here.path() / "RD-004567.dat", here.path() / name);
  const auto run = session::butngain(here.path(), {"T", "0", "./" + name, "n", "-1", "p"});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string page = read_file(here.path() / (name.substr(0, name.find('.')) + ".ps"));
  EXPECT_TRUE(contains(page, "%%Title: "));
  EXPECT_TRUE(contains(page, "run\\rshowpage"));
  EXPECT_EQ(page.find('\r'), std::string::npos);
  EXPECT_EQ(run.err.find_first_of("\r\x1b\a"), std::string::npos) << run.err;
}

// The line that `tree` prints is one for the shell.
TEST(faults, a_folder_of_any_name_is_one_word_of_the_shell) {
  const session::scratch here;
  const std::string name = "it's $(touch here) `touch here`;touch here";
  const auto run = session::run(
      {"/bin/sh", "-c",
       R"sh(eval "$("$0" tree "$1" --bpms 1 --turns 4 | grep ^export)"; cd "$KOVR_ONLINE")sh",
       BPMSIM_BINARY, name},
      here.path(), "");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_FALSE(fs::exists(here.path() / "here"));
}

}  // namespace
