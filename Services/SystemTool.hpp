#pragma once

#include "../Support/FileURL.hpp"

#include <string>

/// Decides which executable runs for the absolute path of a system tool.
namespace corvane::SystemTool {

/// Names the folder of the portable set, `libexec/corvane` of an installation, for this process. A program that does
/// not lie in `bin` of that installation calls this before it starts its first job, or lists anything; where the system
/// has tools of its own (macOS) it need not. A relative folder starts at the current one. From any thread.
void usePortableTools(const FileURL& folder);

/// What stands at the path runs. If nothing does, or only a program of the distribution that shares the name, the tool
/// of that name in the portable set runs, when there is one. Otherwise the path itself is returned.
FileURL executable(const std::string& path);

/// The decision itself. An answer about a path and a database holds for the rest of the process.
/// @param portableTools the folder of the portable set
/// @param packageDatabase see `DistributionFile.hpp`
FileURL executable(const std::string& path, const FileURL& portableTools, const FileURL& packageDatabase);

/// For tests: while one of these lives, every tool is looked up by its file name in this folder alone, and a tool that
/// is missing there is launched at its own path. Not for concurrent use.
class Override {
  public:
    explicit Override(FileURL folder);
    Override(const Override&) = delete;
    Override& operator=(const Override&) = delete;
    ~Override();
};

} // namespace corvane::SystemTool
