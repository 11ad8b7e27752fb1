#include "tell.hpp"

#include "run_time.hpp"

namespace rawfile {

void tell(const util::fault& fault) { util::tell_line(util::line_of(fault)); }

}  // namespace rawfile
