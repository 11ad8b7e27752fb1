// directories: folders for what is written.
#pragma once
#include <filesystem>

namespace sim {

/// Makes the directory and those above it, where they are missing.
/// errors   what cannot be made ends the run
void make_directory(const std::filesystem::path& path);

}  // namespace sim
