// What a file holds, in two numbers that tell it from any other.
#pragma once
#include <optional>
#include <string>

#include "run_results.hpp"

namespace report {

/// Size and SHA-256 of a file.
/// returns  nothing when it is not there, cannot be read, or is no regular file: what comes out of a
///          pipe or a device was there once
/// note     some 0.1 s for 100 MB
/// source   FIPS 180-4, by way of the library nettle
std::optional<input_file> digest_of(const std::string& path);

}  // namespace report
