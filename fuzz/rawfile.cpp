// Any bytes as a raw data file: loaded, then asked for everything through the accessors.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "held_file.hpp"
#include "kbpm_file_input.hpp"
#include "kbpm_rawfile.hpp"
#include "kbpmfio_stream.hpp"
#include "raw_load.hpp"
#include "target.hpp"

namespace {

using namespace kbpm_file_input;

// Reads every element of a view: the sanitizer sees a view that is too long.
template <class T>
void touch(std::span<T> view) {
  volatile T last{};
  for (const T& v : view) last = v;
}

void ask_for_everything() {
  std::string name(10, ' ');
  std::span<std::int32_t> whole;
  std::span<float> reals;
  while (kbpm_rawfile_inst_names_f(name) == 0) {
    for (int selector = -1; selector <= 4; ++selector) {
      kbpm_rawfile_raw_ptr_f(whole, name, selector);
      touch(whole);
      kbpm_rawfile_tbt_ptr_f(reals, name, selector);
      touch(reals);
      kbpm_rawfile_pos_ptr_f(reals, name, selector);
      touch(reals);
      kbpm_rawfile_phase_ptr_f(whole, name, selector);
      touch(whole);
      for (const int bunch : {0, 1, 2, rawfile::kbpm_rawfile_num_bunches(), 640, 641}) {
        kbpm_rawfile_pedestal_f(name, bunch, selector);
        kbpm_rawfile_gain_factor_f(name, bunch, selector);
        rawfile::kbpm_rawfile_rf_bucket(bunch);
      }
    }
    kbpm_rawfile_whole_phase_ptr_f(whole, name);
    touch(whole);
  }
  std::string text(200, ' ');
  kbpm_rawfile_full_filename_f(text);
  kbpm_rawfile_timestamp_f(text);
  kbpm_rawfile_timing_setup_f(text);
  rawfile::kbpm_rawfile_species();
  kbpm_rawfile_species_ptr_f(whole);
  touch(whole);
  kbpm_rawfile_bunches_enabled_ptr_f(whole);
  touch(whole);
}

struct loaded {
  rawfile::raw_file file;
  rawfile::load_result result;
};

// As a record whatever is wrong is a value: here nothing may end the run.
loaded load_for_oneself(const std::string& path, std::size_t block) {
  rawfile::kbpmfio_stream stream;
  fuzz::check(!rawfile::open_for_reading(stream, path, block));
  loaded l;
  l.result = rawfile::load(stream, l.file);
  fuzz::check(l.result.fault.has_value() == (l.result.end != rawfile::load_end::complete));
  static_cast<void>(rawfile::pattern_fault(l.file));
  for (const std::int32_t bunch : rawfile::bunches_enabled(l.file.file_header)) {
    static_cast<void>(rawfile::rf_bucket_of(l.file.file_header, bunch));
  }
  return l;
}

bool same_instrument(const rawfile::RDV3_INST_DATA& a, const rawfile::RDV3_INST_DATA& b) {
  using namespace fuzz;
  return a.location == b.location && same_bits(a.timing_blocks, b.timing_blocks) &&
         same_bits(a.phase_words, b.phase_words) && same_bits(a.TIraw, b.TIraw) &&
         same_bits(a.BIraw, b.BIraw) && same_bits(a.BOraw, b.BOraw) &&
         same_bits(a.TOraw, b.TOraw) && same_bits(a.TIcorrected, b.TIcorrected) &&
         same_bits(a.BOcorrected, b.BOcorrected) && same_bits(a.Xpos, b.Xpos) &&
         same_bits(a.Ypos, b.Ypos) && same_bits(a.X_phase_words, b.X_phase_words);
}

// The block is where lines are cut, the pipe where reads end: neither may show in what was read.
void check_same(const loaded& a, const loaded& b) {
  fuzz::check(a.result.end == b.result.end);
  if (a.result.end != rawfile::load_end::complete) return;
  fuzz::check(fuzz::same(a.file.ends_early, b.file.ends_early));
  fuzz::check(a.file.instruments.size() == b.file.instruments.size());
  for (std::size_t i = 0; i < a.file.instruments.size(); ++i) {
    fuzz::check(same_instrument(a.file.instruments[i], b.file.instruments[i]));
  }
}

}  // namespace

void fuzz::read(std::string_view text) {
  rawfile::unquestioned_arrays = std::uint64_t{1} << 20;
  const loaded whole = load_for_oneself(held(text, way::file), rawfile::usual_block);
  // With blocks as short as a line everything that happens at their ends happens often.
  check_same(whole, load_for_oneself(held(text, way::file), rawfile::max_line));
  loaded piped = load_for_oneself(held(text, way::pipe), rawfile::usual_block);
  // A pipe cannot tell its size, and where the header asks for much that is asked for.
  if (piped.result.end != rawfile::load_end::counts) check_same(whole, piped);
  for (const std::size_t block : {rawfile::usual_block, rawfile::max_line}) {
    fuzz::until_the_run_ends([&] {
      rawfile::kbpmfio_stream stream;
      check(!rawfile::open_for_reading(stream, held(text, way::file), block));
      static_cast<void>(rawfile::kbpm_read_rawfile_stream(stream));
      ask_for_everything();
    });
  }
}
