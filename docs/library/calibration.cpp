// Gains and pedestals of a BPM against the table of its chamber, and what they are worth.
#include <butngain/butngain.hpp>
#include <iostream>

int main() {
  butngain::simulation run;
  run.electronics.gain = {1.02, 0.97, 1.01, 1.0};
  run.electronics.noise = 1e-4;
  const butngain::simulated made = butngain::simulate(run);
  butngain::calibration_input input;
  input.readings = made.readings;
  input.chamber_table = butngain::table_of(butngain::default_chamber("round"));
  input.sigma_p = butngain::pedestals_subtracted;
  const butngain::calibration found = butngain::calibrate(input);
  std::cout << butngain::line_of(found.verdict) << "; button 1 " << found.gain[0] << " +- "
            << found.verdict.error << '\n';
}
