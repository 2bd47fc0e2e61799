#include "Tests/Platform/Formats/HfsPlus/TestFeatures.hpp"

#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"
#include "Tests/Platform/Formats/CompressedFile/TestCompression.hpp"

namespace corvane::TestSupport {

std::string testText(std::size_t size) {
    std::string result;
    for (std::size_t line = 0; result.size() < size; ++line) result += "line " + std::to_string(line) + "\n";
    return result.substr(0, size);
}

TestItem compressedItem(std::uint32_t kind, const std::string& plain) {
    TestCompression stored = testCompression(kind, plain);
    TestItem item{.resourceFork = std::move(stored.resourceFork), .ownerFlags = 0x20};
    item.attributes["com.apple.decmpfs"] = std::move(stored.attribute);
    return item;
}

namespace {

void addFiles(TestFeatures& made) {
    made.add("empty", {});
    made.add("scattered", {.data = testText(31 * 4096 - 5), .resourceFork = testText(40000), .extents = 31});
    made.add("owned",
             {.mode = 0106755, .data = "set-id", .owner = 99, .group = 98, .modified = 0xFFFFFFFF - 2082844800});
    made.add("no mode", {.mode = 0}, {.mode = 0100644});
    made.add("a:b", {.data = "slash"});
    made.add("e\xCC\x81t\xC3\xA6 \xE6\xBC\xA2 \xF0\x9F\x8D\x8E", {.data = "names"});
    made.add("to file", {.mode = 0120755, .data = "Many/file 7"});
    made.add("to root", {.mode = 0120777, .data = "/Applications"});
    for (int index = 0; index < 400; ++index) {
        made.add("Many/file " + std::to_string(index), {.data = std::to_string(index)});
    }
    made.add("to nothing", {.mode = 0120755, .data = "../no/where", .attributes = {{"of a link", "yes"}}});
    made.add("Sticky", {.mode = 041777});
    made.add("Closed/inner", {.data = "inner"});
    for (const std::uint32_t kind : {3U, 4U, 7U, 8U, 9U, 10U, 11U, 12U}) {
        const std::string plain = testText(kind % 2 == 0 ? 100'000 : 500);
        made.add("Compressed/" + std::to_string(kind), compressedItem(kind, plain), {.data = plain});
    }
}

void addAttributes(TestFeatures& made) {
    TestItem item{.data = "data", .resourceFork = "fork", .extents = 20};
    item.attributes = {{"inline", "value"},
                       {"empty", ""},
                       {"odd", "abc"},
                       {"own fork", testText(9000)},
                       {"further extents", testText(200'000)},
                       {"name \xE6\xBC\xA2", "n"}};
    TestItem seen = item;
    item.attributes["com.apple.system.Security"] = "hidden";
    // The bytes that are the file system's own are zeroed.
    item.finderInfo = "TEXTttxt12345678" + std::string(8, 'x') + "abcdyyyy";
    seen.attributes[ExtendedAttributes::finderInfo] =
        "TEXTttxt12345678" + std::string(8, '\0') + "abcd" + std::string(4, '\0');
    made.add("attributes", item, seen);
    TestItem folder{.mode = 040755};
    folder.attributes["of a folder"] = "yes";
    made.add(".", folder);
    folder.mode = 040555;
    made.add("Closed", folder);
}

/// Several names have one number; all show the same item.
void addLinks(TestFeatures& made) {
    TestItem file{.data = testText(5000), .resourceFork = "fork"};
    file.attributes["shared"] = "yes";
    made.add("Links/file", file);
    made.add("Links/second", {.linkOf = "Links/file"}, file);
    made.add("third", {.linkOf = "Links/file"}, file);
    made.add("Links/Folder", {.mode = 040750});
    made.add("Links/Folder/below", {.data = "below"});
    made.add("Other", {.linkOf = "Links/Folder"}, {.mode = 040750});
    made.plain["Other/below"] = {.data = "below"};
}

} // namespace

TestFeatures everyFeature() {
    TestFeatures made;
    addFiles(made);
    addAttributes(made);
    addLinks(made);
    for (const char* folder : {"Many", "Links", "Compressed"}) made.plain.emplace(folder, TestItem{.mode = 040755});
    return made;
}

} // namespace corvane::TestSupport
