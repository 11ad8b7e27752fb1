#include "gain_template.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "scratch.hpp"

namespace {

using gain_template::bpm_number;

// The tables of one reading; too large for the stack.
struct tables {
  gain_template::file_name file;
  gain_template::comment_list comments;
  gain_template::gain_table0 table0;
  gain_template::gain_table1 table1;
};

std::unique_ptr<tables> read(const std::string& name) {
  auto read = std::make_unique<tables>();
  read->file.assign(name);
  gain_template::read_kbpmii_button_gain(read->file, read->comments, read->table0, read->table1);
  return read;
}

// Rows of a section: gain of range r is `first` + block + button / 10 + r / 1000.
std::string rows(double first) {
  const char* const button_names[] = {"TI", "BI", "BO", "TO"};
  std::string text;
  for (int block = 0; block < 2; ++block) {
    for (int button = 0; button < 4; ++button) {
      text += " " + std::to_string(block) + " " + button_names[button];
      for (int range = 0; range <= 10; ++range) {
        text += " " + std::to_string(first + block + (button / 10.0) + (range / 1000.0));
      }
      text += "\n";
    }
  }
  return text;
}

const std::string names = "[NAMES]\n 12 12W\n 5000,47W_XBSM1\n";

TEST(gain_template, fills_a_table_per_timing_block) {
  const scratch::workplace here;
  scratch::write("gains.txt", "# Gains of May\n#  second line\n\n" + names +
                                  "# not kept\n[BPM_47W_XBSM1]\n" + rows(2) + "\n[BPM_12W]\n" +
                                  rows(0.5));
  const auto found = read("$KOVR_ONLINE/gains.txt");
  EXPECT_EQ(found->comments(1).trimmed(), "Gains of May");
  EXPECT_EQ(found->comments(2).trimmed(), " second line");
  EXPECT_EQ(found->comments(3).trimmed(), "");

  EXPECT_EQ(found->table0(12).label.trimmed(), "12W");
  EXPECT_EQ(found->table1(5000).label.trimmed(), "47W_XBSM1");
  EXPECT_DOUBLE_EQ(found->table0(12).button(0).range(0), 0.5);
  EXPECT_DOUBLE_EQ(found->table0(12).button(3).range(10), 0.81);
  EXPECT_DOUBLE_EQ(found->table1(12).button(1).range(4), 1.604);
  EXPECT_DOUBLE_EQ(found->table1(5000).button(2).range(0), 3.2);
  EXPECT_EQ(found->table0(13).label.trimmed(), "");
  EXPECT_EQ(found->table0(13).button(0).range(0), 0);

  EXPECT_EQ(bpm_number("12W"), 12);
  EXPECT_EQ(bpm_number("47W_XBSM1"), 5000);
  EXPECT_EQ(bpm_number("13W"), -1);
  EXPECT_EQ(bpm_number(""), -1);
}

TEST(gain_template, repeats_count_and_a_second_reading_forgets_the_first) {
  const scratch::workplace here;
  std::string ones;
  for (const char* row : {"0 TI", "1 TO", "0 BO", "0 TO", "1 TI", "0 BI", "1 BI", "1 BO"}) {
    ones += std::string{row} + " 11*1.0\n";
  }
  scratch::write("one.txt", "# one\n[NAMES]\n12 12W\n[BPM_12W]\n" + ones);
  scratch::write("two.txt", "[NAMES]\n12 12E\n13 13E\n[BPM_13E]\n" + ones);
  auto found = read("one.txt");
  EXPECT_EQ(found->table1(12).button(3).range(10), 1);
  found->file.assign("");
  scratch::answer("\nthree.txt\ntwo.txt\n");
  testing::internal::CaptureStdout();
  gain_template::read_kbpmii_button_gain(found->file, found->comments, found->table0,
                                         found->table1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            " Gain template file ?  Gain template file ?  ERROR: CANNOT OPEN FILE: three.txt\n"
            " Gain template file ? ");
  EXPECT_EQ(found->file.trimmed(), "two.txt");
  EXPECT_EQ(found->comments(1).trimmed(), "");
  EXPECT_EQ(found->table1(12).button(3).range(10), 0);
  EXPECT_EQ(found->table1(13).button(3).range(10), 1);
  EXPECT_EQ(bpm_number("12W"), -1);
  EXPECT_EQ(bpm_number("12E"), 12);
}

TEST(gain_template_death, names_file_line_and_what_was_expected) {
  const scratch::workplace here;
  std::string comments;
  for (int i = 0; i < 101; ++i) comments += "#\n";
  const std::string one = "[NAMES]\n12 12W\n[BPM_12W]\n";
  const struct {
    std::string text;
    const char* message;
  } damages[] = {
      {"12 12W\n", "bad.txt:1: expected a section, .NAMES. or .BPM_name., found \"12 12W\""},
      {"[BPM_12W]\n", "bad.txt:1: expected a BPM of section .NAMES., which stands above"},
      {"[GAINS]\n", "bad.txt:1: expected .NAMES. or .BPM_name., found \".GAINS.\""},
      {"[NAMES]\n12W 12\n", "bad.txt:2: expected a BPM number in 0..5000 and a name"},
      {"[NAMES]\n5001 X\n", "bad.txt:2: expected a BPM number in 0..5000 and a name"},
      {"[NAMES]\n12\n", "bad.txt:2: expected a BPM number in 0..5000 and a name"},
      {"[NAMES]\n1 0123456789\n", "bad.txt:2: .* a name of at most 9 characters"},
      {names + "12 12E\n", "bad.txt:4: expected each number and each name once"},
      {names + "13 12W\n", "bad.txt:4: expected each number and each name once"},
      {one + "0 TI 1.0\n", "bad.txt:4: expected eleven gains, also for range 1, found"},
      {one + "2 TI 11*1\n", "bad.txt:4: expected block 0 or 1, button TI, BI, BO or TO"},
      {one + "0 IT 11*1\n", "bad.txt:4: expected block 0 or 1, button TI, BI, BO or TO"},
      {one + "0 TI 11*1\n0 TI 11*1\n", "bad.txt:5: expected each block and button once"},
      {one + "0 TI 11*1\n", "bad.txt: .BPM_12W. has no row \"0 BI\""},
      {one + rows(1) + "[BPM_12W]\n", "bad.txt:12: expected each BPM once"},
      {comments, "subscript 101 of old_comments_list is outside 1..100"},
  };
  for (const auto& [text, message] : damages) {
    scratch::write("bad.txt", text);
    EXPECT_EXIT(read("bad.txt"), testing::ExitedWithCode(1), message);
  }
}

}  // namespace
