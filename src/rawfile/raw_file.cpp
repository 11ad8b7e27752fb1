#include "raw_file.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "kbpmfio_stream.hpp"
#include "raw_load.hpp"
#include "text.hpp"

namespace rawfile {
namespace {

constexpr std::int32_t pattern_bits = 16;  // bunches of one word; its upper half names none

bool is_set(const RDV3_FILE_HEADER& header, std::int32_t bit) {
  return ((header.bunch_pattern(bit / pattern_bits) >> (bit % pattern_bits)) & 1) != 0;
}

}  // namespace

util::outcome<raw_file> read_raw_file(const std::string& path) {
  // Too many instruments, or no bunches, are a fault here: of such a file no caller wants the rest.
  // The loader of the whole process keeps it.
  kbpmfio_stream stream;
  if (auto fault = open_for_reading(stream, path)) return std::move(*fault);
  raw_file file;
  auto result = load(stream, file);
  // First: half a file can look like one with wrong counts.
  if (auto fault = read_fault(stream)) return std::move(*fault);
  if (result.fault) return std::move(*result.fault);
  return file;
}

const RDV3_INST_DATA* instrument_of(const raw_file& file, std::string_view name) {
  const std::string_view wanted = stripped(name);
  // The name in the file is taken as it stands: with a CR or a blank behind it, it is another name,
  // and the session skips it as unknown.
  const auto found =
      std::find_if(file.instruments.begin(), file.instruments.end(),
                   [wanted](const RDV3_INST_DATA& d) { return text_of(d.location) == wanted; });
  return found == file.instruments.end() ? nullptr : &*found;
}

std::int32_t species_of(const RDV3_FILE_HEADER& header) {
  const std::string_view name = text_of(header.species_name);
  if (name == "POSITRONS") return 0;
  if (name == "ELECTRONS") return 1;
  if (name == "DUAL") return 2;
  return -1;
}

std::int32_t species_of_bunch(const RDV3_FILE_HEADER& header, std::int32_t bunch) {
  const std::string_view setup = text_of(header.timing_setup);
  // The whole name counts: a file with CR line ends has another one, and no species.
  if (setup == "4ns_P_VAR_G" || setup == "4ns_P_FIX_G") return 0;
  if (setup == "4ns_E_VAR_G" || setup == "4ns_E_FIX_G") return 1;
  if (setup == "14ns_VAR_G" || setup == "14ns_FIX_G") return bunch % 2;
  return -1;
}

std::optional<std::int32_t> rf_bucket_of(const RDV3_FILE_HEADER& header, std::int32_t bunch) {
  // Buckets are 2 ns apart: 4 / 2 or 14 / 2 of them from bunch to bunch. With 4 ns the pattern's
  // length is the limit, with 14 ns the turn is: it has 183 such bunches.
  constexpr std::int32_t last_of_4ns = max_bunches;
  constexpr std::int32_t last_of_14ns = 183;
  if (bunch < 1) return std::nullopt;
  // Here one character tells, unlike in the species: kept for compatibility.
  const char spacing = header.timing_setup[0];
  if (spacing == '4' && bunch <= last_of_4ns) return 2 * bunch;
  if (spacing == '1' && bunch <= last_of_14ns) return (bunch - 1) * 14 / 2 + 1;
  return std::nullopt;
}

std::vector<std::int32_t> bunches_enabled(const RDV3_FILE_HEADER& header) {
  // Bunches are kept by place, and told by number: this list is the only link between the two.
  std::vector<std::int32_t> numbers;
  for (std::int32_t bit = 0; bit < max_bunches; ++bit) {
    if (is_set(header, bit)) numbers.push_back(bit + 1);
  }
  return numbers;
}

util::status pattern_fault(const raw_file& file) {
  const auto named = static_cast<std::int64_t>(bunches_enabled(file.file_header).size());
  const std::int32_t held = file.file_header.num_bunches;
  if (named <= held) return std::nullopt;
  return util::fault{fmt::format("Bunch_Patt_(hex) names {} bunches", named),
                     util::shown(file.path), fmt::format("Number_of_Bunches : {}", held)};
}

}  // namespace rawfile
