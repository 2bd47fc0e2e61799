#pragma once

#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Formats/Xar/Entry.hpp"
#include "Support/FileURL.hpp"

#include <string>
#include <variant>
#include <vector>

namespace corvane::Xar {

/// Content that is copied from another archive as it is stored there; its checksums come along and are verified.
struct ArchivedContent {
    /// Must outlive the writing.
    const Archive* archive = nullptr;
    Data data;
};

/// One file, folder or symbolic link of a new archive.
struct NewEntry {
    /// Name, type, permissions, owner, time and link target. The writer sets `id` and `data`; `children` stays empty.
    Entry entry;
    /// Bytes in memory, or a file. Nothing for what is no file.
    std::variant<std::monostate, std::string, FileURL, ArchivedContent> content;
    /// `stored` or `zlib`; copied content keeps its own.
    Encoding encoding = Encoding::zlib;
    std::vector<NewEntry> children;
};

} // namespace corvane::Xar
