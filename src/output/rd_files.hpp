// What all output files of a run share: where they go, the list of data files, the extremes.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "bounded.hpp"
#include "text.hpp"

namespace output {

using rd_files_list = util::bounded<util::fixed_text<20>, 1, 20, "rd_files">;  ///< data files read
using directory_name = util::fixed_text<16>;  ///< output directory of the run, CCYYMMDD_hhmmss

/// Extreme positions of one BPM's orbits, in the unit of x and y.
struct position_extremes {
  double h_min = 0;
  double h_max = 0;
  double v_min = 0;
  double v_max = 0;
};

/// "<directory>/<name><suffix>", the blanks at the end of directory and name left out.
std::string path_of(const directory_name& directory, std::string_view name,
                    std::string_view suffix);

/// The lines that begin every output file: mfiles= 2; array file[ 2] and one line a file.
/// errors   files_so_far beyond 20 ends the run
std::vector<std::string> file_list_lines(const rd_files_list& rd_files, int files_so_far);

}  // namespace output
