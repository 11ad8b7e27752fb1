#include "calib_files.hpp"

#include <fmt/format.h>

#include <array>

#include "nonlin_bpm_mod.hpp"
#include "word_file.hpp"

namespace nonlin_bpm_mod {
namespace {

using bpm_lines = util::bounded<int, 1, max_bpm, "lines">;  // where each BPM was given, 0 nowhere

// The BPM number that begins the line; each may stand once in the file.
int listed_bpm(const word_file& file, bpm_lines& seen) {
  const auto bpm = integer_at(file, 0);
  if (!bpm || *bpm < 1 || *bpm > max_bpm) {
    init_fault(file, fmt::format("EXPECTED A BPM NUMBER 1..{}, FOUND {}", max_bpm, file.words[0]));
  }
  if (seen(*bpm) != 0) {
    // Two lines for one BPM contradict each other or are a slip of the pen.
    init_fault(file, fmt::format("BPM {} WAS GIVEN BEFORE, IN LINE {},", *bpm, seen(*bpm)));
  }
  seen(*bpm) = file.line;
  return *bpm;
}

void expect_words(const word_file& file, std::size_t n, std::string_view what) {
  if (file.words.size() != n) {
    init_fault(file, fmt::format("EXPECTED {}, FOUND {} WORDS", what, file.words.size()));
  }
}

}  // namespace

void read_coefficients(const std::string& name) {
  word_file file;
  open_init_file(file, name, "nonlin_bpm_coeff");
  // A BPM that the file does not list is calibrated by 1, whatever an earlier file said.
  for (calib_struct& calib : bpm_calib.item) calib.coeff.fill(1);
  bpm_lines seen{};
  while (next_words(file)) {
    expect_words(file, 5, "A BPM NUMBER AND FOUR COEFFICIENTS");
    calib_struct& calib = bpm_calib(listed_bpm(file, seen));
    for (int k = 1; k <= 4; ++k) {
      const auto place = static_cast<std::size_t>(k);
      const auto coeff = real_at(file, place);
      // 0 would silence a button without saying so, and there is a file for that.
      if (!coeff || !(*coeff > 0)) {
        init_fault(file,
                   fmt::format("EXPECTED A COEFFICIENT ABOVE 0, FOUND {}", file.words[place]));
      }
      calib.coeff(k) = *coeff;
    }
  }
}

void read_bad_buttons(const std::string& name) {
  word_file file;
  open_init_file(file, name, "nonlin_bpm_bad_buttons");
  // One at most for each BPM: three signals are what two coordinates and a scale need.
  for (calib_struct& calib : bpm_calib.item) calib.ix_bad_button = 0;
  bpm_lines seen{};
  while (next_words(file)) {
    expect_words(file, 2, "A BPM NUMBER AND A BUTTON NUMBER");
    calib_struct& calib = bpm_calib(listed_bpm(file, seen));
    const auto button = integer_at(file, 1);
    if (!button || *button < 1 || *button > 4) {
      init_fault(file, fmt::format("EXPECTED A BUTTON NUMBER 1..4, FOUND {}", file.words[1]));
    }
    calib.ix_bad_button = *button;
  }
}

}  // namespace nonlin_bpm_mod
