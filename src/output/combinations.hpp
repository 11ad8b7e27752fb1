// The three sign-weighted combinations of one reading, as the data files list them.
#pragma once
#include "gain_model.hpp"

namespace output {

/// Each the sum of one combination's elements times the gains, over S = sum(gain signal).
struct combinations {
  double Q = 0;  ///< "Bpmmp.G"
  double X = 0;  ///< "Bpmpm.G"
  double Y = 0;  ///< "Bppmm.G"
};

/// errors   none: S = 0 gives combinations that are not numbers
combinations combine(const gain_fit_mod::signals& but, const gain_fit_mod::gains& gain);

}  // namespace output
