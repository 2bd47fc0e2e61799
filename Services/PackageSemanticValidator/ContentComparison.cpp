#include "Services/PackageSemanticValidator/ContentComparison.hpp"

#include "Services/CommandRunner.hpp"
#include "Services/PackageSemanticValidator/Differences.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <algorithm>

namespace corvane::PackageSemanticValidator {
namespace {

constexpr std::size_t shownLines = 3;

std::string firstLines(const CommandResult& result) {
    const std::string output = result.standardOutput + result.standardError;
    std::vector<std::string_view> lines = Text::split(output, '\n');
    lines.resize(std::min(lines.size(), shownLines));
    return Text::joined(lines, "; ");
}

std::string octal(mode_t bits) {
    std::string digits;
    for (; bits != 0; bits >>= 3) digits.insert(digits.begin(), static_cast<char>('0' + (bits & 7)));
    return digits.empty() ? "0" : digits;
}

std::string metadata(const FileURL& entry, const struct stat& status) {
    const std::string permissions = ":" + octal(status.st_mode & 07777U);
    if (S_ISLNK(status.st_mode)) return "link" + permissions + ":" + FileManager::linkTarget(entry);
    if (S_ISDIR(status.st_mode)) return "directory" + permissions;
    return (S_ISREG(status.st_mode) ? "file" : "other") + permissions;
}

std::string listing(const std::map<std::string, std::string>& tree) {
    std::vector<std::string> lines;
    lines.reserve(tree.size());
    for (const auto& [path, text] : tree) lines.push_back(path + "=" + text);
    Text::sortCanonically(lines);
    return Text::joined(lines, "\n");
}

bool isCompanion(std::string_view line) {
    const auto components = Text::split(line.substr(0, line.find('\t')), '/');
    return std::any_of(components.begin(), components.end(),
                       [](std::string_view component) { return component.starts_with("._"); });
}

} // namespace

void compareOptionalDirectory(const std::optional<FileURL>& original, const std::optional<FileURL>& rebuilt,
                              const std::string& label, const std::stop_token& stop) {
    if (original.has_value() != rebuilt.has_value()) throw mismatch(label, presence(original), presence(rebuilt));
    if (!original) return;
    const CommandResult contents =
        CommandRunner::run("/usr/bin/diff", {"-r", "-q", original->string(), rebuilt->string()}, stop);
    if (!contents.succeeded()) throw mismatch(label, "vendor contents", firstLines(contents));
    const auto originalTree = treeMetadata(*original);
    const auto rebuiltTree = treeMetadata(*rebuilt);
    if (originalTree == rebuiltTree) return;
    const auto [left, right] = firstDifferenceSummary(listing(originalTree), listing(rebuiltTree));
    throw mismatch(label + " file metadata", left, right);
}

std::map<std::string, std::string> treeMetadata(const FileURL& root) {
    std::map<std::string, std::string> tree;
    const std::size_t prefix = root.native().size() + 1;
    std::vector<FileURL> folders{root};
    while (!folders.empty()) {
        std::vector<FileURL> entries;
        try {
            entries = FileManager::contentsOfDirectory(folders.back());
        } catch (const FileError&) {
            break;
        }
        folders.pop_back();
        for (FileURL& entry : entries) {
            const struct stat status = FileManager::itemStatus(entry);
            tree.emplace(entry.native().substr(prefix), metadata(entry, status));
            if (S_ISDIR(status.st_mode)) folders.push_back(std::move(entry));
        }
    }
    return tree;
}

void compareBOM(const FileURL& original, const FileURL& rebuilt, const std::string& componentName,
                const std::stop_token& stop) {
    const bool isOriginal = FileManager::fileExists(original);
    const bool isRebuilt = FileManager::fileExists(rebuilt);
    if (isOriginal != isRebuilt) {
        throw mismatch("BOM in " + componentName, presence(isOriginal), presence(isRebuilt));
    }
    if (!isOriginal || FileManager::haveSameContent(original, rebuilt)) return;
    const std::string left = Text::joined(normalizedBOM(original, stop), "\n");
    const std::string right = Text::joined(normalizedBOM(rebuilt, stop), "\n");
    const auto [originalPart, rebuiltPart] = firstDifferenceSummary(left, right);
    throw mismatch("payload BOM in " + componentName + " (binary contents differ)", originalPart, rebuiltPart);
}

std::vector<std::string> normalizedBOM(const FileURL& bom, const std::stop_token& stop) {
    const CommandResult result = CommandRunner::runChecked("/usr/bin/lsbom", {"-p", "fmugsc", bom.string()}, stop);
    std::vector<std::string> lines;
    for (const std::string_view line : Text::split(result.standardOutput, '\n')) {
        if (!isCompanion(line)) lines.emplace_back(line);
    }
    Text::sortCanonically(lines);
    return lines;
}

} // namespace corvane::PackageSemanticValidator
