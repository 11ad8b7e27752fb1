// A directory for one test, named after it and gone afterwards, and what a file there holds.
#pragma once
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace scratch {

struct directory {
  std::string path;
  directory() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    path = testing::TempDir() + "bpmsim_" + test->name() + "_" + std::to_string(getpid());
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
  }
  directory(const directory&) = delete;
  directory& operator=(const directory&) = delete;
  directory(directory&&) = delete;
  directory& operator=(directory&&) = delete;
  ~directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

inline std::string content(const std::string& path) {
  const std::ifstream file{path};
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace scratch
