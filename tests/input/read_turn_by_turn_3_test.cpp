#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bunch_dialog.hpp"
#include "gain_fit_mod.hpp"
#include "multipliers.hpp"
#include "rdfile_list.hpp"
#include "read_turn_by_turn.hpp"
#include "turn_scratch.hpp"

namespace {

namespace fit = gain_fit_mod;
using turn_test::contains;

// Two bunches, BPMs 12 and 70 with data; turn t of bunch 1 reads 1000 + t on every button, of
// bunch 2, which is one turn shorter, 10 + t.
tbt_mod::tbt_all_data_struct small_set(int turns) {
  tbt_mod::tbt_all_data_struct tbt;
  tbt.bunch.resize(2);
  tbt.total_current = 12.5;
  for (int t = 1; t <= turns; ++t) tbt.shaker.push_back({{{0.01 * t, 0.02 * t}}});
  for (const int bpm : {12, 70}) {
    tbt.bpm(bpm).name = tbt_mod::tbt_bpm_name(bpm);
    for (int b = 0; b < 2; ++b) {
      auto& at = tbt.bunch[static_cast<std::size_t>(b)].bpm(bpm);
      at.data_ok = true;
      for (int t = 1; t <= turns - b; ++t) {
        const double signal = (b == 0 ? 1000 : 10) + t;
        at.turn.push_back({0.001 * t, -0.001 * t, {{signal, -signal, signal, signal}}});
      }
    }
  }
  return tbt;
}

std::string read(const turn_test::scratch& at, const tbt_mod::tbt_all_data_struct& tbt,
                 const char* answers, int empty_bunch = 0) {
  fit::orbit_data.clear();
  return turn_test::dialog(at, answers, [&] { input::read_turn_by_turn_3(tbt, 1, empty_bunch); });
}

TEST(read_turn_by_turn_3, keeps_strong_turns_one_after_the_other) {
  const turn_test::scratch at;
  auto tbt = small_set(5);
  tbt.bunch[0].bpm(70).turn[1].button(3) = 99.9;
  tbt.bunch[0].bpm(70).turn[2].button(3) = 100.0006;
  const std::string shown = read(at, tbt, "\n");
  EXPECT_TRUE(contains(shown, "           5 turns collected\n Limit turns to: (CR use all)  "));
  EXPECT_EQ(fit::dets(1), 12);
  EXPECT_EQ(fit::dets(2), 70);
  EXPECT_EQ(fit::bpm_names(70).trimmed(), "29E");
  EXPECT_EQ(input::norbits_save(12), 5);
  EXPECT_EQ(fit::norbits, 4);
  const store::bpm_struct& second = fit::orbit_data(2).detector(70);
  EXPECT_EQ(second.button(2), 1003000);
  EXPECT_EQ(second.button(3), 100001);  // to the nearest count
  EXPECT_EQ(second.x, 0.003);
  EXPECT_EQ(second.y, -0.003);
  EXPECT_EQ(second.phase_h, 0.03);
  EXPECT_EQ(second.phase_v, 0.06);
  EXPECT_EQ(fit::orbit_data(5).current(), 12.5);
}

TEST(read_turn_by_turn_3, takes_the_empty_bunch_away_turn_by_turn) {
  const turn_test::scratch at;
  read(at, small_set(5), "4\n", 2);
  EXPECT_EQ(fit::norbits, 4);
  EXPECT_EQ(fit::orbit_data(4).detector(12).button(2), 990000);  // |-1004 + 14| thousand
}

// Bunch 2 is one turn shorter. A turn that it cannot correct must not pass among the others.
TEST(read_turn_by_turn_3_death, a_turn_without_its_pedestal_ends_the_run) {
  const turn_test::scratch at;
  auto tbt = small_set(5);
  tbt.bunch[0].ix_bunch = 3;
  tbt.bunch[1].ix_bunch = 8;
  EXPECT_EXIT(
      read(at, tbt, "\n", 2), testing::ExitedWithCode(1),
      "^butngain: BPM 12 \\(12W\\): bunch 2 has 5 turns to correct, pedestal bunch 4 has 4: "
      "answer .* at most 4 at \"Limit turns to\", or 0 at \"Pedestal bunch number\"\n"
      "butngain: run-time error: subscript 5 of turn is outside 1\\.\\.4\n$");
  // What an earlier data set left in a BPM that this one does not have is no pedestal.
  tbt.bunch[1].bpm(70).data_ok = false;
  EXPECT_EXIT(
      read(at, tbt, "3\n", 2), testing::ExitedWithCode(1),
      "BPM 70 \\(29E\\): bunch 2 has 3 turns to correct, pedestal bunch 4 has 0: answer .*\n"
      ".*subscript 1 of turn is outside 1\\.\\.0\n$");
}

// The BPM read last has a dead button: the others' orbits count all the same.
TEST(read_turn_by_turn_3, only_a_stored_turn_sets_the_counters) {
  const turn_test::scratch at;
  auto tbt = small_set(5);
  read(at, tbt, "\n");
  for (auto& turn : tbt.bunch[0].bpm(70).turn) turn.button(3) = 0;
  read(at, tbt, "4\n");
  EXPECT_EQ(fit::norbits, 4);
  EXPECT_EQ(input::norbits_save(12), 4);
  EXPECT_EQ(input::norbits_save(70), 0);
  EXPECT_EQ(fit::dets(2), 70);
}

// The second time there are more turns than the shaker was recorded for.
TEST(read_turn_by_turn_3, the_limit_counts_turns_looked_at_and_is_asked_afresh) {
  const turn_test::scratch at;
  auto tbt = small_set(5);
  tbt.bunch[0].bpm(70).turn[0].button(1) = 0;
  read(at, tbt, "many\n3\n");
  EXPECT_EQ(fit::norbits, 2);
  EXPECT_EQ(input::norbits_save(12), 3);
  tbt.shaker.resize(2);
  read(at, tbt, "\n");
  EXPECT_EQ(input::norbits_save(12), 5);
  EXPECT_EQ(fit::orbit_data(2).detector(12).phase_h, 0.02);
  EXPECT_EQ(fit::orbit_data(3).detector(12).phase_h, 0);
}

TEST(read_turn_by_turn_3_death, bounds_of_orbits_and_of_numbers) {
  const turn_test::scratch at;
  EXPECT_EXIT(read(at, small_set(3001), "\n"), testing::ExitedWithCode(1),
              "subscript 3001 of orbit_data is outside 1\\.\\.3000");
  auto tbt = small_set(3);
  tbt.bunch[0].bpm(12).turn[1].button(4) = 1e30;
  EXPECT_EXIT(read(at, tbt, "\n"), testing::ExitedWithCode(1),
              "BPM 12, turn 2: signal 1e\\+30 does not fit an integer");
}

struct bunch_case {
  const char* what;
  const char* answers;
  int nbunch;
  int empty_bunch;
  const char* shown;
};

// The ring's bunches 1, 4, 5 and 6 answer to 1, 2, 3 and 3. What a file calls 0 or less answers to
// nothing.
TEST(bunch_dialog, finds_bunches_by_half_their_number) {
  tbt_mod::tbt_all_data_struct tbt;
  for (const int ix : {1, 4, 5, 6, 0, -5}) tbt.bunch.emplace_back().ix_bunch = ix;
  const bunch_case cases[] = {
      {"defaults", "\n\n", 1, 0, " There is no pedestal bunch"},
      {"both", "2\n1\n", 2, 1, " pedestal bunch =            1"},
      {"the last of two with the same number", "3\n3\n", 4, 4, " bunch =            3"},
      {"a pedestal bunch that is not there", "1\n9\n", 1, 0, " There is no pedestal bunch"},
      {"a bunch that is not there", "7\n0\n2\n\n", 2, 0,
       " there is data for bunches            1           2           3           3           0"
       "          -2\n try again\n"},
      {"bunches below 1", "0\n-2\n-2\n1\n2\n0\n", 2, 0, " try again"},
      {"an empty answer after a wrong one is 1 again", "7\n2\n\n\n", 1, 0, " try again"},
      {"words", "one\n1\nnone\n0\n", 1, 0, " \"one\" is not a bunch number"}};
  for (const auto& [what, answers, nbunch, empty_bunch, shown] : cases) {
    SCOPED_TRACE(what);
    const turn_test::scratch at;
    input::bunch_choice choice;
    const std::string out =
        turn_test::dialog(at, answers, [&] { choice = input::ask_bunches(tbt); });
    EXPECT_EQ(choice.nbunch, nbunch);
    EXPECT_EQ(choice.empty_bunch, empty_bunch);
    EXPECT_TRUE(contains(out, shown)) << out;
  }
}

TEST(multipliers, multiply_the_stored_signals) {
  const turn_test::scratch at;
  const std::string gains =
      at.file("gains.dat", "! bpm and gains\n12 1 0.5 2 1D0\n 70 , 3*1 , 4\n12 2 2 2 2\n");
  read(at, small_set(2), "\n");
  const std::string out =
      turn_test::dialog(at, "y\nnone.dat\n" + gains + "\n", [] { expert::ask_multipliers(); });
  EXPECT_TRUE(contains(out, "(def = manual_gain_set.dat)")) << out;
  EXPECT_TRUE(contains(out, " cannot open none.dat")) << out;
  EXPECT_TRUE(contains(out, "70 , 3*1 , 4")) << out;
  EXPECT_TRUE(contains(out, " arbitrary multipliers applied\n")) << out;
  EXPECT_EQ(fit::orbit_data(2).detector(12).button(2),
            2 * 1002000);  // the last line of a BPM holds
  EXPECT_EQ(fit::orbit_data(1).detector(70).button(4), 4 * 1001000);
  EXPECT_EQ(fit::arb_gain(4, 70), 4);
  // An empty answer reads none.
  EXPECT_EQ(turn_test::dialog(at, "\n", [] { expert::ask_multipliers(); }),
            " Read file of arbitrary multipliers ? ");
}

TEST(rdfile_list, numbers_its_entries) {
  const turn_test::scratch at;
  std::filesystem::create_directory("out");
  fit::norbits = 998;
  input::write_rdfile_list(4567, "out");
  input::write_rdfile_list(123456, "out");
  EXPECT_EQ(scratch::content("out/RDfiles_fitted.dat"),
            "rdfile[ 1]= \"RD-004567.dat\"; norbits[ 1]=   998\n"
            "rdfile[ 2]= \"RD-123456.dat\"; norbits[ 2]=   998\n");
}

}  // namespace
