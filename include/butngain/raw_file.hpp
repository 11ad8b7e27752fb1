// raw_file: one raw data file of the BPM electronics, in memory.
//
//     const butngain::raw_file file = butngain::read_raw("RD-004567.dat");
//     for (const butngain::raw_bpm& bpm : file.bpm) use(bpm.name, bpm.corrected[0]);
//
// ownership  The arrays are views of memory that `memory` holds: they live as long as any copy of
//            the file's record does. Copies are cheap and share it. Nothing writes to it.
// threads    Everything may be called on several threads at once, also on one record.
#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common.hpp"
#include "error.hpp"

#pragma GCC visibility push(default)
namespace butngain {

template <class T>
using by_block = std::array<std::array<T, 4>, 2>;  ///< [timing block][button]

/// One BPM. Arrays hold B bunches of T turns, bunch by bunch: element b T + t, counted from 0.
struct raw_bpm {
  std::string name;  ///< where it stands: "12W"
  std::string host, ip_address, detector_type, loader, timing_setup, trigger;
  float horizontal_coefficient = 0, vertical_coefficient = 0;  ///< of the linear positions
  std::int32_t build_time = 0, fpga_major = 0, fpga_minor = 0;
  std::array<std::int32_t, 4> fpga_id{};
  std::int32_t header_turns = 0;  ///< turns, as its own header says
  std::int32_t turn_counter = 0, turn_spacing = 0;
  std::array<std::int32_t, 2> bunch_pattern_offset{};
  std::int32_t common_turn_delay = 0;
  std::array<std::int32_t, 2> turn_delay{}, block_delay{};
  by_block<std::int32_t> channel_delay{}, gain_setting{}, gain_code{};
  by_block<float> pedestal{};          ///< [ADC counts]
  by_block<float> gain_coefficient{};  ///< corrected = (reading - pedestal) / coefficient
  by_block<std::int32_t> adc_saturation{}, adc_high{}, adc_low{};
  float board_temperature = 0;                           ///< [degrees C]
  std::array<float, 4> card_temperature{};               ///< [degrees C]
  std::span<const std::int32_t> block;                   ///< B; timing block of a bunch, 0 or 1
  std::span<const std::int32_t> phase_words;             ///< B T; as encoded in the file
  std::array<std::span<const std::int32_t>, 4> reading;  ///< by button: B T [ADC counts]
  std::array<std::span<const float>, 4> corrected;       ///< by button: B T [ADC counts]
  std::span<const float> x, y;  ///< B T; linear positions [unit of the coefficients]
  std::span<const std::int32_t> phase_x, phase_y;  ///< B T; 512ths of a cycle
  std::span<const std::int32_t> phase_other;       ///< B T; the rest of the phase word
};

struct raw_file {
  std::string path;  ///< where it was read from
  std::string instrument_type, command, file_type, time_stamp, species, timing_setup;
  std::int32_t file_id = 0;  ///< run number
  std::int32_t file_version = 0, core_revision = 0, platform_revision = 0;
  std::int32_t bunches = 0, turns = 0, turn_spacing = 0;
  std::int32_t condition = 0;          ///< the ring's condition number
  std::int32_t raw_current = 0;        ///< beam current monitor [counts]
  float current = 0;                   ///< beam current [mA]
  std::vector<std::int32_t> bunch;     ///< numbers, from 1, of the bunches that the pattern names
  std::vector<raw_bpm> bpm;            ///< in file order
  std::shared_ptr<const void> memory;  ///< what the arrays look at
};

/// Reads the file of exactly this path.
/// returns  the file, with 1 to 120 BPMs and at least one bunch
/// errors   file: cannot be opened; counts that cannot be; a timing block other than 0 and 1; text
///          without line ends. Lines that are missing or malformed are none of these: they leave
///          zeros or the last values read
raw_file read_raw(const std::string& path);

/// The first BPM of this name; null when there is none. Errors none.
const raw_bpm* find_bpm(const raw_file& file, std::string_view name);

/// RF bucket of a bunch number by the timing set-up; nothing where that does not say. Errors none.
std::optional<std::int32_t> rf_bucket(const raw_file& file, std::int32_t bunch);

/// The corrected readings of one bunch, orbit by orbit: what fits and calibrations take.
/// given    bunch  0 .. B - 1: place in the arrays, not the bunch's number
/// returns  T readings [ADC counts]
/// errors   argument: bunch
std::vector<signals> signals_of(const raw_bpm& bpm, std::size_t bunch = 0);

}  // namespace butngain
#pragma GCC visibility pop
