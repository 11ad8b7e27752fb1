// Whole sessions whose answers are given beforehand, through the real binary.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "session_harness.hpp"

namespace {

namespace fs = std::filesystem;
using session::contains;
using session::read_file;

// A session: what is typed, question by question, and the options that say the same.
struct known_session {
  const char* what;
  std::vector<std::pair<std::string, std::string>> typed;
  std::vector<std::string> options;
  int status;
};

// Two raw data sets and a text run between them, which asks less: every question of turn-by-turn
// data, answered in one number for all sets and in one for each.
const known_session sessions[] = {
    {"turn by turn",
     {{" TBT data (T), Orbit data(O) or fake data (F) ? ", "T"},
      {"for N orbits (def N=0) ", "1000"},
      {"(def = 4567) ", "4566"},
      {"correct ) ", "3"},
      {" Bunch number? ", "2"},
      {" Pedestal bunch number ? (0 if none)", "2"},
      {"Limit turns to: (CR use all)  ", "60"},
      {" Another RD file ? (y/n) ", "y"},
      {"for N orbits (def N=0) ", "1000"},
      {"(def = 4566) ", "./my_run.txt"},
      {" Another RD file ? (y/n) ", "y"},
      {"for N orbits (def N=0) ", "1000"},
      {"(def = ./my_run.txt) ", "-1"},
      {"correct ) ", "1"},
      {" Bunch number? ", "1"},
      {" Pedestal bunch number ? (0 if none)", "2"},
      {"Limit turns to: (CR use all)  ", "50"},
      {" Another RD file ? (y/n) ", "n"},
      {" which bpm ? (-1 for all)", "-1"},
      {"<CR = no>:", "gif"}},
     {"--data=T", "--positions=1000", "--run=4566", "--run=./my_run.txt", "--run=-1",
      "--correction=3", "--correction=3", "--correction=1", "--bunch=2", "--bunch=2", "--bunch=1",
      "--pedestal-bunch=2", "--limit=60", "--limit=0", "--limit=50", "--bpm", "-1", "--copy=gif"},
     0},
    {"synthetic",
     {{" TBT data (T), Orbit data(O) or fake data (F) ? ", "F"},
      {"(e.g. exp_0.txt)", "exp_0.txt"},
      {"(e.g.  exp_120.txt)", "exp_1.txt"},
      {"<CR = no>:", "no"}},
     {"--data=F", "--first=exp_0.txt", "--last=exp_1.txt", "--copy=no"},
     0},
    {"closed orbits",
     {{" TBT data (T), Orbit data(O) or fake data (F) ? ", "O"},
      {" Input command file : ", "bpm_gain_anal_1.input"},
      {" Index ? ", "11"},
      {" which bpm ? (-1 for all)", "-1"}},
     {"--data=O", "--command-file=bpm_gain_anal_1.input", "--index=11", "--bpm=-1"},
     1},  // as every session on closed orbits ends
};

// Data for all of them in one folder.
struct workplace {
  session::scratch here;
  session::settings how;
  workplace() {
    how.environment["KOVR_ONLINE"] = here / "tree/online";
    make({"tree", "tree", "--bpms", "3", "--turns", "100", "--seed", "3"});
    make({"series", "--bpms", "2", "--orbits", "60"});
    make({"orbits", "--orbits", "3", "--bpms", "50"});
    std::string run = "Location : 12W\n# --- Bunch 1 ---\n";
    for (int i = 0; i < 40; ++i) {
      const int dx = i * 37 % 101;
      const int dy = i * 59 % 97;
      for (const int signal :
           {20000 - dx - dy, 20000 + dx - dy, 20000 - dx + dy, 20000 + dx + dy}) {
        run += std::to_string(signal) + " ";
      }
      run += "0 0 0 0\n";
    }
    here.file("my_run.txt", run);
  }
  void make(const std::vector<std::string>& arguments) const {
    const auto made = session::bpmsim(here.path(), arguments, how);
    EXPECT_EQ(made.status, 0) << made.err;
  }
  session::outcome run(const std::vector<std::string>& options,
                       const std::vector<std::string>& answers = {}) {
    how.arguments = options;
    return session::butngain(here.path(), answers, how);
  }
};

// Dates, and the run's name wherever it stands, are taken out.
std::string timeless(const std::string& text) {
  constexpr std::string_view name = "dddddddd_dddddd", date = "   date = ";
  std::string out;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool digits =
        at + name.size() <= text.size() &&
        std::equal(
            name.begin(), name.end(), text.begin() + static_cast<std::ptrdiff_t>(at),
            [](char kind, char c) { return kind == '_' ? c == '_' : (c >= '0' && c <= '9'); });
    if (digits) {
      out += "RUN";
      at += name.size() - 1;
    } else if (text.compare(at, date.size(), date) == 0) {
      out += date;
      at = std::min(text.find('\n', at), text.size()) - 1;
    } else {
      out += text[at];
    }
  }
  return out;
}

