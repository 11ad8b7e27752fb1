// The record behind the process-wide loaders and accessors: one for all callers. Everything that
// works on files takes its record as an argument; only those faces come here for theirs.
#pragma once
#include <cstdint>

#include "kbpmfio_stream.hpp"
#include "raw_file.hpp"

namespace rawfile {

/// What is held for the whole process, from one load until the next.
struct held_file {
  raw_file file;
  bool is_current = false;  ///< it is the file that the last load asked for
};

held_file& held();

/// Loads from an open stream: replaces what is held. Statuses and errors as kbpm_read_rawfile_at.
[[nodiscard]] std::int32_t kbpm_read_rawfile_stream(kbpmfio_stream& stream);

}  // namespace rawfile
