#include "kbpm_read_rawfile.hpp"

#include <fmt/core.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "array_arena.hpp"
#include "data_block.hpp"
#include "kbpmfio.hpp"
#include "rawfile_location.hpp"
#include "run_time.hpp"
#include "tell.hpp"
#include "text.hpp"

namespace rawfile {
namespace {

// What the global pointers point to; one file, from its load to the next.
struct held_file {
  std::unique_ptr<RDV3_FILE_HEADER> file_header;
  std::unique_ptr<RDV3_KOVR_HEADER> kovr_header;
  std::vector<RDV3_INST_DATA> instruments;
  array_arena arrays;
};
held_file held;

constexpr std::int32_t most_instruments = 120;

bool is_there(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

// --- counts that cannot be --------------------------------------------------------------------

std::uint64_t count_of(std::int32_t value) {
  return static_cast<std::uint64_t>(std::max(value, 0));
}

// Bytes from the start of one array to the next: whole cache lines, and an odd number of them more,
// so that the columns of one turn do not all fall into the same set of the cache.
std::size_t spaced(std::uint64_t elements) {
  constexpr std::size_t line = 64;
  return ((elements * sizeof(std::int32_t) + line - 1) / line + 5) * line;
}

constexpr std::size_t long_arrays = 14;  // of B x T elements
constexpr std::size_t short_arrays = 3;  // of B elements

std::uint64_t bytes_of_instrument(const RDV3_FILE_HEADER& h) {
  const std::uint64_t bunches = count_of(h.num_bunches);
  return long_arrays * spaced(bunches * count_of(h.num_turns)) + short_arrays * spaced(bunches);
}

// The count that most likely is the wrong one: the largest.
std::string largest_count(const RDV3_FILE_HEADER& h) {
  if (h.num_turns >= h.num_bunches && h.num_turns >= h.num_instruments) {
    return fmt::format("Number_of_Turns : {}", h.num_turns);
  }
  if (h.num_bunches >= h.num_instruments) {
    return fmt::format("Number_of_Bunches : {}", h.num_bunches);
  }
  return fmt::format("Num_Instruments : {}", h.num_instruments);
}

// Why the arrays must not be made; nothing when they may.
std::optional<std::string> refusal(const RDV3_FILE_HEADER& h,
                                   std::optional<std::int64_t> file_size) {
  constexpr std::uint64_t most_lines = INT32_MAX;
  const std::uint64_t instruments = count_of(h.num_instruments);
  const std::uint64_t blocks = instruments * count_of(h.num_bunches);
  if (blocks > most_lines || blocks * count_of(h.num_turns) > most_lines) {
    return "more data lines than 32 bits can count";
  }
  // Without turns a bunch still has its places in the lists, and an instrument its header lines.
  const std::uint64_t lines = blocks * std::max(count_of(h.num_turns), std::uint64_t{1}) +
                              instruments * std::uint64_t{num_RDV3_inst_header_specs};
  const std::uint64_t bytes = instruments * (sizeof(RDV3_INST_DATA) + bytes_of_instrument(h));
  if (bytes > unquestioned_arrays && !file_size) {
    return fmt::format("{} lines expected; a pipe or device cannot tell its size", lines);
  }
  if (bytes > unquestioned_arrays && static_cast<std::uint64_t>(*file_size) < 2 * lines) {
    return fmt::format("{} lines expected, the file has {} bytes", lines, *file_size);
  }
  return std::nullopt;
}

// --- loading ----------------------------------------------------------------------------------

void let_go() {
  kbpmfio_memory_allocated = 0;
  p_v3_file_header = nullptr;
  p_v3_kovr_header = nullptr;
  p_v3_inst_array = nullptr;
  held.instruments.clear();
  held.kovr_header.reset();
  held.file_header.reset();
}

void read_headers(kbpmfio_stream& stream) {
  held.file_header = std::make_unique<RDV3_FILE_HEADER>();
  held.kovr_header = std::make_unique<RDV3_KOVR_HEADER>();
  p_v3_file_header = held.file_header.get();
  p_v3_kovr_header = held.kovr_header.get();
  set_text(p_v3_file_header->full_filename, stream.path);
  kbpmfio_map_file_header(*p_v3_file_header);
  kbpmfio_rw_file_header(stream, KBPMFIO_READ);
  kbpmfio_map_kovr_header(*p_v3_kovr_header);
  kbpmfio_rw_kovr_header(stream, KBPMFIO_READ);
}

// Memory for all instruments, or the reason why there is none.
std::optional<std::string> make_room(std::optional<std::int64_t> file_size) {
  const RDV3_FILE_HEADER& h = *p_v3_file_header;
  if (auto reason = refusal(h, file_size)) return reason;
  const std::uint64_t bytes = count_of(h.num_instruments) * bytes_of_instrument(h);
  if (!reserve(held.arrays, bytes)) return fmt::format("no memory for {} bytes of arrays", bytes);
  held.instruments.resize(count_of(h.num_instruments));
  p_v3_inst_array = held.instruments.data();
  return std::nullopt;
}

void read_instruments(kbpmfio_stream& stream) {
  data_columns columns{};  // go from instrument to instrument, like the file's last good line
  for (std::int32_t i = 0; i < p_v3_file_header->num_instruments; ++i) {
    kbpmfio_v3_inst_alloc(i);
    kbpmfio_map_instrument_header(p_v3_inst_array[i]);
    kbpmfio_rw_instrument_header(stream, KBPMFIO_READ);
    // This one takes the column titles and the data marker.
    read_data_line(stream, columns);
    if (const auto fault =
            read_data_block(stream, p_v3_inst_array[i], p_v3_file_header->num_bunches,
                            p_v3_file_header->num_turns, columns)) {
      tell(*fault);
      util::subscript_error("pedestals", columns[0], 0, 1, 1);
    }
  }
}

// The instrument count is also compared with 300000 where the bunches are looked at; having passed
// the first test it never gets there.
std::int32_t status_of_counts(const std::string& path) {
  const std::int32_t instruments = p_v3_file_header->num_instruments;
  if (instruments < 1 || instruments > most_instruments) {
    fmt::print("Error: Empty RD file, no instruments, {}\n", util::shown(path));
    return 1;
  }
  if (p_v3_file_header->num_bunches < 1 || instruments > 300000) {
    fmt::print("Error: Empty RD file, no bunches, {}\n", util::shown(path));
    return 1;
  }
  return 0;
}

std::int32_t unable_to_stat(std::string_view path) {
  fmt::print("Unable to stat {}\n", util::shown(path));
  return 1;
}

std::int32_t refuse_endless(const kbpmfio_stream& stream) {
  tell({fmt::format("{} characters without a line end", longest_unended), util::shown(stream.path),
        "the lines of a raw data file"});
  forget_rawfile();
  return 1;
}

// A file that is there. That one which cannot be opened answers 0 is kept for compatibility.
std::int32_t load_file(const std::string& path) {
  constexpr const char* routine = "kbpm_read_rawfile_extended";
  kbpmfio_stream stream;
  if (const int reason = open_for_reading(stream, path); reason != 0) {
    fmt::print("[{}] ERROR opening data file {}!\n", routine, util::shown(path));
    errno = reason;
    std::perror(routine);
    return 0;
  }
  return kbpm_read_rawfile_stream(stream);
}

}  // namespace

void kbpmfio_v3_inst_alloc(std::int32_t i) {
  const auto count = static_cast<std::int32_t>(held.instruments.size());
  if (i < 0 || i >= count) util::subscript_error("p_v3_inst_array", i, 0, count - 1);
  RDV3_INST_DATA& d = p_v3_inst_array[i];
  const std::size_t bunches = count_of(p_v3_file_header->num_bunches);
  const std::size_t all = bunches * count_of(p_v3_file_header->num_turns);
  std::byte* at =
      held.arrays.base + static_cast<std::size_t>(i) * bytes_of_instrument(*p_v3_file_header);
  // Every element has four bytes; the memory is the system's own and begins life here.
  const auto next = [&at](auto& array, std::size_t elements) {
    using element = typename std::remove_reference_t<decltype(array)>::element_type;
    array = {reinterpret_cast<element*>(at), elements};
    at += spaced(elements);
  };
  next(d.phase_words, all);
  for (auto* raw : {&d.TIraw, &d.BIraw, &d.BOraw, &d.TOraw}) next(*raw, all);
  for (auto* c : {&d.TIcorrected, &d.BIcorrected, &d.BOcorrected, &d.TOcorrected}) next(*c, all);
  next(d.Xpos, all);
  next(d.Ypos, all);
  next(d.Other_phase_words, all);
  next(d.X_phase_words, all);
  next(d.Y_phase_words, all);
  for (auto* list : {&d.timing_blocks, &d.Species_By_Bunch, &d.Enabled_Bunches}) {
    next(*list, bunches);
    std::fill(list->begin(), list->end(), 0);
  }
}

void kbpmfio_v3_free_inst_mem(std::int32_t i) {
  const auto count = static_cast<std::int32_t>(held.instruments.size());
  if (i < 0 || i >= count) util::subscript_error("p_v3_inst_array", i, 0, count - 1);
  RDV3_INST_DATA& d = p_v3_inst_array[i];
  for (auto* a : {&d.timing_blocks, &d.phase_words, &d.TIraw, &d.BIraw, &d.BOraw, &d.TOraw,
                  &d.Other_phase_words, &d.X_phase_words, &d.Y_phase_words, &d.Species_By_Bunch,
                  &d.Enabled_Bunches}) {
    *a = {};
  }
  for (auto* a :
       {&d.TIcorrected, &d.BIcorrected, &d.BOcorrected, &d.TOcorrected, &d.Xpos, &d.Ypos}) {
    *a = {};
  }
}

void forget_rawfile() {
  let_go();
  release(held.arrays);
  inst_count_g = 0;
  held_is_current = false;
}

std::int32_t kbpm_read_rawfile_stream(kbpmfio_stream& stream) {
  let_go();
  inst_count_g = 0;
  read_headers(stream);
  if (stream.endless) return refuse_endless(stream);
  if (const auto reason = make_room(size_of(stream))) {
    fmt::print("Error: {}: {}: {}\n", util::shown(stream.path), largest_count(*p_v3_file_header),
               *reason);
    forget_rawfile();
    return 1;
  }
  read_instruments(stream);
  if (stream.endless) return refuse_endless(stream);
  kbpmfio_memory_allocated = 1;
  held_is_current = true;
  return status_of_counts(stream.path);
}

std::int32_t kbpm_read_rawfile_at(const std::string& path) {
  held_is_current = false;
  return is_there(path) ? load_file(path) : unable_to_stat(path);
}

std::int32_t kbpm_read_rawfile_extended(std::int32_t run, std::string_view path) {
  held_is_current = false;
  std::string buffer = online_path(run);
  if (path.empty()) {
    if (!is_there(buffer)) {
      unable_to_stat(buffer);
      buffer = offline_path(run);
    }
    if (!is_there(buffer)) return unable_to_stat(buffer);
  } else {
    const std::string_view laid_over = path.substr(0, path_width);
    buffer.replace(0, laid_over.size(), laid_over);
    if (!is_there(buffer)) return unable_to_stat(path);
  }
  return load_file(buffer);
}

std::int32_t kbpm_read_rawfile(std::int32_t run) { return kbpm_read_rawfile_extended(run, ""); }

std::int32_t kbpm_read_rawfile_from_fullfilename(std::string_view path) {
  return kbpm_read_rawfile_extended(0, path);
}

}  // namespace rawfile
