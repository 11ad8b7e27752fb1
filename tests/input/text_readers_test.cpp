#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "gain_fit_mod.hpp"
#include "read_turn_by_turn.hpp"
#include "text_run.hpp"
#include "truth.hpp"
#include "turn_scratch.hpp"

namespace {

namespace fit = gain_fit_mod;
using turn_test::contains;

constexpr double pi = 3.141592653589793;
const std::string turn = "  200.5 -300 400 500.25  128 256  0.001 -0.002\n";

// Puts a run where in_file says and reads it; returns what was printed.
std::string read(const turn_test::scratch& at, const std::string& name, const std::string& text,
                 util::status (*reader)() = input::read_turn_by_turn) {
  fit::in_file = std::string_view{at.file(name, text)};
  return turn_test::dialog(at, "", [&] { EXPECT_FALSE(reader()); });
}

TEST(plain_text_run, one_turn_by_hand) {
  const turn_test::scratch at;
  read(at, "run.dat", "# File\nRun : 12\nLocation : 12W\n--- Bunch 1 ---\n" + turn);
  const store::bpm_struct& read = fit::orbit_data(1).detector(12);
  const double button[] = {200500, 300000, 400000, 500250};
  for (int j = 1; j <= 4; ++j) EXPECT_EQ(read.button(j), button[j - 1]);
  EXPECT_EQ(read.x, 0.001);
  EXPECT_EQ(read.y, -0.002);
  EXPECT_DOUBLE_EQ(read.phase_h, pi / 2);  // a quarter and a half of 512 steps
  EXPECT_DOUBLE_EQ(read.phase_v, pi);
  EXPECT_EQ(fit::orbit_data(1).current(), 1.0);
  EXPECT_EQ(fit::norbits, 1);
  EXPECT_EQ(fit::bpm_names(12).trimmed(), "12W");
}

// The E side is numbered from the other end; a BPM waits for its own bunch marker.
TEST(plain_text_run, sections_and_locations) {
  const turn_test::scratch at;
  read(at, "run.dat",
       "Location : 12E\n# --- Bunch 1 ---\n" + turn + turn + "LOCATION : 30W  arc\n" + turn +
           "Location : 12W\nPedestals\n caption\n caption\n 1 2\n 3 4\n\n--- Bunch 1 ---\n" + turn +
           "# --- Bunch 2 ---\n          99 99 99 99 0 0 0 0\n" + turn + turn);
  EXPECT_EQ(fit::dets(1), 87);
  EXPECT_EQ(fit::dets(2), 30);
  EXPECT_EQ(fit::dets(3), 12);
  EXPECT_FALSE(fit::orbit_data.holds(30));
  // The marker of another bunch is a comment: its turns go on counting.
  EXPECT_EQ(fit::norbits, 3);
  EXPECT_EQ(fit::orbit_data(3).detector(12).button(2), 300000);
}

// Nobody keeps turn 1 of both BPMs: its orbit has a current all the same, for positions per current
// are computed with it.
TEST(plain_text_run, every_turn_line_gives_its_orbit_a_current) {
  const turn_test::scratch at;
  const std::string weak = " 99 99 99 99 0 0 0 0\n";
  const std::string section = "\n--- Bunch 1 ---\n" + weak + turn;
  read(at, "run.dat", "Location : 12W" + section + weak + "Location : 13W" + section);
  for (const int orbit : {1, 2, 3}) EXPECT_EQ(fit::orbit_data(orbit).current(), 1.0) << orbit;
  EXPECT_EQ(fit::orbit_data(4).current(), 0.0);
}

// A turn that is too weak keeps its number: orbits stay comparable between BPMs.
TEST(plain_text_run, weak_turns_leave_their_orbit_empty) {
  const turn_test::scratch at;
  read(at, "run.dat",
       "Location : 50W\n--- Bunch 1 ---\n 100 100 100 99.9 0 0 0 0\n" + turn +
           " 100 -100 100 100 0 0 0 0\n 99 99 99 99 0 0 0 0\n");
  EXPECT_EQ(fit::orbit_data(1).detector(50).button(1), 0);
  EXPECT_EQ(fit::orbit_data(2).detector(50).button(1), 200500);
  EXPECT_EQ(fit::orbit_data(3).detector(50).button(2), 100000);
  EXPECT_EQ(fit::norbits, 3);
}

TEST(plain_text_run, bpm_50_shows_its_first_turn) {
  const turn_test::scratch at;
  const std::string shown = read(at, "run.dat", "Location : 49E\n--- Bunch 1 ---\n" + turn + turn);
  EXPECT_TRUE(contains(shown, "            1          50")) << shown;
  EXPECT_TRUE(contains(shown, "200500.0")) << shown;
}

TEST(plain_text_run, is_found_without_archive_in_its_path) {
  const turn_test::scratch at;
  at.file("tsharc/run.dat", "Location : 12W\n--- Bunch 1 ---\n" + turn);
  fit::in_file = at / "archive/tsharc/run.dat";
  std::string shown = turn_test::dialog(at, "", [] { EXPECT_FALSE(input::read_turn_by_turn()); });
  EXPECT_TRUE(contains(shown, at / "tsharc/run.dat")) << shown;
  EXPECT_EQ(fit::norbits, 1);

  fit::in_file = at / "archive/none.dat";
  util::status why;
  turn_test::dialog(at, "", [&] { why = input::read_turn_by_turn(); });
  ASSERT_TRUE(why);
  EXPECT_EQ(util::line_of(*why),
            std::string{fit::in_file.trimmed()} + ": No such file or directory");
  EXPECT_EQ(fit::norbits, 0);
}

TEST(plain_text_run, reading_ends_with_turn_line_10001) {
  const turn_test::scratch at;
  std::string text = "Location : 12W\n--- Bunch 1 ---\n" + turn;
  for (int i = 2; i <= 10000; ++i) text += " 1 1 1 1 0 0 0 0\n";
  EXPECT_FALSE(contains(read(at, "run.dat", text), " i > 1000"));
  text += " 1 1 1 1 0 0 0 0\n";
  EXPECT_TRUE(contains(read(at, "run.dat", text + "Location : 13W\n"),
                       " i > 1000 in subroutine read_turn_by_turn \n"));
  EXPECT_EQ(fit::norbits, 1);
  EXPECT_EQ(fit::dets(2), 0);
}

TEST(older_text_run, follows_the_rules_of_the_plain_form) {
  const turn_test::scratch at;
  const std::string shown =
      read(at, "kbpm1.dat",
           "KOVR BPM Raw data\n\nNUM ACTIVE : 3\n# remark\nKOVR BPM : 12E\n" + turn +
               " 99 200 200 200 0 0 0 0\n" + turn + "KOVR BPM : 12W\n" + turn,
           input::read_turn_by_turn_kbpm1);
  EXPECT_EQ(fit::dets(1), 87);
  EXPECT_EQ(fit::dets(2), 12);
  EXPECT_EQ(fit::orbit_data(2).detector(87).button(1), 0);
  EXPECT_EQ(fit::orbit_data(3).detector(87).button(4), 500250);
  EXPECT_EQ(fit::norbits, 1);  // of the last BPM
  EXPECT_TRUE(contains(shown, "NUM ACTIVE says 3 BPMs, the file holds 2")) << shown;
}

// Some other text, a run of the wrong form: what was read is nothing, and that is told.
TEST(text_run, a_file_without_any_bpm_is_told) {
  const struct {
    util::status (*reader)();
    const char* text;
    const char* told;
  } cases[] = {
      {input::read_turn_by_turn, "some\nwords\n",
       "run.dat: no BPM in 2 lines, expected one to begin with a line such as \"Location"},
      {input::read_turn_by_turn_kbpm1, "KOVR BPM Raw\n",
       "run.dat: no BPM in 1 lines, expected one to begin with a line such as \"KOVR BPM :"}};
  for (const auto& [reader, text, told] : cases) {
    const turn_test::scratch at;
    testing::internal::CaptureStderr();
    read(at, "run.dat", text, reader);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(contains(err, told)) << err;
    EXPECT_EQ(fit::norbits, 0);
  }
}

struct form_case {
  const char* what;
  sim::text_form form;
  util::status (*reader)();
};

// What the simulator wrote comes back, to the last printed digit, in all three forms.
TEST(text_run, reads_what_bpmsim_writes) {
  const form_case forms[] = {{"plain", sim::text_form::plain, input::read_turn_by_turn},
                             {"positions first", sim::text_form::swapped, input::read_turn_by_turn},
                             {"older", sim::text_form::older, input::read_turn_by_turn_kbpm1}};
  for (const auto& [what, form, reader] : forms) {
    SCOPED_TRACE(what);
    const turn_test::scratch at;
    sim::text_run_setup s;
    s.directory = at.path().string();
    s.form = form;
    s.bpms = 51;
    s.turns = 20;
    s.machine.electronics.pedestal = 3000;
    fit::in_file = std::string_view{sim::make_text_run(s)};
    turn_test::dialog(at, "", [&, run = reader] { EXPECT_FALSE(run()); });
    EXPECT_EQ(fit::norbits, 20);
    EXPECT_EQ(fit::dets(51), 51);
    const auto truth = sim::read_truth(std::string{fit::in_file.trimmed()} + ".truth");
    ASSERT_EQ(truth.size(), 51U);
    for (const int bpm : {1, 49, 50, 51}) {
      sim::monitor monitor = sim::make_monitor(s.machine, bpm);
      EXPECT_EQ(fit::bpm_names(bpm).trimmed(), truth[static_cast<std::size_t>(bpm) - 1].name);
      for (int orbit = 1; orbit <= s.turns; ++orbit) {
        const sim::passage p = sim::next_passage(s.machine, monitor);
        const store::bpm_struct& read = fit::orbit_data(orbit).detector(bpm);
        for (int k = 1; k <= 4; ++k) EXPECT_NEAR(read.button(k), p.reading(k) - 3000, 0.051);
        EXPECT_NEAR(read.x, p.at.x, 1e-8);
        EXPECT_NEAR(read.y, p.at.y, 1e-8);
      }
    }
  }
}

struct damage {
  const char* what;
  const char* text;
  util::status (*reader)();
  const char* message;
};

TEST(text_run_death, a_line_that_cannot_be_read_ends_the_run_with_its_place) {
  const damage cases[] = {
      {"BPM without side", "Location : twelve\n", input::read_turn_by_turn,
       "run.dat:1: found \"Location : twelve\", expected a colon, a blank and a BPM location such "
       "as"},
      {"control characters", "Location : 12\x1b[2JW\n", input::read_turn_by_turn,
       "run.dat:1: found \"Location : 12.x1b\\[2JW\", expected"},
      {"header without BPM", "Location :\n", input::read_turn_by_turn,
       "run.dat:1: found .*, expected"},
      {"header without colon", "Location 12W\n", input::read_turn_by_turn,
       "run.dat:1: found .*, expected"},
      {"seven values", "Location : 1W\n--- Bunch 1 ---\n 200 200 200 200 0 0 1\n",
       input::read_turn_by_turn,
       "run.dat:3: found .*, expected four signals, two whole phases, x and y"},
      {"phase in parts", "Location : 1W\n--- Bunch 1 ---\n 200 200 200 200 0.5 0 1 1\n",
       input::read_turn_by_turn, "run.dat:3: found .*, expected"},
      {"pedestal word", "Pedestals\n\n\n1 2 x 4\n", input::read_turn_by_turn,
       "run.dat:4: found .*, expected four pedestals"},
      {"turns before any BPM", "--- Bunch 1 ---\n 200 200 200 200 0 0 1 1\n",
       input::read_turn_by_turn,
       "run.dat:2: found .*, expected a \"Location\" header before the turns"},
      {"BPM that no index has", "Location : 100E\n--- Bunch 1 ---\n", input::read_turn_by_turn,
       "subscript -1 of bpm_names is outside 0\\.\\.5000"},
      {"no title", "NUM ACTIVE : 1\n", input::read_turn_by_turn_kbpm1,
       "run.dat:1: found .*, expected the title line"},
      {"turn before its BPM", "KOVR BPM Raw\n 200 200 200 200 0 0 1 1\n",
       input::read_turn_by_turn_kbpm1, "run.dat:2: found .*, expected a \"KOVR BPM\" header"},
      {"count in words", "KOVR BPM Raw\nNUM ACTIVE : two\n", input::read_turn_by_turn_kbpm1,
       "run.dat:2: found .*, expected a colon and the number of active BPMs"}};
  for (const auto& [what, text, reader, message] : cases) {
    SCOPED_TRACE(what);
    const turn_test::scratch at;
    fit::in_file = std::string_view{at.file("run.dat", text)};
    EXPECT_EXIT(static_cast<void>(reader()), testing::ExitedWithCode(1), message);
  }
}

TEST(text_run_death, a_turn_kept_beyond_3000_is_a_bounds_error) {
  const turn_test::scratch at;
  std::string text = "Location : 12W\n--- Bunch 1 ---\n";
  for (int i = 1; i <= 3001; ++i) text += turn;
  fit::in_file = std::string_view{at.file("run.dat", text)};
  EXPECT_EXIT(static_cast<void>(input::read_turn_by_turn()), testing::ExitedWithCode(1),
              "subscript 3001 of orbit_data is outside 1\\.\\.3000");
}

}  // namespace
