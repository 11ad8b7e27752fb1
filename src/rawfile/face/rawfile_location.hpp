// Where the raw data files lie: run 4567 is 04/RD-004567.dat below the online directory, or below
// the offline archive once it has been moved there. Both directories are site values.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace rawfile {

/// Characters of a raw file's path, at most; the file header keeps all but the last of so many.
inline constexpr std::size_t path_width = 150;

/// The run's path under the online directory.
/// errors   KOVR_ONLINE needed and not set, or the path too long: the common fatal exit
std::string online_path(std::int32_t run);

/// The run's path under the offline archive. Errors: as above.
/// note     without a site value of its own it is the online path whose last word "online" is made
///          "offline"
std::string offline_path(std::int32_t run);

}  // namespace rawfile
