// raw_records: what stands in the headers of a simulated raw data file.
#pragma once
#include <ctime>
#include <string>

#include "raw.hpp"
#include "rdv3.hpp"

namespace sim {

/// The simulated button 1..4 (BI BO TI TO) that a card 0..3 (TI BI BO TO) reads.
inline constexpr int button_of_card[] = {3, 1, 2, 4};  // NOLINT(*-c-arrays)

/// Timing block of a bunch of the file, counted from 0.
int block_of(const raw_setup& s, int bunch);

/// The encoded phase word of a turn, counted from 0.
std::int32_t phase_word(const raw_setup& s, int turn);

/// The time of `setup.when`; nothing but "YYYY-MM-DD hh:mm:ss" is one.
bool time_of(const raw_setup& s, std::time_t& seconds);

rawfile::RDV3_FILE_HEADER file_header(const raw_setup& s, int run, std::time_t when,
                                      int instruments);
rawfile::RDV3_KOVR_HEADER kovr_header(const raw_setup& s);

/// Header of one instrument, with the calibration of both timing blocks; no arrays.
rawfile::RDV3_INST_DATA instrument_header(const raw_setup& s, const monitor& at,
                                          const std::string& name);

}  // namespace sim
