#include "butngain/error.hpp"

#include "fault.hpp"

namespace butngain {

error::error(error_kind kind_given, const std::string& what, const std::string& where_given,
             const std::string& expected_given)
    : std::runtime_error(util::line_of({what, where_given, expected_given})),
      kind(kind_given),
      reason(what),
      where(where_given),
      expected(expected_given) {}

// Here, so that the type has one home: an exception thrown in the library is caught outside by it.
error::~error() = default;

}  // namespace butngain
