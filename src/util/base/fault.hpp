// fault: what went wrong, as a value.
//
// A procedure whose caller can go on (ask again, take another file, leave one BPM out) returns its
// fault instead of printing it or ending the run. The caller decides who is told and how; the text
// is always the same line, "where: what, expected this".
#pragma once
#include <optional>
#include <string>
#include <utility>

namespace util {

/// One fault, in the three parts that its line shows. Parts that say nothing stay empty.
struct [[nodiscard]] fault {
  std::string what;      ///< what is wrong: `found "12.x"`, "No such file or directory"
  std::string where;     ///< file and line, array, or question: "exp_3.txt:17"
  std::string expected;  ///< what would have done: "a whole number"
};

/// The one line that tells it: "exp_3.txt:17: found "12.x", expected a whole number".
std::string line_of(const fault& f);

/// Nothing when all went well, else the fault.
using status = std::optional<fault>;

/// A value, or the fault that prevented it.
template <class T>
struct [[nodiscard]] outcome {
  std::optional<T> value;  ///< empty exactly when there is a fault
  fault why;               ///< meaningless while there is a value

  outcome(T v) : value(std::move(v)) {}    // NOLINT(*-explicit-*): a value is an outcome
  outcome(fault f) : why(std::move(f)) {}  // NOLINT(*-explicit-*): so is a fault
  explicit operator bool() const { return value.has_value(); }
  T& operator*() { return *value; }
  const T& operator*() const { return *value; }
  T* operator->() { return &*value; }
  const T* operator->() const { return &*value; }
};

}  // namespace util
