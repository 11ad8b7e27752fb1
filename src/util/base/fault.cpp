#include "fault.hpp"

namespace util {

std::string line_of(const fault& f) {
  std::string line = f.where;
  if (!line.empty() && !f.what.empty()) line += ": ";
  line += f.what;
  if (!f.expected.empty()) line += (line.empty() ? "expected " : ", expected ") + f.expected;
  return line;
}

}  // namespace util
