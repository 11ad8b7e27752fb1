// Whole sessions on turn-by-turn data, through the real binary.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "raw_by_hand.hpp"
#include "session_harness.hpp"

namespace {

namespace fs = std::filesystem;
using session::contains;
using session::instrument;
using session::lines_of;
using session::numbers_of;
using session::read_file;
using session::read_instrument;
using session::signal;
using std::to_string;

constexpr int turns = 300;

std::vector<std::string> and_then(std::vector<std::string> first,
                                  const std::vector<std::string>& more) {
  first.insert(first.end(), more.begin(), more.end());
  return first;
}

session::outcome run_with(const session::scratch& here, const std::string& online,
                          const std::vector<std::string>& answers) {
  return session::butngain(here.path(), and_then({"T"}, answers),
                           session::at_site(here.path() / online));
}

// A facility tree of four BPMs: two of each half of the ring.
void make_tree(const session::scratch& here) {
  session::simulate(here.path(), "tree tree --bpms 4 --turns " + to_string(turns) + " --seed 3");
}

// A data tree without any data; the index says that 4567 is the newest run.
void make_empty_tree(const session::scratch& here) {
  session::write_file(here.path() / "ko/machine_data/meas/run_index/tbt.idx", "4567 a b\n");
}

fs::path raw_path(const session::scratch& here, int run) {
  return here.path() / "tree/online/kbpmII/raw/04" / ("RD-00" + to_string(run) + ".dat");
}

// The gains of a run are the true ones.
void expect_gains(const fs::path& truth, const fs::path& results) {
  const auto compared =
      session::bpmsim(results, {"compare", truth.string(), results.string(), "--within", "2e-3"});
  EXPECT_EQ(compared.status, 0) << compared.out << compared.err;
}

std::vector<std::vector<double>> rows_of(const fs::path& path) {
  std::vector<std::vector<double>> rows;
  for (const std::string& line : lines_of(read_file(path))) {
    const auto row = numbers_of(line);
    if (row.size() == 11 && line[0] != '#') rows.push_back(row);
  }
  return rows;
}

// Two data sets; the second file of each pair lies over the first, so 4565 and 4564 are what is
// analysed. BPM 28W counts its turns with the file, 43E (index 56) too, 16E (83) one later.
TEST(turn_by_turn_session, two_data_sets_end_with_the_true_gains) {
  const session::scratch here;
  make_tree(here);
  const auto run = run_with(
      here, "tree/online",
      {"1000", "4566", "3", "", "", "", "N", "1000", "-1", "3", "1", "0", "", "n", "-1", "no"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  const fs::path results = here.run_directory();
  EXPECT_TRUE(
      contains(run.out, "  Norbits =          299\n  Number of orbits so far          598\n"));
  EXPECT_TRUE(contains(run.out, " There is no pedestal bunch\n          300 turns collected\n"));
  EXPECT_EQ(read_file(results / "RDfiles_fitted.dat"),
            "rdfile[ 1]= \"RD-004566.dat\"; norbits[ 1]=   299\n"
            "rdfile[ 2]= \"RD-004565.dat\"; norbits[ 2]=   299\n"
            "rdfile[ 3]= \"RD-004565.dat\"; norbits[ 3]=   299\n"
            "rdfile[ 4]= \"RD-004564.dat\"; norbits[ 4]=   299\n");

  // Summaries are named after the last answer.
  EXPECT_TRUE(contains(read_file(results / "-1_out"), "gain_and_pedestal_correction to tbt data"));
  expect_gains(raw_path(here, 4566).replace_extension("truth"), results);

  const fs::path offline = here.path() / "tree/offline/kbpmII/raw/04/RD-004564.dat";
  const struct {
    const char* name;
    std::size_t first_line;
  } bpms[] = {{"28W", 0}, {"16E", 1}};
  for (const auto& [name, first_line] : bpms) {
    SCOPED_TRACE(name);
    const auto rows = rows_of(results / (std::string{name} + ".dat"));
    ASSERT_EQ(rows.size(), 598U);
    const instrument first_set = read_instrument(raw_path(here, 4565), name);
    const instrument second_set = read_instrument(offline, name);
    ASSERT_EQ(first_set.data_line.size(), 2U * turns);  // bunch 1, then the empty one
    for (const std::size_t orbit : {0U, 1U, 150U, 298U}) {
      for (std::size_t k = 1; k <= 4; ++k) {
        const double by_hand = signal(first_set, orbit + first_line, k);
        EXPECT_NEAR(rows[orbit][6 + k] / by_hand, 1, 6e-4) << orbit << " " << k;  // four digits
        EXPECT_NEAR(rows[299 + orbit][6 + k] / signal(second_set, orbit + first_line, k), 1, 6e-4);
      }
    }
  }
}

// Without correction for gain the electronics' coefficients are part of the truth.
TEST(turn_by_turn_session, corrections_1_and_2_leave_the_coefficients_in_the_gains) {
  const session::scratch here;
  make_tree(here);
  std::string truth;
  for (const std::string& line :
       lines_of(read_file(raw_path(here, 4566).replace_extension("truth")))) {
    if (line.empty() || line[0] == '#') continue;
    const std::string name = line.substr(0, line.find(' '));
    const auto gain = numbers_of(line.substr(name.size()));
    const instrument at = read_instrument(raw_path(here, 4566), name);
    truth += name;
    for (const auto& [k, card] : {std::pair{0U, 1U}, {1U, 2U}, {2U, 0U}, {3U, 3U}}) {
      truth += " " + to_string(gain[k] * at.gain[card]);
    }
    truth += " 0 0 0 0\n";
  }
  session::write_file(here.path() / "with_coefficients", truth);
  const struct {
    const char* correction;
    const char* pedestal_bunch;
    const char* label;
  } cases[] = {{"1", "2", "no_gain_or_pedestal_correction to"},
               {"2", "0", "pedestal but no gain correction to"}};
  for (const auto& [correction, pedestal_bunch, label] : cases) {
    SCOPED_TRACE(label);
    const session::scratch place;
    const auto run = session::butngain(
        place.path(), {"T", "1000", "4567", correction, "1", pedestal_bunch, "", "n", "-1", "no"},
        session::at_site(here.path() / "tree/online"));
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_TRUE(contains(read_file(place.run_directory() / "RD-004567.dat_out"), label));
    expect_gains(here.path() / "with_coefficients", place.run_directory());
  }
}

TEST(turn_by_turn_session, text_runs_of_both_kinds) {
  const session::scratch here;
  make_tree(here);
  const struct {
    const char* answer;
    const char* truth;
    const char* said;
  } cases[] = {
      {"4563", "archive/tsharc/raw/04/RD-004563.dat.truth", " tbt_file_type =            2"},
      {"RD-004563.dat", "archive/tsharc/raw/04/RD-004563.dat.truth", "number =         4563"},
      {"kbpm-04563.dat", "archive/sharc/raw/04/kbpm-04563.dat.truth",
       " tbt_file_type =            1"}};
  for (const auto& [answer, truth, said] : cases) {
    SCOPED_TRACE(answer);
    const session::scratch place;
    const auto run = session::butngain(place.path(), {"T", "", answer, "n", "-1", "no"},
                                       session::at_site(here.path() / "tree/online"));
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, said)) << run.out;
    expect_gains(here.path() / "tree/online" / truth, place.run_directory());
  }
}

struct answer_case {
  const char* what;
  std::vector<std::string> answers;
  std::vector<const char*> said;  // on standard output, in this order
  const char* error;              // on standard error
};

// No raw data is there: a run that is found by its number ends the session when it is loaded.
TEST(turn_by_turn_session, what_the_answers_mean) {
  const answer_case cases[] = {
      {"one character",
       {"", "7", "3"},
       {" number =            0\n", " in_file = 7 ", "true number =         4566\n",
        "  tbt_file_type =            3\n", " Error opening TBT file:         4566\n",
        " error reading file         4566\n"},
       ""},
      {"a dash", {"", "-", "3"}, {"true number =         4566\n"}, ""},
      {"counting back",
       {"", "-3", "3"},
       {" number =           -3\n", "true number =         4563\n"},
       ""},
      {"empty: the newest",
       {"", "", "1"},
       {"(def = 4567)", " number =         4567\n", " in_file = RD-004567.dat",
        " gain correct =            1\n"},
       ""},
      {"four digits",
       {"", " 1234 ", "3"},
       {" in_file = RD-001234.dat", "raw/01/RD-001234.dat"},
       ""},
      {"five digits", {"", "12345", "3"}, {" in_file = RD-012345.dat", "raw/12/RD-012345.dat"}, ""},
      {"six digits",
       {"", "123456", "3"},
       {" in_file = RD-123456.dat", "raw/123/RD-123456.dat"},
       ""},
      {"a correction that is none",
       {"", "1234", "x", "7"},
       {"\"x\" is not a whole number", " gain correct =            7\n"},
       ""},
      {"three characters",
       {"", "123"},
       {" tbt_file_type =            2\n", " cannot open 123:", "(def = 4567)"},
       "end of input at \"Turn by turn data file ?"},
      {"two characters", {"", "12"}, {" cannot open 12:"}, "end of input"},
      {"seven characters", {"", "1234567"}, {" cannot open 1234567:"}, "end of input"},
      {"a word of five", {"", "a.dat"}, {" \"a.dat\" is not a run number"}, "end of input"},
      {"back beyond the first run",
       {"", "-9999"},
       {"-9999 counts back beyond the first run; the newest "
        "is 4567; type"},
       "end of input"},
      {"a dash and a word",
       {"", "-two"},
       {" \"-two\" is not a relative run number"},
       "end of input"},
      {"too long",
       {"", std::string(100, 'x')},
       {"is not a run or a file of fewer than 100"},
       "end of"},
      {"older run that is not there",
       {"", "kbpm1234.dat"},
       {"  tbt_file_type =            1\n", "ko/sharc/raw/23/kbpm1234.dat\n", " cannot open "},
       "end of input"},
      {"end of input at the first question", {}, {}, "end of input at \"Compute positions"},
      {"at the correction", {"", "1234"}, {}, "end of input at \"Correct tbt data"},
  };
  const session::scratch here;
  make_empty_tree(here);
  for (const auto& [what, answers, said, error] : cases) {
    SCOPED_TRACE(what);
    const auto run = run_with(here, "ko", answers);
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    std::size_t at = 0;
    for (const char* text : said) {
      const std::size_t found = run.out.find(text, at);
      EXPECT_NE(found, std::string::npos) << text << "\n" << run.out;
      if (found != std::string::npos) at = found;
    }
    EXPECT_TRUE(contains(run.err, error)) << run.err;
  }
}

TEST(turn_by_turn_session, without_an_index_or_a_tree) {
  const session::scratch here;
  const auto run = run_with(here, "ko", {"", "", "0"});
  EXPECT_TRUE(contains(run.out, "(def = ) ")) << run.out;
  EXPECT_TRUE(contains(run.out, " \"\" is not a run or a file")) << run.out;
  EXPECT_TRUE(contains(run.out, " no run index: ")) << run.out;
  EXPECT_EQ(run.status, 1);

  // Summaries show the name alone; the next question offers what opens again.
  session::write_file(here.path() / "data/plain.txt",
                      "Location : 12W\n--- Bunch 1 ---\n 200 210 220 230 0 0 0 0\n");
  const auto named = run_with(here, "ko", {"", "data/plain.txt", "y", "0", "", "n", "13", "12"});
  EXPECT_TRUE(contains(named.out, "(def = data/plain.txt)")) << named.out;
}

// A plain text run of one BPM; turn 2 is too weak to be kept.
std::string plain_run(const std::string& location) {
  return "Location : " + location +
         "\n--- Bunch 1 ---\n 200 210 220 230 0 0 0 0\n 99 99 99 99 0 0 0 0\n"
         " 210 200 230 220 0 0 0 0\n 220 210 230 200 0 0 0 0\n";
}

// A name as Tab completes it, the same name as the next default, and a turn that nobody keeps.
TEST(turn_by_turn_session, a_file_behind_a_variable_opens_twice) {
  const session::scratch here;
  make_empty_tree(here);
  session::write_file(here.path() / "ko/own/plain.txt", plain_run("12W"));
  const auto run =
      run_with(here, "ko", {"", "'$KOVR_ONLINE/own/plain.txt'", "y", "", "", "n", "12", "no"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_TRUE(contains(run.out, "(def = '$KOVR_ONLINE/own/plain.txt')")) << run.out;
  EXPECT_TRUE(contains(run.out, "  Number of orbits so far            8\n")) << run.out;
  const fs::path results = here.run_directory();
  EXPECT_TRUE(fs::exists(results / "plain.txt_out"));
  // Six readings are left of the eight orbits; each is divided by a current that is not 0.
  const auto rows = rows_of(results / "12W.dat");
  ASSERT_EQ(rows.size(), 6U);
  for (const auto& row : rows) EXPECT_EQ(row[6], 1.0);

  const auto unset = run_with(here, "ko", {"", "$BUTNGAIN_NOT_SET/plain.txt"});
  EXPECT_TRUE(contains(unset.out,
                       " $BUTNGAIN_NOT_SET/plain.txt: environment variable "
                       "BUTNGAIN_NOT_SET is not set; type a run number"))
      << unset.out;
  EXPECT_TRUE(contains(unset.err, "end of input at \"Turn by turn data file")) << unset.err;
}

// The last BPM has a dead button: no turn of it counts, and all turns of the others do. The second
// run takes 150 of 200 turns, which leave 100 to bunch 2: too few to correct bunch 1.
TEST(turn_by_turn_session, a_dead_button_spares_the_others_a_short_pedestal_bunch_ends_the_run) {
  const session::scratch here;
  session::simulate(here.path(), "tree t --bpms 6 --turns 200 --seed 5 --dead 6:3");
  // The second data set is asked for its turns afresh: no turns, and no limit.
  const auto run = run_with(here, "t/online",
                            {"1000", "4566", "3", "1", "2", "150", "y", "",  //
                             "", "3", "1", "0", "", "n", "-1", "no"});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_TRUE(contains(run.out, "  Norbits =          150\n")) << run.out;
  EXPECT_TRUE(contains(run.out, "            0 turns collected\n")) << run.out;
  EXPECT_TRUE(contains(run.out, "  Number of orbits so far          150\n")) << run.out;
  EXPECT_EQ(lines_of(read_file(here.run_directory() / "orbit.dat")).size(), 1U + 5);

  const auto shorter = run_with(here, "t/online", {"150", "4566", "3", "1", "2", ""});
  EXPECT_EQ(shorter.status, 1);
  EXPECT_EQ(shorter.err,
            "butngain: BPM 1 (X5C): bunch 1 has 150 turns to correct, pedestal bunch 2 has 100: "
            "answer the turns of the file or more at \"Compute positions\", at most 100 at \"Limit "
            "turns to\", or 0 at \"Pedestal bunch number\"\n"
            "butngain: run-time error: subscript 101 of turn is outside 1..100\n");
}

// Names of the type that nothing reads: a list of runs goes through, up to 20 of them.
TEST(turn_by_turn_session, a_21st_file_is_one_too_many) {
  const session::scratch here;
  make_empty_tree(here);
  std::vector<std::string> answers{"0", "RDe-004567.dat"};
  for (int file = 2; file <= 21; ++file) answers = and_then(answers, {"y", "", ""});
  const auto run = run_with(here, "ko", answers);
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.out, "  tbt_file_type =            4\n  Norbits =            0\n"))
      << run.out;
  EXPECT_TRUE(contains(run.err, "subscript 21 of rd_files is outside 1..20")) << run.err;
}

TEST(turn_by_turn_session, orbits_beyond_3000_end_the_run) {
  const session::scratch here;
  make_empty_tree(here);
  session::simulate(here.path(), "text --bpms 1 --turns 1600");
  const auto run = run_with(here, "ko", {"0", "./RD-004567.dat", "y", "", "./RD-004567.dat", "n"});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.out, "  Number of orbits so far         3200\n")) << run.out;
  EXPECT_TRUE(contains(run.err, "subscript 3001 of orbit_data_save is outside 1..3000")) << run.err;
}

