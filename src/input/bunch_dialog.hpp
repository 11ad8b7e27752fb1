// Which bunch of a loaded data set to analyse, and which empty bunch shows its pedestals.
#pragma once
#include <cstdint>

#include "tbt_mod.hpp"

namespace input {

struct bunch_choice {
  int nbunch = 0;       ///< position in the data set, from 1
  int empty_bunch = 0;  ///< likewise; 0 for none
};

/// What operators call a bunch: they count pairs of the ring's bunches from 1.
std::int32_t operators_number(const tbt_mod::tbt_bunch_struct& bunch);

/// Asks for both until the first is there. Numbers in the dialog count pairs of the ring's bunches:
/// bunch n answers to (n + 1) / 2. Of several bunches with the same number the last is meant.
/// Numbers below 1 stand for no bunch, even where a file numbers one so.
bunch_choice ask_bunches(const tbt_mod::tbt_all_data_struct& tbt);

}  // namespace input
