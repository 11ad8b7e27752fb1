// table_picture: a drawing (SVG) of what a table repairs.
//
// Solid lines are the places of equal difference over sum,
//     X = (b2 + b4 - b1 - b3) / sum   and   Y = (b3 + b4 - b1 - b2) / sum,
// in steps of 0.1; thin straight lines are where the linear formula, with its slope at the centre,
// puts the same values. Wall, buttons and the area with data are drawn around them.
#pragma once
#include <string>

#include "table_maker.hpp"

namespace chamber_solver {

/// Draws a filled table. Errors: a file that cannot be written ends the run.
void write_picture(const table_work& work, const std::string& path);

}  // namespace chamber_solver