// 4096 turns do not fit the store, whatever the last question of the session would have been.
TEST(turn_by_turn_session, a_turn_limit_lets_long_runs_in) {
  const session::scratch here;
  make_tree(here);
  session::simulate(here.path(),
                    "raw --tree tree/online --run 4570 --runs 2 --names 12W --turns 4096");
  const auto whole = run_with(here, "tree/online", {"4096", "4571", "3", "1", "0", ""});
  EXPECT_TRUE(contains(whole.err, "subscript 3001 of orbit_data is outside 1..3000")) << whole.err;
  const auto cut = run_with(here, "tree/online", {"4096", "4571", "3", "1", "0", "1000", "n"});
  EXPECT_TRUE(contains(cut.out, "         4096 turns collected\n")) << cut.out;
  EXPECT_TRUE(contains(cut.out, "  Norbits =         1000\n")) << cut.out;
  const auto fewer = run_with(here, "tree/online", {"2900", "4571", "3", "1", "0", "", "n"});
  EXPECT_TRUE(contains(fewer.out, "  Norbits =         2900\n")) << fewer.out;
}

// dets is searched to its hundredth entry; what stands beyond can only be had with -1.
TEST(turn_by_turn_session, choice_among_the_first_hundred_bpms) {
  const session::scratch here;
  make_empty_tree(here);
  session::simulate(here.path(), "raw --tree ko --run 4566 --runs 2 --bpms 103 --turns 2");
  const auto run =
      run_with(here, "ko", {"", "4567", "3", "9", "0", "1", "0", "", "n", "101", "100"});
  EXPECT_TRUE(contains(run.out, " there is data for bunches            1\n try again\n"))
      << run.out;
  EXPECT_TRUE(contains(run.out, "            0 turns collected\n")) << run.out;
  EXPECT_TRUE(contains(run.out, " No data for bpm          101  choose another\n")) << run.out;
  EXPECT_TRUE(contains(run.out,
                       "  81  82  83  84  85  86  87  88  89  90  91  92  93  94  95  96  97  98"
                       "  99 100\n"))
      << run.out;
  EXPECT_TRUE(contains(run.out, "  no data for bpm          100\n")) << run.out;
}

