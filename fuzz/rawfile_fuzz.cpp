// Any bytes as a raw data file: loaded, then asked for everything through the accessors.
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "held_file.hpp"
#include "kbpm_file_input.hpp"
#include "kbpm_rawfile.hpp"
#include "kbpmfio_stream.hpp"
#include "raw_load.hpp"
#include "run_ended.hpp"

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

int memory_file() {
  static const int fd = memfd_create("raw data file", 0);
  if (fd < 0) std::abort();
  return fd;
}

// As a record whatever is wrong is a value: here nothing may end the run.
void load_for_oneself(const std::string& path, std::size_t block) {
  rawfile::kbpmfio_stream stream;
  if (rawfile::open_for_reading(stream, path, block)) std::abort();
  rawfile::raw_file file;
  const rawfile::load_result result = rawfile::load(stream, file);
  if (result.fault.has_value() != (result.end != rawfile::load_end::complete)) std::abort();
  static_cast<void>(rawfile::pattern_fault(file));
  for (const std::int32_t bunch : rawfile::bunches_enabled(file.file_header)) {
    static_cast<void>(rawfile::rf_bucket_of(file.file_header, bunch));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const int fd = memory_file();
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) {
    std::abort();
  }
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  rawfile::unquestioned_arrays = std::uint64_t{1} << 20;
  // With blocks as short as a line everything that happens at their ends happens often.
  for (const std::size_t block : {rawfile::usual_block, rawfile::max_line}) {
    load_for_oneself(path, block);
    fuzz::until_the_run_ends([&] {
      rawfile::kbpmfio_stream stream;
      if (rawfile::open_for_reading(stream, path, block)) std::abort();
      static_cast<void>(rawfile::kbpm_read_rawfile_stream(stream));
      ask_for_everything();
    });
  }
  return 0;
}
