#pragma once

#include "Support/FileURL.hpp"
#include "Support/UniqueDescriptor.hpp"

#include <sys/stat.h>

#include <cstdint>
#include <string_view>

namespace corvane {

/// A file that appears at its destination whole or not at all. It is written under a temporary name in the
/// destination's folder; `commit` renames it, replacing what stands there. Without a commit, for example when an
/// exception passes, the destructor removes the temporary file. All operations throw `FileError`.
/// For one thread at a time.
class AtomicFile {
  public:
    /// Creates the temporary file with mode 0666 less the process's mask.
    explicit AtomicFile(FileURL destination);
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    ~AtomicFile();

    int descriptor() const { return descriptor_.get(); }

    /// Writes all bytes at the current position.
    void write(std::string_view bytes);
    /// Appends everything from the current position of another file, within the kernel where it can.
    void copyContent(int input, const FileURL& inputName);

    void setMode(mode_t mode);
    void setModificationTime(const struct stat& like);

    void commit();

  private:
    FileURL destination_;
    FileURL temporary_;
    UniqueDescriptor descriptor_;
    bool committed_ = false;
};

} // namespace corvane
