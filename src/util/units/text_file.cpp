#include "text_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "run_time.hpp"
#include "text.hpp"

namespace util {

outcome<text_file> open_text_file(const std::string& path) {
  text_file file;
  file.path = path;
  file.stream.reset(std::fopen(path.c_str(), "re"));  // e: not handed on to other programs
  if (!file.stream) return fault{system_text(errno), path, {}};
  // A directory opens for reading and fails only at the first read.
  struct stat info {};
  if (fstat(fileno(file.stream.get()), &info) == 0 && S_ISDIR(info.st_mode)) {
    return fault{system_text(EISDIR), path, {}};
  }
  return file;
}

outcome<text_file> standard_input_file() {
  text_file file;
  file.path = "standard input";
  // A handle of its own, so that closing the file leaves the process its standard input.
  const int handle = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
  if (handle >= 0) file.stream.reset(fdopen(handle, "r"));
  if (!file.stream) return fault{system_text(errno), file.path, {}};
  return file;
}

bool next_line(text_file& file) {
  const line_cut cut = cut_line(file.cutter, file.stream.get(), file.line);
  file.number = static_cast<int>(file.cutter.number);
  // The end is no trouble; a caller who forgets to look at the trouble has read a shorter file.
  if (cut == line_cut::failed) {
    file.trouble = fault{
        "reading failed at byte " + std::to_string(file.cutter.got) + ": " + system_text(errno),
        place_of(file),
        {}};
  }
  if (cut == line_cut::endless) {
    file.trouble = fault{"no line end within " + std::to_string(longest_line) + " characters",
                         place_of(file), "a text file"};
  }
  return cut == line_cut::line;
}

std::string place_of(const text_file& file) {
  return file.path + ":" + std::to_string(file.number);
}

fault line_fault(const text_file& file, std::string_view expected) {
  // Without its outer blanks, which say nothing, and as it stands: who shows it to a person escapes
  // what would steer the terminal.
  return {"found \"" + std::string{trim(file.line)} + "\"", place_of(file), std::string{expected}};
}

}  // namespace util
