// Where a load looks for its file. What is said about it is the caller's matter.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace rawfile {

/// What a search came to.
struct place {
  std::vector<std::string> missed;  ///< looked for in vain, in this order
  std::string found;                ///< empty: nowhere
};

bool is_there(const std::string& path);

/// The run's file in the online directory, else in the offline archive.
/// errors   KOVR_ONLINE needed and not set, or a path too long: the common fatal exit
place place_of_run(std::int32_t run);

/// The file of a path, laid over the run's online path: see kbpm_read_rawfile_extended. What is
/// missed is the path as given.
place place_of_path(std::int32_t run, std::string_view path);

}  // namespace rawfile
