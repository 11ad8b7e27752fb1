// From a drawn page to the file that the user asked for.
//
// Nothing of the drawing library tells of a failed write, and it adds endings to file names. So a
// page is drawn into a scratch folder of our own, checked there, and then written to its place in
// one step: the file is there whole or not at all.
//
// Reasons are texts such as "No space left on device"; an empty one means that all went well.
#pragma once
#include <string>
#include <string_view>

namespace quick_plot {

/// A folder for the time of one page; removed with all it holds at the end.
class scratch_folder {
 public:
  scratch_folder() = default;
  scratch_folder(const scratch_folder&) = delete;
  scratch_folder& operator=(const scratch_folder&) = delete;
  ~scratch_folder() { remove(); }
  /// Makes the folder in $TMPDIR, else in /tmp. Returns why it cannot be made.
  std::string make();
  void remove();
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// Why a drawn page is not complete: with the system's reason where there is no room for it.
std::string incomplete_page(const std::string& drawn);

/// Copies a drawn PostScript page to its place, under a title of ours.
/// returns  why it cannot: the page is incomplete, or the reason of the system
std::string copy_postscript(const std::string& drawn, const std::string& path,
                            std::string_view title);

/// Writes a drawn bit map (a PNG file) as a GIF file.
///
/// Text has soft edges, so a page has some 275 shades and GIF holds 256: the lowest bit of each
/// colour is cleared (then the next, should a page need it) until the palette is exact. White
/// stays white, and with one bit no colour moves by more than 1 of 255.
///
/// returns  why it cannot
std::string copy_as_gif(const std::string& drawn, const std::string& path);

}  // namespace quick_plot
