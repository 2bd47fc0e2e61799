#include "Platform/Formats/CodeBundle/FileKind.hpp"

#include "Support/FileManager.hpp"

#include <algorithm>

namespace corvane::FileKind {
namespace {

using std::filesystem::file_type;
using std::filesystem::perms;

std::filesystem::file_status itemItself(const FileURL& url) {
    std::error_code error;
    return std::filesystem::symlink_status(url, error);
}

std::filesystem::file_status itemBehind(const FileURL& url) {
    std::error_code error;
    return std::filesystem::status(url, error);
}

} // namespace

bool exists(const FileURL& url) { return std::filesystem::exists(itemItself(url)); }
bool isLink(const FileURL& url) { return itemItself(url).type() == file_type::symlink; }
bool isFolder(const FileURL& url) { return itemItself(url).type() == file_type::directory; }
bool isPlainFile(const FileURL& url) { return itemItself(url).type() == file_type::regular; }

bool isExecutableFile(const FileURL& url) {
    const auto status = itemItself(url);
    constexpr perms executable = perms::owner_exec | perms::group_exec | perms::others_exec;
    return status.type() == file_type::regular && (status.permissions() & executable) != perms::none;
}

bool leadsToFile(const FileURL& url) { return itemBehind(url).type() == file_type::regular; }
bool leadsToFolder(const FileURL& url) { return itemBehind(url).type() == file_type::directory; }

std::vector<std::string> sortedNames(const FileURL& folder) {
    std::vector<std::string> names;
    for (const FileURL& url : FileManager::contentsOfDirectory(folder)) names.push_back(url.filename());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace corvane::FileKind
