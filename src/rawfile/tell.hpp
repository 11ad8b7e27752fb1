// A fault of a raw data file, told where a status or a sentinel cannot say it.
#pragma once
#include "fault.hpp"

namespace rawfile {

/// One line on standard error, behind everything printed so far: "butngain: <where>: <what>, ...".
void tell(const util::fault& fault);

}  // namespace rawfile
