#include "files_read.hpp"

#include <set>

namespace util {

void note_file_read(std::string_view path, read_as as) {
  // A series may have thousands of files, so whether one is noted already is not looked up in the
  // list itself.
  static std::set<std::string, std::less<>> noted;
  if (noted.contains(path)) return;
  noted.emplace(path);
  files_read.push_back({std::string{path}, as});
}

}  // namespace util
