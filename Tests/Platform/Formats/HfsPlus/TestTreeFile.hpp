#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::TestSupport {

/// A record of a leaf: the key without its length, and what belongs to it.
struct TestRecord {
    std::string key;
    std::string value;
};

/// How a tree says what it is.
struct TestTreeKind {
    std::uint16_t longestKey;
    std::uint8_t comparison = 0;
    bool hasVariableKeys = true;
};

/// The bytes of a B-tree file of such records, which are in order.
std::string testTreeFile(const std::vector<TestRecord>& records, const TestTreeKind& kind, std::size_t nodeSize);

} // namespace corvane::TestSupport
