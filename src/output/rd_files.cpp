#include "rd_files.hpp"

#include "fields.hpp"

namespace output {

std::string path_of(const directory_name& directory, std::string_view name,
                    std::string_view suffix) {
  return std::string{directory.trimmed()}.append("/").append(util::trim_right(name)).append(suffix);
}

std::vector<std::string> file_list_lines(const run_record& run) {
  std::vector<std::string> lines;
  std::string& first = lines.emplace_back();
  util::put_text(first, "mfiles=", 7);
  util::put_integer(first, run.files_so_far, 2);
  first += ";";
  util::put_text(first, "array file[", 12);
  util::put_integer(first, run.files_so_far, 2);
  first += "]";
  for (int i = 1; i <= run.files_so_far; ++i) {
    std::string& line = lines.emplace_back("file[");
    util::put_integer(line, i, 2);
    line.append("]= \"").append(run.rd_files(i).trimmed()).append("\"");
  }
  return lines;
}

}  // namespace output
