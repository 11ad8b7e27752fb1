#include "calib_files.hpp"

#include <fmt/format.h>

#include <string_view>

#include "list_io.hpp"

namespace nonlin_bpm_mod {
namespace {

using bpm_lines = util::bounded<int, 1, max_bpm, "lines">;  // where each BPM was given, 0 nowhere

// The BPM number that begins a line of `words` words; each may stand once in the file.
// Both files begin their lines alike, so their faults are told alike.
util::outcome<int> listed_bpm(const word_file& file, std::size_t words, std::string_view what,
                              bpm_lines& seen) {
  if (file.words.size() != words) {
    return fault_here(file, fmt::format("EXPECTED {}, FOUND {} WORDS", what, file.words.size()));
  }
  const auto bpm = integer_at(file, 0);
  if (!bpm || *bpm < 1 || *bpm > max_bpm) {
    return fault_here(file,
                      fmt::format("EXPECTED A BPM NUMBER 1..{}, FOUND {}", max_bpm, file.words[0]));
  }
  if (seen(*bpm) != 0) {
    // Two lines for one BPM contradict each other or are a slip of the pen.
    return fault_here(file, fmt::format("BPM {} WAS GIVEN BEFORE, IN LINE {},", *bpm, seen(*bpm)));
  }
  seen(*bpm) = file.line;
  return *bpm;
}

}  // namespace

util::outcome<coefficient_list> read_coefficients(word_file& file) {
  if (std::string wrong = wrong_first_statement(file, "nonlin_bpm_coeff"); !wrong.empty()) {
    return fault_at_end(file, wrong);
  }
  // A BPM that the file does not list is calibrated by 1, whatever an earlier file said.
  coefficient_list coeff;
  for (auto& of_bpm : coeff.item) of_bpm.fill(1);
  bpm_lines seen{};
  while (next_words(file)) {
    const auto bpm = listed_bpm(file, 5, "A BPM NUMBER AND FOUR COEFFICIENTS", seen);
    if (!bpm) return bpm.why;
    for (int k = 1; k <= 4; ++k) {
      const auto place = static_cast<std::size_t>(k);
      const auto value = real_at(file, place);
      // 0 would silence a button without saying so, and there is a file for that.
      if (!value || !(*value > 0)) {
        return fault_here(
            file, fmt::format("EXPECTED A COEFFICIENT ABOVE 0, FOUND {}", file.words[place]));
      }
      coeff (*bpm)(k) = *value;
    }
  }
  if (file.file.trouble) return *file.file.trouble;
  return coeff;
}

util::outcome<bad_button_list> read_bad_buttons(word_file& file) {
  if (std::string wrong = wrong_first_statement(file, "nonlin_bpm_bad_buttons"); !wrong.empty()) {
    return fault_at_end(file, wrong);
  }
  // One at most for each BPM: three signals are what two coordinates and a scale need.
  bad_button_list bad{};
  bpm_lines seen{};
  while (next_words(file)) {
    const auto bpm = listed_bpm(file, 2, "A BPM NUMBER AND A BUTTON NUMBER", seen);
    if (!bpm) return bpm.why;
    const auto button = integer_at(file, 1);
    if (!button || *button < 1 || *button > 4) {
      return fault_here(file,
                        fmt::format("EXPECTED A BUTTON NUMBER 1..4, FOUND {}", file.words[1]));
    }
    bad(*bpm) = *button;
  }
  if (file.file.trouble) return *file.file.trouble;
  return bad;
}

offset_list read_offsets(util::text_file& file) {
  offset_list offsets;
  while (util::next_line(file)) {
    // A line of blanks is none: editors leave them at the end of a file.
    if (file.line.find_first_not_of(" \t") == std::string::npos) continue;
    util::list_record record;
    util::start_record(record, file.line);
    const auto bpm = util::take_int(record);
    const auto vertical = util::take_real(record);  // the file gives the vertical offset first
    const auto horizontal = util::take_real(record);
    if (!bpm || !vertical || !horizontal) {
      offsets.fault = util::fault{fmt::format("found \"{}\"", file.line), util::place_of(file),
                                  "a BPM number and two offsets in mm"};
      return offsets;
    }
    // The number is not looked at: who puts the offsets into a table knows its bounds.
    offsets.entry.push_back({*bpm, *horizontal, *vertical});
  }
  offsets.fault = file.trouble;
  return offsets;
}

}  // namespace nonlin_bpm_mod
