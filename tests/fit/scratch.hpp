// Tests that write files work in a directory of their own.
#pragma once
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "file_units.hpp"

namespace scratch {

/// Makes a fresh working directory before each case and removes it, all units closed, afterwards.
struct directory : testing::Test {
  directory() {
    std::filesystem::create_directory(path);
    std::filesystem::current_path(path);
  }
  ~directory() override {
    util::close_all_units(false);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(path);
  }
  directory(const directory&) = delete;
  directory& operator=(const directory&) = delete;

  std::filesystem::path path =
      std::filesystem::temp_directory_path() /
      (std::string{testing::UnitTest::GetInstance()->current_test_info()->name()} + "_" +
       std::to_string(getpid()));
};

/// The lines of a file; none when there is no such file.
inline std::vector<std::string> lines_of(const std::string& file) {
  std::ifstream in{file};
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace scratch
