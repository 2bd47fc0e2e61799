#pragma once

#include "Support/FileURL.hpp"

#include <sys/stat.h>

#include <map>
#include <string>

namespace corvane::TestSupport {

/// What a tree shows of an item.
struct TreeItem {
    /// Kind and permissions.
    mode_t mode = 0;
    struct timespec modified {};
    /// Of a file, its bytes; of a link, its text.
    std::string content{};
    /// Of a file, the first of all paths that name it.
    std::string firstName{};
    std::map<std::string, std::string> attributes{};
};

/// All on one line, of long values only digests.
std::string described(const TreeItem& item);

/// All that there is to know of the items below a folder, by path, as text that two trees can be compared by. The
/// folder itself is ".". Companions are left out: what they say is among the attributes.
std::map<std::string, std::string> treeSnapshot(const FileURL& folder);

/// Expects that two trees are the same, and names the items that are not.
void expectSameTrees(const std::map<std::string, std::string>& expected,
                     const std::map<std::string, std::string>& found);

} // namespace corvane::TestSupport
