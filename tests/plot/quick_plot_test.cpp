#include "quick_plot.hpp"

#include <gif_lib.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <string>

#include "scratch_fixture.hpp"

namespace {

using namespace quick_plot;
namespace fs = std::filesystem;

constexpr double inf = std::numeric_limits<double>::infinity();

// A graph of four points above BPM 50; returns why it was not drawn.
std::string draw(
    const std::string& device, const std::string& path, const std::array<double, 4>& gains,
    const std::string& title = "title", const std::function<void()>& more = [] {}) {
  if (std::string reason = qp_open_page(device, path); !reason.empty()) return reason;
  qp_set_page_border(0.02, 0.02, 0.04, 0.04, "%PAGE");
  qp_set_margin(0.02, 0.02, 0.015, 0.015, "%PAGE");
  qp_set_box(1, 1, 1, 1);
  qp_set_axis_counts("X");
  qp_calc_and_set_axis("X", 50, 50, 4, 8, "GENERAL");
  qp_calc_and_set_axis("Y", 0.8, 1.2, 4, 8, "GENERAL");
  qp_draw_axes("BPM", "gain", title);
  qp_set_symbol_attrib("plus", 10, "red");
  qp_draw_data(std::array{50.0, 50.0, 50.0, 50.0}, gains, true, 1);
  more();
  return qp_close_page();
}

struct picture {
  int width = 0, height = 0;
  std::string pixels;  // r red, p pale red, k black, w white, g grey, . other
  char at(int x, int y) const {
    return pixels.at((static_cast<std::size_t>(y) * static_cast<std::size_t>(width)) +
                     static_cast<std::size_t>(x));
  }
};

char kind_of(const GifColorType& c) {
  if (c.Red > 250 && c.Green > 250 && c.Blue > 250) return 'w';
  if (c.Red < 20 && c.Green < 20 && c.Blue < 20) return 'k';
  if (c.Red == c.Green && c.Green == c.Blue) return 'g';
  if (c.Red > 190 && c.Green < 40) return 'r';
  if (c.Red > 215 && c.Green < 140) return 'p';
  return '.';
}

picture read_gif(const std::string& path) {
  int error = 0;
  GifFileType* gif = DGifOpenFileName(path.c_str(), &error);
  if (gif == nullptr || DGifSlurp(gif) != GIF_OK) return {};
  picture p{gif->SWidth, gif->SHeight, {}};
  const std::size_t count = static_cast<std::size_t>(p.width) * static_cast<std::size_t>(p.height);
  for (std::size_t i = 0; i < count; ++i)
    p.pixels.push_back(kind_of(gif->SColorMap->Colors[gif->SavedImages[0].RasterBits[i]]));
  DGifCloseFile(gif, &error);
  return p;
}

// The frame: the first and last all-black stretches met on the way in from the sides.
struct frame {
  int left = 0, right = 791;
  int top = 30;      // below the title
  int bottom = 560;  // above the label
};

frame frame_of(const picture& p) {
  frame f;
  while (p.at(f.left, 306) != 'k' || p.at(f.left, 312) != 'k') ++f.left;
  while (p.at(f.right, 306) != 'k' || p.at(f.right, 312) != 'k') --f.right;
  while (p.at(100, f.top) != 'k' || p.at(110, f.top) != 'k') ++f.top;
  while (p.at(100, f.bottom) != 'k' || p.at(110, f.bottom) != 'k') --f.bottom;
  return f;
}

// Everything in its own folder; nothing but the wanted files may be in it afterwards.
class quick_plot_files : public scratch::fixture {
 protected:
  static long files() { return std::distance(fs::directory_iterator("."), {}); }
};

// Column 48..52 with BPM 50 in the middle, 0.8..1.2 with 1.0 in the middle: the marks stand in the
// middle of the frame, one step of 0.1 apart, in proportion to the frame's height.
TEST_F(quick_plot_files, gif_shows_marks_where_the_axes_put_them) {
  ASSERT_EQ(draw("GIF-L", "a.gif", {1.1, 0.9, 1.0, 0.95}), "");
  const picture p = read_gif("a.gif");
  ASSERT_EQ(p.width, 792);
  ASSERT_EQ(p.height, 612);
  EXPECT_EQ(p.at(0, 0), 'w');

  const auto [left, right, top, bottom] = frame_of(p);
  const int middle = (left + right) / 2;
  const double unit = (bottom - top - 20) / 0.4;  // pixels a unit of gain, gutters left out
  for (const double gain : {1.1, 0.9, 1.0, 0.95}) {
    const int y = static_cast<int>(std::lround(((top + bottom) / 2.0) - ((gain - 1) * unit)));
    int reds = 0;
    for (int dx = -4; dx <= 4; ++dx) {
      bool red = false;
      for (int dy = -1; dy <= 1; ++dy) red = red || p.at(middle + dx, y + dy) == 'r';
      reds += red ? 1 : 0;
    }
    EXPECT_EQ(reds, 9) << "no plus at gain " << gain;
  }
  const int between = static_cast<int>((top + bottom) / 2.0 - (0.05 * unit));
  EXPECT_TRUE(p.at(middle, between) == 'p' || p.at(middle + 1, between) == 'p') << "no stroke";
  EXPECT_EQ(p.at(middle + 20, between), 'w');
  EXPECT_EQ(files(), 1);
}

// Lines that leave the axis at its top and at its bottom keep their slope up to there; a level is
// grey, whatever was drawn before.
TEST_F(quick_plot_files, lines_end_at_the_axis_and_levels_are_grey) {
  ASSERT_EQ(draw("GIF-L", "a.gif", {1, 1, 1, 1}, "title",
                 [] {
                   qp_draw_data(std::array{48.0, 50.0, 52.0}, std::array{1.5, 0.9, 0.5}, true, 0);
                   qp_draw_level(1.15);
                 }),
            "");
  const picture p = read_gif("a.gif");
  ASSERT_EQ(p.height, 612);
  const auto [left, right, top, bottom] = frame_of(p);
  const auto x_of = [&, left = left, right = right](double bpm) {
    return static_cast<int>(std::lround(left + 10 + (bpm - 48) / 4 * (right - left - 20)));
  };
  const auto y_of = [&, top = top, bottom = bottom](double gain) {
    return static_cast<int>(std::lround(bottom - 10 - (gain - 0.8) / 0.4 * (bottom - top - 20)));
  };
  for (const auto& [bpm, gain] :
       {std::pair{49.5, 1.05}, {49.1, 1.17}, {50.25, 0.85}, {50.4, 0.82}}) {
    bool drawn = false;
    for (int dx = -2; dx <= 2; ++dx) {
      drawn = drawn || p.at(x_of(bpm) + dx, y_of(gain)) != 'w';
    }
    EXPECT_TRUE(drawn) << "no line at " << bpm << ", " << gain;
  }
  int grey = 0, other = 0;
  for (int x = x_of(51); x < x_of(52); ++x) {
    char kind = 'w';
    for (int dy = -1; dy <= 1; ++dy) {
      if (p.at(x, y_of(1.15) + dy) != 'w') kind = p.at(x, y_of(1.15) + dy);
    }
    grey += kind == 'g' ? 1 : 0;
    other += kind == 'w' || kind == 'g' ? 0 : 1;
  }
  EXPECT_GT(grey, 20);
  EXPECT_EQ(other, 0);
}

TEST_F(quick_plot_files, postscript_is_one_landscape_page_under_our_title) {
  const std::string path = "RD-001234.ps";
  ASSERT_EQ(draw("PS-L", path, {1.1, 0.9, 1.0, 0.95}), "");
  const std::string page = scratch::content(path);
  for (const char* part : {"%!PS-Adobe", "%%Title: ", "RD-001234.ps\n", "%%Pages: 1\n",
                           "%%BoundingBox: 0 0 792 612\n", "%%EOF\n"}) {
    EXPECT_NE(page.find(part), std::string::npos) << part;
  }
  EXPECT_EQ(page.find("Copyright"), std::string::npos);
  EXPECT_EQ(files(), 1);
}

TEST_F(quick_plot_files, what_is_not_finite_or_beyond_the_axis_stays_inside_the_frame) {
  ASSERT_EQ(draw("GIF-L", "a.gif", {NAN, inf, 3, -2}), "");
  const picture p = read_gif("a.gif");
  int reds = 0;
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      if (p.at(x, y) != 'r' && p.at(x, y) != 'p') continue;
      ++reds;
      // One column: the stroke and a wedge at each end of it, all below the title.
      EXPECT_NEAR(x, 409, 6);
      EXPECT_GT(y, 40);
      EXPECT_LT(y, 560);
    }
  }
  EXPECT_GT(reds, 500);
}

