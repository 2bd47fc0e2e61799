#pragma once

#include "Support/FileURL.hpp"

#include <system_error>

namespace corvane {

/// A folder that appears at its destination whole or not at all. It is filled under a temporary name beside the
/// destination; `commit` renames it. Without a commit, for example when an exception passes, the destructor removes it
/// with its content. All operations throw `FileError`.
class AtomicFolder {
  public:
    /// What stands at the destination before the commit.
    enum class Destination { nothing, emptyFolder };

    /// Creates the temporary folder, open to its owner only. The destination must not exist (EEXIST), or must be an
    /// empty folder and no link (ENOTDIR, ENOTEMPTY).
    explicit AtomicFolder(FileURL destination, Destination expected = Destination::nothing);
    AtomicFolder(const AtomicFolder&) = delete;
    AtomicFolder& operator=(const AtomicFolder&) = delete;
    ~AtomicFolder();

    /// Where to put the content until the commit.
    const FileURL& url() const { return temporary_; }

    /// Fails also when something else has appeared at the destination in the meantime.
    void commit();

  private:
    void requireExpected() const;
    [[noreturn]] void fail(std::error_code reason) const;

    FileURL destination_;
    Destination expected_;
    FileURL temporary_;
    bool committed_ = false;
};

} // namespace corvane
