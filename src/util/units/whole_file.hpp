// whole_file: a small file that stands under its name whole, or not at all.
//
// For results that programs read: who looks for the file never sees half of it, and one that stood
// there before stays until the new one is complete.
#pragma once
#include <string>
#include <string_view>

#include "fault.hpp"

namespace util {

/// A file in the making, under a scratch name in the folder where it will stand. One that is given up
/// before it is finished leaves nothing.
struct unfinished_file {
  std::string path, scratch;  ///< its name to be, and where it is written
  int file = -1;              ///< the system's handle
  int trouble = 0;  ///< errno value of the first write that failed; the later ones are left out

  unfinished_file() = default;
  unfinished_file(const unfinished_file&) = delete;
  unfinished_file& operator=(const unfinished_file&) = delete;
  ~unfinished_file();
};

/// Begins it, writes more of it, and gives it its name once all of it arrived; a file of that name
/// is replaced. For files that are larger than one likes to hold in memory.
/// errors   those of write_whole_file; put keeps them for finish
status begin_whole_file(unfinished_file& whole, const std::string& path);
void put(unfinished_file& whole, std::string_view text);
status finish(unfinished_file& whole);

/// Writes the text under a scratch name in the same folder, checks that all of it arrived, and gives
/// it its name; a file of that name is replaced. A link in the place of the name is replaced too,
/// never followed. Into a device or a pipe the text is written as it stands.
/// errors   a file that cannot be made, written or named: the fault with the path and the system's
///          reason; the scratch file is gone then
/// note     not synchronised to the disk: after a crash of the machine the file may be the old one
status write_whole_file(const std::string& path, std::string_view text);

/// For writers of another kind: makes an empty file of a scratch name beside the path, which must be
/// put in its place, or given up. A run that ends before does that.
/// returns  the name; the path itself where that is a device or a pipe
outcome<std::string> make_scratch(const std::string& path);
/// Gives the file its name. Returns 0 or an errno value; the file is gone then.
int put_in_place(const std::string& scratch, const std::string& path);
void give_up_scratch(const std::string& scratch, const std::string& path);

/// Notes a scratch file or folder, before it is made, for an end of the run that comes before its
/// time; and that it is gone, or no scratch any more.
void scratch_begun(const std::string& name);
void scratch_ended(const std::string& name);

}  // namespace util
