// table_picture: a drawing (SVG) of what a table repairs.
//
// Solid lines are the places of equal difference over sum,
//     X = (b2 + b4 - b1 - b3) / sum   and   Y = (b3 + b4 - b1 - b2) / sum,
// in steps of 0.1; thin straight lines are where the linear formula, with its slope at the centre,
// puts the same values. Around them stand the wall with its numbered buttons, or for a table of
// unknown origin the border of its data with the numbers in their quadrants, and scales in
// millimetres.
#pragma once
#include <optional>
#include <string>

#include "chamber_file.hpp"
#include "table_nodes.hpp"

namespace sim {

/// A table, and the chamber it was made of where that is known.
struct pictured_table {
  nonlin_bpm_mod::table_nodes nodes;
  std::optional<chamber_solver::chamber> chamber;
};

/// Draws a filled table. Errors: a file that cannot be written ends the run.
void write_picture(const pictured_table& table, const std::string& path);

}  // namespace sim
