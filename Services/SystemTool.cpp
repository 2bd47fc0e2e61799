#include "Services/SystemTool.hpp"

#include "Services/DistributionFile.hpp"
#include "Support/FileManager.hpp"
#include "Support/ProgramFile.hpp"

#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace corvane::SystemTool {
namespace {

std::optional<FileURL> overridingFolder;

std::mutex namedFolderMutex;
std::optional<FileURL> namedFolder;

/// Reading the whole database takes some time; no file changes sides while a job runs.
bool isDistributionFile(const std::string& path, const FileURL& database) {
    static std::mutex mutex;
    static std::map<std::pair<std::string, FileURL>, bool> answers;
    const std::lock_guard lock(mutex);
    const auto [answer, isNew] = answers.try_emplace({path, database});
    if (isNew) answer->second = DistributionFile::isUnchanged(path, database);
    return answer->second;
}

/// This project's programs lie in <prefix>/bin, the set in <prefix>/libexec/corvane, when installed as well as when
/// built.
FileURL portableTools() {
    {
        const std::lock_guard lock(namedFolderMutex);
        if (namedFolder) return *namedFolder;
    }
    return programFile().parent_path().parent_path() / "libexec/corvane";
}

} // namespace

void usePortableTools(const FileURL& folder) {
    const std::lock_guard lock(namedFolderMutex);
    namedFolder = std::filesystem::absolute(folder);
}

FileURL executable(const std::string& path) {
    if (!overridingFolder) return executable(path, portableTools(), DistributionFile::packageDatabase);
    const FileURL tool = *overridingFolder / lastPathComponent(path);
    return FileManager::fileExists(tool) ? tool : FileURL(path);
}

FileURL executable(const std::string& path, const FileURL& portableTools, const FileURL& packageDatabase) {
    FileURL portable = portableTools / lastPathComponent(path);
    if (!FileManager::fileExists(portable)) return path;
    if (FileManager::fileExists(path) && !isDistributionFile(path, packageDatabase)) return path;
    return portable;
}

Override::Override(FileURL folder) { overridingFolder = std::move(folder); }

Override::~Override() { overridingFolder.reset(); }

} // namespace corvane::SystemTool
