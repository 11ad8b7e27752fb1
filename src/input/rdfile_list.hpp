// The list of the raw data runs of one session: RDfiles_fitted.dat in its output directory.
#pragma once
#include <cstdint>
#include <string>

#include "text.hpp"

namespace input {

/// Name of a run's file in lists and archives: RD-004567.dat.
std::string run_file_name(std::int32_t number);

/// Adds a run to the list, with the orbits taken from its data set (norbits):
///     rdfile[ 1]= "RD-004567.dat"; norbits[ 1]=   998
/// The index counts the entries of the session.
/// errors   a list that cannot be written ends the run
void write_rdfile_list(std::int32_t number, const util::fixed_text<16>& directory);

}  // namespace input
