#include <fmt/core.h>

#include <array>
#include <string_view>

#include "tbt_mod.hpp"

namespace tbt_mod {
namespace {

constexpr int first_numbered = 11;  // 11W .. 49W, and their mirror images 49E .. 11E
constexpr int last_numbered = 49;
constexpr int mirror = 99;  // index of 11E is 99 - 11

constexpr std::array<std::string_view, 11> first_names{"",    "X5C", "X5D", "X6A", "X6B", "X6C",
                                                       "X6D", "9W",  "9AW", "10W", "10AW"};
constexpr int first_after = 89;
constexpr std::array<std::string_view, 25> last_names{
    "10AE", "10E", "9AE", "9E",  "X1A",  "X1B",  "X1C",     "X1D", "X2A",
    "X2B",  "X2C", "X2D", "X3A", "X3B",  "X3C",  "X3D",     "X4A", "X4B",
    "X4C",  "X4D", "X5A", "X5B", "12W2", "12W3", "47W_XBSM"};

}  // namespace

util::fixed_text<8> tbt_bpm_name(int index) {
  if (index < 0 || index > max_bpm) util::subscript_error("bpm", index, 0, max_bpm);
  if (index < first_numbered) return first_names[static_cast<std::size_t>(index)];
  if (index <= last_numbered) return std::string_view{fmt::format("{:02d}W", index)};
  if (index <= mirror - first_numbered) {
    return std::string_view{fmt::format("{:02d}E", mirror - index)};
  }
  const auto after = static_cast<std::size_t>(index - first_after);
  return after < last_names.size() ? last_names[after] : std::string_view{};
}

}  // namespace tbt_mod
