// The verdict on one BPM's gains: calibrated against the table of its chamber where there is one,
// else by the agreement of the four fits alone.
//
// | word           | what it is worth                                                     |
// |----------------|----------------------------------------------------------------------|
// | determined     | the gains are right within the error shown                           |
// | weak           | they are, but the error is large, or something is not known          |
// | suspect        | something is wrong with the data or the BPM: the reason says what    |
// | not determined | the data leave the gains open                                        |
#pragma once
#include <span>
#include <string>

#include "bpm_result.hpp"
#include "calibration.hpp"
#include "chamber_table.hpp"

namespace driver {

/// What a calibration needs beside the readings.
struct calibration_setting {
  bpm_table table;
  std::span<const int> set_start;                   ///< first orbit (from 0) of every data set
  double sigma_p = calibration::pedestals_left_in;  ///< what the pedestals may still be
};

/// The outcome for one BPM, for people and for the summary.
struct bpm_verdict {
  calibration::verdict_word word = calibration::verdict_word::not_determined;
  std::string line;                  ///< one line: word, reason, errors, how far the fits are off
  bool has_table = false;            ///< false: the four fits alone were judged
  calibration::record calibrated{};  ///< empty where the BPM has no table
};

/// Calibrates the BPM and judges its gains.
/// given    result  its readings, fits and their own verdict, which stands where there is no table
/// errors   none
bpm_verdict verdict_of(const gain_fit_mod::bpm_result& result, const calibration_setting& setting);

}  // namespace driver
