#pragma once

#include "Tests/Platform/Formats/HfsPlus/TestVolume.hpp"

namespace corvane::TestSupport {

/// Lines of text, cut at a size.
std::string testText(std::size_t size);
/// A file that is kept compressed in one of the kinds 3, 4 and 7 to 12.
TestItem compressedItem(std::uint32_t kind, const std::string& plain);

/// What a volume is made of, and how it is to appear: without links to other names, nothing compressed.
struct TestFeatures {
    TestTree stored;
    TestTree plain;

    void add(const std::string& path, const TestItem& item) { stored[path] = plain[path] = item; }
    void add(const std::string& path, const TestItem& item, const TestItem& seen) {
        stored[path] = item;
        plain[path] = seen;
    }
};

/// A tree with everything that a volume can hold.
TestFeatures everyFeature();

} // namespace corvane::TestSupport
