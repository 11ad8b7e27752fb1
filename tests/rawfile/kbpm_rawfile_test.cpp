// The accessors and their bindings, on one loaded sample.
#include "kbpm_rawfile.hpp"

#include <gtest/gtest.h>

#include <array>

#include "kbpm_file_input.hpp"
#include "kbpm_read_rawfile.hpp"
#include "sample_text.hpp"

namespace {

using namespace rawfile;
using namespace kbpm_file_input;

// Instruments 1W, 2W, 3W; 18 bunches (words 0 and 1 of the pattern), of which the second is in
// timing block 1; 4 turns.
class loaded : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(kbpm_read_rawfile_at(sample::written("accessors.dat", sample::text({3, 18, 4}))), 0);
  }
  void TearDown() override { forget_rawfile(); }
};

void set_timing_setup(std::string_view setup) { set_text(p_v3_file_header->timing_setup, setup); }

std::string padded(std::int32_t (*binding)(std::span<char>), std::size_t width) {
  std::string text(width, '?');
  binding(text);
  return text;
}

}  // namespace

TEST_F(loaded, headers_are_answered) {
  EXPECT_EQ(kbpm_rawfile_num_instruments(), 3);
  EXPECT_EQ(kbpm_rawfile_num_bunches(), 18);
  EXPECT_EQ(kbpm_rawfile_num_turns(), 4);
  EXPECT_EQ(kbpm_rawfile_condx_number(), 31415);
  EXPECT_EQ(kbpm_rawfile_cern_current(), 1.25F);
  EXPECT_EQ(kbpm_rawfile_cern_current_raw(), 2718);
  EXPECT_EQ(kbpm_rawfile_bunch_pattern(0), 0xFFFF);
  EXPECT_EQ(kbpm_rawfile_bunch_pattern(1), 3);
  for (const int word : {-1, 40}) EXPECT_EQ(kbpm_rawfile_bunch_pattern(word), -999);
  std::array<char, 6> cut{};
  EXPECT_EQ(kbpm_rawfile_timing_setup_(cut), 0);
  EXPECT_STREQ(cut.data(), "14ns_");
  struct {
    const char* name;
    std::int32_t code;
  } const species[] = {{"POSITRONS", 0}, {"ELECTRONS", 1}, {"DUAL", 2}, {"POSITRON", -1}, {"", -1}};
  for (const auto& s : species) {
    set_text(p_v3_file_header->species_name, s.name);
    EXPECT_EQ(kbpm_rawfile_species(), s.code) << s.name;
  }
}

TEST_F(loaded, species_and_buckets_follow_the_timing_setup) {
  struct {
    const char* setup;
    std::int32_t bunch;
    std::int32_t species, bucket;
  } const cases[] = {{"4ns_P_VAR_G", 640, 0, 1280},  {"4ns_P_FIX_G", 1, 0, 2},
                     {"4ns_E_VAR_G", 7, 1, 14},      {"4ns_E_FIX_G", 641, -999, -999},
                     {"14ns_VAR_G", 183, 1, 1275},   {"14ns_FIX_G", 184, 0, -999},
                     {"14ns_VAR_G", 1, 1, 1},        {"14ns_VAR_G", 0, 0, -999},
                     {"14ns_VAR_G", -1, -999, -999}, {"14ns_VAR_G\r", 2, -1, 8},
                     {"8ns", 3, -1, -999},           {"", 3, -1, -999}};
  for (const auto& c : cases) {
    set_timing_setup(c.setup);
    EXPECT_EQ(kbpm_rawfile_species_by_bunch(c.bunch), c.species) << c.setup << " " << c.bunch;
    EXPECT_EQ(kbpm_rawfile_rf_bucket(c.bunch), c.bucket) << c.setup << " " << c.bunch;
  }
}

TEST_F(loaded, calibration_is_that_of_block_0_and_1_for_block_1) {
  EXPECT_EQ(kbpm_rawfile_pedestal("2W", 1, 0), 100.5F);
  EXPECT_EQ(kbpm_rawfile_pedestal("2W", 1, 3), 1.0F) << "the sample's pedestal of 1";
  EXPECT_EQ(kbpm_rawfile_pedestal("3W", 3, 3), 2.0F);
  EXPECT_EQ(kbpm_rawfile_gain_factor(" 2W ", 18, 1), 0.9F);
  EXPECT_EQ(kbpm_rawfile_pedestal("2W", 2, 0), 1.0F) << "bunch 2 is in block 1";
  EXPECT_EQ(kbpm_rawfile_gain_factor("2W", 2, 1), 1.0F);
  EXPECT_EQ(kbpm_rawfile_pedestal("9W", 1, 0), 1.0F) << "no such instrument";
  EXPECT_EQ(kbpm_rawfile_pedestal(" 2", 1, 0), 1.0F) << "two characters, but no instrument";
  EXPECT_EQ(kbpm_rawfile_gain_factor("9W", 19, 0), 1.0F) << "nor has it bunches that are missing";
  struct {
    const char* what;
    const char* name;
    std::int32_t bunch, button;
  } const bad[] = {{"one character", "2", 1, 0},    {"no name", "", 1, 0},
                   {"bunch 0", "2W", 0, 0},         {"bunch 641", "2W", 641, 0},
                   {"bunch not held", "2W", 19, 0}, {"button -1", "2W", 1, -1},
                   {"button 4", "2W", 1, 4}};
  for (const auto& b : bad) {
    EXPECT_EQ(kbpm_rawfile_pedestal(b.name, b.bunch, b.button), -999.0F) << b.what;
    EXPECT_EQ(kbpm_rawfile_gain_factor(b.name, b.bunch, b.button), -999.0F) << b.what;
  }
}

