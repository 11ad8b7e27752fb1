// The gains of a BPM from its readings alone.
#include <butngain/butngain.hpp>
#include <iostream>

int main() {
  butngain::simulation run;
  run.electronics.gain = {1.02, 0.97, 1.01, 1.0};
  const butngain::simulated made = butngain::simulate(run);
  const butngain::four_fits fits = butngain::fit(made.readings);
  std::cout << fits.reason << "\nbutton gains";
  for (const double gain : fits.gain) std::cout << ' ' << gain;
  std::cout << '\n';
}
