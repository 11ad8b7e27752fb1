// error: the one exception of this library.
//
// Nothing here prints, asks or ends the process: what cannot be done is thrown, and what was
// half done is released. (Where memory runs out, std::bad_alloc comes as from any C++ library.)
#pragma once
#include <stdexcept>
#include <string>

#pragma GCC visibility push(default)
namespace butngain {

/// Where a fault lies.
enum class error_kind {
  file,      ///< a file: cannot be opened, or what it says cannot be
  argument,  ///< an argument; `where` names it
  stopped,   ///< a progress procedure asked to stop
  internal   ///< the library itself: please report it
};

/// A fault. what() is the whole line, "where: what, expected this".
class error : public std::runtime_error {
 public:
  error(error_kind kind, const std::string& what, const std::string& where,
        const std::string& expected = {});
  ~error() override;
  error(const error&) = default;
  error& operator=(const error&) = default;

  error_kind kind;
  std::string reason;    ///< what is wrong: "No such file or directory"
  std::string where;     ///< file and line, or argument: "exp_3.table:17", "readings"
  std::string expected;  ///< what would have done; empty when that says itself
};

}  // namespace butngain
#pragma GCC visibility pop
