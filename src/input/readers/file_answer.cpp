#include "file_answer.hpp"

#include <fmt/core.h>

#include <cstdlib>

#include "text.hpp"

namespace input {
namespace {

// The variable that a path begins with; empty for any other path.
std::string variable_of(std::string_view path) {
  if (path.empty() || path[0] != '$') return {};
  return std::string{path.substr(1, path.find('/') - 1)};
}

}  // namespace

util::outcome<std::string> path_of_answer(std::string_view answer, std::size_t width) {
  const std::string_view plain = util::unquote(util::trim(answer));
  // Looked at first: fullfilename ends the run when the variable is not set, which is right for the
  // site's own paths and wrong for a slip of the finger.
  const std::string variable = variable_of(plain);
  if (!variable.empty() && std::getenv(variable.c_str()) == nullptr) {
    return util::fault{
        fmt::format("environment variable {} is not set", variable), std::string{plain}, {}};
  }
  // The width is looked at here: within it the expansion cannot end the run.
  std::string path = util::fullfilename(plain, std::string::npos);
  if (path.size() > width) {
    return util::fault{fmt::format("{} characters long", path.size()), path,
                       fmt::format("at most {}", width)};
  }
  return path;
}

}  // namespace input
