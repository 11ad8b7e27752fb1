// A fault of a raw data file, told where the described faces cannot say it.
#pragma once
#include "fault.hpp"

namespace rawfile {

/// One line on standard error, behind everything printed so far: "butngain: <where>: <what>, ...".
void tell(const util::fault& fault);

}  // namespace rawfile
