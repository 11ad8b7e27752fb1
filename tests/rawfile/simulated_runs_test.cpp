// What the simulator writes, the library reads: every header field, reading, phase and text.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "kbpm_rawfile.hpp"
#include "kbpm_read_rawfile.hpp"
#include "literal_rawfile.hpp"
#include "raw.hpp"
#include "raw_records.hpp"
#include "sample_text.hpp"
#include "scratch.hpp"
#include "truth.hpp"

namespace {

using namespace rawfile;

sim::raw_setup small_run() {
  sim::raw_setup s = sim::usual_raw_setup();
  s.out = sample::scratch_directory() + "simulated.dat";
  s.names = "12W,47W_XBSM,X5C";
  s.bunches = 3;
  s.bunch_step = 9;
  s.block_1 = 1;
  s.turns = 40;
  s.machine.beam.x.tune = 0.5271;
  s.machine.beam.y.tune = 0.5938;
  s.machine.electronics.noise = 1e-3;
  s.timing_setup = "4ns_E_FIX_G";
  s.species = sim::particles::electrons;
  return s;
}

}  // namespace

TEST(a_simulated_run, has_every_header_field_as_it_was_set) {
  const sim::raw_setup s = small_run();
  sim::make_raw_files(s);
  ASSERT_EQ(kbpm_read_rawfile_at(s.out), 0);

  std::time_t when = 0;
  ASSERT_TRUE(sim::time_of(s, when));
  RDV3_FILE_HEADER header = sim::file_header(s, 4567, when, 3);
  EXPECT_EQ(text_of(header.timestamp), "Tue Mar  4 12:00:00 2014\n");
  // A time stamp loses its line end; the file's name stands in no line.
  set_text(header.timestamp, "Tue Mar  4 12:00:00 2014");
  set_text(header.full_filename, s.out);
  EXPECT_TRUE(literal::same(header, *p_v3_file_header));
  const RDV3_KOVR_HEADER kovr = sim::kovr_header(s);
  EXPECT_EQ(std::memcmp(&kovr, p_v3_kovr_header, sizeof kovr), 0);

  int bits = 0;
  for (int word = 0; word < pattern_words; ++word) {
    bits += std::popcount(static_cast<unsigned>(kbpm_rawfile_bunch_pattern(word)));
  }
  EXPECT_EQ(bits, kbpm_rawfile_num_bunches());
  EXPECT_EQ(kbpm_rawfile_bunches_enabled_ptr()[2], 19);
  EXPECT_EQ(kbpm_rawfile_species(), 1);

  for (int i = 0; i < 3; ++i) {
    const sim::monitor at = sim::make_monitor(s.machine, i + 1);
    const char* const names[] = {"12W", "47W_XBSM", "X5C"};
    const RDV3_INST_DATA set = sim::instrument_header(s, at, names[i]);
    const RDV3_INST_DATA& read = p_v3_inst_array[i];
    EXPECT_NEAR(read.horz_coeff, set.horz_coeff, 1e-6) << "six decimals are kept";
    EXPECT_NEAR(read.vert_coeff, set.vert_coeff, 1e-6);
    RDV3_INST_DATA same = set;
    same.horz_coeff = read.horz_coeff;
    same.vert_coeff = read.vert_coeff;
    const auto behind_headers = reinterpret_cast<const char*>(&same.adc_low + 1);
    const auto size =
        static_cast<std::size_t>(behind_headers - reinterpret_cast<const char*>(&same));
    EXPECT_EQ(std::memcmp(&same, &read, size), 0) << names[i];
  }
}

