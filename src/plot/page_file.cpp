#include "page_file.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "run_time.hpp"

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

// Not finished, for whatever reason: the part goes, and what stood under the name stays.
whole_file::~whole_file() {
  if (part_.empty()) return;
  if (stream_ != nullptr) std::fclose(stream_);
  std::remove(part_.c_str());
}

std::string whole_file::open(const std::string& path) {
  path_ = path;
  // Beside its place, not in the scratch folder: only within one file system is renaming one step.
  part_ = fs::path(path).parent_path() / fmt::format(".butngain-{}.part", getpid());
  stream_ = std::fopen(part_.c_str(), "wb");
  if (stream_ != nullptr) return {};
  const int reason = errno;
  part_.clear();
  return util::system_text(reason);
}

std::string whole_file::finish() {
  // A full disk shows at the write, at the flush or at the closing; the first reason is the one.
  errno = 0;
  const bool written = std::ferror(stream_) == 0 && std::fflush(stream_) == 0;
  int reason = errno;
  if (std::fclose(stream_) != 0 && written) reason = errno;
  stream_ = nullptr;
  if (!written || reason != 0) return util::system_text(reason != 0 ? reason : EIO);
  // Either the whole copy or the file before it: nobody ever finds half a picture.
  if (std::rename(part_.c_str(), path_.c_str()) != 0) return util::system_text(errno);
  part_.clear();
  return {};
}

std::string copy_postscript(const std::string& drawn, const std::string& path,
                            std::string_view title) {
  std::ifstream page(drawn);
  if (!page) return util::system_text(errno);
  whole_file copy;
  if (std::string reason = copy.open(path); !reason.empty()) return reason;
  // The drawing library tells nobody of a failed write: a page is complete when its last line is
  // there. What looks like a line of the header further down is left alone.
  bool complete = false;
  bool in_header = true;
  for (std::string line; std::getline(page, line);) {
    if (in_header && line.starts_with("%%Copyright")) continue;  // of the library, not of the plot
    if (in_header && line.starts_with("%%Title")) line = fmt::format("%%Title: {}", title);
    in_header = in_header && line != "%%EndComments";
    complete = line == "%%EOF";
    fmt::print(copy.stream(), "{}\n", line);
  }
  if (!complete) return "the drawn page is incomplete";
  return copy.finish();
}

}  // namespace quick_plot
