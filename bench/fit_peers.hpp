// General fitters on the same model and data, as far as they were found.
//
// Each gets the seven free parameters, start values and data of the gain fit, one block of
// residuals, an analytic Jacobian with one sine and one cosine per orbit, and tolerance 1e-10.
#pragma once
#include <string>
#include <vector>

struct peer {
  std::string name;
  double (*run)();  // four fits of the BPM under treatment; the last one's sum of squares
};
std::vector<peer> peers();
