// The data-line scanner against the C library's scan.
#include "data_line.hpp"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "literal_rawfile.hpp"
#include "printed_lines.hpp"

namespace {

using rawfile::data_columns;

// More lines than the tests usually scan: BUTNGAIN_SCANNED_LINES=5000000
int lines_to_scan() {
  const char* wanted = std::getenv("BUTNGAIN_SCANNED_LINES");
  return wanted == nullptr ? 300000 : std::atoi(wanted);
}

std::vector<std::string> words_of(const std::string& text) {
  std::istringstream in{text};
  return {std::istream_iterator<std::string>{in}, {}};
}

struct line_maker {
  std::mt19937 random{20140304};

  int below(int n) { return std::uniform_int_distribution{0, n - 1}(random); }

  // A number of up to so many digits, every length equally often.
  int number(int digits) {
    int limit = 1;
    for (int i = below(digits + 1); i > 0; --i) limit *= 10;
    return below(limit);
  }

  std::string printed() {
    const auto reading = [this] { return below(12) == 0 ? -number(6) : number(7); };
    return fmt::format("{}       {:07x}  {:7d}  {:7d}  {:7d}  {:7d}\n", below(2), below(1 << 28),
                       reading(), reading(), reading(), reading());
  }

  // Six numbers that fit their columns, with any white space around them.
  std::string plain() {
    static constexpr const char* gaps[] = {" ", "  ", "\t", "        ", " \t ", "   ", " \r"};
    const auto gap = [this] { return std::string{gaps[below(std::size(gaps))]}; };
    std::string line = below(4) == 0 ? gap() : "";
    line += std::to_string(below(2)) + gap();
    line += below(3) == 0 ? fmt::format("{:X}", below(1 << 28)) : fmt::format("{:x}", number(7));
    for (int k = 0; k < 4; ++k) {
      line += gap();
      if (below(8) == 0) {
        line += (below(2) == 0 ? '+' : '-') + std::to_string(number(6));
      } else {
        line += fmt::format("{:0{}}", number(7), below(4) == 0 ? 7 : 1);
      }
    }
    return line + (below(4) == 0 ? gap() : "") + "\n";
  }

  // Columns of odd widths and spacings.
  std::string spaced() {
    static constexpr const char* gaps[] = {" ", "  ", "\t", "", "   ", " \r", "\v", ","};
    static const auto values = words_of(
        "0 1 -1 +7 12345678 -1234567 0x1f 0x 0X -0x -0x12 +0xabcdef abcdefg ABCDEF0 - + --1 "
        "2147483648 4294967297 0xg 00000000012 1.5 1e5 -fffffff x 99999999999999999999 "
        "-99999999999999999999 9223372036854775807 9223372036854775808 -9223372036854775808 "
        "-9223372036854775809 0000000x1 + nan \xff 1_0");
    std::string line;
    for (int k = below(8); k >= 0; --k) {
      line += below(3) == 0
                  ? std::to_string(number(9) - 1000)
                  : values[static_cast<std::size_t>(below(static_cast<int>(values.size())))];
      line += gaps[below(std::size(gaps))];
    }
    return line + "\n";
  }

  // A few characters changed, lost, doubled or put in.
  std::string damaged(std::string line) {
    static constexpr std::string_view put_in = " 0123456789abcdefxX+-.#:\t\r!`/@gG_\x80\x7f\xb0";
    for (int times = 1 + below(3); times > 0 && !line.empty(); --times) {
      const auto at = static_cast<std::size_t>(below(static_cast<int>(line.size())));
      const char c = put_in[static_cast<std::size_t>(below(static_cast<int>(put_in.size())))];
      switch (below(5)) {
        case 0:
          line.erase(at, 1);
          break;
        case 1:
          line.insert(at, 1, c);
          break;
        case 2:
          line.insert(at, line.substr(at, static_cast<std::size_t>(1 + below(9))));
          break;
        default:
          line[at] = c;
      }
    }
    return line;
  }

  std::string any() {
    switch (below(5)) {
      case 0:
        return printed();
      case 1:
        return spaced();
      case 2:
        return damaged(spaced());
      case 3:
        return plain();
      default:
        return damaged(printed());
    }
  }
};

constexpr data_columns before{-7, -6, -5, -4, -3, -2};

data_columns by_c_library(const std::string& line, int& converted) {
  data_columns columns = before;
  converted = std::max(literal::scan_data_line(line.c_str(), columns.data()), 0);
  return columns;
}

}  // namespace

