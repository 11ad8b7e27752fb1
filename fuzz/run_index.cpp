// The index of runs: the same through a pipe, and one run more is the newest.
#include "run_index.hpp"

#include <cstdint>
#include <string>
#include <string_view>

#include "target.hpp"

void fuzz::read(std::string_view text) {
  const auto [file, pipe] = both_ways(text, input::newest_run);
  check(file.value == pipe.value && (file || same(file.why, pipe.why)));
  if (!file) return;
  check(*file >= 1);
  if (*file == INT32_MAX) return;
  const std::string more =
      std::string{text} + "\n" + std::to_string(*file + 1) + " 2026-01-02 03:04";
  check(input::newest_run(held(more, way::file)).value == *file + 1);
}
