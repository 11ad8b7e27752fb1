#include "tbt_mod.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "nonlin_bpm_mod.hpp"
#include "raw.hpp"
#include "scratch.hpp"

namespace {

namespace fs = std::filesystem;
using tbt_mod::tbt_all_data_struct;

constexpr double phase_unit = 6.283185307179586 / 512;

/// One instrument of a file written by hand.
struct instrument {
  std::string location;
  std::array<double, 4> gain{1, 2, 4, 8};  // by card: TI BI BO TO
  std::array<double, 4> pedestal{0, 10, 20, 30};
  int phase_step = 1;  // horizontal phase of turn t is t times this
};

/// A raw file: reading of card c, bunch b, turn t (all from 0 but t from 1) is
/// 1000 (b + 1) + 100 c + t for cards 1..3. Card 0 (TI) reads 0, so no position is looked up.
struct raw_file {
  int bunches = 2;
  int turns = 4;
  std::string pattern = "11";  // bunches 1 and 5
  std::vector<instrument> instruments{{"12W"}, {"30E"}};
  double current = 12.5;
};

std::string eight(const std::array<double, 4>& block0) {
  std::ostringstream line;
  for (const double v : block0) line << v << "  ";
  line << "  5 5 5 5\n";
  return line.str();
}

std::string inst_text(const raw_file& f, const instrument& at) {
  std::ostringstream s;
  s << "Location          : " << at.location << "\nBPM_hostname      : h\nBPM_IP_Address    : i\n"
    << "Detector_Type     : d\nDetector_Coeffs   : 1 1\nEXE_Name          : e\n"
    << "EXE_Build_ID      : 1\nDig.Board_FPGA    : 1.1\nFront-End_FPGAs   : 1 1 1 1\n"
    << "Timing_Setup      : 14ns_VAR_G\nNumber_of_Turns   : " << f.turns
    << "\nTurn_sync_counter : 1\nTurn_spacing      : 1\nTrigger           : t\n"
    << "Bunch_Pat_offsets : 0 0\nCom_Turnmrk_Dly   : 0\nBlk_Turnmrk_Dlys  : 0 0\n"
    << "Block_Delays      : 0 0\nChannel_Delays    : 0 0 0 0 0 0 0 0\n"
    << "Gain_Settings     : 0 0 0 0 0 0 0 0\nGain_Codes        : 0 0 0 0 0 0 0 0\n"
    << "Gain_Coeffs       : " << eight(at.gain) << "Pedestals         : " << eight(at.pedestal)
    << "Digital_Temp_C    : 1\nCard_Temps_C      : 1 1 1 1\nADC_saturation    : 1 1\n"
    << "ADC_High          : 1 1\nADC_Low           : 1 1\n--BEGIN DATA--\n";
  for (int b = 0; b < f.bunches; ++b) {
    for (int t = 1; t <= f.turns; ++t) {
      const unsigned phase = static_cast<unsigned>(t * at.phase_step % 512) << 19U | 7U << 10U;
      s << "0 " << std::hex << phase << std::dec << " 0";
      for (int c = 1; c <= 3; ++c) s << ' ' << 1000 * (b + 1) + 100 * c + t;
      s << '\n';
    }
  }
  return s.str();
}

std::string text_of(const raw_file& f) {
  std::ostringstream s;
  s << "Instrument_Type   : KBPM\nCommand_ID        : c\nFile_type         : r\n"
    << "File_ID           : 1\nFile_Version      : 3\nTimestamp         : Mon Jan  2 2004\n"
    << "Core_commstruct_v : 1\nPlat_commstruct_v : 1\nBunch_Patt_(hex)  :";
  for (int word = 39; word > 0; --word) s << " 0";
  s << ' ' << f.pattern
    << "\nSpecies           : ELECTRONS\nNum_Instruments   : " << f.instruments.size()
    << "\nNumber_of_Bunches : " << f.bunches << "\nNumber_of_Turns   : " << f.turns
    << "\nTurn_Spacing      : 1\n"
    << "Timing_Setup      : 14ns_VAR_G\n\nKOVR CONDX        : 77\nCERN Current Raw  : 1\n"
    << "CERN Current mA   : " << f.current << "\n\n";
  for (const instrument& at : f.instruments) s << inst_text(f, at);
  return s.str();
}

/// A data tree of its own; no tables are needed where no position is looked up.
struct tree : scratch::workplace {
  tree() {
    fs::create_directories("kbpmII/raw/04");
    nonlin_bpm_mod::nonlin_bpm_first_call = false;
  }
  tree(const tree&) = delete;
  tree& operator=(const tree&) = delete;
  ~tree() { nonlin_bpm_mod::reset(); }
  void put(int run, const raw_file& f) const {
    file("kbpmII/raw/04/RD-00" + std::to_string(run) + ".dat", text_of(f));
  }
};

struct loading {
  int run = 4567;
  int but_correct = 1;
  bool init_needed = true;
  std::optional<bool> use_last_turn = true;
  std::optional<int> nturn_avg{};
  bool fails = false;
};

std::string load(tbt_all_data_struct& tbt, const loading& how = {}) {
  testing::internal::CaptureStdout();
  bool err = !how.fails;
  tbt_mod::tbt_read_data_file(how.run, how.but_correct, how.init_needed, tbt, err,
                              how.use_last_turn, how.nturn_avg);
  EXPECT_EQ(err, how.fails);
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

bool contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

// Readings of button 1 (BI, card 1), turn after turn.
std::vector<double> button_1(const tbt_all_data_struct& tbt, int bunch, int bpm) {
  std::vector<double> read;
  for (const auto& turn : tbt_mod::bunch_at(tbt, bunch).bpm(bpm).turn) {
    read.push_back(turn.button(1));
  }
  return read;
}

struct range_case {
  const char* what;
  int k;
  std::optional<int> nturn_avg;
  bool use_last_turn;
  bool late;
  int first;
  int last;
};

// T = 600. The end of a shortened range counts from the file's first turn, not the bunch's.
TEST(tbt_mod, turns_taken_of_600) {
  const range_case cases[] = {{"all, bunch 1", 1, {}, true, false, 1, 600},
                              {"all, bunch 3", 3, {}, true, true, 1201, 1800},
                              {"as many as there are", 2, 600, true, false, 601, 1200},
                              {"none asked for", 2, 0, true, false, 601, 600},
                              {"500, bunch 1", 1, 500, true, false, 1, 500},
                              {"500, bunch 2", 2, 500, true, false, 601, 1000},
                              {"300, bunch 2", 2, 300, true, false, 601, 600},
                              {"negative", 1, -5, true, false, 1, 0},
                              {"without last, early", 2, {}, false, false, 601, 1199},
                              {"without last, late", 2, {}, false, true, 602, 1200},
                              {"none, without last, late", 1, 0, false, true, 2, 1}};
  for (const auto& [what, k, nturn_avg, use_last_turn, late, first, last] : cases) {
    SCOPED_TRACE(what);
    const auto taken = tbt_mod::turns_taken(k, 600, nturn_avg, use_last_turn, late);
    EXPECT_EQ(taken.first, first);
    EXPECT_EQ(taken.last, last);
  }
}

TEST(tbt_mod, names_along_the_ring) {
  const std::pair<int, const char*> names[] = {
      {0, ""},      {1, "X5C"},   {6, "X6D"},    {7, "9W"},         {10, "10AW"}, {11, "11W"},
      {49, "49W"},  {50, "49E"},  {88, "11E"},   {89, "10AE"},      {92, "9E"},   {93, "X1A"},
      {108, "X4D"}, {110, "X5B"}, {112, "12W3"}, {113, "47W_XBSM"}, {114, ""},    {150, ""}};
  for (const auto& [index, name] : names) {
    EXPECT_EQ(tbt_mod::tbt_bpm_name(index).trimmed(), name) << index;
  }
  // The simulator's list of the ring, from index 1 on: its order chooses chambers and tables.
  const auto ring = sim::ring_names();
  ASSERT_EQ(ring.size(), 113U);
  for (int index = 1; index <= 113; ++index) {
    EXPECT_EQ(ring[static_cast<std::size_t>(index) - 1], tbt_mod::tbt_bpm_name(index).trimmed());
  }
}

// 12W is index 12; 30E is 69, which counts its turns one later.
TEST(tbt_mod, a_file_as_it_stands) {
  const tree at;
  at.put(4567, {});
  tbt_all_data_struct tbt;
  const std::string said = load(tbt);
  EXPECT_EQ(said,
            " CORRECTING OFF-BY-ONE PROBLEM...\n"
            " Note: Hard wired bpm names for south arc bpms. \n");
  ASSERT_EQ(tbt.bunch.size(), 2U);
  EXPECT_EQ(tbt.bunch[1].ix_bunch, 5);
  EXPECT_EQ(tbt.bunch[1].ix_rf_bucket, 29);  // (5 - 1) x 7 + 1
  EXPECT_EQ(tbt.condx_number, 77);
  EXPECT_EQ(tbt.total_current, 12.5);
  EXPECT_EQ(tbt.time_stamp.trimmed(), "Mon Jan  2 2004");
  EXPECT_EQ(tbt.data_file.trimmed(), at / "kbpmII/raw/04/RD-004567.dat");

  EXPECT_EQ(button_1(tbt, 2, 12), (std::vector<double>{2101, 2102, 2103, 2104}));
  EXPECT_EQ(button_1(tbt, 2, 69), (std::vector<double>{2102, 2103, 2104, 0}));
  const auto& first = tbt.bunch[0].bpm(12);
  EXPECT_TRUE(first.data_ok);
  EXPECT_EQ(first.turn[2].button(2), 1203);  // BO is card 2
  EXPECT_EQ(first.turn[2].button(3), 0);     // TI is card 0
  EXPECT_EQ(first.turn[2].button(4), 1303);
  EXPECT_EQ(first.gain(2), 4);
  EXPECT_EQ(first.pedestal(4), 30);
  EXPECT_FALSE(tbt.bunch[0].bpm(13).data_ok);
  ASSERT_EQ(tbt.shaker.size(), 4U);
  EXPECT_NEAR(tbt.shaker[2].phase(1), 3 * phase_unit, 1e-15);
  EXPECT_NEAR(tbt.shaker[2].phase(2), 7 * phase_unit, 1e-15);
}

TEST(tbt_mod, corrections) {
  const tree at;
  raw_file f;
  f.instruments[0].gain[2] = 0;
  at.put(4567, f);
  const struct {
    int but_correct;
    double button[3];  // BI, BO, TO of bunch 1, turn 1: 1101, 1201, 1301
    double gain_bo;    // 0 divides by 1, and is kept so
  } cases[] = {
      {1, {1101, 1201, 1301}, 0}, {2, {1091, 1181, 1271}, 0}, {3, {545.5, 1181, 158.875}, 1}};
  for (const auto& [but_correct, button, gain_bo] : cases) {
    SCOPED_TRACE(but_correct);
    tbt_all_data_struct tbt;
    load(tbt, {.but_correct = but_correct});
    const auto& bpm = tbt.bunch[0].bpm(12);
    EXPECT_EQ(bpm.turn[0].button(1), button[0]);
    EXPECT_EQ(bpm.turn[0].button(2), button[1]);
    EXPECT_EQ(bpm.turn[0].button(4), button[2]);
    EXPECT_EQ(bpm.gain(2), gain_bo);
  }
}

TEST(tbt_mod, ranges_of_turns) {
  const tree at;
  at.put(4567, {});
  tbt_all_data_struct tbt;
  load(tbt, {.use_last_turn = false});
  EXPECT_EQ(button_1(tbt, 1, 12), (std::vector<double>{1101, 1102, 1103}));
  EXPECT_EQ(button_1(tbt, 1, 69), (std::vector<double>{1102, 1103, 1104}));
  EXPECT_EQ(tbt.shaker.size(), 3U);

  load(tbt, {.nturn_avg = 3});  // bunch 2 ends at element 6, its second
  EXPECT_EQ(button_1(tbt, 1, 69), (std::vector<double>{1102, 1103, 0}));
  EXPECT_EQ(button_1(tbt, 2, 12), (std::vector<double>{2101, 2102}));

  load(tbt, {.nturn_avg = 0});
  EXPECT_TRUE(button_1(tbt, 1, 12).empty());
  EXPECT_TRUE(tbt.bunch[0].bpm(69).data_ok);
  EXPECT_EQ(tbt.shaker.size(), 4U);
}

TEST(tbt_mod, unknown_names_and_other_phases_are_told) {
  const tree at;
  raw_file f;
  f.instruments = {{"QQQ"},  {"9W\x1b[2J"}, {"12W"}, {"12W2", {1, 1, 1, 1}, {}, 2},
                   {"30E "}, {"11E"}};
  at.put(4567, f);
  tbt_all_data_struct tbt;
  const std::string said = load(tbt);
  EXPECT_TRUE(contains(said, " SKIPPING: UNKNOWN TBT BPM NAME: QQQ\n")) << said;
  EXPECT_TRUE(contains(said, R"( SKIPPING: UNKNOWN TBT BPM NAME: 9W\x1b[2J)")) << said;
  EXPECT_TRUE(contains(said, " SHAKER PHASE MISMATCH! 12W2\n")) << said;
  EXPECT_TRUE(contains(said, " SKIPPING: UNKNOWN TBT BPM NAME: 30E\n")) << said;
  EXPECT_FALSE(tbt.bunch[0].bpm(69).data_ok);
  EXPECT_TRUE(tbt.bunch[0].bpm(111).data_ok);
  EXPECT_TRUE(tbt.bunch[0].bpm(88).data_ok);

  // Half a turn off in odd turns: of two the first alone.
  f.turns = 2;
  f.instruments = {{"12W"}, {"13W", {1, 1, 1, 1}, {}, 257}};
  at.put(4567, f);
  tbt_all_data_struct short_one;
  EXPECT_TRUE(contains(load(short_one), " SHAKER PHASE MISMATCH! 13W\n"));
}

// The later file lies over the earlier one where both have a BPM.
TEST(tbt_mod, second_file_of_a_set) {
  const tree at;
  raw_file f;
  at.put(4567, f);
  f.turns = 6;
  f.current = 20;
  f.instruments = {{"12W", {}, {}, 3}, {"13W"}};
  at.put(4566, f);
  tbt_all_data_struct tbt;
  load(tbt);
  const std::string said = load(tbt, {.run = 4566, .init_needed = false});
  EXPECT_TRUE(contains(said, "MISMATCH! 12W\n")) << said;  // phases are those of the first file
  EXPECT_FALSE(contains(said, "MISMATCH! 13W")) << said;
  EXPECT_FALSE(contains(said, "Hard wired")) << said;
  EXPECT_EQ(button_1(tbt, 1, 12).size(), 6U);
  EXPECT_EQ(button_1(tbt, 1, 69).size(), 4U);
  EXPECT_EQ(tbt.total_current, 20);

  // Other bunches replace all; a new set begins with clear flags.
  f.bunches = 1;
  f.pattern = "1";
  f.instruments = {{"14W"}};
  at.put(4565, f);
  load(tbt, {.run = 4565, .init_needed = false});
  EXPECT_EQ(tbt.bunch.size(), 1U);
  EXPECT_FALSE(tbt.bunch[0].bpm(12).data_ok);
  load(tbt, {.run = 4565});
  EXPECT_EQ(tbt.shaker.size(), 6U);
}

TEST(tbt_mod, a_file_that_cannot_be_loaded) {
  const tree at;
  tbt_all_data_struct tbt;
  const std::string said = load(tbt, {.fails = true});
  EXPECT_TRUE(contains(said, " Error opening TBT file:         4567\n")) << said;
  // It exists and cannot be opened, and nothing was loaded before.
  fs::create_directory("kbpmII/raw/04/RD-004568.dat");
  EXPECT_TRUE(contains(load(tbt, {.run = 4568, .fails = true}), " Error opening TBT file: "));
}

TEST(tbt_mod, a_run_that_cannot_be_opened_is_not_the_run_before) {
  const tree at;
  at.put(4567, {});
  tbt_all_data_struct tbt;
  load(tbt);
  const std::string path = at / "kbpmII/raw/04/RD-004566.dat";
  const scratch::unopenable socket{path};
  const std::string said = load(tbt, {.run = 4566, .init_needed = false, .fails = true});
  EXPECT_TRUE(contains(said, ("ERROR opening data file " + path + "!\n").c_str())) << said;
  EXPECT_TRUE(contains(said, " Error opening TBT file:         4566\n")) << said;
  EXPECT_EQ(tbt.file_number, 4567);
}

TEST(tbt_mod_death, other_corrections_end_the_run) {
  const tree at;
  at.put(4567, {});
  tbt_all_data_struct tbt;
  bool err = false;
  EXPECT_EXIT(tbt_mod::tbt_read_data_file(4567, 4, true, tbt, err), testing::ExitedWithCode(2), "");
  EXPECT_EXIT(tbt_mod::bunch_at(tbt, 1), testing::ExitedWithCode(1), "subscript 1 of bunch");
}

}  // namespace
