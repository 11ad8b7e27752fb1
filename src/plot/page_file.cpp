#include "page_file.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "run_time.hpp"
#include "text.hpp"
#include "text_file.hpp"
#include "whole_file.hpp"

namespace quick_plot {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view room_suffix = ".room";

// All that is made in the folder.
std::vector<std::string> files_in(const std::string& folder) {
  std::vector<std::string> files;
  for (const std::string page : {"/page.ps", "/page.png"}) {
    files.push_back(folder + page);
    files.push_back((folder + page).append(room_suffix));
  }
  return files;
}

}  // namespace

std::string scratch_folder::make() {
  // A name that nobody can guess, made in one step and open to us alone.
  std::error_code error;
  const fs::path root = fs::temp_directory_path(error);
  std::string name = (error ? fs::path("/tmp") : root) / "butngain-plot-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) return util::system_text(errno);
  // Behind it: the name is known only now.
  util::scratch_begun(name);
  for (const std::string& file : files_in(name)) util::scratch_begun(file);
  path_ = name;
  return {};
}

void scratch_folder::remove() {
  if (path_.empty()) return;
  // One by one: looking for what is there would be one thing more that can fail. A folder that cannot
  // be removed stays: nothing depends on it.
  for (const std::string& file : files_in(path_)) {
    static_cast<void>(unlink(file.c_str()));
    util::scratch_ended(file);
  }
  static_cast<void>(rmdir(path_.c_str()));
  util::scratch_ended(path_);
  path_.clear();
}

std::string incomplete_page(const std::string& drawn) {
  // The drawing library tells nobody of a failed write. Where there is no room, there is none for
  // another file of that size beside it, and the system says why.
  constexpr std::size_t about_a_page = std::size_t{256} * 1024;
  const std::string trial = drawn + std::string{room_suffix};
  const util::status fault = util::write_whole_file(trial, std::string(about_a_page, ' '));
  std::remove(trial.c_str());
  return "the drawn page is incomplete" + (fault ? ": " + fault->what : std::string{});
}

std::string copy_postscript(const std::string& drawn, const std::string& path,
                            std::string_view title) {
  auto page = util::open_text_file(drawn);
  if (!page) return page.why.what;
  // A page is complete when its last line is there. What looks like a line of the header further
  // down is left alone.
  std::string copy;
  bool has_page = false;
  bool complete = false;
  bool in_header = true;
  while (util::next_line(*page)) {
    const std::string& line = page->line;
    // The library keeps the drawing in a file of its own meanwhile: where that cannot be read back
    // there is a page's head and end with nothing between.
    has_page = has_page || line == "showpage";
    complete = has_page && line == "%%EOF";
    if (in_header && line.starts_with("%%Copyright")) continue;  // of the library, not of the plot
    // A line end in the title would begin a line of the program that a printer runs.
    const bool is_title = in_header && line.starts_with("%%Title");
    copy += is_title ? fmt::format("%%Title: {}", util::shown(title)) : line;
    copy += '\n';
    in_header = in_header && line != "%%EndComments";
  }
  if (page->trouble) return page->trouble->what;
  if (!complete) return incomplete_page(drawn);
  const util::status fault = util::write_whole_file(path, copy);
  return fault ? fault->what : std::string{};
}

}  // namespace quick_plot
