// The record of a run, written and read back.
#include "run_json.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "file_digest.hpp"
#include "scratch.hpp"

namespace {

report::run_results a_run() {
  report::run_results results;
  report::run_info& info = results.info;
  info.version = "1.2.3";
  info.working_directory = "/home/m\xE9l";  // a name of an older system: no UTF-8
  info.arguments = {"--run", "a \"b\"\\x41", ""};
  info.dialog = {{"which bpm ?", "-1", "pipe"},
                 {"Turn by turn data file ?", "\x1B[2J\n\xFF", "option"}};
  info.inputs = {{"RD-1.dat", 17, std::string(64, 'a')}, {"/dev/fd/3", 0, ""}};
  info.site_paths = {{"KOVR_ONLINE", "/\xE9"}};
  info.seconds = {{"fit", 0.1}};
  results.bpm.resize(2);
  report::bpm_row& row = results.bpm[0];
  row.bpm = 12;
  row.name = "12W";
  row.orbits = 100;
  row.verdict = report::verdict::weak;
  row.reason = "2 µm";
  row.gain = {1.1, 0.9, 1, 1 / (1.1 * 0.9)};
  row.error = 3e-4;
  results.bpm[1].bpm = 13;
  return results;
}

TEST(run_json, what_is_written_is_read_back) {
  const scratch::directory here;
  const report::run_results wrote = a_run();
  ASSERT_FALSE(report::write_run_json(here / "run.json", wrote));
  const auto read = report::read_run_json(here / "run.json");
  ASSERT_TRUE(read) << util::line_of(read.why);
  // Every value goes through one text: equal texts are equal records.
  EXPECT_EQ(report::run_json_text(*read), report::run_json_text(wrote));
  EXPECT_EQ(read->info.dialog[1].answer, "\x1B[2J\n\xFF");
  EXPECT_EQ(read->info.arguments, wrote.info.arguments);
  EXPECT_EQ(read->bpm[0].gain, wrote.bpm[0].gain);
  EXPECT_TRUE(std::isnan(read->bpm[1].error));
  EXPECT_EQ(read->info.exit_status, -1);
}

TEST(run_json, bytes_come_back_whatever_they_are) {
  std::string bytes = "\\x41 \\\\x5C \\xZZ C:\\x \xC3\xA9 \xC3 \xE2\x82 \xF0\x9F\x98\x80 \\";
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  EXPECT_EQ(report::bytes_of_text(report::text_of_bytes(bytes)), bytes);
  EXPECT_EQ(report::text_of_bytes("caf\xE9 C:\\temp \\x41"), "caf\\xE9 C:\\temp \\x5Cx41");
}

struct damage {
  const char* what;
  const char* from;
  const char* to;
  const char* line;
};

TEST(run_json, a_damaged_record_is_told_by_name) {
  const scratch::directory here;
  const std::string whole = report::run_json_text(a_run());
  for (const damage& d :
       {damage{"cut short", "\"seconds\"", nullptr,
               "run.json: is no JSON, expected the record of a run"},
        damage{"without a value", "\"dialog\"", "\"dialogue\"",
               "run.json: \"dialog\" is missing or wrong, expected a value of this name"},
        damage{"of another kind", "\"orbits\": 100", "\"orbits\": \"100\"",
               "run.json: \"orbits\" is missing or wrong, expected a whole number"},
        damage{"of more bits", "\"bpm\": 12", "\"bpm\": 4294967297",
               "run.json: \"bpm\" is missing or wrong, expected a number of 32 bits"},
        damage{"a list for an object", whole.c_str(), "[]",
               "run.json: \"version\" is missing or wrong"},
        damage{"an unknown verdict", "\"weak\"", "\"week\"", "expected one of the verdicts"}}) {
    std::string text = whole;
    const std::size_t at = text.find(d.from);
    ASSERT_NE(at, std::string::npos) << d.what;
    if (d.to == nullptr) {
      text.resize(at);
    } else {
      text.replace(at, std::string_view{d.from}.size(), d.to);
    }
    const auto read = report::read_run_json(here.file("run.json", text));
    ASSERT_FALSE(read) << d.what;
    EXPECT_NE(util::line_of(read.why).find(d.line), std::string::npos) << util::line_of(read.why);
  }
  EXPECT_EQ(report::read_run_json(here / "none").why.what, "No such file or directory");
}

// A record from elsewhere can hold any bytes wherever ours has words of its own.
TEST(run_json, every_text_of_a_record_can_be_written_again) {
  const scratch::directory here;
  report::run_results odd = a_run();
  report::run_info& info = odd.info;
  for (std::string* text :
       {&info.version, &info.build, &info.started, &info.dialog[0].given, &info.inputs[0].sha256,
        &info.site_paths[0].first, &info.seconds[0].first}) {
    *text = std::string{"\xFF\0\\x41", 6};
  }
  ASSERT_FALSE(report::write_run_json(here / "run.json", odd));
  const auto read = report::read_run_json(here / "run.json");
  ASSERT_TRUE(read) << util::line_of(read.why);
  EXPECT_EQ(report::run_json_text(*read), report::run_json_text(odd));
  EXPECT_EQ(read->info.site_paths, info.site_paths);
}

// The digests of the standard's own examples (FIPS 180-4): "abc", and a million times "a".
TEST(file_digest, files_have_the_digests_of_the_standard) {
  const scratch::directory here;
  const auto abc = report::digest_of(here.file("abc", "abc"));
  ASSERT_TRUE(abc);
  EXPECT_EQ(abc->size, 3U);
  EXPECT_EQ(abc->sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(report::digest_of(here.file("a", std::string(1000000, 'a')))->sha256,
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
  EXPECT_FALSE(report::digest_of(here / "none"));
  EXPECT_FALSE(report::digest_of(here.path().string()));
  EXPECT_FALSE(report::digest_of("/dev/zero"));
}

}  // namespace