TEST(data_line, is_scanned_as_the_c_library_scans_it) {
  line_maker make;
  for (int i = lines_to_scan(); i > 0; --i) {
    const std::string line = make.any();
    int expected_count = 0;
    const data_columns expected = by_c_library(line, expected_count);
    data_columns columns = before;
    const int count = rawfile::scan_data_line(line, columns);
    ASSERT_EQ(columns, expected) << line;
    ASSERT_EQ(count, expected_count) << line;
  }
}

TEST(data_line, taken_by_its_columns_holds_what_the_c_library_reads) {
  line_maker make;
  int taken = 0;
  for (int i = lines_to_scan(); i > 0; --i) {
    const std::string line = make.below(2) == 0 ? make.printed() : make.damaged(make.printed());
    const int block = make.below(2);
    data_columns columns = before;
    const std::size_t lines = rawfile::take_printed_lines(
        line, block, 1, {&columns[1], {&columns[2], &columns[3], &columns[4], &columns[5]}});
    if (lines == 0) continue;
    ++taken;
    int converted = 0;
    columns[0] = block;
    ASSERT_EQ(columns, by_c_library(line, converted)) << line;
    ASSERT_EQ(line.find('\n'), rawfile::printed_line - 1) << line;
  }
  EXPECT_GT(taken, lines_to_scan() / 20);
}

#ifdef __x86_64__
// Whatever the characters: a processor must never change what is read, nor where reading stops.
TEST(data_line, is_taken_by_every_processor_alike) {
  if (__builtin_cpu_supports("avx2") == 0) GTEST_SKIP() << "no AVX2 here";
  line_maker make;
  int taken = 0;
  for (int i = lines_to_scan() / 4; i > 0; --i) {
    std::string text;
    for (int k = 0; k < 4; ++k) {
      text += make.below(3) == 0 ? make.damaged(make.printed()) : make.printed();
    }
    text.resize(4 * rawfile::printed_line, ' ');
    std::uint64_t head = 0;
    std::memcpy(&head, text.data(), sizeof head);
    const auto lines_by = [&](const auto& form, std::array<std::array<std::int32_t, 4>, 5>& v) {
      const rawfile::column_places to{v[0].data(),
                                      {v[1].data(), v[2].data(), v[3].data(), v[4].data()}};
      return form(text.data(), head, std::size_t{4}, to);
    };
    std::array<std::array<std::int32_t, 4>, 5> plain{}, wide{};
    const std::size_t lines = lines_by(rawfile::printed_lines_plain, plain);
    ASSERT_EQ(lines_by(rawfile::printed_lines_avx2, wide), lines) << text;
    ASSERT_EQ(wide, plain) << text;
    taken += static_cast<int>(lines);
  }
  EXPECT_GT(taken, lines_to_scan() / 20);
}
#endif

TEST(data_line, of_plain_numbers_holds_what_the_c_library_reads) {
  line_maker make;
  const std::string behind(rawfile::plain_window, '\n');
  int taken = 0;
  for (int i = lines_to_scan(); i > 0; --i) {
    std::string line = make.plain();
    if (make.below(2) == 0) line = make.damaged(line);
    line += '\n';
    line.resize(line.find('\n') + 1);  // one line again
    const int block = make.below(2);
    data_columns columns = before;
    const auto plain = rawfile::take_plain_lines(
        line + behind, block, 1,
        {&columns[1], {&columns[2], &columns[3], &columns[4], &columns[5]}});
    if (plain.lines == 0) continue;
    ++taken;
    int converted = 0;
    columns[0] = block;
    ASSERT_EQ(columns, by_c_library(line, converted)) << line;
    ASSERT_EQ(converted, 6) << line;
    ASSERT_EQ(plain.characters, line.size()) << line;
    ASSERT_EQ(line.find(':'), std::string::npos) << line;
  }
  EXPECT_GT(taken, lines_to_scan() / 20);
}