// The transcript of a pipe with the answers behind their questions, as a terminal shows them.
std::string with_answers(std::string text, const known_session& s) {
  std::size_t at = 0;
  for (const auto& [question, answer] : s.typed) {
    at = text.find(question, at);
    EXPECT_NE(at, std::string::npos) << question;
    if (at == std::string::npos) break;
    at += question.size();
    text.insert(at, answer + "\n");
  }
  return text;
}

fs::path run_below(const fs::path& folder) {
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.is_directory()) return entry.path();
  }
  return {};
}

TEST(answers_session, options_make_the_session_that_typing_makes) {
  for (const known_session& s : sessions) {
    SCOPED_TRACE(s.what);
    workplace place;
    std::vector<std::string> answers;
    for (const auto& [question, answer] : s.typed) answers.push_back(answer);
    const auto typed = place.run({"--output=typed"}, answers);
    auto options = s.options;
    options.emplace_back("--output=given");
    const auto given = place.run(options);
    EXPECT_EQ(typed.status, s.status) << typed.err;
    EXPECT_EQ(given.status, s.status) << given.err;
    EXPECT_EQ(timeless(given.out), with_answers(timeless(typed.out), s));
    for (const auto& entry : fs::recursive_directory_iterator(place.here.path() / "typed")) {
      // The copy of the plot bears the run's name, the record its command and times.
      const fs::path name = entry.path().filename();
      if (!entry.is_regular_file() || name == "run.json" || name == "gif") continue;
      const fs::path below = fs::relative(entry.path(), place.here.path() / "typed");
      const fs::path other = below.has_parent_path()
                                 ? run_below(place.here.path() / "given") / below.filename()
                                 : place.here.path() / "given" / below;
      EXPECT_EQ(timeless(read_file(other)), timeless(read_file(entry.path()))) << below;
    }
  }
}

TEST(answers_session, all_that_a_run_leaves_lies_below_the_output_directory) {
  workplace place;
  const auto names = [&] {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(place.here.path())) {
      found.push_back(entry.path().filename());
    }
    return found;
  };
  const auto before = names();
  for (const known_session& s : sessions) {
    auto options = s.options;
    if (options[0] == "--data=F") options.back() = "--copy=ps";
    options.emplace_back("--output=" + (place.here / "../"));  // beside the working directory
    options.back() += fs::path{place.here.path()}.filename().string() + ".out/deep";
    const auto run = place.run(options);
    EXPECT_EQ(run.status, s.status) << run.err;
    EXPECT_FALSE(contains(run.out, "deep"));  // the transcript does not know where it lies
  }
  EXPECT_EQ(names(), before);
  const fs::path out = place.here.path().string() + ".out";
  for (const char* name : {"fort.11", "fort.67", "bpm_gain_anal_1.input_out", "gif",
                           "inputs_1000random_xy_and_timing_offset.ps"}) {
    EXPECT_TRUE(fs::exists(out / "deep" / name)) << name;
  }
  fs::remove_all(out);
}

struct refused_case {
  std::vector<std::string> options;
  int status;
  const char* line;  // on standard error
};

TEST(answers_session, what_cannot_go_on_is_one_line) {
  workplace place;
  place.here.file("a_file", "");
  const refused_case cases[] = {
      {{"--bpm", "x"}, 2, "--bpm: found \"x\", expected a whole number from -1 on"},
      {{"--data=Q"}, 2, "--data: found \"Q\", expected T or O or F"},
      {{"--correction=4"}, 2, "--correction: found \"4\", expected a whole number from 1 to 3"},
      {{"--run=1", "--run=2", "--bunch=1", "--bunch=2", "--bunch=3"},
       2,
       "--bunch: given 3 times, but --run 2 times, expected the same number of data sets"},
      {{"--batch"}, 2, "--batch needs --data, for nobody is asked"},
      {{"--output=a_file"}, 2, "--output: cannot make a_file: "},
      {{"--batch", "--data=F"},
       1,
       "run-time error: \"First fake file name\" has no answer; give one with --first"},
      {{"--batch", "--data=T", "--positions=999", "--run=4566", "--bunch=9"},
       1,
       "run-time error: \"Bunch number?\" is asked again after the answer \"9\"; give another with "
       "--bunch"},
      // At the end of a session whose options are of no use.
      {{"--batch", "--data=F", "--first=exp_0.txt", "--index=3"},
       0,
       "--index was given, but its question was not asked"},
  };
  for (const refused_case& c : cases) {
    const auto run = place.run(c.options);
    EXPECT_EQ(run.status, c.status) << run.err;
    EXPECT_TRUE(contains(run.err, std::string{"butngain: "} + c.line)) << run.err;
  }
  // Without --batch the same answer is refused once; then whoever types is asked.
  const auto asked = place.run(
      {"--data=T", "--positions=999", "--run=4566", "--bunch=9", "--correction=3", "--bpm=-1"},
      {"0", "1", "2", "60"});
  EXPECT_EQ(asked.status, 1);
  EXPECT_TRUE(contains(asked.err, "end of input at \"Postscript")) << asked.err;
}

}  // namespace
