// template_file: a file of button gains, by BPM, timing block, button and gain range.
//
// Sections: [NAMES] with lines "number name", then per BPM a section [BPM_name] with eight rows
// "block button gain0 ... gain10". Range 0 of block 0 holds the true gains of a simulation with the
// same seed and gain options; every other range and block differs from it a little.
#pragma once
#include <cstdint>
#include <string>

#include "electronics.hpp"

namespace sim {

struct template_setup {
  std::string file = "gain_template.txt";
  int bpms = 120;
  electronics_setup electronics{};
  double range_spread = 0.002;  // rms of a range's gain about that of range 0, relative [-]
  std::uint64_t seed = 1;
};

/// Why this template cannot be made; empty when it can.
std::string template_fault(const template_setup& t);

/// Name of a BPM: its number and W up to 49W, counted back from 49E up to BPM 98, B99 and so on
/// above.
std::string template_bpm_name(int bpm);

/// Writes the file, replacing an older one. Errors: a failing write ends the run.
void make_template(const template_setup& t);

}  // namespace sim