TEST(data_line, of_plain_numbers_is_taken_however_it_is_spaced) {
  const std::string blanks(200, ' ');
  struct {
    const char* what;
    std::string line;
    bool taken;
  } const cases[] = {
      {"single blanks", "0 8abcdef 1000 20000 -300000 4000000\n", true},
      {"tabs, blanks at both ends, CR", " \t0\t8abcdef\t 1000\t20000 300000 +4 \r\n", true},
      {"short and upper-case phase words", "0 1F -1 +2 3 4\n", true},
      {"full columns", "0 fffffff 9999999 -999999 +999999 0000000\n", true},
      {"longer than plain lines are", "0 1 2 3 4" + blanks + "5\n", false},
      {"a number wider than its column", "0 1 10000000 3 4 5\n", false},
      {"a signed number wider than its column", "0 1 -1000000 3 4 5\n", false},
      {"a phase word wider than its column", "0 10000000 2 3 4 5\n", false},
      {"another timing block", "1 1 2 3 4 5\n", false},
      {"a longer number in front", "00 1 2 3 4 5\n", false},
      {"five numbers, then five of the next line", "0 1 2 3 4\n5 6 7 8 9\n", false},
      {"numbers that touch", "0 1 2 3 4-5\n", false},
      {"a comment behind", "0 1 2 3 4 5 # good\n", false},
      {"a colon behind", "0 1 2 3 4 5 :\n", false},
      {"a zero character", std::string{"0 1 2 3 4 5\0\n", 13}, false},
      {"a prefix", "0 0x1 2 3 4 5\n", false}};
  for (const auto& c : cases) {
    std::array<std::int32_t, 5> v{};
    const auto plain =
        rawfile::take_plain_lines(c.line + blanks, 0, 1, {&v[0], {&v[1], &v[2], &v[3], &v[4]}});
    EXPECT_EQ(plain.lines, c.taken ? 1U : 0U) << c.what;
    EXPECT_EQ(plain.characters, c.taken ? c.line.size() : 0U) << c.what;
  }
}

TEST(data_line, of_usual_columns_is_never_left_to_the_slow_scan) {
  struct {
    const char* what;
    const char* line;
    bool taken;
  } const cases[] = {
      {"as printed", "0       8abcdef     1000    20000   300000  4000000\n", true},
      {"all zeros", "0       0000000        0        0        0        0\n", true},
      {"full columns", "0       fffffff  9999999  9999999  9999999  9999999\n", true},
      {"another timing block", "1       8abcdef     1000    20000   300000  4000000\n", false},
      {"upper-case digits", "0       8ABCDEF     1000    20000   300000  4000000\n", false},
      {"signs", "0       8abcdef    -1000  -999999       -1  4000000\n", true},
      {"a plus", "0       8abcdef    +1000    20000   300000  4000000\n", false},
      {"two signs", "0       8abcdef    --100    20000   300000  4000000\n", false},
      {"a sign among blanks", "0       8abcdef    - 100    20000   300000  4000000\n", false},
      {"a sign alone", "0       8abcdef        -    20000   300000  4000000\n", false},
      {"an empty column", "0       8abcdef             20000   300000  4000000\n", false},
      {"a blank among digits", "0       8abcdef    1 000    20000   300000  4000000\n", false},
      {"a sign too far left", "0       8abcdef -1000000    20000   300000  4000000\n", false},
      {"no line end", "0       8abcdef     1000    20000   300000  4000000 ", false},
      {"left-justified", "0       8abcdef  1000       20000   300000  4000000\n", false},
      {"a tab", "0\t      8abcdef     1000    20000   300000  4000000\n", false}};
  for (const auto& c : cases) {
    std::array<std::int32_t, 5> v{};
    EXPECT_EQ(rawfile::take_printed_lines(c.line, 0, 9, {&v[0], {&v[1], &v[2], &v[3], &v[4]}}),
              c.taken ? 1U : 0U)
        << c.what;
  }
}

TEST(data_line, splits_numbers_wider_than_their_column) {
  data_columns c{};
  // Seven characters go to each: -1000000 leaves its last digit to the next column.
  EXPECT_EQ(rawfile::scan_data_line("0       0000001 -10000007       8        9\n", c), 6);
  EXPECT_EQ(c, (data_columns{0, 1, -100000, 7, 8, 9}));
}