TEST(turn_by_turn_session, runs_that_are_missing_or_cannot_be_opened) {
  const session::scratch here;
  make_empty_tree(here);
  session::simulate(here.path(), "raw --tree ko --run 4567 --bpms 1 --turns 2");
  const auto second = run_with(here, "ko", {"0", "4567", "3"});
  EXPECT_EQ(second.status, 1);
  EXPECT_TRUE(contains(second.out, " Success reading file         4567 total_current= "))
      << second.out;
  EXPECT_TRUE(contains(second.out, " error reading file         4566\n")) << second.out;

  // By its path the run that is there would be read as a text in which no bunch begins.
  const std::string path = "ko/kbpmII/raw/04/RD-004567.dat";
  const auto by_path = run_with(here, "ko", {"0", path, "4567", "7"});
  EXPECT_TRUE(
      contains(by_path.err, "butngain: " + path + " holds raw data: answer its run number\n"))
      << by_path.err;
  EXPECT_TRUE(contains(by_path.out, " gain correct =            7\n")) << by_path.out;

  fs::create_directories(here.path() / "ko/kbpmII/raw/04/RD-004569.dat");
  const auto first = run_with(here, "ko", {"0", "4569", "3"});
  EXPECT_EQ(first.status, 1);
  EXPECT_TRUE(contains(first.out, " error reading file         4569\n")) << first.out;
  EXPECT_FALSE(contains(first.out, "Success")) << first.out;
}

}  // namespace
