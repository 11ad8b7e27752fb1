// page_style: what stands in every page and depends on no run.
#pragma once
#include <string_view>

namespace report {

/// The style sheet: light and dark, narrow and wide, screen and paper.
std::string_view page_style();

/// Sorting of the table and opening of fold-outs by link: extras, the page says all without them.
std::string_view page_script();

}  // namespace report
