// A value that may be read before anybody gave it one: reading it then ends the run and names it.
#pragma once
#include <optional>

#include "bounded.hpp"

namespace util {

/// A variable without a first value. Assigning gives it one; get() before that ends the run:
/// `norbits_save is used before it is given a value`.
template <class T, label name>
struct given {
  std::optional<T> value{};
  given& operator=(const T& v) {
    value = v;
    return *this;
  }
  bool is_given() const { return value.has_value(); }
  const T& get() const {
    if (!value) not_given_error(name.view());
    return *value;
  }
};

}  // namespace util
