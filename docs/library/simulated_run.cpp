// A beam that moves in a chamber, and the readings that a BPM makes of it.
#include <butngain/butngain.hpp>
#include <iostream>

int main() {
  butngain::simulation run;
  run.where = butngain::default_chamber("bpm_48");
  run.beam.x.orbit = 3e-3;  // closed orbit 3 mm outward
  run.electronics.noise = 1e-4;
  run.orbits = 10;
  const butngain::simulated made = butngain::simulate(run);
  for (std::size_t i = 0; i < made.readings.size(); ++i) {
    std::cout << 1e3 * made.x[i] << " mm: button 1 reads " << made.readings[i][0] << '\n';
  }
}
