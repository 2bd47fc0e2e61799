#pragma once

#include "Platform/Formats/Apfs/Object.hpp"

#include <cstdint>
#include <unordered_map>

namespace corvane::Apfs {

/// Where the objects of a container or of a volume stand, as of one transaction.
class ObjectMap {
  public:
    /// @param address block of the map
    /// @param transaction later states of the objects are passed over
    /// @throws FormatError
    ObjectMap(const ObjectReader& objects, std::uint64_t address, std::uint64_t transaction);

    /// The block of an object. @throws FormatError for none, and for one whose block cannot be read as it is
    std::uint64_t address(std::uint64_t identifier) const;

  private:
    struct Place {
        std::uint64_t transaction = 0;
        std::uint64_t address = 0;
        std::uint32_t flags = 0;
        std::uint32_t size = 0;
    };

    std::uint32_t blockSize_;
    std::unordered_map<std::uint64_t, Place> places_;
};

} // namespace corvane::Apfs
