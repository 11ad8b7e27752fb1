#include "literal_rawfile.hpp"

#include <array>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "kbpmfio.hpp"

namespace literal {
namespace {

using rawfile::kbpmfio_target;
using rawfile::RDV3_INST_DATA;
using kind = kbpmfio_target::kind;
constexpr std::size_t line_size = 2048;
using line_buffer = std::array<char, line_size>;

// The format without widths, its first text taking all the rest of the line.
std::string without_widths(std::string_view format) {
  std::string pattern;
  for (std::size_t i = 0; i < format.size(); ++i) {
    pattern += format[i];
    if (format[i] == '%') i = format.find_first_of("sdxf", i) - 1;
  }
  if (const std::size_t text = pattern.find("%s"); text != std::string::npos) {
    pattern.replace(text, 2, "%[^\n]\n");
  }
  return pattern;
}

// sscanf into the targets; texts by way of a buffer that holds any line.
void scan(const char* line, const std::string& pattern, const rawfile::kbpmfio_targets& targets) {
  std::array<void*, rawfile::max_addresses> to{};
  line_buffer text{};
  bool has_text = false;
  for (std::size_t k = 0; k < to.size(); ++k) {
    to[k] = targets[k].address;
    if (targets[k].of != kind::text) continue;
    has_text = true;
    to[k] = text.data();
    std::strcpy(text.data(), static_cast<const char*>(targets[k].address));
  }
  static_cast<void>(std::sscanf(line, pattern.c_str(), to[0], to[1], to[2], to[3], to[4], to[5],
                                to[6], to[7], to[8], to[9]));
  if (!has_text) return;
  text[targets[0].size - 1] = '\0';
  std::strcpy(static_cast<char*>(targets[0].address), text.data());
}

bool skipped(const char* line) {
  line_buffer copy;
  std::strcpy(copy.data(), line);
  rawfile::kbpmfio_strip(copy);
  return copy[0] == '\0' || copy[0] == '#';
}

int read_line(std::FILE* file, std::string_view format, const rawfile::kbpmfio_targets& targets) {
  const std::string pattern = without_widths(format);
  const bool has_key = format.find(':') != std::string_view::npos;
  const std::string whole{format};
  long start = std::ftell(file);
  line_buffer line;
  while (std::fgets(line.data(), line_size, file) != nullptr) {
    if (skipped(line.data())) continue;
    if (std::strncmp(line.data(), "--BEGIN DATA--\n", 15) == 0) return 0;
    const char* colon = std::strchr(line.data(), ':');
    if (colon == nullptr) {
      scan(line.data(), whole, targets);
      return 0;
    }
    const auto key = static_cast<std::size_t>(colon - line.data());
    if (std::strncmp(line.data(), whole.c_str(), key) == 0) {
      scan(line.data(), pattern, targets);
      return 0;
    }
    if (!has_key) {
      std::fseek(file, start, SEEK_SET);
      return 1;
    }
    start = std::ftell(file);
  }
  return 0;
}

void read_pattern(std::FILE* file, std::string_view format, std::int32_t* words) {
  const std::string whole{format};
  line_buffer line;
  while (std::fgets(line.data(), line_size, file) != nullptr) {
    char* colon = std::strchr(line.data(), ':');
    if (skipped(line.data()) || colon == nullptr) continue;
    if (std::strncmp(line.data(), whole.c_str(), static_cast<std::size_t>(colon - line.data())) !=
        0) {
      continue;
    }
    char* token = std::strtok(colon, ": \n");
    for (int word = 39; word >= 0 && token != nullptr; --word) {
      words[word] = static_cast<std::int32_t>(std::strtol(token, nullptr, 16));
      token = std::strtok(nullptr, ": \n");
    }
    return;
  }
}

void read_section(std::FILE* file, std::span<const rawfile::KBPMFIO_FIELD_SPEC> table) {
  for (const auto& row : table) {
    if (row.input_func == rawfile::kbpmfio_bunch_patt_input) {
      read_pattern(file, row.format, static_cast<std::int32_t*>(row.addresses[0].address));
    } else if (row.input_func == rawfile::kbpmfio_scan_line_input) {
      read_line(file, row.format, row.addresses);
    }
  }
}

template <class T>
std::span<T> array(file& f, std::size_t n) {
  f.memory.push_back(std::make_unique_for_overwrite<std::byte[]>(n * sizeof(T)));  // NOLINT
  return {reinterpret_cast<T*>(f.memory.back().get()), n};
}

void make_arrays(file& f, RDV3_INST_DATA& d, std::size_t bunches, std::size_t all) {
  for (auto* a : {&d.timing_blocks, &d.Species_By_Bunch, &d.Enabled_Bunches}) {
    *a = array<std::int32_t>(f, bunches);
  }
  for (auto* a : {&d.phase_words, &d.TIraw, &d.BIraw, &d.BOraw, &d.TOraw, &d.Other_phase_words,
                  &d.X_phase_words, &d.Y_phase_words}) {
    *a = array<std::int32_t>(f, all);
  }
  for (auto* a :
       {&d.TIcorrected, &d.BIcorrected, &d.BOcorrected, &d.TOcorrected, &d.Xpos, &d.Ypos}) {
    *a = array<float>(f, all);
  }
}

float corrected(std::int32_t raw, float pedestal, float gain) {
  const float difference = static_cast<float>(raw) - pedestal;
  return static_cast<float>(static_cast<double>(difference) * (1.0 / static_cast<double>(gain)));
}

void derive(RDV3_INST_DATA& d, std::size_t n, std::int32_t block, std::int32_t phase,
            const std::int32_t* raw) {
  const float ti = corrected(raw[0], d.pedestals(block, 0), d.gain_coeffs(block, 0));
  const float bi = corrected(raw[1], d.pedestals(block, 1), d.gain_coeffs(block, 1));
  const float bo = corrected(raw[2], d.pedestals(block, 2), d.gain_coeffs(block, 2));
  const float to = corrected(raw[3], d.pedestals(block, 3), d.gain_coeffs(block, 3));
  d.phase_words[n] = phase;
  d.TIraw[n] = raw[0];
  d.BIraw[n] = raw[1];
  d.BOraw[n] = raw[2];
  d.TOraw[n] = raw[3];
  d.TIcorrected[n] = ti;
  d.BIcorrected[n] = bi;
  d.BOcorrected[n] = bo;
  d.TOcorrected[n] = to;
  const float s = ti + bi + bo + to;
  d.Xpos[n] = (to + bo - bi - ti) / s * d.horz_coeff;
  d.Ypos[n] = (to - bo - bi + ti) / s * d.vert_coeff;
  d.X_phase_words[n] = (phase >> 19) & 511;
  d.Y_phase_words[n] = (phase >> 10) & 511;
  d.Other_phase_words[n] = phase & 255;
}

}  // namespace

bool same(const rawfile::RDV3_FILE_HEADER& a, const rawfile::RDV3_FILE_HEADER& b) {
  const auto fields = [](const rawfile::RDV3_FILE_HEADER& h) {
    return std::tie(h.full_filename, h.instrument_type, h.command_ID, h.file_type, h.file_id,
                    h.file_version, h.timestamp, h.core_commstruct_rev, h.platform_commstruct_rev,
                    h.bunch_patt_name, h.bunch_pattern.item, h.species_name, h.num_instruments,
                    h.num_bunches, h.num_turns, h.turn_spacing, h.timing_setup);
  };
  return fields(a) == fields(b);
}

int scan_data_line(const char* line, std::int32_t* six_columns) {
  return std::sscanf(line, "%d       %07x  %7d  %7d  %7d  %7d\n", &six_columns[0],
                     reinterpret_cast<unsigned*>(&six_columns[1]), &six_columns[2], &six_columns[3],
                     &six_columns[4], &six_columns[5]);
}

file read(const std::string& path) {
  file f;
  std::FILE* in = std::fopen(path.c_str(), "r");
  if (in == nullptr) return f;
  rawfile::set_text(f.header.full_filename, path);
  rawfile::kbpmfio_map_file_header(f.header);
  read_section(in, rawfile::RDV3_header_specs);
  rawfile::kbpmfio_map_kovr_header(f.kovr);
  read_section(in, rawfile::RDV3_kovr_specs);
  const auto count = [](std::int32_t n) { return static_cast<std::size_t>(n < 0 ? 0 : n); };
  const std::size_t turns = count(f.header.num_turns);
  f.instruments.resize(count(f.header.num_instruments));
  std::array<std::int32_t, 6> c{};
  for (RDV3_INST_DATA& d : f.instruments) {
    make_arrays(f, d, count(f.header.num_bunches), count(f.header.num_bunches) * turns);
    rawfile::kbpmfio_map_instrument_header(d);
    read_section(in, rawfile::RDV3_inst_header_specs);
    rawfile::kbpmfio_map_data_line(c);
    const rawfile::KBPMFIO_FIELD_SPEC& data = rawfile::RDV3_raw_data_spec[0];
    read_line(in, data.format, data.addresses);
    for (std::size_t b = 0; b < d.timing_blocks.size() && !f.bad_block; ++b) {
      d.timing_blocks[b] = 0;
      for (std::size_t t = 0; t < turns && !f.bad_block; ++t) {
        read_line(in, data.format, data.addresses);
        d.timing_blocks[b] = c[0];
        f.bad_block = c[0] != 0 && c[0] != 1;
        if (!f.bad_block) derive(d, b * turns + t, c[0], c[1], &c[2]);
      }
    }
    if (f.bad_block) break;
  }
  std::fclose(in);
  return f;
}

}  // namespace literal
