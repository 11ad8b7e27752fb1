// gains_picture: the overview by itself.
#pragma once
#include <string>

#include "run_results.hpp"

namespace report {

/// The overview as an element of a page, laid out for this width [points].
std::string overview_svg(const run_results& run, double width);

}  // namespace report
