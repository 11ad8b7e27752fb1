// Readers by themselves: nothing here sees the variables of a session.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "button_file.hpp"
#include "command_file.hpp"
#include "list_io.hpp"
#include "plain_numbers.hpp"
#include "scratch.hpp"
#include "series_file.hpp"
#include "turn_text.hpp"

namespace {

const std::string header = "Location : 12W\n--- Bunch 1 ---\n";
const std::string turn = " 200.5 -300 400 500.25 128 256 0.001 -0.002\n";

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

input::text_run read_run(const std::string& path) {
  auto file = util::open_text_file(path);
  EXPECT_TRUE(file);
  return input::read_plain_run(*file);
}

// A caller can go on: the fault is told to nobody, and what came before it is there.
TEST(readers, a_fault_is_a_value_beside_what_was_read) {
  const scratch::workplace here;
  const struct {
    const char* what;
    std::string text;
    int norbits;
    const char* fault;
  } runs[] = {{"a line that is no turn", header + turn + turn + "12 x\n" + turn, 2,
               "run.txt:5: found \"12 x\", expected four signals, two whole phases, x and y"},
              {"one turn too many for the store", header + repeated(turn, 3001), 3000,
               "subscript 3001 of orbit_data is outside 1..3000"},
              {"no line end", header + turn + std::string(util::longest_line + 1, '1'), 1,
               "run.txt:4: no line end within 1048576 characters, expected a text file"}};
  for (const auto& [what, text, norbits, fault] : runs) {
    SCOPED_TRACE(what);
    scratch::write("run.txt", text);
    const auto run = read_run("run.txt");
    ASSERT_TRUE(run.data.fault);
    EXPECT_EQ(util::line_of(*run.data.fault), fault);
    EXPECT_EQ(run.data.norbits, norbits);
    EXPECT_EQ(run.data.orbits(norbits).detector(12).button(1), 200500);
    EXPECT_EQ(run.data.bpms.at(0).seen.kept, norbits + (norbits == 3000 ? 1 : 0));
  }

  store::orbit_store into{"orbit_data"};
  input::series_values values;
  EXPECT_EQ(util::line_of(*input::read_series_file("none.txt", 1, values, into).fault),
            "none.txt: No such file or directory");
  scratch::write("exp_0.txt", repeated("0.1 0.2 11 12 13 14 1 1 1 1\n", 3001));
  const auto series = input::read_series_file("exp_0.txt", 7, values, into);
  EXPECT_EQ(util::line_of(*series.fault), "subscript 3001 of orbit_data is outside 1..3000");
  EXPECT_EQ(series.orbits, 3000);
  EXPECT_EQ(series.echo.size, 3001U * 301);
  EXPECT_EQ(into(3000).detector(7).button(4), 14);

  scratch::write("butns.7", "E T1      2.5\n3 1 2 3 4\n-1 5 6 7 8\n");
  const auto orbit = input::read_button_file("butns.7", 5, into);
  EXPECT_EQ(util::line_of(*orbit.fault), "subscript -1 of detector is outside 0..5000");
  EXPECT_EQ(orbit.current, 2.5);
  EXPECT_EQ(into(5).detector(3).button(4), 4);

  scratch::write("list.cal", "no pair\n" + repeated("5 6 1 0\n", 501));
  const auto list = input::read_orbit_pairs("list.cal");
  EXPECT_EQ(util::line_of(*list.fault), "subscript 1001 of orbit is outside 1..1000");
  EXPECT_EQ(list.orbits.size(), 1000U);
  EXPECT_EQ(
      util::line_of(list.left_out.at(0)),
      "list.cal:1: found \"no pair\", expected \"orbit1 orbit2 ratio error\", key = value or a "
      "comment");
}

// A line that is not plain is read by the rules of free format, and what is plain gives the same.
TEST(readers, lines_of_series_files_are_read_the_same_however_they_are_written) {
  const scratch::workplace here;
  const std::string plain = "-1.5e-3 2.25E-03 1200000 13 -14 15 0.9564839398209506 1.003 1 1";
  const char* const same[] = {
      "-1.5e-3,2.25E-03,1200000,13,-14,15,0.9564839398209506,1.003,1,1",
      "-0.0015 .00225 +1200000 13 -14 15 0.9564839398209506D0 1.003 2*1",
      "\t-15e-4 225.0e-5 1200000 13 -14 15 0.95648393982095060 1003E-3 1 1 7",
      "-1.5D-3 2.25-3 1200000 13 -14 15 0.9564839398209506 1.003 1 1 / "};
  for (const char* line : same) {
    SCOPED_TRACE(line);
    scratch::write("exp_0.txt", plain + "\n" + line + "\n" + plain + "\r\n");
    store::orbit_store into{"orbit_data"};
    input::series_values values;
    const auto read = input::read_series_file("exp_0.txt", 1, values, into);
    ASSERT_EQ(read.orbits, 3);
    EXPECT_FALSE(read.unusable.first);
    for (const int orbit : {2, 3}) {
      EXPECT_EQ(
          std::memcmp(&into(orbit).detector(1), &into(1).detector(1), sizeof(store::bpm_struct)), 0)
          << orbit;
    }
  }
  // What is missing, in any place, is that of the line before, also behind a line with other gains.
  scratch::write("exp_0.txt", plain +
                                  "\n1 2 3 4 5 6 7 8 9 10\n1 2 3 4 5 6 7 8 9 ten\n"
                                  "1 2 3 4 5 6 4*\n" +
                                  plain + "\n");
  store::orbit_store into{"orbit_data"};
  input::series_values values;
  ASSERT_EQ(input::read_series_file("exp_0.txt", 1, values, into).orbits, 5);
  EXPECT_EQ(into(2).detector(1).x, 1);
  EXPECT_EQ(into(2).detector(1).y, 2);
  EXPECT_EQ(into(2).detector(1).button(4), 6);
  EXPECT_EQ(into(3).detector(1).true_gain(4), 10);
  EXPECT_EQ(into(4).detector(1).true_gain(1), 7);
  EXPECT_EQ(into(5).detector(1).true_gain(1), 0.9564839398209506);
}

// Any number that is taken is the one that the other way reads, to the bit.
TEST(readers, plain_numbers_are_those_of_free_format) {
  std::mt19937_64 bits(11);
  for (int i = 0; i < 100000; ++i) {
    const std::uint64_t pattern = bits();
    const int digits = 1 + static_cast<int>(pattern % 25);
    std::string text = i % 3 == 0 ? "-" : "";
    for (int k = 0; k < digits; ++k) {
      if (k > 0 && k == static_cast<int>(pattern >> 8) % 25) text += '.';
      text += static_cast<char>('0' + bits() % 10);
    }
    if (pattern % 7 < 4) text += (i % 2 == 0 ? "e" : "E-") + std::to_string(pattern >> 40 & 127U);
    std::string_view rest{text};
    double value = -1;
    const auto wanted = util::scan_real(text);
    ASSERT_EQ(input::take_plain(rest, value), wanted.has_value()) << text;
    if (wanted) {
      EXPECT_EQ(std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(*wanted)) << text;
    }
  }
  for (const char* odd : {"", "-", ".5", "+1", "1e", "1e+", "1.5D0", "0x10", "nan", "inf", "1,",
                          "1/", "2*1", "'1'", "1e1000"}) {
    std::string_view rest{odd};
    double value = 3;
    std::int32_t whole = 3;
    EXPECT_FALSE(input::take_plain(rest, value)) << odd;
    EXPECT_FALSE(input::take_plain(rest, whole)) << odd;
    EXPECT_EQ(rest, odd);
    EXPECT_EQ(value + whole, 6);
  }
}

// What is behind a short line is counted, and hurts nobody whatever it is.
TEST(readers, rubbish_behind_a_short_line_of_a_series_file_is_no_fault) {
  const scratch::workplace here;
  store::orbit_store into{"orbit_data"};
  input::series_values values;
  scratch::write("exp_0.txt", "0 0 1 2 3 4 1 1 1 1\n\n" + std::string(util::longest_line + 1, '1'));
  const auto read = input::read_series_file("exp_0.txt", 1, values, into);
  EXPECT_FALSE(read.fault);
  EXPECT_EQ(input::unusable_line("exp_0.txt", read),
            "exp_0.txt: line 2 ends the file, lines not read behind it: 1");
}

TEST(readers, several_may_be_at_work_at_once) {
  const scratch::workplace here;
  for (int i = 0; i < 4; ++i) {
    scratch::write("run" + std::to_string(i), header + repeated(turn, 400 + i));
  }
  std::array<input::text_run, 4> runs;
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    threads.emplace_back([&runs, i] { runs.at(i) = read_run("run" + std::to_string(i)); });
  }
  for (std::thread& one : threads) one.join();
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const auto serial = read_run("run" + std::to_string(i));
    ASSERT_EQ(runs.at(i).data.norbits, 400 + static_cast<int>(i));
    const auto parallel = runs.at(i).data.orbits.column(12, serial.data.norbits);
    const auto column = serial.data.orbits.column(12, serial.data.norbits);
    EXPECT_EQ(std::memcmp(parallel.data(), column.data(), column.size_bytes()), 0);
  }
}

}  // namespace