TEST_F(loaded, arrays_are_those_of_the_named_instrument) {
  const RDV3_INST_DATA& d = p_v3_inst_array[1];
  EXPECT_EQ(kbpm_rawfile_raw_ptr("2W", 0), d.TIraw.data());
  EXPECT_EQ(kbpm_rawfile_raw_ptr(" 2W", 3), d.TOraw.data());
  EXPECT_EQ(kbpm_rawfile_tbt_ptr("2W", 1), d.BIcorrected.data());
  EXPECT_EQ(kbpm_rawfile_tbt_ptr("2W", 2), d.BOcorrected.data());
  EXPECT_EQ(kbpm_rawfile_pos_ptr("2W", 0), d.Xpos.data());
  EXPECT_EQ(kbpm_rawfile_pos_ptr("2W", 1), d.Ypos.data());
  EXPECT_EQ(kbpm_rawfile_phase_ptr("2W", 0), d.X_phase_words.data());
  EXPECT_EQ(kbpm_rawfile_phase_ptr("2W", 1), d.Y_phase_words.data());
  EXPECT_EQ(kbpm_rawfile_phase_ptr("2W", 2), d.Other_phase_words.data());
  EXPECT_EQ(kbpm_rawfile_whole_phase_ptr("2W"), d.phase_words.data());

  for (const std::int32_t* p : {kbpm_rawfile_raw_ptr("2", 0), kbpm_rawfile_raw_ptr("2W", 4),
                                kbpm_rawfile_phase_ptr("2", 0), kbpm_rawfile_whole_phase_ptr("")}) {
    EXPECT_EQ(p, &Integer_Constant);
    EXPECT_EQ(*p, -999);
  }
  for (const float* p : {kbpm_rawfile_tbt_ptr("2W", -1), kbpm_rawfile_pos_ptr("2", 0)}) {
    EXPECT_EQ(p, &Float_Constant);
    EXPECT_EQ(*p, -999.0F);
  }
  EXPECT_EQ(kbpm_rawfile_raw_ptr("9W", 0), nullptr);
  EXPECT_EQ(kbpm_rawfile_tbt_ptr("9W", 0), nullptr);
  EXPECT_EQ(kbpm_rawfile_pos_ptr("2W", 2), nullptr);
  EXPECT_EQ(kbpm_rawfile_phase_ptr("2W", 3), nullptr);
  EXPECT_EQ(kbpm_rawfile_whole_phase_ptr("9W"), nullptr);
}

TEST_F(loaded, lists_follow_the_bunch_pattern) {
  p_v3_file_header->bunch_pattern.fill(0);
  p_v3_file_header->bunch_pattern(0) = 0x8001;
  p_v3_file_header->bunch_pattern(39) = 0x8000;
  const std::int32_t* bunches = kbpm_rawfile_bunches_enabled_ptr();
  const std::int32_t* species = kbpm_rawfile_species_ptr();
  const std::array<std::int32_t, 3> enabled{1, 16, 640};
  for (std::size_t k = 0; k < 3; ++k) {
    EXPECT_EQ(bunches[k], enabled[k]);
    // Asked for with the bit index: bunch 1 asks for 0, the opposite of what bunch 1 is.
    EXPECT_EQ(species[k], 1 - kbpm_rawfile_species_by_bunch(enabled[k]));
  }
  p_v3_file_header->bunch_pattern(1) = 0x1FFFF;  // 16 count, the others belong to no bunch
  EXPECT_EXIT(
      kbpm_rawfile_bunches_enabled_ptr(), testing::ExitedWithCode(1),
      "accessors.dat: Bunch_Patt_\\(hex\\) names 19 bunches, expected Number_of_Bunches : 18\n"
      ".*subscript 18 of Enabled_Bunches is outside 0..17");
  EXPECT_EXIT(kbpm_rawfile_species_ptr(), testing::ExitedWithCode(1),
              "names 19 bunches.*\n.*subscript 18 of Species_By_Bunch is outside 0..17");
}

