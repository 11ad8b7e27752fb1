// namelist: named values in a text file, in a group that begins with "&name" and ends with "/".
//
//     &bpm_gain_anal_params
//       fit_bpm_idx = 1, 2, 48          ! an array: values from its first element on
//       Orbit(11) = 3*5, , 7            ! from element 11 on: 5, 5, 5, one left as it was, 7
//       read_current_from_butns_file = .true.
//     /
//
// Names and the group's own name may be in any letter case and any order; values go over as many
// lines as they like. Blanks, tabs, commas and line ends separate; "!" begins a comment. The end
// may also be written "&end". Text before the group (other groups, titles) is passed over.
#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "bounded.hpp"
#include "text_file.hpp"

namespace namelist {

/// Where the values of one member go: whole numbers or logicals.
using places = std::variant<std::span<std::int32_t>, std::span<bool>>;

/// One member of a group. A member of one item is a plain variable.
struct member {
  std::string_view name;  ///< lower case
  int lower = 1;          ///< subscript of the first item
  places items;
};

/// A member that is a variable.
template <class T>
member variable(std::string_view name, T& value) {
  return {name, 1, std::span<T>{&value, 1}};
}

/// A member that is an array; subscripts in the file are the array's own.
template <class T, int lo, int hi, util::label label>
member array(std::string_view name, util::bounded<T, lo, hi, label>& values) {
  return {name, lo, std::span<T>{values.item}};
}

/// Reads one group from where the file stands.
///
/// given    file     an open file
///          group    its name in lower case, without "&"
///          members  all members that the group may name; those it does not name keep their values
/// returns  nothing when the whole group was read; else the fault, with file, line and member.
///          Values before the fault are stored then, the others as they were.
/// errors   as the fault; so is a file that cannot be read
/// note     numbers and logicals may stand in quotes. A value in an array's last place may be
///          followed by commas, not by more values.
[[nodiscard]] util::status read_group(util::text_file& file, std::string_view group,
                                      std::span<const member> members);

}  // namespace namelist
