// What tests of the turn-by-turn readers share: a directory of their own, answers to questions.
#pragma once
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "gain_fit_mod.hpp"

namespace turn_test {

/// A directory that goes away; it is also $KOVR_ONLINE.
struct scratch {
  std::filesystem::path path;
  scratch() {
    std::string name = (std::filesystem::temp_directory_path() / "turns.XXXXXX").string();
    path = mkdtemp(name.data());
    setenv("KOVR_ONLINE", path.c_str(), 1);
    gain_fit_mod::reset();
  }
  scratch(const scratch&) = delete;
  scratch& operator=(const scratch&) = delete;
  ~scratch() { std::filesystem::remove_all(path); }

  /// Writes a file, with its directories; returns its path.
  std::string file(const std::string& name, std::string_view text) const {
    const std::filesystem::path full = path / name;
    std::filesystem::create_directories(full.parent_path());
    std::ofstream{full} << text;
    return full.string();
  }
};

/// Runs something that asks questions, with these answers; returns what it printed.
template <class Work>
std::string dialog(const scratch& at, std::string_view answers, Work&& work) {
  const std::string path = at.file("answers", answers);
  EXPECT_NE(std::freopen(path.c_str(), "r", stdin), nullptr);
  testing::internal::CaptureStdout();
  work();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

inline bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

}  // namespace turn_test
