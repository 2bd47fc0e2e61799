#include "Support/FileError.hpp"
#include "Support/ProgramFile.hpp"

#include <mach-o/dyld.h>

#include <string>

namespace corvane {

FileURL programFile() {
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string path(size, '\0');
    _NSGetExecutablePath(path.data(), &size);
    path.resize(path.find('\0'));
    std::error_code error;
    FileURL url = std::filesystem::canonical(path, error);
    if (error) throw FileError("Cannot find the program", path, error);
    return url;
}

} // namespace corvane
