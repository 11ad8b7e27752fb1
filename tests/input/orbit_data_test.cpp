#include <gtest/gtest.h>

#include <string>

#include "gain_fit_mod.hpp"
#include "get_orbit_data.hpp"
#include "scratch.hpp"

namespace {

namespace fit = gain_fit_mod;

// A button file of two BPMs whose signals tell orbit, BPM and button.
void write_orbit(int number, const std::string& head = "") {
  const std::string n = std::to_string(number);
  scratch::write(input::orbit_path(number), head + "  1 " + n + "11 " + n + "12 " + n + "13 " + n +
                                                "14\n100," + n + "1," + n + "2.5," + n + "D1,1\n");
}

TEST(orbit_path, is_archive_thousand_and_number) {
  const scratch::workplace here;
  const std::string archive = here / "machine_data/orbit/";
  EXPECT_EQ(input::orbit_path(999), archive + "00/butns.999");
  EXPECT_EQ(input::orbit_path(12345), archive + "12/butns.12345");
  EXPECT_EQ(input::orbit_path(123456), archive + "123/butns.123456");
}

TEST(read_orbit, stores_signals_and_currents_in_the_slot) {
  const scratch::workplace here;
  fit::reset();
  scratch::write(input::orbit_path(7),
                 "c Closed orbit 7: electrons E T1 and positrons\n"
                 "E T1      12.5 mA\n"
                 "\n"
                 "P T1 mA,,   .25D+1\n"
                 "  3  100 200.5 3e2 4D2\n"
                 "c between the lines\n"
                 "100, 1, 2, 3, 4, the rest of a line is not looked at\n"
                 "101 5 6 7 8\nanything, once BPM 100 was read\n");
  for (const bool wanted : {true, false}) {
    const auto found = input::read_orbit(7, 3000, wanted);
    EXPECT_EQ(found.bpms, 2);
    EXPECT_EQ(found.current, wanted ? 15.0 : 1.0);
    EXPECT_EQ(fit::orbit_data(3000).current(), wanted ? 15.0 : 1.0);
  }
  const auto& third = fit::orbit_data(3000).detector(3).button;
  EXPECT_EQ(third.item, (std::array<double, 4>{100, 200.5, 300, 400}));
  EXPECT_EQ(fit::orbit_data(3000).detector(100).button(4), 4);
  EXPECT_FALSE(fit::orbit_data.holds(101));
}

TEST(read_orbit, says_when_a_wanted_current_is_not_there) {
  const scratch::workplace here;
  fit::reset();
  write_orbit(7);
  testing::internal::CaptureStdout();
  EXPECT_EQ(input::read_orbit(7, 1, true).current, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            " No beam current in " + input::orbit_path(7) + "\n");
}

TEST(read_orbit_death, names_file_and_line) {
  const scratch::workplace here;
  const auto read = [](const char* text) {
    scratch::write(input::orbit_path(7), text);
    input::read_orbit(7, 1, true);
  };
  const auto status = testing::ExitedWithCode(1);
  EXPECT_EXIT(read("c\n1 2 3 4\n"), status,
              "butns.7:2: found \"1 2 3 4\", expected a BPM index and four signals");
  EXPECT_EXIT(read("1 2 3 nan 5\n"), status, "butns.7:1: found .*, expected a BPM index and four");
  EXPECT_EXIT(read("E T1      none\n"), status,
              "butns.7:1: found .*, expected a beam current in mA");
  EXPECT_EXIT(read("P T1\n"), status, "butns.7:1: found .*, expected a beam current in mA");
  // A current that begins before column 11 would be cut: 0.4 instead of 123.4.
  for (const char* cut : {"E T1   123.4\n", "P T1 5.5\n", "P T1 5.5       6.5\n", "  E T1  2 7\n",
                          "E T1    x12.5\n", "       E T1 5\n"}) {
    EXPECT_EXIT(read(cut), status,
                "butns.7:1: found .*, expected a beam current in mA from column 11 on");
  }
  EXPECT_EXIT(read("5001 2 3 4 5\n"), status, "subscript 5001 of detector is outside");
  EXPECT_EXIT(input::read_orbit(8, 5, true), status,
              "cannot open .*/00/butns.8, the button file of orbit 5 in the list: No such file");
}

TEST(read_the_list, takes_both_orbits_of_every_pair_and_tells_of_the_rest) {
  const scratch::workplace here;
  scratch::write("steering.cal",
                 "# response measurement\ncu1 = -100\nCU2=100 dcu = 200\n fit_cal = 0.5\n"
                 "! orbit1 orbit2 ratio error\n\n"
                 " 101 102  0.98 0.01\n103, 104, 1.02D0, 1E-2, third pair failed\n"
                 "105 106 1.0\n107 one 1 1\n= 5\n108 109 1 0\n");
  input::orbit_list orbit{};
  testing::internal::CaptureStdout();
  input::read_the_list("steering.cal", orbit);
  const std::string expected =
      ": expected \"orbit1 orbit2 ratio error\", key = value or a comment, found ";
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            " Error steering.cal:9" + expected + "\"105 106 1.0\"\n" +  //
                " Error steering.cal:10" + expected + "\"107 one 1 1\"\n" +
                " Error steering.cal:11" + expected + "\"= 5\"\n");
  const int pairs[] = {101, 102, 103, 104, 108, 109, 0};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(orbit(i + 1), pairs[i]);
}

