// What tests of the turn-by-turn readers share: a place without data, answers to questions.
#pragma once
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "gain_fit_mod.hpp"
#include "scratch.hpp"

namespace turn_test {

/// A place where nothing has been read yet.
struct scratch : ::scratch::workplace {
  scratch() { gain_fit_mod::reset(); }
};

/// Runs something that asks questions, with these answers; returns what it printed.
template <class Work>
std::string dialog(const scratch& /*at*/, std::string_view answers, Work&& work) {
  ::scratch::answer(answers);
  testing::internal::CaptureStdout();
  work();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

inline bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

}  // namespace turn_test
