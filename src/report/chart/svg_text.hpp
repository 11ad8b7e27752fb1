// svg_text: from the file that the drawing library writes to an element that stands in a page.
#pragma once
#include <string>
#include <string_view>

#include "canvas.hpp"

namespace chart {

/// The element: shapes with colours by variable, then the kept texts.
/// given    file  the library's SVG file, its texts not among it
/// returns  empty when the file is not as expected
std::string svg_element(std::string_view file, const canvas& c, std::string_view title);

}  // namespace chart
