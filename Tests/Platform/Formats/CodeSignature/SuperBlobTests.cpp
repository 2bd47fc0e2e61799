#include "Platform/Formats/CodeSignature/SuperBlob.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Tests/Platform/Formats/CodeSignature/TestCode.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane::CodeSignature {
namespace {

using namespace TestSupport;

std::string directoryOf(const Components& components) {
    const std::string* found = components.find(Slot::codeDirectory);
    return found == nullptr ? "" : *found;
}

/// An index and what it leads to.
std::string blobs(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& index, const std::string& content) {
    std::string bytes = bigEndian(index.size());
    for (const auto& [type, offset] : index) bytes += bigEndian(type) + bigEndian(offset);
    return blob(0xFADE0CC0, bytes + content);
}

TEST(SuperBlob, isTakenApart) {
    const SignatureShape shape{.hashes = {HashType::sha1, HashType::sha256}, .requirements = blob(0xFADE0C01, "rules")};
    auto parts = signatureComponents("code", shape);
    parts[Slot::signature] = "message";
    auto withOthers = parts;
    withOthers[static_cast<Slot>(0x2000)] = blob(0xFADE7777, "of tomorrow");
    const Components found = readSuperBlob(superBlob(withOthers) + std::string(9, '\0'));
    for (const auto& [slot, bytes] : parts) {
        const std::string* component = found.find(slot);
        ASSERT_NE(component, nullptr) << static_cast<std::uint32_t>(slot);
        EXPECT_EQ(*component, bytes) << static_cast<std::uint32_t>(slot);
    }
    EXPECT_EQ(found.find(static_cast<Slot>(0x2000)), nullptr);
    EXPECT_FALSE(readSuperBlob(blobs({}, "")).isSigned());
}

TEST(SuperBlob, isRefusedWhenItContradictsItself) {
    const std::string part = blob(0xFADE0C02, "content");
    ASSERT_EQ(directoryOf(readSuperBlob(blobs({{0, 20}}, part))), part);
    const struct {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"empty", ""},
        {"other magic", blob(0xFADE0CC1, bigEndian(0))},
        {"longer than its bytes", blobs({{0, 20}}, part).substr(0, 30)},
        {"shorter than its header", bigEndian(0xFADE0CC0) + bigEndian(7) + bigEndian(0)},
        {"bytes behind it", blobs({{0, 20}}, part) + "x"},
        {"index past the end", blob(0xFADE0CC0, bigEndian(2) + bigEndian(0) + bigEndian(20))},
        {"more blobs than types", blob(0xFADE0CC0, bigEndian(0xFFFFFFFF))},
        {"blob in the index", blobs({{0, 8}}, part)},
        {"blob past the end", blobs({{0, 200}}, part)},
        {"blob that passes the end", blobs({{0, 20}}, bigEndian(0xFADE0C02) + bigEndian(9))},
        {"blob shorter than its header", blobs({{0, 20}}, bigEndian(0xFADE0C02) + bigEndian(4))},
        {"same type twice", blobs({{0, 28}, {0, 28}}, part)},
        {"blobs that share bytes", blobs({{0, 36}, {2, 36}, {5, 36}}, blob(0xFADE0C02, std::string(90, 'x')))},
        {"message without a wrapper", blobs({{0x10000, 20}}, part)},
    };
    for (const auto& each : cases) EXPECT_THROW(readSuperBlob(each.bytes), FormatError) << each.name;
}

TEST(SignatureParts, standAsFilesAndAttributesToo) {
    const Sandbox sandbox;
    const SignatureShape shape{.hashes = {HashType::sha1, HashType::sha256}, .requirements = blob(0xFADE0C01, "rules")};
    const auto parts = signatureComponents("code", shape);
    const FileURL folder = sandbox / "_CodeSignature";
    const FileURL file = sandbox.write("script", "code");
    EXPECT_FALSE(Components::ofFolder(folder).isSigned() || Components::ofAttributes(file).isSigned());
    for (const auto& [slot, bytes] : parts) {
        sandbox.write("_CodeSignature/" + componentName(slot), bytes);
        ExtendedAttributes::set(file, "com.apple.cs." + componentName(slot), bytes);
    }
    sandbox.write("_CodeSignature/CodeResources", "a file of the bundle");
    for (const Components& found : {Components::ofFolder(folder), Components::ofAttributes(file)}) {
        for (const auto& [slot, bytes] : parts) {
            ASSERT_NE(found.find(slot), nullptr) << componentName(slot);
            EXPECT_EQ(*found.find(slot), bytes);
        }
        EXPECT_EQ(found.find(Slot::resourceDirectory), nullptr);
    }
    std::filesystem::remove(folder / "CodeSignature");
    std::filesystem::create_directory(folder / "CodeSignature");
    EXPECT_THROW(Components::ofFolder(folder), FormatError);
}

} // namespace
} // namespace corvane::CodeSignature
