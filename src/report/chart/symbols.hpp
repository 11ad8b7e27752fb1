// symbols: the mark of each button, the same everywhere.
#pragma once
#include <array>

#include "canvas.hpp"

namespace chart {

/// What stands for button 0..3 (BI, BO, TI, TO) in words and colours.
inline constexpr std::array<const char*, 4> button_names{"BI", "BO", "TI", "TO"};
inline constexpr std::array<ink, 4> button_inks{ink::button_1, ink::button_2, ink::button_3,
                                                ink::button_4};

/// The symbol of a button: circle, square, triangle, diamond; full, or hollow for values not to be
/// used.
void draw_symbol(canvas& c, std::size_t button, point at, double size, bool full = true);

/// A cross: nothing was found here.
void draw_cross(canvas& c, point at, double size, ink colour);

/// A small triangle on the frame that points to a value beyond it.
void draw_pointer(canvas& c, point tip, double size, bool up, ink colour);

}  // namespace chart
