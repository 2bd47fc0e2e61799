#include "Tests/TreeSnapshot.hpp"

#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

#include <sstream>

namespace corvane::TestSupport {
namespace {

using Identity = std::pair<dev_t, ino_t>;

TreeItem itemAt(const FileURL& url, const std::string& path, std::map<Identity, std::string>& firstNames) {
    const struct stat status = FileManager::itemStatus(url);
    TreeItem item{.mode = status.st_mode, .modified = status.st_mtim};
    if (S_ISLNK(status.st_mode)) item.content = FileManager::linkTarget(url);
    if (S_ISREG(status.st_mode)) {
        item.content = read(url);
        item.firstName = firstNames.try_emplace({status.st_dev, status.st_ino}, path).first->second;
    }
    for (const std::string& name : ExtendedAttributes::names(url)) {
        item.attributes[name] = ExtendedAttributes::value(url, name).value_or("gone");
    }
    return item;
}

std::string shortened(const std::string& value) {
    const std::string size = std::to_string(value.size());
    return value.size() < 64 ? value : size + " bytes " + hexadecimal(digest(DigestKind::sha1, value));
}

} // namespace

std::string described(const TreeItem& item) {
    std::ostringstream text;
    text << std::oct << item.mode << std::dec << " " << item.modified.tv_sec << "." << item.modified.tv_nsec << " ="
         << item.firstName << " [" << shortened(item.content) << "]";
    for (const auto& [name, value] : item.attributes) text << " " << name << "=[" << shortened(value) << "]";
    return text.str();
}

std::map<std::string, std::string> treeSnapshot(const FileURL& folder) {
    std::map<Identity, std::string> firstNames;
    std::map<std::string, FileURL> items{{".", folder}};
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!ExtendedAttributes::isCompanion(entry.path())) {
            items.emplace(entry.path().lexically_relative(folder), entry.path());
        }
    }
    std::map<std::string, std::string> result;
    for (const auto& [path, url] : items) {
        result.emplace(path, described(itemAt(url, path, firstNames)));
    }
    return result;
}

void expectSameTrees(const std::map<std::string, std::string>& expected,
                     const std::map<std::string, std::string>& found) {
    for (const auto& [path, item] : expected) {
        EXPECT_EQ(found.contains(path) ? found.at(path) : "nothing", item) << path;
    }
    for (const auto& [path, item] : found) EXPECT_TRUE(expected.contains(path)) << path << ": " << item;
}

} // namespace corvane::TestSupport
