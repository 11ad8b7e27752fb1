// Synthetic data: a numbered series of text files with simulated orbits and their true gains.
//
// The series lies in <base directory>/inputs_1000random_xy_and_timing_offset, one file exp_<n>.txt
// per BPM, one orbit per line, ten values in free format:
//     x y  b1 b2 b3 b4  g1 g2 g3 g4
// positions [m], button signals [counts, whole numbers], true gains [-]. A line holding a
// lower-case "x" anywhere is a header or comment. The files become BPMs 1, 2, 3 ... in series
// order, and line n of every file is orbit n.
#pragma once

namespace input {

/// Asks for the first and last file name of a series and reads it into the orbit store.
///
/// returns  in gain_fit_mod: orbit_data; norbits, the lines of the last file, at most 1000; bpm,
///          the index of the last BPM; dets; bpm_names (EXP_<n>); in_file_0; gain, the gains of
///          the last line read
/// errors   3001 lines in a file or 5001 files: bounds error; a file that exists but cannot be
///          opened, or a first name that gives no number: run-time error; end of input ends the run
/// note     waits for a file of the series that is not there yet (one note on standard error)
void get_fake_data();

}  // namespace input
