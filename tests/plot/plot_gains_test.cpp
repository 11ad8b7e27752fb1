#include "plot_gains.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "gain_fit_mod.hpp"
#include "scratch.hpp"

namespace {

namespace fs = std::filesystem;
using names = std::set<std::string>;

const std::string question = " Postscript (p) or Gif (g) \n Postscript (p) or Gif (g) ? <CR = no>:";
const std::string no_screen = " no screen plot: the display cannot be opened\n";

// Plots three BPMs with these answers waiting on standard input.
void plot_three(const std::string& data_file, const std::string& answers) {
  unsetenv("DISPLAY");
  fs::create_directories("run/no_such_root_folder");
  scratch::answer(answers);
  gain_fit_mod::in_file_0.assign(data_file);
  static driver::gains_plotted gains{};
  static driver::indices_plotted bpms{};
  for (int point = 1; point <= 3; ++point) {
    for (int k = 1; k <= 4; ++k) {
      gains(k, point) = 0.94 + (0.03 * k);
      bpms(k, point) = 10 * point;
    }
  }
  driver::plot_gains(30, 10, gains, bpms, 3, "run             ", "title");
}

names left_behind() {
  names found;
  for (const auto& entry : fs::recursive_directory_iterator(".")) {
    if (entry.is_regular_file()) found.insert(fs::relative(entry.path()).string());
  }
  return found;
}

struct dialog_case {
  const char* what;
  const char* data_file;
  const char* answers;
  int questions;
  names files;
};
const dialog_case dialogs[] = {
    {"default", "RD-001234.dat", "\n", 1, {}},
    {"no", "RD-001234.dat", "no\n", 1, {}},
    {"N stops before G and P count", "RD-001234.dat", "gpn\n", 1, {}},
    {"PostScript", "RD-001234.dat", "p\n", 1, {"RD-001234.ps"}},
    {"word", "RD-001234.dat", "Postscript\n", 1, {"RD-001234.ps"}},
    {"GIF", "RD-001234.dat", "g\n", 1, {"RD-001234.gif"}},
    {"both letters", "RD-001234.dat", "pg\n", 1, {"RD-001234.gif"}},
    {"three characters count", "RD-001234.dat", "xxxp\nn\n", 2, {}},
    {"anything else asks again", "RD-001234.dat", "?\nx\np\n", 3, {"RD-001234.ps"}},
    {"first point", "a.b.dat", "p\n", 1, {"a.ps"}},
    {"no point", "data", "g\n", 1, {"gif"}},
    {"point of a folder", "./x.dat", "p\n", 1, {".ps"}},
    {"no data file", "", "p\n", 1, {"ps"}},
};

TEST(plot_gains, dialog) {
  for (const auto& c : dialogs) {
    SCOPED_TRACE(c.what);
    const scratch::workplace here;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    plot_three(c.data_file, c.answers);
    const std::string told = testing::internal::GetCapturedStderr();
    const std::string screen = testing::internal::GetCapturedStdout();
    std::string expected;
    // Answers that ask for a copy are not followed by another screen page.
    for (int i = 0; i < c.questions; ++i) expected += no_screen + question;
    EXPECT_EQ(screen, expected);
    // The folder is the test's own, so its name is the full one.
    const std::string whole_name =
        here.path().string() + "/" + (c.files.empty() ? "" : *c.files.begin());
    EXPECT_EQ(told, c.files.empty() ? "" : "butngain: plot written to " + whole_name + "\n");
    EXPECT_EQ(left_behind(), c.files);
  }
}

TEST(plot_gains, copy_that_cannot_be_written_is_told_and_asked_again) {
  const scratch::workplace here;
  testing::internal::CaptureStdout();
  plot_three("missing/RD-001234.dat", "p\ng\nn\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            no_screen + question +
                " cannot write missing/RD-001234.ps: No such file or directory\n" + question +
                " cannot write missing/RD-001234.gif: No such file or directory\n" + question);
  EXPECT_EQ(left_behind(), names{});
}

// A synthetic series is called "/something": what cannot go there goes into the run's directory.
TEST(plot_gains, copy_of_a_series_falls_back_to_the_run_directory) {
  const scratch::workplace here;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  plot_three("/no_such_root_folder/exp_1.txt", "g\n");
  EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "butngain: plot written to " + here.path().string() + "/run/no_such_root_folder/exp_1.gif\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            no_screen + question +
                " cannot write /no_such_root_folder/exp_1.gif: No such file or directory;"
                " written to run/no_such_root_folder/exp_1.gif\n");
  EXPECT_EQ(left_behind(), names{"run/no_such_root_folder/exp_1.gif"});
}

TEST(plot_gains_death, a_plot_holds_a_hundred_bpms) {
  static const driver::gains_plotted gains{};
  static const driver::indices_plotted bpms{};
  EXPECT_EXIT(driver::plot_gains(101, 1, gains, bpms, 101, "run", "title"),
              testing::ExitedWithCode(1),
              "the results of all 101 BPMs are written to run; only the plot.*\n.*subscript 2 \\(= "
              "101\\) of bpm_gain is outside 0\\.\\.100");
}

TEST(plot_gains_death, end_of_input_ends_the_run) {
  const scratch::workplace here;
  EXPECT_EXIT(plot_three("RD-001234.dat", ""), testing::ExitedWithCode(1),
              "end of input at \"Postscript \\(p\\) or Gif \\(g\\) \\?\"");
}

}  // namespace
