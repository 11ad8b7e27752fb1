#include "rdfile_list.hpp"

#include <fmt/core.h>

#include "fields.hpp"
#include "file_units.hpp"
#include "gain_fit_mod.hpp"

namespace input {
namespace {

int entries = 0;  // of this session; the list is appended to, so the index goes on with it

}  // namespace

std::string run_file_name(std::int32_t number) { return fmt::format("RD-{:06d}.dat", number); }

void write_rdfile_list(std::int32_t number, const util::fixed_text<16>& directory) {
  // Opened anew for each entry: what is listed is on disk should the session end in between.
  const util::unit_handle list{util::lunget()};
  util::open_output(list.number(), std::string{directory.trimmed()} + "/RDfiles_fitted.dat");
  std::string index;
  util::put_integer(index, ++entries, 2);
  std::string norbits;
  util::put_integer(norbits, gain_fit_mod::norbits, 6);
  util::write_line(list.number(), fmt::format("rdfile[{}]= \"{}\"; norbits[{}]={}", index,
                                              run_file_name(number), index, norbits));
}

}  // namespace input
