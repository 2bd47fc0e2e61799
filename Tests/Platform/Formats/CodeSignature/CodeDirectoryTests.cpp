#include "Tests/Platform/Formats/CodeSignature/TestCode.hpp"

#include <gtest/gtest.h>

namespace corvane::CodeSignature {
namespace {

using namespace TestSupport;

const std::string code(40000, 'c');

CodeDirectories directories(const SignatureShape& shape) {
    Components components;
    for (const auto& [slot, bytes] : signatureComponents(code, shape)) components.add(slot, bytes);
    return CodeDirectories::of(components);
}

TEST(CodeDirectory, hasTheDigestsOfPagesAndComponents) {
    const struct {
        HashType type;
        DigestKind kind;
        std::size_t size;
        std::uint32_t pageSize, pages;
    } cases[] = {
        {HashType::sha1, DigestKind::sha1, 20, 4096, 10},
        {HashType::sha256, DigestKind::sha256, 32, 16384, 3},
        {HashType::sha256Truncated, DigestKind::sha256, 20, 4096, 10},
        {HashType::sha384, DigestKind::sha384, 48, 0, 1},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(static_cast<int>(each.type));
        const CodeDirectory found = directories({.identifier = "a.b",
                                                 .team = "TEAM123456",
                                                 .hashes = {each.type},
                                                 .flags = 0x10000,
                                                 .pageSize = each.pageSize,
                                                 .runtime = 0x000E0203,
                                                 .infoPropertyList = "info",
                                                 .entitlementsDER = "entitlements"})
                                        .best();
        EXPECT_EQ(found.identifier(), "a.b");
        EXPECT_EQ(found.teamIdentifier(), "TEAM123456");
        EXPECT_EQ(found.flags(), 0x10002U);
        EXPECT_EQ(found.runtimeVersion(), "14.2.3");
        EXPECT_EQ(found.codeLimit(), code.size());
        EXPECT_EQ(found.hashSize(), each.size);
        EXPECT_EQ(found.cdhash(), digest(each.kind, found.blob()).substr(0, 20));
        ASSERT_EQ(found.codeSlotCount(), each.pages);
        EXPECT_EQ(found.pageSize(), each.pageSize);
        const std::size_t last = each.pageSize * (each.pages - 1);
        EXPECT_EQ(found.codeSlot(each.pages - 1), digest(each.kind, code.substr(last)).substr(0, each.size));
        EXPECT_TRUE(found.matches(Slot::infoPropertyList, "info"));
        EXPECT_FALSE(found.matches(Slot::infoPropertyList, "inf0"));
        EXPECT_TRUE(found.matches(Slot::entitlementsDER, blob(0xFADE7172, "entitlements")));
        // Slot 2 is there and zero, 8 is not there, 0 is none.
        for (const Slot slot : {Slot::requirements, Slot::launchConstraintSelf, Slot::codeDirectory, Slot::signature}) {
            EXPECT_FALSE(found.specialSlot(slot) || found.matches(slot, ""));
        }
    }
}

TEST(CodeDirectories, goByTheStrongest) {
    const auto all =
        directories({.hashes = {HashType::sha384, HashType::sha1, HashType::sha256Truncated, HashType::sha256}});
    EXPECT_EQ(all.best().hashType(), HashType::sha384);
    EXPECT_EQ(all.cdhashes(), (std::vector<std::string>{all.all[1].cdhash(), all.all[2].cdhash(), all.all[3].cdhash(),
                                                        all.all[0].cdhash()}));
    EXPECT_THROW(directories({.hashes = {HashType::sha256, HashType::sha256}}), FormatError);
    EXPECT_THROW(CodeDirectories::of({}), FormatError);
}

TEST(CodeDirectory, isRefusedWhenItContradictsItself) {
    const std::string good = directories({.team = "T", .requirements = "rules"}).best().blob();
    const auto with = [&](std::size_t at, std::uint64_t value, int size = 4) {
        std::string bytes = good;
        return bytes.replace(at, static_cast<std::size_t>(size), bigEndian(value, size));
    };
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_THROW(CodeDirectory::parse(good.substr(0, size)), FormatError) << size;
    }
    const struct {
        const char* name;
        std::string bytes;
        bool isUnsupported = false;
    } cases[] = {
        {"other magic", with(0, 0xFADE0C01)},
        {"more bytes than it says", good + "x"},
        {"fewer bytes than its digests", blob(0xFADE0C02, good.substr(8, good.size() - 9))},
        {"version too old", with(8, 0x20000), true},
        {"version too new", with(8, 0x2F001), true},
        {"unknown digest", with(37, 5, 1), true},
        {"scattered code", with(44, 100), true},
        {"digests in the fields", with(16, 96)},
        {"digests past the end", with(16, 0xFFFFFFFF)},
        {"more special digests than there is room for", with(24, 0x08000000)},
        {"identifier in the header", with(20, 4)},
        {"identifier past the end", with(20, 0xFFFFFFFF)},
        {"identifier without an end", with(20, good.size() - 1)},
        {"team past the end", with(48, good.size())},
        {"fewer digests than pages", with(28, 9)},
        {"more digests than pages", with(28, 11)},
        {"more digests than a number can count", with(28, 0xFFFFFFFF)},
        {"more code than pages", with(32, 40961)},
        {"wide limit beyond the pages", with(56, ~std::uint64_t{0}, 8)},
        {"digests of another size", with(36, 20, 1)},
        {"digests of no size", with(36, 0, 1)},
        {"pages too large", with(39, 64, 1)},
        {"one page where there are digests of ten", with(39, 0, 1)},
    };
    for (const auto& each : cases) {
        if (each.isUnsupported) {
            EXPECT_THROW(CodeDirectory::parse(each.bytes), UnsupportedVersion) << each.name;
        } else {
            EXPECT_THROW(CodeDirectory::parse(each.bytes), FormatError) << each.name;
        }
    }
    EXPECT_EQ(CodeDirectory::parse(with(8, 0x20001)).teamIdentifier(), std::nullopt);
}

} // namespace
} // namespace corvane::CodeSignature
