#pragma once

#include "Platform/Formats/Bom/Entry.hpp"
#include "Platform/Formats/Bom/Store.hpp"
#include "Platform/Formats/Bom/Tree.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace corvane::Bom {

/// Reads the entries of a Bom of any age, in the order of its leaves. The file stays in memory, because its blocks lie
/// anywhere in it; beside it the reader holds at most about 30 bytes a path. A second root beside "." is left out with
/// everything below it. All operations throw FormatError.
class Reader {
  public:
    /// Largest file in bytes: room for two million paths.
    static constexpr std::uint64_t sizeLimit = std::uint64_t{512} << 20;

    /// @param bytes the whole file; must outlive the reader
    explicit Reader(std::string_view bytes);

    /// The next entry; nothing after the last.
    std::optional<Entry> next();

  private:
    struct Path {
        std::uint32_t id;
        std::uint32_t parent;
        std::uint32_t record;
        std::uint32_t key;
    };

    void readPaths(std::uint32_t tree);
    void readLargeSizes();
    std::string_view name(const Path& path) const;
    const Path& parentOf(const Path& path) const;
    std::optional<std::string> fullPath(const Path& path) const;

    Store store_;
    std::vector<Path> paths_;
    /// Identifier and place in `paths_`, sorted.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> places_;
    /// Sizes from 4 GiB on, by the number of the path's record.
    std::unordered_map<std::uint32_t, std::uint64_t> largeSizes_;
    std::size_t next_ = 0;
};

} // namespace corvane::Bom
