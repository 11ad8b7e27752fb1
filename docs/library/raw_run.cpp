// Reads a raw data file and shows what every BPM of it saw.
#include <butngain/butngain.hpp>
#include <iostream>

int main(int, char** arguments) try {
  const butngain::raw_file file = butngain::read_raw(arguments[1]);
  std::cout << "run " << file.file_id << ", " << file.bunches << " bunches of " << file.turns
            << " turns, " << file.current << " mA\n";
  for (const butngain::raw_bpm& bpm : file.bpm) {
    std::cout << bpm.name << ": first reading of button 1 " << bpm.reading[0][0] << " counts\n";
  }
} catch (const butngain::error& wrong) {
  std::cerr << wrong.what() << '\n';
  return 1;
}
