#pragma once

#include "Support/FileURL.hpp"

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace corvane {

/// Tells a folder from every other one, also from a later one at the same path.
struct FolderIdentity {
    dev_t device = 0;
    /// Soon given to another folder when this one goes.
    ino_t number = 0;
    /// Nanoseconds since 1970; 0 where the file system does not tell.
    std::uint64_t birth = 0;

    bool operator==(const FolderIdentity&) const = default;

    /// Of a folder itself, no link to one. Nothing, with the reason in `errno`, when there is none.
    static std::optional<FolderIdentity> of(const FileURL& url);
    /// Of an open one.
    static std::optional<FolderIdentity> of(int descriptor);
};

} // namespace corvane
