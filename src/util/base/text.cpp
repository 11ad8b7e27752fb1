#include "text.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "run_time.hpp"

namespace util {
namespace {

bool belongs_to_name(char c) {
  return c == '_' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

[[noreturn]] void path_error(const std::string& what) {
  std::fflush(stdout);
  std::fprintf(stderr, "%.*s: %s\n", static_cast<int>(program_name.size()), program_name.data(),
               what.c_str());
  err_exit();
}

}  // namespace

std::string_view trim_right(std::string_view text) {
  const std::size_t last = text.find_last_not_of(' ');
  return last == std::string_view::npos ? std::string_view{} : text.substr(0, last + 1);
}

std::string_view trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string upcase(std::string_view text) {
  std::string upper{text};
  std::transform(upper.begin(), upper.end(), upper.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return upper;
}

std::string_view unquote(std::string_view text) {
  const bool quoted = text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
                      text.front() == text.back();
  return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string fullfilename(std::string_view name, std::size_t width) {
  const std::string_view plain = unquote(trim(name));
  std::string path{plain};
  if (!plain.empty() && plain[0] == '$') {
    std::size_t end = 1;
    while (end < plain.size() && belongs_to_name(plain[end])) ++end;
    const std::string variable{plain.substr(1, end - 1)};
    const char* value = std::getenv(variable.c_str());
    if (value == nullptr) {
      path_error("environment variable " + variable + " is not set; it is needed for the path " +
                 std::string{plain});
    }
    path = value + std::string{plain.substr(end)};
  }
  if (path.size() > width) {
    path_error("the path " + path + " is longer than the " + std::to_string(width) +
               " characters that it may have");
  }
  return path;
}

}  // namespace util
