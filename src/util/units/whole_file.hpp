// whole_file: a small file that stands under its name whole, or not at all.
//
// For results that programs read: who looks for the file never sees half of it, and one that stood
// there before stays until the new one is complete.
#pragma once
#include <string>
#include <string_view>

#include "fault.hpp"

namespace util {

/// Writes the text under a scratch name in the same folder, checks that all of it arrived, and gives
/// it its name; a file of that name is replaced. A link in the place of the name is replaced too,
/// never followed.
/// errors   a file that cannot be made, written or named: the fault with the path and the system's
///          reason; the scratch file is gone then
/// note     not synchronised to the disk: after a crash of the machine the file may be the old one
status write_whole_file(const std::string& path, std::string_view text);

}  // namespace util
