// svg_text: a drawing as an element that stands in a page.
#pragma once
#include <string>
#include <string_view>

#include "canvas.hpp"

namespace chart {

/// The element: the shapes, then the kept texts above them.
/// given    title  what the picture shows, for those who do not see it
std::string svg_element(const canvas& c, std::string_view title);

}  // namespace chart
