// Which bunch of a loaded data set to analyse, and which empty bunch shows its pedestals.
#pragma once
#include "tbt_mod.hpp"

namespace input {

struct bunch_choice {
  int nbunch = 0;       ///< position in the data set, from 1
  int empty_bunch = 0;  ///< likewise; 0 for none
};

/// Asks for both until the first is there. Numbers in the dialog count pairs of the ring's bunches:
/// bunch n answers to (n + 1) / 2. Of several bunches with the same number the last is meant.
bunch_choice ask_bunches(const tbt_mod::tbt_all_data_struct& tbt);

}  // namespace input
