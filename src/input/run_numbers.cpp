#include "run_numbers.hpp"

#include <fmt/core.h>

#include "run_index.hpp"
#include "site.hpp"
#include "text.hpp"

namespace input {

util::outcome<std::int32_t> number_to_true_number(std::string_view kind, std::int32_t number) {
  if (kind != "TBT") {
    return util::fault{fmt::format("runs of kind \"{}\" are not recorded", kind), {}, "TBT"};
  }
  // An absolute number needs no index: a run can be read before it is listed, or without any index.
  if (number > 0) return number;
  const auto newest = newest_run(util::fullfilename(site::run_index));
  if (!newest) return newest.why;
  // The index is read each time: it grows while a session lasts. In 64 bits: any number can be typed.
  const auto counted_back = std::int64_t{*newest} + number;
  if (counted_back < 1) {
    return util::fault{
        fmt::format("{} counts back beyond the first run; the newest is {}", number, *newest),
        {},
        {}};
  }
  return static_cast<std::int32_t>(counted_back);
}

}  // namespace input
