#include "directories.hpp"

#include <fmt/core.h>

#include <system_error>

#include "run_time.hpp"

namespace sim {

void make_directory(const std::filesystem::path& path) {
  // A code, no exception: the message then has this program's words. A bare file name has an empty
  // directory above it, which is there; an existing directory is no fault.
  std::error_code fault;
  if (!path.empty()) std::filesystem::create_directories(path, fault);
  if (fault) {
    util::run_time_error(
        fmt::format("cannot make directory {}: {}", path.string(), fault.message()));
  }
}

}  // namespace sim
