// The command for people, as a shell sees it.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "sample_text.hpp"

namespace {

struct outcome {
  int status = -1;
  std::string out, err;
};

std::string content_of(const std::string& path) {
  std::ostringstream all;
  all << std::ifstream{path}.rdbuf();
  return all.str();
}

outcome dump(const std::string& arguments) {
  const std::string here = sample::scratch_directory();
  const std::string line = KBPM_DUMP " " + arguments + " >" + here + "out 2>" + here + "err";
  const int ended = std::system(line.c_str());  // NOLINT(*-env33-c): the shell is the point
  return {WIFEXITED(ended) ? WEXITSTATUS(ended) : -1, content_of(here + "out"),
          content_of(here + "err")};
}

}  // namespace

TEST(kbpm_dump, shows_headers_and_what_the_readings_span) {
  const std::string path = sample::written("dump.dat", sample::text({2, 2, 3}));
  const outcome o = dump(path);
  EXPECT_EQ(o.status, 0);
  EXPECT_NE(o.out.find("2 instruments, 2 bunches of 3 turns"), std::string::npos) << o.out;
  // Card 0 of 1W: readings 1000 to 1005, mean 1002.5; block 1 follows block 0. Card 3 reads above
  // its limit of 8191 (8190 in block 1) in all six turns.
  EXPECT_NE(
      o.out.find("1W         b3(TI)      1000      1005      1002.5     100.500      50.000   "
                 "1.000000   0.800000          0\n"),
      std::string::npos)
      << o.out;
  EXPECT_NE(o.out.find("  1.050000   0.700000          6\n"), std::string::npos) << o.out;
}

TEST(kbpm_dump, gives_one_bunch_as_columns) {
  const std::string path = sample::written("dump.dat", sample::text({2, 2, 3}));
  const outcome o = dump(path + " --inst 2W --bunch 1");
  EXPECT_EQ(o.status, 0);
  const auto lines = sample::lines_of(o.out);
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[0].substr(0, 4), "# 2W");
  // Reading 6 of the file: phases 6 x 37 and 6 x 11.
  EXPECT_EQ(lines[1].substr(0, 23), "1 1006 2006 3006 39994 ");
  EXPECT_NE(lines[1].find(" 222 66 6\n"), std::string::npos) << lines[1];
}

TEST(kbpm_dump, takes_names_as_people_write_them) {
  auto lines = sample::lines_of(sample::text({2, 1, 1}));
  for (std::string& line : lines) line.insert(line.size() - 1, "\r");
  const std::string path = sample::written("cr.dat", sample::joined(lines));
  const outcome o = dump(path + " --inst ' 2W\t'");
  EXPECT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.out.substr(0, 5), "# 2W,");
  EXPECT_EQ(dump(path).out.find('\r'), std::string::npos);
}

TEST(kbpm_dump, shows_no_control_characters) {
  std::string text = sample::text({1, 1, 1});
  text.replace(text.find("Location          : 1W") + 20, 2, "\x1b[2J\x07");
  text.replace(text.find("14ns_VAR_G"), 2, "\x9b");
  const outcome o = dump(sample::written("steering.dat", text));
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out.find_first_of("\x1b\x07\x9b"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find(R"(\x1b[2J\x07)"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find(R"(\x9bns_VAR_G)"), std::string::npos) << o.out;
}

TEST(kbpm_dump, tells_what_it_cannot_do) {
  const std::string path = sample::written("dump.dat", sample::text({2, 2, 3}));
  struct {
    std::string arguments;
    int status;
    const char* text;
  } const cases[] = {{"/no/such/file", 1, "/no/such/file: No such file or directory\n"},
                     {"/dev/zero", 1, "/dev/zero: 16777216 characters without a line end"},
                     {path + " --inst 9W", 1, "no instrument \"9W\" in the file\n"},
                     {path + " --inst 2W --bunch 3", 1, "bunch 3 is outside 1..2\n"},
                     {path + " --bunch 1", 2, "--bunch requires --inst\n"},
                     {"", 2, "FILE is required\n"}};
  for (const auto& c : cases) {
    const outcome o = dump(c.arguments);
    EXPECT_EQ(o.status, c.status) << c.arguments;
    EXPECT_EQ(o.err.rfind("kbpm_dump: ", 0), 0U) << o.err;
    EXPECT_NE(o.err.find(c.text), std::string::npos) << o.err;
  }
}
