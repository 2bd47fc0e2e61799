#pragma once

#include "Support/FileURL.hpp"

namespace corvane {

/// A folder that appears at its destination whole or not at all. It is filled under a temporary name beside the
/// destination; `commit` renames it. Without a commit, for example when an exception passes, the destructor removes it
/// with its content. All operations throw `FileError`.
class AtomicFolder {
  public:
    /// Creates the temporary folder, open to its owner only. The destination must not exist (EEXIST).
    explicit AtomicFolder(FileURL destination);
    AtomicFolder(const AtomicFolder&) = delete;
    AtomicFolder& operator=(const AtomicFolder&) = delete;
    ~AtomicFolder();

    /// Where to put the content until the commit.
    const FileURL& url() const { return temporary_; }

    /// Fails also when something has appeared at the destination in the meantime.
    void commit();

  private:
    FileURL destination_;
    FileURL temporary_;
    bool committed_ = false;
};

} // namespace corvane
