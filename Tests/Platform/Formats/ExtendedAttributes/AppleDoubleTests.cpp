#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"
#include "Platform/Formats/FormatError.hpp"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace corvane {
namespace {

using namespace std::string_literals;
using Attributes = std::map<std::string, std::string>;

const std::string finderInfo = "TEXTexam" + std::string(24, '\0');

std::string numbers(std::initializer_list<std::uint64_t> values) {
    std::string bytes;
    for (const std::uint64_t value : values) appendBigEndian(bytes, value, 4);
    return bytes;
}

/// A file of entries: number, offset and length.
std::string file(const std::vector<std::array<std::uint64_t, 3>>& entries, const std::string& content) {
    std::string bytes = "\x00\x05\x16\x07\x00\x02\x00\x00"s + std::string(16, ' ');
    appendBigEndian(bytes, entries.size(), 2);
    for (const auto& [id, offset, length] : entries) bytes += numbers({id, offset, length});
    return bytes + content;
}

/// An entry of an attribute at an offset.
std::string attribute(std::uint64_t offset, std::uint64_t length, const std::string& name) {
    std::string bytes = numbers({offset, length}) + "\0\0"s;
    appendBigEndian(bytes, name.size() + 1, 1);
    bytes += name + '\0';
    return bytes.append((4 - bytes.size() % 4) % 4, '\0');
}

/// Finder information, which begins at 38, and attributes behind it.
std::string withAttributes(std::uint64_t count, const std::string& entriesAndValues) {
    std::string content = std::string(34, '\0') + "ATTR" + std::string(28, '\0') + "\0\0"s;
    appendBigEndian(content, count, 2);
    content += entriesAndValues;
    return file({{9, 38, content.size()}}, content);
}

std::string blankFork() {
    std::string fork = numbers({256, 256, 0, 30}) + "This resource fork intentionally left blank   ";
    return fork.append(256 - fork.size(), '\0') + numbers({256, 256, 0, 30, 0}) + std::string(10, '\xff');
}

TEST(AppleDouble, isWrittenAsAMacWritesIt) {
    const AppleDouble both{{{"com.example.b", "xyz"},
                            {"com.example.a", ""},
                            {"com.apple.FinderInfo", finderInfo},
                            {"com.apple.ResourceFork", "fork"}}};
    const std::string expected = file({{9, 50, 129}, {2, 179, 4}}, "").substr(0, 8) + "Mac OS X        " +
                                 file({{9, 50, 129}, {2, 179, 4}}, "").substr(24) + finderInfo + "\0\0ATTR"s +
                                 numbers({0, 179, 176, 3, 0, 0, 0, 2}) + attribute(176, 0, "com.example.a") +
                                 attribute(176, 3, "com.example.b") + "xyzfork";
    EXPECT_EQ(both.serialized(), expected);
    EXPECT_EQ(AppleDouble::parse(expected).attributes, both.attributes);
}

TEST(AppleDouble, readsWhatOthersWrite) {
    const struct {
        const char* name;
        std::string bytes;
        Attributes attributes;
    } cases[] = {
        {"no entries", file({}, ""), {}},
        {"other entries", file({{3, 38, 4}}, "name"), {}},
        {"no attributes", file({{9, 38, 32}}, finderInfo), {{"com.apple.FinderInfo", finderInfo}}},
        {"fork first",
         file({{2, 82, 4}, {9, 50, 32}}, finderInfo + "fork"),
         {{"com.apple.FinderInfo", finderInfo}, {"com.apple.ResourceFork", "fork"}}},
        {"attributes of zero Finder information",
         withAttributes(1, attribute(136, 4, "com.example.note") + "text"),
         {{"com.example.note", "text"}}},
        {"blank fork", file({{2, 38, 286}}, blankFork()), {}},
        {"empty parts", file({{2, 50, 0}, {9, 50, 0}}, ""), {}},
        {"other bytes behind the Finder information",
         file({{9, 38, 100}}, finderInfo + std::string(68, 'A')),
         {{"com.apple.FinderInfo", finderInfo}}},
    };
    for (const auto& each : cases) EXPECT_EQ(AppleDouble::parse(each.bytes).attributes, each.attributes) << each.name;
}

TEST(AppleDouble, refusesBrokenFiles) {
    const std::string name = "com.example.note";
    std::string unterminated = attribute(136, 4, name);
    unterminated[11 + name.size()] = 'x';
    const struct {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"empty", ""},
        {"version 1", "\x00\x05\x16\x07\x00\x01\x00\x00"s + file({}, "").substr(8)},
        {"entries cut short", file({{9, 38, 32}}, finderInfo).substr(0, 30)},
        {"content cut short", file({{9, 38, 32}}, finderInfo.substr(1))},
        {"offset without bounds", file({{2, 0xFFFFFFFF, 0xFFFFFFFF}}, "")},
        {"Finder information too short", file({{9, 38, 31}}, finderInfo)},
        {"twice the same entry", file({{2, 62, 4}, {2, 62, 4}}, "fork")},
        {"attribute behind the end", withAttributes(1, attribute(137, 4, name) + "text")},
        {"more attributes than there are", withAttributes(2, attribute(136, 4, name) + "text")},
        {"name not ended", withAttributes(1, unterminated + "text")},
        {"no name", withAttributes(1, attribute(120, 4, "") + "text")},
        {"twice the same name", withAttributes(2, attribute(164, 0, name) + attribute(164, 0, name))},
        {"Finder information as attribute", withAttributes(1, attribute(108, 4, "com.apple.FinderInfo") + "text")},
        {"values that overlap", withAttributes(2, attribute(38, 80, "a") + attribute(38, 80, "b"))},
    };
    for (const auto& each : cases) EXPECT_THROW(AppleDouble::parse(each.bytes), FormatError) << each.name;
    for (const auto& [key, value] :
         {std::pair("com.apple.FinderInfo"s, "short"s), {""s, "x"s}, {std::string(255, 'n'), "x"s}}) {
        EXPECT_THROW((AppleDouble{{{key, value}}}.serialized()), FormatError) << key;
    }
}

} // namespace
} // namespace corvane
