#include "namelist.hpp"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "scratch.hpp"
#include "text_file.hpp"

namespace {

// A group with one member of each sort; -9 marks what nobody touched.
struct values {
  util::bounded<std::int32_t, 0, 5, "list"> list{{-9, -9, -9, -9, -9, -9}};
  std::int32_t level = -9;
  bool flag = false;
};

// What is wrong with the text; nothing when all of it was read.
std::optional<std::string> read(const std::string& text, values& into) {
  scratch::write("group.txt", text);
  auto file = util::open_text_file("group.txt");
  EXPECT_TRUE(file);
  const std::array members{namelist::array("list", into.list),
                           namelist::variable("level", into.level),
                           namelist::variable("flag", into.flag)};
  const util::status why = namelist::read_group(*file, "cuts", members);
  return why ? std::optional{util::line_of(*why)} : std::nullopt;
}

struct good_group {
  const char* what;
  const char* text;
  std::array<std::int32_t, 6> list;
  std::int32_t level;
};
const good_group good_groups[] = {
    {"one value a name", "&cuts\n level = 4\n list = 7\n/\n", {7, -9, -9, -9, -9, -9}, 4},
    {"all on one line", "&cuts list=1 2,3 level=+4/", {1, 2, 3, -9, -9, -9}, 4},
    {"nothing", "&cuts /", {-9, -9, -9, -9, -9, -9}, -9},
    {"values over lines",
     "&cuts\n list = 1,\n  2,\n\n 3\n 4 level\n =\n 4\n/",
     {1, 2, 3, 4, -9, -9},
     4},
    {"repeats and empty places", "&cuts list = 2*5, , 2*, 7 /", {5, 5, -9, -9, -9, 7}, -9},
    {"a subscript", "&cuts list(3) = 1, 2 list(0)=8/", {8, -9, -9, 1, 2, -9}, -9},
    {"a section", "&cuts list ( 1 : 2 ) = 2*3, LIST(4:) = 6 /", {-9, 3, 3, -9, 6, -9}, -9},
    {"the later value holds", "&cuts list = 6*1 list(2) = 2 /", {1, 1, 2, 1, 1, 1}, -9},
    {"letter case", "&Cuts LiSt = 1 LEVEL = 2 &END", {1, -9, -9, -9, -9, -9}, 2},
    {"tabs and CR LF",
     "\t&cuts\r\n\tlist\t=\t1,\t2\r\n\tlevel\t=\t3\r\n\t/\r\n",
     {1, 2, -9, -9, -9, -9},
     3},
    {"trailing commas", "&cuts\n list = 1, 2,\n level = 3,\n/", {1, 2, -9, -9, -9, -9}, 3},
    {"commas behind a full array", "&cuts list = 6*1,,\n 9* level = 3,,/", {1, 1, 1, 1, 1, 1}, 3},
    {"comments",
     "&cuts ! a / no = end, don't\n! list = 9\n list = 1! 8\n 2 !\n/ 3",
     {1, 2, -9, -9, -9, -9},
     -9},
    {"quotes", "&cuts list = '1', \"2\" 2*'3' level = \"4\" /", {1, 2, 3, 3, -9, -9}, 4},
    {"dollar signs", " $cuts list = 1 $end", {1, -9, -9, -9, -9, -9}, -9},
    {"text and other groups first",
     "a title\n! &cuts list=8/\n&cuts_2 list=9 /\n&cuts list=1 /\n&cuts list=5/",
     {1, -9, -9, -9, -9, -9},
     -9},
};

TEST(namelist, reads_what_other_programs_write) {
  const scratch::workplace here;
  for (const auto& [what, text, list, level] : good_groups) {
    SCOPED_TRACE(what);
    values found;
    EXPECT_EQ(read(text, found), std::nullopt);
    EXPECT_EQ(found.list.item, list);
    EXPECT_EQ(found.level, level);
  }
}

TEST(namelist, logicals_in_every_form) {
  const scratch::workplace here;
  for (const char* yes : {"T", ".t.", ".TRUE.", "true", "'T'", ".True. ,"}) {
    values found;
    EXPECT_EQ(read(std::string{"&cuts flag = "} + yes + "\n/", found), std::nullopt);
    EXPECT_TRUE(found.flag) << yes;
  }
  for (const char* no : {"f", ".F", "False", ".false."}) {
    values found;
    found.flag = true;
    EXPECT_EQ(read(std::string{"&cuts flag="} + no + ", level = 1/", found), std::nullopt);
    EXPECT_FALSE(found.flag) << no;
  }
  // A name that begins with F is no value.
  values found;
  found.flag = true;
  EXPECT_EQ(read("&cuts flag = \n flag = T\n/", found), std::nullopt);
  EXPECT_TRUE(found.flag);
}

struct bad_group {
  const char* text;
  const char* message;
};
const bad_group bad_groups[] = {
    {"&other\n/\n", "group.txt: the file has no such group, expected \"&cuts\""},
    {"&cuts\n list = 1\n", "group.txt:2: the file ends inside the group \"&cuts\", expected \"/\""},
    {"&cuts\n list = 1,\n 2, x\n/\n", "group.txt:3: list: found \"x\", expected a whole number"},
    {"&cuts list = 1.5 /", "group.txt:1: list: found \"1.5\", expected a whole number"},
    {"&cuts list = 2147483648 /",
     "group.txt:1: list: found \"2147483648\", expected a whole number"},
    {"&cuts\n\n flag = 1\n level = 2 /",
     "group.txt:3: flag: found \"1\", expected a logical such as .true."},
    {"&cuts\n list = 7*1 /", "group.txt:2: list: no place is left for the value 1"},
    {"&cuts list(1:2) = 3 4\n 5 /", "group.txt:2: list: no place is left for the value 5"},
    {"&cuts level = 1, 2 /", "group.txt:1: level: no place is left for the value 2"},
    {"&cuts\n list(6) = 1 /", "group.txt:2: list: found \"6\", expected a subscript in 0..5"},
    {"&cuts list() = 1 /", "group.txt:1: list: found \"\", expected a subscript in 0..5"},
    {"&cuts list) = 1 /", "group.txt:1: list: found \"\", expected a subscript in 0..5"},
    {"&cuts list(3:2) = 1 /", "group.txt:1: list: found \"3:2\", expected a subscript in 0..5"},
    {"&cuts\n limit = 3 /", "group.txt:2: found \"limit\", expected one of list, level, flag"},
    {"&cuts = 3 /", "group.txt:1: found \"\", expected one of list, level, flag"},
    {"&cuts 5 list = 3 /",
     "group.txt:1: found \"5\", expected \"name = values\" after the group's name"},
};

TEST(namelist, names_file_line_and_what_was_expected) {
  const scratch::workplace here;
  for (const auto& [text, message] : bad_groups) {
    values found;
    EXPECT_EQ(read(text, found).value_or("nothing wrong"), message);
  }
}

// An operator's reading of the message must not be hurt by damage anywhere in the text: whatever is
// cut off, the reader tells what is missing, and never reads past the end.
TEST(namelist, a_group_cut_short_anywhere_is_told) {
  const scratch::workplace here;
  const std::string whole = "&cuts list(2:3) = 2*'5', ! two\n flag = .true., level = 4 /";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    values found;
    EXPECT_TRUE(read(whole.substr(0, length), found).has_value()) << length;
  }
}

}  // namespace