TEST(a_simulated_run, reads_what_the_electronics_saw) {
  const sim::raw_setup s = small_run();
  sim::make_raw_files(s);
  ASSERT_EQ(kbpm_read_rawfile_at(s.out), 0);
  constexpr int bpm = 2;
  for (int bunch = 0; bunch < s.bunches; ++bunch) {
    const RDV3_INST_DATA& d = p_v3_inst_array[bpm - 1];
    const auto b = static_cast<std::size_t>(bunch);
    EXPECT_EQ(d.timing_blocks[b], bunch == 2 ? 1 : 0);
    sim::monitor at = sim::make_monitor(s.machine, bpm, bunch);
    for (int turn = 0; turn < s.turns; ++turn) {
      const sim::passage p = sim::next_passage(s.machine, at);
      const auto n = b * 40 + static_cast<std::size_t>(turn);
      // Corrected with the file's calibration: the electronics' signals, up to rounding by half a
      // count before the gain coefficient (0.9 or more here) is divided out.
      const float corrected[] = {d.TIcorrected[n], d.BIcorrected[n], d.BOcorrected[n],
                                 d.TOcorrected[n]};
      for (int card = 0; card < num_cards; ++card) {
        const int k = sim::button_of_card[card];
        EXPECT_NEAR(corrected[card], p.reading(k) - at.electronics.pedestal(k), 0.56);
      }
      const double steps = 0.5271 * 512 * turn;
      EXPECT_EQ(d.X_phase_words[n], std::lround(steps) % 512);
    }
  }
}

TEST(a_tree, gets_its_runs_its_truth_and_its_index_once) {
  sim::raw_setup s = small_run();
  s.out.clear();
  s.tree = sample::scratch_directory() + "tree/online";
  s.runs = 2;
  s.run = 999;
  const auto paths = sim::make_raw_files(s);
  ASSERT_EQ(paths.size(), 2U);
  const auto truth = sim::read_truth(sim::raw_truth_path(paths[0]));
  ASSERT_EQ(truth.size(), 3U);
  EXPECT_EQ(truth[1].name, "47W_XBSM");
  EXPECT_EQ(truth[1].true_gain(4), sim::make_monitor(s.machine, 2).electronics.true_gain(4));

  sim::make_raw_files(s);
  EXPECT_EQ(paths[1], s.tree + "/kbpmII/raw/01/RD-001000.dat");
  EXPECT_EQ(kbpm_read_rawfile(999), 0);
  const std::int32_t first = *kbpm_rawfile_raw_ptr("12W", 0);
  const std::int32_t phase = kbpm_rawfile_whole_phase_ptr("12W")[7];
  EXPECT_EQ(kbpm_read_rawfile(1000), 0);
  EXPECT_NE(*kbpm_rawfile_raw_ptr("12W", 0), first) << "each run has its own motion";
  EXPECT_EQ(kbpm_rawfile_whole_phase_ptr("12W")[7], phase) << "and the shaker's phases";

  EXPECT_EQ(scratch::content(s.tree + "/machine_data/meas/run_index/tbt.idx"),
            "# run, date, time\n999 2014-03-04 12:00:00\n1000 2014-03-04 12:01:00\n");
}

TEST(raw_setup, that_cannot_be_is_told) {
  struct {
    const char* what;
    void (*spoil)(sim::raw_setup&);
    const char* text;
  } const cases[] = {
      {"too many bunches for the step", [](sim::raw_setup& s) { s.bunches = 73; }, "1 to 72"},
      {"a name too long", [](sim::raw_setup& s) { s.names = "12W,TENLETTERS"; }, "TENLETTERS"},
      {"an empty name", [](sim::raw_setup& s) { s.names = "12W,,9W"; }, "\"\""},
      {"no such day", [](sim::raw_setup& s) { s.when = "2014-02-30 12:00:00"; }, "2014-02-30"},
      {"one file for two runs", [](sim::raw_setup& s) { s.runs = 2; }, "--tree"},
      {"block 1 beyond the bunches", [](sim::raw_setup& s) { s.block_1 = 4; }, "0 to 3"},
      {"chamber", [](sim::raw_setup& s) { s.machine.beam.x.orbit = 1; }, "closed orbit"}};
  EXPECT_EQ(sim::raw_fault(small_run()), "");
  for (const auto& c : cases) {
    sim::raw_setup s = small_run();
    c.spoil(s);
    EXPECT_NE(sim::raw_fault(s).find(c.text), std::string::npos) << c.what << sim::raw_fault(s);
  }
}
