#pragma once

#include "Platform/Formats/HfsPlus/Catalog.hpp"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace corvane::HfsPlus {

/// The items of a volume as a tree, hard links followed.
class Hierarchy {
  public:
    /// An item under one of its names.
    struct Place {
        std::string path;
        const Item* item;
    };

    /// @throws FormatError when the items form no tree
    explicit Hierarchy(std::vector<Item> items);

    /// Every folder before what is in it, the root first; names in one folder sorted by their bytes. What the system
    /// keeps for itself is left out.
    /// @throws FormatError for names and paths that cannot be those of files, links that lead nowhere or into a circle
    std::vector<Place> places(bool isJournaled) const;

    const std::vector<Item>& items() const { return items_; }
    /// @throws FormatError when there is none
    const Item& item(std::uint32_t number) const;

  private:
    /// A folder that is being walked through: what is left of its items.
    struct Level {
        std::string path;
        std::uint32_t folder;
        std::size_t next;
        std::size_t end;
    };

    void requireTree() const;
    std::pair<std::size_t, std::size_t> children(std::uint32_t folder) const;
    const Item* child(std::uint32_t folder, const std::string& name) const;
    const Item& linked(const Item& link) const;
    Level level(const Item& folder, std::string path) const;

    /// Sorted by parent and name.
    std::vector<Item> items_;
    std::unordered_map<std::uint32_t, std::size_t> byNumber_;
};

} // namespace corvane::HfsPlus
