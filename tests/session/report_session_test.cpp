// The page, the picture and the comparison as a session and a script see them.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <string>

#include "session_harness.hpp"

namespace {

using session::contains;

const std::vector<std::string> two_bpms{"F", "exp_0.txt", "exp_1.txt", "no"};

TEST(report_session, leaves_a_page_and_a_picture_without_a_display) {
  const session::scratch here;
  ASSERT_EQ(session::bpmsim(here.path(), {"series", "--bpms", "2", "--orbits", "300"}).status, 0);
  session::settings how;
  how.arguments = {"--pdf", "letter", "--output", "results"};
  const auto run = session::butngain(here.path(), two_bpms, how);
  ASSERT_EQ(run.status, 0) << run.err;
  std::filesystem::path place;
  for (const auto& entry : std::filesystem::directory_iterator(here.path() / "results")) {
    if (entry.is_directory()) place = entry.path();
  }
  const std::string page = session::read_file(place / "report.html");
  EXPECT_TRUE(contains(page, "All 2 BPMs are determined: load gains.load."));
  EXPECT_TRUE(contains(page, "EXP_1"));
  EXPECT_TRUE(contains(page, "Residual against orbit"));  // orbits reach the page
  EXPECT_TRUE(session::read_file(place / "gains.png").starts_with("\x89PNG"));
  EXPECT_TRUE(contains(session::read_file(place / "gains.pdf"), "/MediaBox [ 0 0 612 792 ]"));
  EXPECT_TRUE(contains(run.err, "results/" + place.filename().string() + "/report.html"))
      << run.err;
}

TEST(report_session, of_a_quiet_beam_says_that_nothing_can_be_loaded) {
  const session::scratch here;
  ASSERT_EQ(session::bpmsim(here.path(), {"series", "--bpms", "2", "--orbits", "300", "--spread",
                                          "0.002", "--noise", "1e-4"})
                .status,
            0);
  ASSERT_EQ(session::butngain(here.path(), two_bpms).status, 0);
  EXPECT_TRUE(contains(session::read_file(here.run_directory() / "report.html"),
                       "Nothing can be loaded: none of 2 BPMs is determined."));
}

// A folder stands where the page should: its place is taken for any second in which the run may
// begin. The results beside it are written all the same.
TEST(report_session, that_cannot_be_written_hides_no_result) {
  const session::scratch here;
  ASSERT_EQ(session::bpmsim(here.path(), {"series", "--bpms", "2", "--orbits", "100"}).status, 0);
  const std::time_t now = std::time(nullptr);
  for (int second = 0; second < 30; ++second) {
    const std::time_t at = now + second;
    char name[32] = "";
    std::strftime(name, sizeof name, "%Y%m%d_%H%M%S", std::localtime(&at));
    session::write_file(here.path() / name / "report.html" / "taken", "");
  }
  const auto run = session::butngain(here.path(), two_bpms);
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(contains(run.err, "butngain: cannot write ")) << run.err;
  EXPECT_TRUE(contains(run.err, "/report.html: Is a directory")) << run.err;
  EXPECT_TRUE(contains(run.out, "output written to directory"));
  bool picture = false;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(here.path())) {
    picture = picture || entry.path().filename() == "gains.png";
  }
  EXPECT_TRUE(picture);
}

TEST(compare_session, tells_a_script_by_its_status) {
  const session::scratch here;
  for (const char* day : {"monday", "friday"}) {
    std::vector<std::string> arguments{"series", "--bpms", "2", "--orbits", "300", "--dir", day};
    if (std::string{day} == "friday") arguments.insert(arguments.end(), {"--gain", "2:4:1.05"});
    std::filesystem::create_directory(here.path() / day);
    ASSERT_EQ(session::bpmsim(here.path(), arguments).status, 0);
    ASSERT_EQ(session::butngain(here.path() / day, two_bpms).status, 0);
  }
  const auto compare = [&here](const std::string& runs) {
    return session::run({"/bin/sh", "-c", BUTNGAIN_BINARY " compare " + runs}, here.path(), "");
  };
  EXPECT_EQ(compare("monday/2* monday/2*").status, 0);
  const auto changed = compare("monday/2* friday/2*");
  EXPECT_EQ(changed.status, 1);
  EXPECT_TRUE(changed.out.starts_with("1 of 2 BPMs changed: 2 (EXP_1)\n")) << changed.out;
  EXPECT_TRUE(contains(changed.out, "most of it TO "));
  // When a run was made is told by its record.
  const auto lines = session::lines_of(changed.out);
  EXPECT_TRUE(lines.size() > 3 && contains(lines[3], ", 20") && contains(lines[3], "T"))
      << changed.out;
  EXPECT_EQ(compare("monday/2* tuesday").status, 2);
}

}  // namespace
