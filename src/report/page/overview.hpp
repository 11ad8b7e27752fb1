// overview: the picture of all gains.
//
// BPMs stand side by side, in as many rows as the width needs; a row shows the four button gains of
// each with the error as a bar, below it the error by itself on a logarithmic scale (bars of 1e-4
// are no longer than a symbol), below that a mark for verdicts that need a look, and the name.
#pragma once
#include <vector>

#include "axis_scale.hpp"
#include "canvas.hpp"
#include "run_results.hpp"
#include "words.hpp"

namespace report {

/// The picture, laid out for a width; what all its rows share.
struct overview {
  struct entry {
    const bpm_row* row = nullptr;
    std::optional<shown_gains> gains;
  };
  std::vector<entry> bpm;
  double width = 0;        ///< of the picture [points]
  double pitch = 0;        ///< from BPM to BPM [points]
  std::size_t in_row = 1;  ///< BPMs in a row
  std::size_t rows = 1;
  double name_height = 0;  ///< room for the names below a row [points]
  bool upright_names = false;
  quick_plot::axis_scale gain_scale;
  int low_decade = -5, high_decade = -1;  ///< of the errors
};

/// Lays the picture out.
/// given    width  [points] that it may have; with few BPMs it is narrower
overview lay_out(const run_results& run, double width);

/// Height of one row, and of the legend above the first [points].
double row_height(const overview& o);
double legend_height(const overview& o);

/// Draws the legend, or a row (from 0), below `top`.
void draw_legend(chart::canvas& c, const overview& o, chart::point corner);
void draw_row(chart::canvas& c, const overview& o, std::size_t row, chart::point corner);

/// What the picture shows, for those who do not see it.
std::string overview_in_words(const run_results& run);

}  // namespace report
