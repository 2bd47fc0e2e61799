#include "Support/FileError.hpp"
#include "Support/ProgramFile.hpp"

namespace corvane {

FileURL programFile() {
    // When the file was replaced or removed since the start, its name comes with " (deleted)" at the end.
    std::error_code error;
    FileURL url = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) throw FileError("Cannot read", "/proc/self/exe", error);
    return url;
}

} // namespace corvane
