#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace re2 {
class RE2;
}

namespace corvane::CodeResources {

/// A POSIX extended expression that is searched in paths, byte by byte. Anybody can sign a bundle with patterns made to
/// exhaust whoever searches with them: time grows with the length of pattern and path only, and memory has a limit.
class PathPattern {
  public:
    /// @param name of the list that holds the pattern, for errors
    /// @throws FormatError when it is none, is too large to search with, or can be understood in several ways
    PathPattern(const std::string& text, const std::string& name);
    PathPattern(PathPattern&& other) noexcept;
    PathPattern& operator=(PathPattern&& other) noexcept;
    ~PathPattern();

    /// Threads may ask side by side.
    bool isFoundIn(std::string_view path) const;
    /// Most steps that a search takes for one byte of a path.
    std::size_t size() const;

  private:
    std::unique_ptr<re2::RE2> expression_;
};

} // namespace corvane::CodeResources