// Underscores, carets and backslashes are plain characters; a hundred of them still fit the page.
TEST_F(quick_plot_files, long_title_stays_on_the_page) {
  std::string title;
  while (title.size() < 100) title += "W_^\\";
  ASSERT_EQ(draw("GIF-L", "a.gif", {1, 1, 1, 1}, title), "");
  const picture p = read_gif("a.gif");
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < 12; ++x) EXPECT_EQ(p.at(x, y), 'w');
    for (int x = 780; x < 792; ++x) EXPECT_EQ(p.at(x, y), 'w');
  }
}

TEST_F(quick_plot_files, failed_write_tells_the_reason_and_leaves_nothing) {
  const std::array<double, 4> gains{1.1, 0.9, 1.0, 0.95};
  for (const char* device : {"PS-L", "GIF-L"}) {
    SCOPED_TRACE(device);
    EXPECT_EQ(draw(device, "missing/a", gains), "No such file or directory");
    EXPECT_EQ(draw(device, std::string(300, 'a'), gains), "File name too long");
    EXPECT_EQ(draw(device, place.path(), gains), "Is a directory");
    EXPECT_EQ(files(), 0);
  }
}

TEST(quick_plot, no_display_is_a_reason_not_an_end) {
  unsetenv("DISPLAY");
  EXPECT_EQ(qp_open_page("X", "title", 792, 612, "POINTS"), "the display cannot be opened");
}

TEST(quick_plot_death, unknown_words_are_told) {
  const auto use_symbol = [] {
    if (qp_open_page("PS-L", "a.ps").empty()) qp_set_symbol_attrib("star", 10, "red");
  };
  EXPECT_EXIT(use_symbol(), testing::ExitedWithCode(1), "plot symbol \"star\" is unknown");
  EXPECT_EXIT(qp_open_page("TEK", "a"), testing::ExitedWithCode(1), "plot device \"TEK\"");
  EXPECT_EXIT(qp_draw_level(1), testing::ExitedWithCode(1), "without an open plot page");
}

}  // namespace
