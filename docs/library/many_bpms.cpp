// Calibrates the BPMs of a raw data file on all processors, and shows how far it is.
#include <butngain/butngain.hpp>
#include <iostream>
#include <vector>

int main(int, char** arguments) try {
  const butngain::raw_file file = butngain::read_raw(arguments[1]);
  const butngain::table table = butngain::table_of(butngain::default_chamber("bpm_arc"));
  std::vector<std::vector<butngain::signals>> readings;
  std::vector<butngain::calibration_input> inputs;
  for (const butngain::raw_bpm& bpm : file.bpm) {
    readings.push_back(butngain::signals_of(bpm));
    inputs.push_back({.readings = readings.back(), .set_start = {}, .chamber_table = table});
  }
  const auto tell = [](std::size_t done, std::size_t of) {
    std::cerr << done << " of " << of << " BPMs\n";
    return true;  // false would end the work
  };
  const auto found = butngain::calibrate_many(inputs, 0, tell);
  for (std::size_t i = 0; i < found.size(); ++i) {
    std::cout << file.bpm[i].name << ": " << butngain::line_of(found[i].verdict) << '\n';
  }
} catch (const butngain::error& wrong) {
  std::cerr << wrong.what() << '\n';
  return 1;
}
