// A directory of its own for a test, answers for a dialog, and the end of a run made visible.
#pragma once
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace scratch {

/// Works in a fresh directory as long as it lives; the facility tree begins there.
struct directory {
  std::filesystem::path before = std::filesystem::current_path();
  std::string path = testing::TempDir() + "butngain_XXXXXX";
  directory() {
    EXPECT_NE(mkdtemp(path.data()), nullptr);
    std::filesystem::current_path(path);
    EXPECT_EQ(setenv("KOVR_ONLINE", path.c_str(), 1), 0);
  }
  directory(const directory&) = delete;
  directory& operator=(const directory&) = delete;
  ~directory() {
    std::filesystem::current_path(before);
    std::filesystem::remove_all(path);
  }
};

/// Writes a file, making the directories on the way.
inline void write(const std::filesystem::path& name, const std::string& text) {
  if (name.has_parent_path()) std::filesystem::create_directories(name.parent_path());
  std::ofstream(name) << text;
}

inline std::string content(const std::string& name) {
  std::ifstream file(name);
  return {std::istreambuf_iterator<char>{file}, {}};
}

/// Makes this text the standard input.
inline void answer(const std::string& text) {
  write("answers", text);
  EXPECT_NE(std::freopen("answers", "r", stdin), nullptr);
}

/// Sends standard output where death tests look, too.
inline void show_output() { dup2(STDERR_FILENO, STDOUT_FILENO); }

}  // namespace scratch
