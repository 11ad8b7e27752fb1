#include "turn_data.hpp"

#include <fmt/core.h>

namespace input {

// The words of the run-time error: logs are the same whoever noticed it, a reader or an array.
util::fault bounds_fault(std::string_view array, long long subscript, long long lower,
                         long long upper) {
  return {
      fmt::format("subscript {} of {} is outside {}..{}", subscript, array, lower, upper), {}, {}};
}

}  // namespace input
