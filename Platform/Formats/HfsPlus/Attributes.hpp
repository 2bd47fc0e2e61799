#pragma once

#include "Platform/Formats/HfsPlus/Fork.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvane::HfsPlus {

/// All bytes, as the value of an attribute. @throws FormatError for more than `room`, which they are taken from
std::string readAttribute(const RandomAccess& bytes, std::uint64_t& room);

/// The named attributes of all items. Their values stay on the disk. For many threads, once it is made.
class Attributes {
  public:
    /// @param forks must outlive this
    /// @throws FormatError
    Attributes(const ForkTable& forks, const VolumeHeader& header);

    bool has(std::uint32_t item, const std::string& name) const;
    /// @throws FormatError for a value beyond `volumeAttributeLimit`
    std::optional<std::string> value(std::uint32_t item, const std::string& name) const;
    /// At most so many bytes of a value; empty when there is none. @throws FormatError
    std::string front(std::uint32_t item, const std::string& name, std::size_t limit) const;
    /// @param room that the values are taken from. @throws FormatError when they have more bytes
    std::map<std::string, std::string> values(std::uint32_t item, std::uint64_t& room) const;
    /// What the values take on the disk outside the attributes' own file.
    void appendExtents(std::vector<Extent>& extents) const;

  private:
    struct Place {
        std::uint64_t size = 0;
        /// In the attributes' file, of a value that has no fork.
        std::uint64_t offset = 0;
        bool hasFork = false;
        std::uint32_t blocks = 0;
        std::uint64_t foundBlocks = 0;
        std::vector<Extent> extents;
    };

    void addRecord(ByteCursor& key, ByteCursor& value);
    Place readPlace(ByteCursor& value, std::uint32_t type) const;
    void requireWhole() const;
    std::unique_ptr<RandomAccess> content(const Place& place) const;

    const ForkTable& forks_;
    std::unique_ptr<RandomAccess> file_;
    std::map<std::pair<std::uint32_t, std::string>, Place> places_;
};

} // namespace corvane::HfsPlus