TEST(get_orbit_data, reads_listed_orbits_into_the_slots_of_their_places) {
  const scratch::workplace here;
  fit::reset();
  write_orbit(5, "E T1      3\n");
  write_orbit(12345, "P T1      4\n");
  scratch::write("bpm_gain_anal_1.input",
                 "&BPM_gain_anal_params fit_bpm_idx = 2*1, 48\n orbit = 5, orbit(1000) = 12345,\n"
                 "read_current_from_butns_file = T /\n");
  scratch::answer("missing.input\n\n2\n");
  testing::internal::CaptureStdout();
  input::get_orbit_data();
  const std::string question =
      " Input command file ? \n"
      " This can be a bpm gain anal input file, e.g. \"bpm_gain_anal_1.input\" \n"
      "   or, ORM data, e.g. \"steering_2009-DEC-18.cal\" \n"
      " Input command file : ";
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            question + " ERROR: CANNOT OPEN FILE: missing.input\n" + question +
                " Detectors with data \n"
                "           0-           1,           1-           1,           2-          48,\n"
                " Index ?  index=           2 fit_bpm_idx(bpm_index)=          48\n"
                " Data written to file bpm_gain_anal_1.input_out\n");
  EXPECT_EQ(fit::bpm, 48);
  EXPECT_EQ(fit::in_file.trimmed(), "bpm_gain_anal_1.input");

  // Two orbits are counted; the list's gap leaves slots 2..999 empty.
  EXPECT_EQ(fit::norbits, 2);
  EXPECT_EQ(fit::orbit_data(1).detector(1).button(2), 512);
  EXPECT_EQ(fit::orbit_data(1).detector(100).button(2), 52.5);
  EXPECT_EQ(fit::orbit_data(2).detector(1).button(2), 0);
  EXPECT_EQ(fit::orbit_data(1000).detector(1).button(4), 1234514);
  EXPECT_EQ(fit::orbit_data(1000).detector(100).button(3), 123450);
  EXPECT_EQ(fit::orbit_data(1000).current(), 4);
  const std::string archive = here / "machine_data/orbit/";
  EXPECT_EQ(scratch::content("bpm_gain_anal_1.input_out"),
            " Data written to file bpm_gain_anal_1.input_out\n"
            "# slot       orbit     current  bpms  file\n"
            "     1           5      3.0000     2  " +
                archive + "00/butns.5\n" + "  1000       12345      4.0000     2  " + archive +
                "12/butns.12345\n");
}

// The group may stand further down: the first line alone decides.
TEST(get_orbit_data, takes_a_file_with_a_title_for_a_list) {
  const scratch::workplace here;
  fit::reset();
  write_orbit(5);
  write_orbit(6);
  scratch::write("titled.cal", "! steering run\n&bpm_gain_anal_params\n orbit = 9\n6 5 1.0 0.1\n");
  scratch::answer("titled.cal\n100\n");
  testing::internal::CaptureStdout();
  input::get_orbit_data();
  const std::string shown = testing::internal::GetCapturedStdout();
  EXPECT_NE(shown.find(" Error titled.cal:2: expected"), std::string::npos);
  EXPECT_NE(shown.find("\n           1-           1,"), std::string::npos);
  EXPECT_NE(shown.find("         100-         100,\n"), std::string::npos);
  EXPECT_EQ(fit::bpm, 100);
  EXPECT_EQ(fit::norbits, 2);
  EXPECT_EQ(fit::orbit_data(1).detector(1).button(1), 611);
  EXPECT_EQ(fit::orbit_data(2).detector(1).button(1), 511);
}

TEST(get_orbit_data_death, ends_with_one_clear_line) {
  const scratch::workplace here;
  const auto run = [](const char* answers) {
    scratch::answer(answers);
    scratch::show_output();
    input::get_orbit_data();
  };
  const auto status = testing::ExitedWithCode(1);
  scratch::write("good.input", "&bpm_gain_anal_params\n fit_bpm_idx = 1\n/\n");
  scratch::write("bad.input", "&bpm_gain_anal_params\n fit_bpm_idx = 1\n orbit = none\n/\n");
  scratch::write("many.cal", [] {
    std::string pairs;
    for (int i = 0; i < 501; ++i) pairs += "5 6 1 0\n";
    return pairs;
  }());
  EXPECT_EXIT(run("bad.input\n"), status,
              "ERROR READING bad.input\nbutngain: run-time error: bad.input:3: orbit: found "
              "\"none\", expected a whole number\n$");
  EXPECT_EXIT(run("good.input\n-1\n"), status, "subscript -1 of fit_bpm_idx is outside 0..100");
  EXPECT_EXIT(run("good.input\n101\n"), status, "subscript 101 of fit_bpm_idx is outside 0..100");
  EXPECT_EXIT(run("many.cal\n1\n"), status, "subscript 1001 of orbit is outside 1..1000");
  EXPECT_EXIT(run("none.input\n"), status,
              "CANNOT OPEN FILE: none.input\n(.*\n)+.*end of input at \"Input command file :\"");
  EXPECT_EXIT(run(".\n"), status, "CANNOT OPEN FILE: \\.\n");
  // 97 characters: "_out" would be cut off, and the result would replace its own input.
  const std::string long_name(97, 'n');
  scratch::write(long_name, "&bpm_gain_anal_params /\n");
  EXPECT_EXIT(run((long_name + "\n").c_str()), status, "n\" is not a file name of at most 96 char");
}

}  // namespace
