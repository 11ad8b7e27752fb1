#include "rawfile_location.hpp"

#include <fmt/core.h>
#include <sys/stat.h>

#include <array>
#include <string_view>

#include "kbpmfio.hpp"
#include "rawfile_place.hpp"
#include "site.hpp"
#include "text.hpp"

namespace rawfile {
namespace {

std::string path_below(const std::string& directory, std::int32_t run) {
  std::array<char, 16> subdirectory{};  // a 32-bit number, a slash and the zero
  kbpmfio_file_subdir(run, subdirectory);
  return fmt::format("{}{}RD-{:06d}.dat", directory, subdirectory.data(), run);
}

bool is_letter_or_digit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The path with its last word "online" made "offline": the last, because the tree may itself lie
// below a directory of that name; a word, because "online2" and "nonlinear" are names of their own.
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
  // Without a place of its own the archive mirrors the online tree beside it. The word is looked for
  // in the expanded path: it usually stands in the value of KOVR_ONLINE.
  std::string directory{site::raw_offline_dir};
  if (directory.empty()) {
    directory = made_offline(util::fullfilename(site::raw_online_dir, path_width));
  }
  return util::fullfilename(path_below(directory, run), path_width);
}

bool is_there(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

place place_of_run(std::int32_t run) {
  place at;
  // The archive's path is only made when it is needed: it may be one character too long where the
  // online path just fits.
  for (const auto path_of : {online_path, offline_path}) {
    std::string path = path_of(run);
    if (is_there(path)) {
      at.found = path;
      break;
    }
    at.missed.push_back(path);
  }
  return at;
}

place place_of_path(std::int32_t run, std::string_view path) {
  // Not replaced but laid over: the tail of the online path stays behind a shorter one, which then
  // names no file. Kept for compatibility.
  std::string buffer = online_path(run);
  const std::string_view laid_over = path.substr(0, path_width);
  buffer.replace(0, laid_over.size(), laid_over);
  if (is_there(buffer)) return {{}, buffer};
  return {{std::string{path}}, {}};
}

}  // namespace rawfile
