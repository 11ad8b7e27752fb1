#include "combinations.hpp"

namespace output {

combinations combine(const gain_fit_mod::signals& but, const gain_fit_mod::gains& gain) {
  gain_fit_mod::combination bpmmp;
  gain_fit_mod::combination bpmpm;
  gain_fit_mod::combination bppmm;
  gain_fit_mod::bvecs(but, bpmmp, bpmpm, bppmm);
  double S = 0;
  for (int k = 1; k <= 4; ++k) S += gain(k) * but(k);
  combinations sums;
  for (int k = 1; k <= 4; ++k) {
    sums.Q += bpmmp(k) / S * gain(k);
    sums.X += bpmpm(k) / S * gain(k);
    sums.Y += bppmm(k) / S * gain(k);
  }
  return sums;
}

}  // namespace output
