// Raw data files as their text says: what a session must make of them, worked out from the lines.
#pragma once
#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "session_harness.hpp"

namespace session {

/// One instrument of a raw file. Cards are TI BI BO TO, of timing block 0.
struct instrument {
  std::vector<double> gain;
  std::vector<double> pedestal;
  std::vector<std::vector<double>> data_line;  ///< block, then the four cards
};

inline instrument read_instrument(const std::filesystem::path& path, const std::string& name) {
  instrument at;
  bool here = false;
  for (const std::string& line : lines_of(read_file(path))) {
    if (line.rfind("Location ", 0) == 0) here = contains(line, ": " + name);
    if (!here) continue;
    if (line.rfind("Gain_Coeffs", 0) == 0) at.gain = numbers_of(line.substr(20));
    if (line.rfind("Pedestals", 0) == 0) at.pedestal = numbers_of(line.substr(20));
    // The phase word is hexadecimal: it is left out.
    if (line.rfind("0 ", 0) == 0) at.data_line.push_back(numbers_of("0 " + line.substr(15)));
  }
  return at;
}

/// The reading of store button 1..4 (BI BO TI TO) less its pedestal over its gain, in thousandths.
inline double signal(const instrument& at, std::size_t line, std::size_t button) {
  constexpr std::array<std::size_t, 5> card_of{0, 1, 2, 0, 3};
  const std::size_t card = card_of[button];
  return 1000 * (at.data_line[line][1 + card] - at.pedestal[card]) / at.gain[card];
}

}  // namespace session
