#include "sample_text.hpp"

#include <fmt/core.h>

#include <cstdio>
#include <filesystem>

#include "scratch.hpp"

namespace sample {

std::string file_header(const shape& s) {
  std::string pattern;
  const int full_words = s.bunches / 16;
  for (int word = 39; word >= 0; --word) {
    const int rest = word == full_words ? (1 << (s.bunches % 16)) - 1 : 0;
    pattern += fmt::format("{:X} ", word < full_words ? 0xFFFF : rest);
  }
  return fmt::format(
      "Instrument_Type   : KBPM II\n"
      "Command_ID        : BPM_RAW_DATA\n"
      "File_type         : RAW DATA FILE\n"
      "File_ID           : {}\n"
      "File_Version      : 3\n"
      "Timestamp         : Tue Mar  4 15:16:17 2014\n"
      "Core_commstruct_v : 0001234567\n"
      "Plat_commstruct_v : 0000000089\n"
      "Bunch_Patt_Name   : ****\n"
      "Bunch_Patt_(hex)  : {}\n"
      "Species           : POSITRONS\n"
      "Num_Instruments   : {}\n"
      "Number_of_Bunches : {}\n"
      "Number_of_Turns   : {}\n"
      "Turn_Spacing      : 1\n"
      "Timing_Setup      : 14ns_VAR_G\n"
      "Trigger           : ****\n"
      "\n",
      s.run, pattern, s.instruments, s.bunches, s.turns);
}

std::string kovr_header() {
  return "KOVR CONDX        : 31415\n"
         "CERN Current Raw  : 2718\n"
         "CERN Current mA   : 1.250000\n"
         "\n";
}

std::string name(int instrument) { return fmt::format("{}W", instrument + 1); }

std::string instrument_header(const shape& s, int i) {
  return fmt::format(
      "Location          : {}\n"
      "BPM_hostname      : host{}\n"
      "BPM_IP_Address    : 192.168.10.{}\n"
      "Detector_Type     : 2\n"
      "Detector_Coeffs   : 26.200001  19.600000\n"
      "EXE_Name          : kbpm_main.ldr\n"
      "EXE_Build_ID      : 0013579246\n"
      "Dig.Board_FPGA    : 4.{}\n"
      "Front-End_FPGAs   : 21 22 23 24\n"
      "Timing_Setup      : 14ns_VAR_G\n"
      "Number_of_Turns   : {}\n"
      "Turn_sync_counter : 987\n"
      "Turn_spacing      : 1\n"
      "Trigger           : EXTERN\n"
      "Bunch_Pat_offsets : 5  6\n"
      "Com_Turnmrk_Dly   : 77\n"
      "Blk_Turnmrk_Dlys  : 3  4\n"
      "Block_Delays      : 8  9\n"
      "Channel_Delays    : 101  102  103  104    105  106  107  108\n"
      "Gain_Settings     : 11  12  13  14    15  16  17  18\n"
      "Gain_Codes        : 31  32  33  34    35  36  37  38\n"
      "Gain_Coeffs       : 1.000000  0.900000  1.{}00000  1.050000    0.800000  1.200000  1.300000 "
      " "
      "0.700000\n"
      "Pedestals         : 100.500000  -2.250000  3.125000  {}.000000    50.000000  51.000000  "
      "52.000000  53.000000\n"
      "Digital_Temp_C    : 31.4\n"
      "Card_Temps_C      : 30.1  30.2  30.3  30.4\n"
      "ADC_saturation    : 8191    8190\n"
      "ADC_High          : 7000    7001\n"
      "ADC_Low           : 0012    0013\n",
      name(i), i, i + 1, i, s.turns, i % 10, i);
}

std::string labels() {
  return "# Timing  Encoded     Card-0   Card-1   Card-2   Card-3\n"
         "# Block  Phase word   b3(TI)   b1(BI)   b2(BO)   b4(TO)\n"
         "--BEGIN DATA--\n";
}

std::string data_line(const shape& s, int i, int bunch, int turn) {
  const int n = ((i * s.bunches + bunch) * s.turns) + turn;
  const int phase = ((n * 37) % 512 << 19) | ((n * 11) % 512 << 10) | (n % 256);
  return fmt::format("{}       {:07x}  {:7d}  {:7d}  {:7d}  {:7d}\n", bunch == 1 ? 1 : 0, phase,
                     1000 + n % 100000, 2000 + n % 90000, (n % 7 == 0 ? -30 : 3000) + n % 9,
                     40000 - n % 30000);
}

std::string text(const shape& s) {
  std::string all = file_header(s) + kovr_header();
  for (int i = 0; i < s.instruments; ++i) {
    all += instrument_header(s, i) + labels();
    for (int bunch = 0; bunch < s.bunches; ++bunch) {
      for (int turn = 0; turn < s.turns; ++turn) all += data_line(s, i, bunch, turn);
    }
  }
  return all;
}

std::vector<std::string> lines_of(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::size_t length = end == std::string_view::npos ? text.size() : end + 1;
    lines.emplace_back(text.substr(0, length));
    text.remove_prefix(length);
  }
  return lines;
}

std::string joined(const std::vector<std::string>& lines) {
  std::string all;
  for (const std::string& line : lines) all += line;
  return all;
}

std::string scratch_directory() {
  static const scratch::directory directory;
  // A long name: a path given to the loader must not be shorter than the run's own.
  const std::string place = directory / "raw_data_files_below_a_long_name/";
  std::filesystem::create_directory(place);
  return place;
}

std::string written(const std::string& name, std::string_view content) {
  const std::string path = scratch_directory() + name;
  // A new file each time: cutting an old one to nothing makes some file systems wait for the disk.
  std::filesystem::remove(path);
  scratch::write(path, content);
  return path;
}

}  // namespace sample
