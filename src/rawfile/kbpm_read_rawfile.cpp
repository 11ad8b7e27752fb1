// The process-wide loaders: they find the file, load it into the record that all share, and say
// on standard output what came of it. The work is done in rawfile_location.cpp and raw_load.cpp.
#include "kbpm_read_rawfile.hpp"

#include <fmt/core.h>

#include <cstdio>
#include <type_traits>

#include "array_arena.hpp"
#include "field_tables.hpp"
#include "files_read.hpp"
#include "held_file.hpp"
#include "raw_load.hpp"
#include "rawfile_place.hpp"
#include "run_time.hpp"
#include "standard_output.hpp"
#include "tell.hpp"
#include "text.hpp"

namespace rawfile {
namespace {

// The global pointers follow the record, and so do the tables: whoever writes a header next, to
// kbpmfio_file_pointer, writes that of the file loaded last.
void show_held() {
  // Null when nothing is held, as before any load: the accessors ask the record, not the pointers.
  raw_file& file = held().file;
  kbpmfio_memory_allocated = file.loaded ? 1 : 0;
  inst_count_g = 0;
  p_v3_file_header = file.loaded ? &file.file_header : nullptr;
  p_v3_kovr_header = file.loaded ? &file.kovr_header : nullptr;
  p_v3_inst_array = file.loaded ? file.instruments.data() : nullptr;
  kbpmfio_map_file_header(file.file_header);
  kbpmfio_map_kovr_header(file.kovr_header);
  RDV3_inst_header_specs = fresh_tables().instrument;
  if (!file.instruments.empty()) kbpmfio_map_instrument_header(file.instruments.back());
}

// The status of a load, with its message.
std::int32_t status_of(const load_result& result, const std::string& path) {
  if (!result.fault) return 0;
  switch (result.end) {
    case load_end::complete:
      break;
    case load_end::endless:
      tell(*result.fault);
      break;
    // This one and the two empty ones on standard output, with the other messages of loading.
    case load_end::counts:
      util::print_line("Error: " + util::line_of(*result.fault));
      break;
    case load_end::block:
      // Here the run ends as at any array: the line before says where in which file.
      tell(*result.fault);
      util::subscript_error("pedestals", result.block, 0, 1, 1);
    case load_end::no_instruments:
      util::print_line("Error: Empty RD file, no instruments, " + util::shown(path));
      break;
    case load_end::no_bunches:
      util::print_line("Error: Empty RD file, no bunches, " + util::shown(path));
      break;
  }
  return 1;
}

std::int32_t unable_to_stat(std::string_view path) {
  util::print_line("Unable to stat " + util::shown(path));
  return 1;
}

// A file that is there. That one which cannot be opened answers 0 is kept for compatibility.
std::int32_t load_file(const std::string& path) {
  constexpr const char* routine = "kbpm_read_rawfile_extended";
  kbpmfio_stream stream;
  if (const auto fault = open_for_reading(stream, path)) {
    util::print_line(fmt::format("[{}] ERROR opening data file {}!", routine, util::shown(path)));
    std::fflush(stdout);
    // The system's text under the routine's name, not the program's: kept for compatibility.
    std::fputs(fmt::format("{}: {}\n", routine, fault->what).c_str(), stderr);
    return 0;
  }
  util::note_file_read(path);
  return kbpm_read_rawfile_stream(stream);
}

RDV3_INST_DATA& held_instrument(std::int32_t i) {
  auto& instruments = held().file.instruments;
  const auto count = static_cast<std::int32_t>(instruments.size());
  // By what is held, not by the header's count, which anyone may have written to.
  if (i < 0 || i >= count) util::subscript_error("p_v3_inst_array", i, 0, count - 1);
  return instruments[static_cast<std::size_t>(i)];
}

}  // namespace

held_file& held() {
  // Never destroyed: arrays that were handed out stay valid to the last line of the program.
  static held_file& the_one = *new held_file;
  return the_one;
}

void kbpmfio_v3_inst_alloc(std::int32_t i) {
  static_cast<void>(held_instrument(i));
  give_arrays(held().file, static_cast<std::size_t>(i));
}

void kbpmfio_v3_free_inst_mem(std::int32_t i) { take_arrays(held_instrument(i)); }

void forget_rawfile() {
  forget(held().file);
  held().is_current = false;
  show_held();
}

// The record is replaced even where the load then fails: only a file that could not be opened, or is
// not there, leaves the earlier one in place.
std::int32_t kbpm_read_rawfile_stream(kbpmfio_stream& stream) {
  const load_result result = load(stream, held().file);
  const auto failed = read_fault(stream);
  // A read that fails ends the lines, and the status goes by those that came. But half a file must
  // not pass for the run: who asks whether it is current hears no.
  held().is_current = held().file.loaded && !failed;
  show_held();
  const std::int32_t status = status_of(result, stream.path);
  if (failed) {
    tell(*failed);
  } else if (held().file.ends_early) {
    tell(*held().file.ends_early);
  }
  return status;
}

std::int32_t kbpm_read_rawfile_at(const std::string& path) {
  held().is_current = false;
  return is_there(path) ? load_file(path) : unable_to_stat(path);
}

std::int32_t kbpm_read_rawfile_extended(std::int32_t run, std::string_view path) {
  held().is_current = false;
  const place at = path.empty() ? place_of_run(run) : place_of_path(run, path);
  // Told also where the archive has the file then.
  for (const std::string& missed : at.missed) unable_to_stat(missed);
  return at.found.empty() ? 1 : load_file(at.found);
}

std::int32_t kbpm_read_rawfile(std::int32_t run) { return kbpm_read_rawfile_extended(run, ""); }

std::int32_t kbpm_read_rawfile_from_fullfilename(std::string_view path) {
  return kbpm_read_rawfile_extended(0, path);
}

}  // namespace rawfile
