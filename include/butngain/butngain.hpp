// butngain: button gains of beam position monitors. All of the library:
//
// | header          | what it gives                                                        |
// |-----------------|----------------------------------------------------------------------|
// | raw_file.hpp    | raw data files of the electronics                                    |
// | table.hpp       | chambers, lookup tables, positions                                   |
// | fit.hpp         | the four fits of a BPM's readings                                    |
// | calibration.hpp | gains and pedestals against the table of the chamber, and a verdict  |
// | simulation.hpp  | readings of a BPM whose truth is known                               |
// | error.hpp       | the one exception                                                    |
#pragma once
#include "calibration.hpp"
#include "common.hpp"
#include "error.hpp"
#include "fit.hpp"
#include "raw_file.hpp"
#include "simulation.hpp"
#include "table.hpp"

#pragma GCC visibility push(default)
namespace butngain {

/// Version of the library in use, "0.1.0". Errors none.
const char* version();

}  // namespace butngain
#pragma GCC visibility pop