TEST_F(loaded, names_come_in_file_order_then_the_end_then_again) {
  for (int round = 0; round < 2; ++round) {
    for (const char* name : {"1W   ", "2W   ", "3W   ", "     "}) {
      EXPECT_EQ(padded(kbpm_rawfile_inst_names_f, 5), name);
    }
  }
  std::array<char, 10> text{};
  kbpm_rawfile_inst_names_(text);
  ASSERT_EQ(kbpm_read_rawfile_at(sample::written("accessors.dat", sample::text({}))), 0);
  EXPECT_EQ(kbpm_rawfile_inst_names_(text), 0);
  EXPECT_STREQ(text.data(), "1W") << "a load starts the names again";
}

TEST_F(loaded, bindings_trim_pad_and_measure) {
  EXPECT_EQ(padded(kbpm_rawfile_timing_setup_f, 14), "14ns_VAR_G    ");
  EXPECT_EQ(padded(kbpm_rawfile_timestamp_f, 10), "Tue Mar  4");
  set_text(p_v3_file_header->full_filename, std::string(120, 'n'));
  EXPECT_EQ(padded(kbpm_rawfile_full_filename_f, 120), std::string(99, 'n') + std::string(21, ' '));

  EXPECT_EQ(kbpm_rawfile_pedestal_f("2W      ", 1, 0), 100.5F);
  EXPECT_EQ(kbpm_rawfile_pedestal_f("2       ", 1, 0), -999.0F);
  EXPECT_EQ(kbpm_rawfile_gain_factor_f("2W      ", 1, 1), 0.9F);
  std::span<std::int32_t> whole;
  std::span<float> reals;
  kbpm_rawfile_raw_ptr_f(whole, "2W  ", 0);
  EXPECT_EQ(whole.size(), 72U);
  EXPECT_EQ(whole.data(), p_v3_inst_array[1].TIraw.data());
  kbpm_rawfile_tbt_ptr_f(reals, "2W  ", 0);
  EXPECT_EQ(reals.size(), 72U);
  kbpm_rawfile_pos_ptr_f(reals, "2W  ", 1);
  EXPECT_EQ(reals.data(), p_v3_inst_array[1].Ypos.data());
  kbpm_rawfile_phase_ptr_f(whole, "2W  ", 0);
  EXPECT_EQ(whole.size(), 4U) << "the first bunch's turns only";
  kbpm_rawfile_whole_phase_ptr_f(whole, "2W  ");
  EXPECT_EQ(whole.size(), 4U);
  kbpm_rawfile_species_ptr_f(whole);
  EXPECT_EQ(whole.size(), 18U);
  kbpm_rawfile_bunches_enabled_ptr_f(whole);
  EXPECT_EQ(whole[17], 18);

  kbpm_rawfile_raw_ptr_f(whole, "9W", 0);
  EXPECT_TRUE(whole.empty());
  kbpm_rawfile_raw_ptr_f(whole, "2W", 4);
  EXPECT_EQ(std::vector(whole.begin(), whole.end()), std::vector{-999});
}

TEST(before_any_load, accessors_answer_as_for_bad_arguments) {
  forget_rawfile();
  EXPECT_EQ(kbpm_rawfile_num_instruments(), 0);
  EXPECT_EQ(kbpm_rawfile_num_bunches(), 0);
  EXPECT_EQ(kbpm_rawfile_num_turns(), 0);
  EXPECT_EQ(kbpm_rawfile_condx_number(), -999);
  EXPECT_EQ(kbpm_rawfile_cern_current(), -999.0F);
  EXPECT_EQ(kbpm_rawfile_species(), -999);
  EXPECT_EQ(kbpm_rawfile_species_by_bunch(1), -999);
  EXPECT_EQ(kbpm_rawfile_rf_bucket(1), -999);
  EXPECT_EQ(kbpm_rawfile_bunch_pattern(0), -999);
  EXPECT_EQ(kbpm_rawfile_pedestal("1W", 1, 0), -999.0F);
  EXPECT_EQ(*kbpm_rawfile_raw_ptr("1W", 0), -999);
  EXPECT_EQ(*kbpm_rawfile_pos_ptr("1W", 0), -999.0F);
  EXPECT_EQ(*kbpm_rawfile_species_ptr(), -999);
  std::array<char, 5> text{"abc"};
  EXPECT_EQ(kbpm_rawfile_inst_names_(text), 1);
  EXPECT_STREQ(text.data(), "");
}

TEST_F(loaded, file_loads_through_its_binding) {
  setenv("KOVR_ONLINE", "/k", 1);
  const std::string path = sample::written("binding.dat", sample::text({}));
  EXPECT_EQ(kbpm_read_rawfile_from_fullfilename_f(path + "    "), 0.0);
  EXPECT_EQ(kbpm_rawfile_num_bunches(), 2);
}
