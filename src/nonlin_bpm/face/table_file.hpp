// table_file: one lookup table in a file, read into nodes and from there into cells.
//
//     nonlin_bpm_table 1
//     name     bpm_arc                    # must match the table the file is read for
//     origin   computed                   # or measured; information only
//     units    m                          # m or mm, for grid and slopes alike
//     x_grid   81 -0.030 0.030            # count (5..2000), first, last; equal steps
//     y_grid   61 -0.020 0.020
//     columns  phi dphi_dx dphi_dy        # any common scale of phi
//     data
//     1 1 out                             # node outside the usable area
//     2 1 5.1e-02 -3.0e+00 -2.2e+00 ...   # ix iy, the three columns of buttons 1..4; ix fastest
//     end
#pragma once
#include <string>
#include <string_view>

#include "fault.hpp"
#include "lookup_table.hpp"
#include "table_nodes.hpp"
#include "word_file.hpp"

namespace nonlin_bpm_mod {

/// Reads a table and builds its cells.
/// given    expected  the name that must stand in the file; empty: any
/// errors   a file that cannot be opened, and every fault in it. Beside faults of form: slopes that
///          do not go with the values, a centre without data, a button that does not grow towards
///          its own quadrant, no node to start a fit from
util::outcome<table_struct> read_table_file(const std::string& name, std::string_view expected);

/// The same from an open file. After a fault the file's line is the one that is wrong.
util::outcome<table_struct> read_table(word_file& file, std::string_view expected);

/// What is wrong with the slopes of a table; empty when they go with the values. `line` is where
/// the file gives the worst node, 0 for nodes from no file.
std::string wrong_slopes(const table_nodes& nodes, int& line);

/// The nodes alone, as the file gives them, in metres. Errors as above, but for those of cells.
util::outcome<table_nodes> read_table_nodes(const std::string& name, std::string_view expected);

}  // namespace nonlin_bpm_mod
