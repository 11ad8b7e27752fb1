// inks: the colours behind the names, for paper; the page's style sheet has its own for the dark.
#pragma once
#include <array>

#include "canvas.hpp"

namespace chart {

struct ink_colour {
  chart::ink ink;
  const char* variable;  ///< of the page's style sheet
  int red, green, blue;  ///< 0..255, all different: an SVG's colours are found again by them
};

// Four hues that stay apart for the colour-blind (Okabe and Ito), the last darker for white paper.
inline constexpr std::array<ink_colour, 10> inks{{{ink::text, "--ink", 31, 35, 40},
                                                  {ink::quiet, "--quiet", 101, 109, 118},
                                                  {ink::grid, "--grid", 222, 226, 230},
                                                  {ink::band, "--band", 243, 245, 247},
                                                  {ink::paper, "--paper", 255, 255, 255},
                                                  {ink::button_1, "--b1", 0, 114, 178},
                                                  {ink::button_2, "--b2", 213, 94, 0},
                                                  {ink::button_3, "--b3", 0, 145, 105},
                                                  {ink::button_4, "--b4", 170, 68, 153},
                                                  {ink::alarm, "--alarm", 190, 18, 40}}};

constexpr const ink_colour& colour_of(ink wanted) {
  for (const ink_colour& c : inks) {
    if (c.ink == wanted) return c;
  }
  return inks[0];
}

}  // namespace chart
