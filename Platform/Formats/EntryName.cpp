#include "Platform/Formats/EntryName.hpp"

#include "Platform/Formats/FormatError.hpp"

#include <algorithm>
#include <string>

namespace corvane::EntryName {
namespace {

[[noreturn]] void fail(std::string_view format, const std::string& problem) {
    throw FormatError(std::string(format) + ": " + problem);
}

} // namespace

void checkComponent(std::string_view name, std::string_view format) {
    constexpr std::string_view forbidden("/\0", 2);
    if (name.size() > nameLimit) {
        fail(format, "expected a name of at most " + std::to_string(nameLimit) + " bytes, found one of " +
                         std::to_string(name.size()));
    }
    if (name.empty() || name == "." || name == ".." || name.find_first_of(forbidden) != std::string_view::npos) {
        fail(format, "expected the name of a file, found \"" + std::string(name) + "\"");
    }
}

void checkPath(std::string_view path, std::string_view format) {
    if (path.size() > pathLimit) {
        fail(format, "expected a path of at most " + std::to_string(pathLimit) + " bytes, found one of " +
                         std::to_string(path.size()));
    }
    std::size_t depth = 0;
    for (std::size_t start = 0; start <= path.size(); ++depth) {
        if (depth == depthLimit) fail(format, "expected at most " + std::to_string(depthLimit) + " nested folders");
        const std::size_t end = std::min(path.find('/', start), path.size());
        checkComponent(path.substr(start, end - start), format);
        start = end + 1;
    }
}

} // namespace corvane::EntryName
