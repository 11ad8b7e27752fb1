// From the four signals of a beam to its place, by the table of the chamber.
#include <butngain/butngain.hpp>
#include <iostream>

int main() {
  const butngain::chamber arc = butngain::default_chamber("bpm_arc");
  const butngain::table table = butngain::table_of(arc);
  const butngain::signals beam = butngain::signals_at(table, 5e-3, -2e-3);  // 5 mm out, 2 mm down
  const butngain::position found = butngain::find_position(table, beam);
  if (found.fault != butngain::position_fault::none) return 1;
  std::cout << arc.about << ": x = " << 1e3 * found.x << " mm, y = " << 1e3 * found.y << " mm\n";
}
