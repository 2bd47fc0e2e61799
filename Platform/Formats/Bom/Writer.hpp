#pragma once

#include "Platform/Formats/Bom/Entry.hpp"

#include <functional>
#include <memory>
#include <string_view>

namespace corvane::Bom {

/// Writes a Bom as `pkgbuild --root` of current systems does: the same blocks under the same numbers, without the gaps
/// and the second table that it leaves between them. The same entries give the same bytes. Held in memory until
/// `finish`: the file itself and an index, less than 400 bytes an entry.
class Writer {
  public:
    using Sink = std::function<void(std::string_view)>;

    Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer();

    /// Adds an entry, in the order of the payload: the root "." first, every directory before what is in it. Names of
    /// one inode are added each for itself. @throws FormatError for a path that is no good or comes before its
    /// directory, and for what a Bom cannot hold
    void add(const Entry& entry);

    /// Hands out the file from front to back. Called once, as the last operation.
    /// @param sink what it throws passes through
    /// @throws FormatError when there is no root, a path came twice, or the file would pass 4 GiB
    void finish(const Sink& sink);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace corvane::Bom
