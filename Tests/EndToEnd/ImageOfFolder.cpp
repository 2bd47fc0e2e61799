#include "Tests/EndToEnd/ImageOfFolder.hpp"

#include "Support/FileManager.hpp"

namespace corvane::TestSupport {

TestTree treeOfFolder(const FileURL& folder) {
    TestTree tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        const struct stat status = FileManager::itemStatus(entry.path());
        TestItem item{.mode = status.st_mode, .modified = static_cast<std::uint32_t>(status.st_mtime)};
        if (entry.is_symlink()) {
            item.data = FileManager::linkTarget(entry.path());
        } else if (entry.is_regular_file()) {
            item.data = FileManager::readFile(entry.path(), std::uint64_t{1} << 32U);
        }
        tree[entry.path().lexically_relative(folder).string()] = item;
    }
    return tree;
}

std::string imageOfFolder(const FileURL& folder, const TestImage::Options& options) {
    return TestImage::image({{testVolume(treeOfFolder(folder), {.nodeSize = 8192})}}, options);
}

} // namespace corvane::TestSupport
