#include "Services/DistributionFile.hpp"

#include "Support/FileManager.hpp"
#include "Support/MD5.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace corvane::DistributionFile {
namespace {

/// Far above what a program or a package's list of checksums has.
constexpr std::uint64_t sizeLimit = std::uint64_t{256} << 20;

/// Nothing for a file that cannot be read: the package manager may be at work just now.
std::optional<std::string> content(const FileURL& file) {
    try {
        return FileManager::readFile(file, sizeLimit);
    } catch (const FileError&) {
        return std::nullopt;
    }
}

/// The lines by which a package's list of checksums may name a file of this content: "<digest>  usr/bin/diff". Where
/// /bin is a link to /usr/bin, a package may still call its file bin/diff.
std::vector<std::string> possibleLines(const std::string& path, const std::string& digest) {
    std::vector<std::string> lines{digest + "  " + path.substr(1) + "\n"};
    if (path.starts_with("/usr/")) lines.push_back(digest + "  " + path.substr(5) + "\n");
    return lines;
}

bool containsAny(const FileURL& list, const std::vector<std::string>& lines) {
    const auto text = content(list);
    return text && std::any_of(lines.begin(), lines.end(),
                               [&](const std::string& line) { return text->find(line) != std::string::npos; });
}

} // namespace

bool isUnchanged(const FileURL& file, const FileURL& database) {
    std::error_code error;
    const FileURL resolved = std::filesystem::canonical(file, error);
    if (error) return false;
    const auto bytes = content(resolved);
    if (!bytes) return false;
    const std::vector<std::string> lines = possibleLines(resolved.string(), hexadecimalMD5(*bytes));
    std::filesystem::directory_iterator list(database, error);
    for (; !error && list != std::filesystem::directory_iterator(); list.increment(error)) {
        if (list->path().extension() == ".md5sums" && containsAny(list->path(), lines)) return true;
    }
    return false;
}

} // namespace corvane::DistributionFile
