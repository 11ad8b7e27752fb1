#include "file_units.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "line_cutter.hpp"
#include "run_time.hpp"
#include "scratch_fixture.hpp"

namespace {

using scratch::content;

struct file_units : scratch::fixture {};
using file_units_death = file_units;

TEST_F(file_units, first_opening_replaces_and_coming_back_appends) {
  std::ofstream{"a.txt"} << "old\n";
  for (const char* text : {"one", "two"}) {
    const int unit = util::lunget();
    util::open_output(unit, "a.txt");
    util::write_line(unit, text);
    util::close_unit(unit);
  }
  EXPECT_EQ(content("a.txt"), "one\ntwo\n");
}

TEST_F(file_units, a_unit_nobody_opened_writes_to_fort_n) {
  util::write_line(67, "echo");
  util::flush_all_units();
  EXPECT_EQ(content("fort.67"), "echo\n");
}

TEST_F(file_units, lunget_gives_the_first_free_unit_and_reports_when_none_is) {
  EXPECT_EQ(util::lunget(), 30);
  for (int unit = 30; unit <= 60; ++unit) util::open_output(unit, "f" + std::to_string(unit));
  util::close_unit(44);
  EXPECT_EQ(util::lunget(), 44);
  util::open_output(44, "f44");
  util::exit_on_error = false;
  testing::internal::CaptureStdout();
  EXPECT_EQ(util::lunget(), 0);
  EXPECT_NE(
      testing::internal::GetCapturedStdout().find("NO LOGICAL UNIT OPENABLE BETWEEN 30 AND 60!"),
      std::string::npos);
  util::exit_on_error = true;
}

TEST_F(file_units, lines_lose_their_line_end_and_the_last_needs_none) {
  std::ofstream{"in.txt"} << "a\r\n\nlast";
  ASSERT_EQ(util::open_old(30, "in.txt"), 0);
  std::string line;
  std::string all;
  for (int pass = 0; pass < 2; ++pass) {
    while (util::read_line(30, line)) all += "[" + line + "]";
    util::rewind_unit(30);
  }
  EXPECT_EQ(all, "[a][][last][a][][last]");
  EXPECT_EQ(util::open_old(31, "missing"), ENOENT);
  EXPECT_EQ(util::open_old(31, "."), EISDIR);
  EXPECT_FALSE(util::is_open(31));
}

TEST_F(file_units, a_handle_closes_its_unit) {
  {
    const util::unit_handle handle{util::lunget()};
    util::open_output(handle.number(), "h.txt");
    EXPECT_TRUE(util::is_open(handle.number()));
  }
  EXPECT_FALSE(util::is_open(30));
}

TEST_F(file_units_death, a_full_disk_names_file_and_reason) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  EXPECT_EXIT(
      {
        util::open_output(30, "/dev/full");
        util::write_line(30, "text");
        util::close_unit(30);
      },
      testing::ExitedWithCode(1), "run-time error: writing /dev/full: No space left on device");
  EXPECT_EXIT(util::open_output(30, "no/such/dir"), testing::ExitedWithCode(1),
              "cannot open no/such/dir for writing: No such file or directory");
}

// The ways a run ends know nothing of units; each must find the open ones all the same.
TEST_F(file_units_death, every_way_to_end_puts_on_disk_what_was_written) {
  const struct {
    const char* what;
    void (*end)();
    int status;
  } ends[] = {{"a bad subscript", [] { util::subscript_error("but", 5, 1, 4); }, 1},
              {"the fatal exit", [] { util::err_exit(); }, 2},
              {"a normal end", [] { util::stop_program(0); }, 0}};
  for (const auto& [what, end, status] : ends) {
    SCOPED_TRACE(what);
    const auto write_and_end = [end = end] {
      for (const int unit : {11, 31}) {
        util::open_output(unit, "left_" + std::to_string(unit));
        util::write_line(unit, "text");
      }
      end();
    };
    EXPECT_EXIT(write_and_end(), testing::ExitedWithCode(status), "");
    for (const char* name : {"left_11", "left_31"}) {
      EXPECT_EQ(content(name), "text\n");
      std::filesystem::remove(name);
    }
  }
}

// A directory that could not be made says why, also to those who only find it missing.
TEST_F(file_units_death, an_open_below_a_directory_that_could_not_be_made_names_the_reason) {
  util::note_unmade_directory("run", EACCES);
  EXPECT_EXIT(util::open_output(30, "run/orbit.dat"), testing::ExitedWithCode(1),
              "cannot open run/orbit.dat for writing: its directory could not be made: Permission");
  EXPECT_EXIT(util::open_output(30, "run2/orbit.dat"), testing::ExitedWithCode(1),
              "cannot open run2/orbit.dat for writing: No such file or directory");
}

TEST_F(file_units_death, a_line_without_an_end_is_no_text) {
  const std::string longest(util::longest_line, '7');
  std::ofstream{"long.txt"} << longest << "\n" << longest << "7";
  std::string line;
  const auto read_all = [&](const char* path) {
    ASSERT_EQ(util::open_old(30, path), 0);
    while (util::read_line(30, line)) {
    }
  };
  EXPECT_EXIT(read_all("long.txt"), testing::ExitedWithCode(1),
              "run-time error: long.txt:2: no line end within 1048576 characters, expected a text");
  std::ofstream{"good.txt"} << longest << "\n\n" << longest;
  ASSERT_EQ(util::open_old(30, "good.txt"), 0);
  for (const std::size_t size : {longest.size(), std::size_t{0}, longest.size()}) {
    EXPECT_TRUE(util::read_line(30, line));
    EXPECT_EQ(line.size(), size);
  }
  EXPECT_FALSE(util::read_line(30, line));
  if (!std::filesystem::exists("/dev/zero")) GTEST_SKIP() << "no /dev/zero here";
  EXPECT_EXIT(read_all("/dev/zero"), testing::ExitedWithCode(1), "/dev/zero:1: no line end within");
}

}  // namespace
