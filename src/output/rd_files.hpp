// What all output files of a run share: where they go, how they are called, the list of data files.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "bounded.hpp"
#include "text.hpp"

namespace output {

using rd_files_list = util::bounded<util::fixed_text<20>, 1, 20, "rd_files">;  ///< data files read
using directory_name = util::fixed_text<16>;  ///< output directory of the run, CCYYMMDD_hhmmss

/// What the files of a run say about the run as a whole.
struct run_record {
  directory_name directory{};  ///< output directory
  std::string label{};         ///< last data file: names the tables
  rd_files_list rd_files{};    ///< names of the data files read
  int files_so_far = 0;        ///< how many of them, 0..20
  int gain_correct = 0;        ///< 1 none, 2 pedestal, 3 gain and pedestal; 0 for synthetic data
  std::string type{};          ///< label of these corrections
};

/// "<directory>/<name><suffix>", the blanks at the end of directory and name left out.
std::string path_of(const directory_name& directory, std::string_view name,
                    std::string_view suffix);

/// The lines that begin every output file: mfiles= 2; array file[ 2] and one line a file.
/// errors   files_so_far beyond 20 ends the run
std::vector<std::string> file_list_lines(const run_record& run);

}  // namespace output
