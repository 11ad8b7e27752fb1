#include "page_file.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "run_time.hpp"
#include "text.hpp"
#include "text_file.hpp"
#include "whole_file.hpp"

namespace quick_plot {
namespace fs = std::filesystem;

std::string scratch_folder::make() {
  // A name that nobody can guess, made in one step and open to us alone.
  std::error_code error;
  const fs::path root = fs::temp_directory_path(error);
  std::string name = (error ? fs::path("/tmp") : root) / "butngain-plot-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) return util::system_text(errno);
  path_ = name;
  return {};
}

void scratch_folder::remove() {
  if (path_.empty()) return;
  std::error_code error;  // a folder that cannot be removed stays: nothing depends on it
  fs::remove_all(path_, error);
  path_.clear();
}

std::string incomplete_page(const std::string& drawn) {
  // The drawing library tells nobody of a failed write. Where there is no room, there is none for
  // another file of that size beside it, and the system says why.
  constexpr std::size_t about_a_page = std::size_t{256} * 1024;
  const std::string trial = drawn + ".room";
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
  bool complete = false;
  bool in_header = true;
  while (util::next_line(*page)) {
    const std::string& line = page->line;
    complete = line == "%%EOF";
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
