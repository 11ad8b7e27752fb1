// start_map: the short lists of start nodes, made once for a table.
#pragma once
#include "lookup_table.hpp"

namespace nonlin_bpm_mod {

/// Fills table.near from the table's nodes, start nodes and their direction cosines.
void fill_start_map(table_struct& table);

}  // namespace nonlin_bpm_mod
