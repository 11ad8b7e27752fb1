#include "raw_load.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <string>
#include <type_traits>

#include "array_arena.hpp"
#include "data_block.hpp"
#include "field_tables.hpp"
#include "text.hpp"

namespace rawfile {
namespace {

// A negative count means no loops, not an error of its own.
std::uint64_t count_of(std::int32_t value) {
  return static_cast<std::uint64_t>(std::max(value, 0));
}

// --- memory -----------------------------------------------------------------------------------

// Bytes from the start of one array to the next: whole cache lines, and an odd number of them more.
// With a power of two of turns (4096 is usual) all 14 columns of a turn would otherwise fall into
// the same set of the first-level cache, which has 8 places or 12.
std::size_t spaced(std::uint64_t elements) {
  constexpr std::size_t line = 64;     // bytes of a cache line
  constexpr std::size_t odd_step = 5;  // lines
  return ((elements * sizeof(std::int32_t) + line - 1) / line + odd_step) * line;
}

// The arrays of an instrument by length; all elements have four bytes. give_arrays hands them out.
constexpr std::size_t long_arrays = 14;  // of B x T elements
constexpr std::size_t short_arrays = 3;  // of B elements

std::uint64_t bytes_of_instrument(const RDV3_FILE_HEADER& h) {
  const std::uint64_t bunches = count_of(h.num_bunches);
  return long_arrays * spaced(bunches * count_of(h.num_turns)) + short_arrays * spaced(bunches);
}

// --- counts that cannot be --------------------------------------------------------------------

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

// Why the arrays must not be made; empty when they may. One wrong digit in a header must not take
// the machine's memory before the first data line shows that the file is small.
std::string refusal(const RDV3_FILE_HEADER& h, std::optional<std::int64_t> file_size) {
  constexpr std::uint64_t most_lines = INT32_MAX;  // elements are counted in 32 bits everywhere
  const std::uint64_t instruments = count_of(h.num_instruments);
  // Tested before the next product: three counts of 31 bits do not fit 64.
  const std::uint64_t blocks = instruments * count_of(h.num_bunches);
  if (blocks > most_lines || blocks * count_of(h.num_turns) > most_lines) {
    return "more data lines than 32 bits can count";
  }
  // Without turns a bunch still has its places in the lists, and an instrument its header lines.
  const std::uint64_t lines = blocks * std::max(count_of(h.num_turns), std::uint64_t{1}) +
                              instruments * std::uint64_t{num_RDV3_inst_header_specs};
  const std::uint64_t bytes = instruments * (sizeof(RDV3_INST_DATA) + bytes_of_instrument(h));
  if (bytes <= unquestioned_arrays) return {};
  if (!file_size) {
    return fmt::format("{} lines expected; a pipe or device cannot tell its size", lines);
  }
  // A character and a line end are the least that a line can have. Data lines have 52: a file that
  // was cut to a twentieth of its length still loads.
  if (static_cast<std::uint64_t>(*file_size) < 2 * lines) {
    return fmt::format("{} lines expected, the file has {} bytes", lines, *file_size);
  }
  return {};
}

// Memory for all instruments, or why there is none.
std::string make_room(raw_file& file, std::optional<std::int64_t> file_size) {
  const RDV3_FILE_HEADER& h = file.file_header;
  if (auto reason = refusal(h, file_size); !reason.empty()) return reason;
  const std::uint64_t bytes = count_of(h.num_instruments) * bytes_of_instrument(h);
  if (!file.arrays) file.arrays.reset(new array_arena);
  if (!reserve(*file.arrays, bytes)) return fmt::format("no memory for {} bytes of arrays", bytes);
  file.instruments.resize(count_of(h.num_instruments));
  return {};
}

// --- reading ----------------------------------------------------------------------------------

void read_headers(kbpmfio_stream& stream, raw_file& file, field_tables& tables) {
  file.path = stream.path;
  set_text(file.file_header.full_filename, stream.path);
  map_file_header(tables.header, file.file_header);
  read_section(stream, tables.header);
  map_kovr_header(tables.kovr, file.kovr_header);
  read_section(stream, tables.kovr);
}

// Where the file ended, the first time that it gives fewer lines than its header announces. A key that
// comes too early is no end: what follows it is read.
void note_end(kbpmfio_stream& stream, raw_file& file, const RDV3_INST_DATA& instrument,
              std::size_t lines) {
  const RDV3_FILE_HEADER& h = file.file_header;
  const std::uint64_t announced = count_of(h.num_bunches) * count_of(h.num_turns);
  if (file.ends_early || lines >= announced || !look_ahead(stream, 1).empty()) return;
  const std::string_view name = text_of(instrument.location);
  file.ends_early = util::fault{
      name.empty() ? "the file ends before the last instrument"
                   : fmt::format("the file ends at data line {} of {}, instrument {}", lines,
                                 announced, util::shown(name)),
      util::shown(file.path), fmt::format("{} instruments as the header says", h.num_instruments)};
}

// Every instrument of the file; block is the timing block of a fault.
util::status read_instruments(kbpmfio_stream& stream, raw_file& file, field_tables& tables,
                              std::int32_t& block) {
  const RDV3_FILE_HEADER& h = file.file_header;
  // Kept from instrument to instrument: one without data lines repeats the last line of the one
  // before.
  data_columns columns{};
  for (std::size_t i = 0; i < file.instruments.size(); ++i) {
    RDV3_INST_DATA& instrument = file.instruments[i];
    give_arrays(file, i);
    map_instrument_header(tables.instrument, instrument);
    read_section(stream, tables.instrument);
    // This one takes the column titles and the data marker. Where the marker is missing it takes
    // the first data line, and the block is one line short: kept for compatibility.
    static_cast<void>(read_data_line(stream, columns));
    auto result = read_data_block(stream, instrument, h.num_bunches, h.num_turns, columns);
    block = columns[0];
    if (result.fault) return result.fault;
    note_end(stream, file, instrument, result.lines);
  }
  return std::nullopt;
}

load_result endless(const kbpmfio_stream& stream) {
  return {load_end::endless,
          util::fault{fmt::format("{} characters without a line end", longest_unended),
                      util::shown(stream.path), "the lines of a raw data file"}};
}

load_result result_of_counts(const raw_file& file, const std::string& path) {
  const std::int32_t instruments = file.file_header.num_instruments;
  if (instruments < 1 || instruments > most_instruments) {
    return {load_end::no_instruments,
            util::fault{fmt::format("Num_Instruments : {}", instruments), util::shown(path),
                        fmt::format("1 to {}", most_instruments)}};
  }
  // The second test never decides, the one above being the narrower: kept for compatibility.
  if (file.file_header.num_bunches < 1 || instruments > 300000) {
    return {load_end::no_bunches,
            util::fault{fmt::format("Number_of_Bunches : {}", file.file_header.num_bunches),
                        util::shown(path), "at least 1"}};
  }
  return {};
}

load_result read_file(kbpmfio_stream& stream, raw_file& file) {
  field_tables tables = fresh_tables();
  read_headers(stream, file, tables);
  // Before the counts: what such a text gave for counts means nothing.
  if (stream.endless) return endless(stream);
  if (const std::string reason = make_room(file, size_of(stream)); !reason.empty()) {
    return {
        load_end::counts,
        util::fault{largest_count(file.file_header) + ": " + reason, util::shown(stream.path), {}}};
  }
  load_result result;
  result.fault = read_instruments(stream, file, tables, result.block);
  if (result.fault) {
    result.end = load_end::block;
    return result;
  }
  if (stream.endless) return endless(stream);
  file.loaded = true;
  return result_of_counts(file, stream.path);
}

}  // namespace

void gives_arena_back::operator()(array_arena* arena) const { delete arena; }

load_result load(kbpmfio_stream& stream, raw_file& file) {
  let_go(file);
  load_result result = read_file(stream, file);
  if (!file.loaded) forget(file);
  return result;
}

void let_go(raw_file& file) {
  file.loaded = false;
  file.instruments.clear();
  file.kovr_header = {};
  file.file_header = {};
  file.path.clear();
  file.ends_early.reset();
}

void forget(raw_file& file) {
  let_go(file);
  file.arrays.reset();
}

void give_arrays(raw_file& file, std::size_t i) {
  const RDV3_FILE_HEADER& h = file.file_header;
  RDV3_INST_DATA& d = file.instruments[i];
  const std::size_t bunches = count_of(h.num_bunches);
  const std::size_t all = bunches * count_of(h.num_turns);
  std::byte* at = file.arrays->base + i * bytes_of_instrument(h);
  // The memory is the system's own; the elements, integers and reals of four bytes, begin life here.
  const auto next = [&at](auto& array, std::size_t elements) {
    using element = typename std::remove_reference_t<decltype(array)>::element_type;
    static_assert(sizeof(element) == sizeof(std::int32_t));
    array = {reinterpret_cast<element*>(at), elements};
    at += spaced(elements);
  };
  // What is filled from one data line lies together.
  next(d.phase_words, all);
  for (auto* raw : {&d.TIraw, &d.BIraw, &d.BOraw, &d.TOraw}) next(*raw, all);
  for (auto* c : {&d.TIcorrected, &d.BIcorrected, &d.BOcorrected, &d.TOcorrected}) next(*c, all);
  next(d.Xpos, all);
  next(d.Ypos, all);
  next(d.Other_phase_words, all);
  next(d.X_phase_words, all);
  next(d.Y_phase_words, all);
  // The long arrays are filled by the loader to their last element; of these the lists are filled
  // when they are asked for, and a bunch without turns gets no timing block.
  for (auto* list : {&d.timing_blocks, &d.Species_By_Bunch, &d.Enabled_Bunches}) {
    next(*list, bunches);
    std::fill(list->begin(), list->end(), 0);
  }
}

void take_arrays(RDV3_INST_DATA& d) {
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

}  // namespace rawfile
