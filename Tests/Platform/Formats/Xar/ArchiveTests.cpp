#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Formats/Xar/DataReader.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/Xar/ArchiveBuilder.hpp"

#include <algorithm>

namespace corvane::Xar {
namespace {

using TestArchive::errorOf;
using TestSupport::Sandbox;

TEST(XarArchive, readsEveryRealArchive) {
    CORVANE_REQUIRE_SAMPLES();
    for (const FileURL& url : FileManager::contentsOfDirectory(*TestSupport::samples() / "pkg")) {
        SCOPED_TRACE(url);
        const Archive archive = Archive::open(url);
        archive.contents().visit([&](const std::string& path, const Entry& entry) {
            if (!entry.data) return;
            DataReader reader(archive, *entry.data);
            EXPECT_EQ(readAll(reader, std::size_t{1} << 30, "test").size(), entry.data->size) << path;
        });
    }
}

TEST(XarArchive, findsTheSignaturesAndTheTicketBehindTheHeap) {
    CORVANE_REQUIRE_SAMPLES();
    const FileURL folder = *TestSupport::samples() / "pkg";
    const Archive stapled = Archive::open(folder / "karabiner-vhid-1.17.0-stapled.pkg");
    const auto& signatures = stapled.contents().signatures;
    ASSERT_EQ(signatures.size(), 2U);
    EXPECT_EQ(signatures[0].style, "RSA");
    EXPECT_EQ(signatures[0].stored, (HeapRange{20, 256}));
    EXPECT_EQ(signatures[1].style, "CMS");
    EXPECT_EQ(signatures[1].stored, (HeapRange{276, 9216}));
    EXPECT_EQ(signatures[1].certificates.size(), 3U);
    EXPECT_EQ(signatures[1].certificates[0].substr(0, 2), "\x30\x82");
    EXPECT_EQ(stapled.contents().reservedSize(), 9492U);
    EXPECT_EQ(stapled.fileSize() - stapled.trailerOffset(), 1810U);
    const Archive unstapled = Archive::open(folder / "karabiner-vhid-1.17.0-unstapled.pkg");
    EXPECT_EQ(unstapled.fileSize(), unstapled.trailerOffset());
}

TEST(XarArchive, modelsWhatTheXMLSays) {
    const Sandbox sandbox;
    const std::string xml = TestArchive::contents(
        "<x-signature style='CMS'><offset>20</offset><size>3</size><KeyInfo xmlns='urn:k'><X509Data>"
        "<X509Certificate>AQI\nD</X509Certificate></X509Data></KeyInfo></x-signature><future/>"
        "<file id='7'><type>directory</type><name>d</name><name>d</name><mode>040755</mode>"
        "<file id='8'><name enctype='base64'>YQFi</name><type link='original'>hardlink</type><uid>-2</uid><gid>80</gid>"
        "<mtime>2024-02-29T12:00:01Z</mtime></file>"
        "<file id='9'><name>h</name><type link='8'>hardlink</type><mtime>1900-99</mtime></file>"
        "<file><name>s</name><type>symlink</type><link type='broken'> ../x</link>"
        "<ea id='0'><name>com.example</name><offset>21</offset><length>2</length></ea></file></file>");
    const Archive archive = Archive::open(sandbox.write("a.xar", TestArchive::bytes(xml, "abcdef")));
    const TableOfContents& contents = archive.contents();
    EXPECT_EQ(contents.signatures.at(0).certificates.at(0), "\x01\x02\x03");
    const Entry& folder = contents.entries.at(0);
    EXPECT_EQ(folder.mode, 0755U);
    ASSERT_EQ(folder.children.size(), 3U);
    EXPECT_EQ(folder.children[0].name, "a\x01"
                                       "b");
    EXPECT_EQ(folder.children[0].type, EntryType::file);
    EXPECT_EQ(folder.children[0].modificationTime, 1709208001);
    EXPECT_EQ(folder.children[0].userID, std::nullopt);
    EXPECT_EQ(folder.children[0].groupID, 80U);
    EXPECT_EQ(folder.children[1].type, EntryType::hardLink);
    EXPECT_EQ(folder.children[1].originalID, 8U);
    EXPECT_EQ(folder.children[1].modificationTime, std::nullopt);
    EXPECT_EQ(contents.find("d/s")->linkTarget, " ../x");
    EXPECT_EQ(contents.find("d/s/t"), nullptr);
    EXPECT_EQ(contents.find("e"), nullptr);
    EXPECT_EQ(contents.reservedSize(), 23U);
    EXPECT_EQ(archive.fileSize() - archive.trailerOffset(), 3U);
}

TEST(XarArchive, refusesContradictoryContents) {
    struct Case {
        std::string elements;
        std::string problem;
    };
    const auto file = [](const std::string& inner) { return "<file id='1'>" + inner + "</file>"; };
    const auto data = [&](const std::string& inner) { return file("<name>a</name><data>" + inner + "</data>"); };
    const std::string deep = [] {
        std::string text;
        for (int level = 0; level < 20; ++level)
            text += "<file><type>directory</type><name>" + std::string(240, 'n') + "</name>";
        for (int level = 0; level < 20; ++level) text += "</file>";
        return text;
    }();
    const std::vector<Case> cases{
        {file(""), "element \"name\""},
        {file("<name></name>"), "found \"\""},
        {file("<name>.</name>"), "found \".\""},
        {file("<name>..</name>"), "found \"..\""},
        {file("<name>a/b</name>"), "found \"a/b\""},
        {file("<name enctype='base64'>YQBi</name>"), "the name of a file"},
        {file("<name enctype='base64'>Y!</name>"), "base 64"},
        {file("<name>" + std::string(256, 'n') + "</name>"), "255 bytes"},
        {deep, "shorter path"},
        {file("<name>a</name><name>b</name>"), "one name"},
        {file("<name>a</name>") + file("<name>a</name>"), "twice"},
        {file("<name>a</name><type>door</type>"), "\"door\""},
        {file("<name>a</name><mode>0689</mode>"), "octal"},
        {file("<name>a</name>" + file("<name>b</name>")), "no folder"},
        {file("<name>a</name><type>directory</type><data><offset>0</offset><length>0</length><size>0</size></data>"),
         "no file"},
        {file("<name>a</name><type link='x'>hardlink</type>"), "decimal"},
        {data("<offset>0</offset><size>0</size>"), "\"length\""},
        {data("<offset>-1</offset><length>0</length><size>0</size>"), "\"-1\""},
        {data("<offset>0</offset><length>18446744073709551616</length><size>0</size>"), "64 bits"},
        {data("<offset>0</offset><length>25</length><size>25</size>"), "heap of 24 bytes"},
        {data("<offset>18446744073709551615</offset><length>2</length><size>2</size>"), "heap of 24 bytes"},
        {data("<offset>0</offset><length>2</length><size>3</size>"), "equal sizes"},
        {data("<offset>0</offset><length>2</length><size>2</size><encoding style='x-new'/>"), "\"x-new\""},
        {data(
             "<offset>0</offset><length>2</length><size>2</size><archived-checksum style='crc'>00</archived-checksum>"),
         "\"crc\""},
        {data("<offset>0</offset><length>2</length><size>2</size><archived-checksum "
              "style='sha1'>00</archived-checksum>"),
         "40 digits"},
        {"<signature style='RSA'><offset>20</offset><size>5</size></signature>", "heap of 24 bytes"},
        {"<signature "
         "style='RSA'><offset>20</offset><size>4</size><KeyInfo><X509Data><X509Certificate>?</X509Certificate>"
         "</X509Data></KeyInfo></signature>",
         "certificate"},
        {TestArchive::checksumElement, "two checksums"},
    };
    const Sandbox sandbox;
    for (const Case& each : cases) {
        const FileURL url = sandbox.write("a.xar", TestArchive::bytes(TestArchive::contents(each.elements), "heap"));
        const std::string message = errorOf([&] { Archive::open(url); });
        EXPECT_NE(message.find(each.problem), std::string::npos) << each.elements << "\n" << message;
    }
}

/// Puts a number into the header, big-endian.
std::string patched(std::string bytes, std::size_t offset, std::size_t size, std::uint64_t value) {
    for (std::size_t index = 0; index < size; ++index) {
        bytes[offset + index] = static_cast<char>((value >> (8 * (size - 1 - index))) & 255);
    }
    return bytes;
}

TEST(XarArchive, refusesADamagedHeader) {
    const std::string sound = TestArchive::bytes(TestArchive::contents(""), "");
    struct Case {
        std::string bytes;
        std::string problem;
    };
    const std::vector<Case> cases{
        {"", "expected 4 more bytes"},
        {"xar?" + sound.substr(4), "xar: offset 0: expected \"xar!\""},
        {patched(sound, 4, 2, 27), "xar: offset 4: expected a header of at least 28 bytes, found 27"},
        {patched(sound, 4, 2, 60000), "more bytes"},
        {patched(sound, 6, 2, 2), "xar: offset 6: expected version 1, found 2"},
        {patched(sound, 8, 8, sound.size()), "xar: offset 8"},
        {patched(sound, 8, 8, UINT64_MAX), "xar: offset 8"},
        {patched(sound, 16, 8, UINT64_MAX), "xar: offset 16"},
        {patched(sound, 16, 8, static_cast<unsigned char>(sound[23]) + 1U), "xar: offset 16"},
        {patched(sound, 16, 8, 10), "more bytes"},
        {patched(sound, 24, 4, 9), "unknown checksum algorithm 9"},
        {patched(sound, 24, 4, 2), "different checksum algorithms"},
        {patched(sound, sound.size() - 1, 1, 0xAAU ^ static_cast<unsigned char>(sound.back())),
         "expected the checksum"},
    };
    const Sandbox sandbox;
    for (const Case& each : cases) {
        const FileURL url = sandbox.write("a.xar", each.bytes);
        const std::string message = errorOf([&] { Archive::open(url); });
        EXPECT_NE(message.find(each.problem), std::string::npos) << each.problem << "\n" << message;
    }
    EXPECT_NO_THROW(Archive::openUnverified(sandbox / "a.xar")) << "the checksum is a question of its own";
    EXPECT_NE(errorOf([&] { Archive::open(sandbox.url()); }), "");
    EXPECT_THROW(Archive::open(sandbox / "missing"), FileError);
}

TEST(XarArchive, acceptsEveryChecksumAlgorithm) {
    struct Case {
        DigestKind kind;
        std::uint32_t number;
        std::string name;
    };
    const std::vector<Case> cases{{DigestKind::md5, 2, ""},          {DigestKind::sha256, 3, ""},
                                  {DigestKind::sha256, 3, "sha256"}, {DigestKind::sha512, 3, "sha512"},
                                  {DigestKind::sha512, 4, ""},       {DigestKind::sha1, 1, "ignored"}};
    const Sandbox sandbox;
    for (const Case& each : cases) {
        const std::string size = std::to_string(digestSize(each.kind));
        const std::string xml = "<xar><toc><checksum style='" + std::string(digestName(each.kind)) +
                                "'><offset>1</offset><size>" + size + "</size></checksum></toc></xar>";
        const std::string compressed = Gzip::compressed(xml, Gzip::Framing::zlib, 9);
        std::string name = each.name;
        if (!name.empty()) name.resize(36);
        const Header header{.compressedLength = compressed.size(), .uncompressedLength = xml.size()};
        const std::string start = patched(patched(header.serialized(), 24, 4, each.number), 4, 2, 28 + name.size());
        const std::string bytes = start + name + compressed + "-" + digest(each.kind, compressed);
        EXPECT_NO_THROW(Archive::open(sandbox.write("a.xar", bytes))) << each.number << each.name;
        const FileURL damaged = sandbox.write("b.xar", bytes.substr(0, bytes.size() - 1) + "?");
        EXPECT_NE(errorOf([&] { Archive::open(damaged); }), "") << each.number << each.name;
    }
}

} // namespace
} // namespace corvane::Xar
