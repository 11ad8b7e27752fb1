// run.json: how and when a run was made, for people, programs and `butngain --repeat`.
//
// JSON (RFC 8259) in UTF-8; docs/run.schema.json says what stands where. A value that is not known
// is null. Names of files and answers are bytes, which need not be UTF-8: a byte that is no part of
// well-formed UTF-8 stands as \xNN (one backslash), and a backslash that would look like one as \x5C.
#pragma once
#include <string>
#include <string_view>

#include "fault.hpp"
#include "run_results.hpp"

namespace report {

/// The text of a run's record: all of its info, and of each BPM what an operator needs.
std::string run_json_text(const run_results& results);

/// Writes it whole or not at all.
/// errors   a file that cannot be written: the fault, with the system's reason
util::status write_run_json(const std::string& path, const run_results& results);

/// Reads one back: the info, and the BPMs' rows as far as they stand there.
/// errors   cannot be opened, is no JSON, or a value is missing or of another kind: the fault with
///          the file and the value's name. Values that are not known here are passed over
util::outcome<run_results> read_run_json(const std::string& path);

/// Bytes as UTF-8, and back.
std::string text_of_bytes(std::string_view bytes);
std::string bytes_of_text(std::string_view text);

}  // namespace report
