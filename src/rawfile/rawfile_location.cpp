#include "rawfile_location.hpp"

#include <fmt/core.h>

#include <array>
#include <string_view>

#include "kbpmfio.hpp"
#include "site.hpp"
#include "text.hpp"

namespace rawfile {
namespace {

std::string path_below(const std::string& directory, std::int32_t run) {
  std::array<char, 16> subdirectory{};
  kbpmfio_file_subdir(run, subdirectory);
  return fmt::format("{}{}RD-{:06d}.dat", directory, subdirectory.data(), run);
}

bool is_letter_or_digit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The path with its last word "online" made "offline".
std::string made_offline(std::string path) {
  constexpr std::string_view online = "online";
  for (std::size_t at = path.rfind(online); at != std::string::npos;
       at = path.rfind(online, at - 1)) {
    const std::size_t behind = at + online.size();
    const bool begins = at == 0 || !is_letter_or_digit(path[at - 1]);
    const bool ends = behind == path.size() || !is_letter_or_digit(path[behind]);
    if (begins && ends) return path.replace(at, online.size(), "offline");
    if (at == 0) break;
  }
  return path;
}

}  // namespace

std::string online_path(std::int32_t run) {
  return util::fullfilename(path_below(std::string{site::raw_online_dir}, run), path_width);
}

std::string offline_path(std::int32_t run) {
  std::string directory{site::raw_offline_dir};
  if (directory.empty()) {
    directory = made_offline(util::fullfilename(site::raw_online_dir, path_width));
  }
  return util::fullfilename(path_below(directory, run), path_width);
}

}  // namespace rawfile
