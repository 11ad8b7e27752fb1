#include "output_directory.hpp"

#include <gtest/gtest.h>

#include <string>

#include "scratch.hpp"

namespace {

// The directory is named by the second: two calls in a row share it unless a second just ended.
TEST(output_directory, a_directory_that_existed_already_is_told_beside_the_transcript) {
  const scratch::workplace here;
  for (int attempt = 0; attempt < 5; ++attempt) {
    util::fixed_text<16> first;
    util::fixed_text<16> second;
    testing::internal::CaptureStdout();
    driver::create_output_directory(first);
    testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    driver::create_output_directory(second);
    const std::string told = testing::internal::GetCapturedStderr();
    const std::string screen = testing::internal::GetCapturedStdout();
    if (!(first == second)) continue;
    const std::string name{second.trimmed()};
    EXPECT_NE(told.find("the directory " + name + " existed already"), std::string::npos) << told;
    EXPECT_EQ(screen.find("create directory"), std::string::npos);
    return;
  }
  FAIL() << "five times in a row a second ended between two calls";
}

}  // namespace
