#include "Platform/Formats/Xar/DataReader.hpp"
#include "Tests/Platform/Formats/Xar/ArchiveBuilder.hpp"

namespace corvane::Xar {
namespace {

using TestArchive::errorOf;
using TestSupport::Sandbox;

const std::string content = [] {
    std::string text;
    for (int line = 0; line < 40000; ++line) text += "line " + std::to_string(line) + "\n";
    return text;
}();

Checksum sha1(const std::string& bytes) { return {DigestKind::sha1, digest(DigestKind::sha1, bytes)}; }

/// Reads `data` from an archive whose heap holds the bytes at offset 20.
std::string readBack(const Sandbox& sandbox, const std::string& heap, const Data& data) {
    const Archive archive = Archive::open(sandbox.write("a.xar", TestArchive::bytes(TestArchive::contents(""), heap)));
    DataReader reader(archive, data);
    return readAll(reader, std::size_t{1} << 24, "test");
}

std::string piped(const std::vector<std::string>& command) {
    return TestSupport::run(command, {.input = content}).output;
}

TEST(XarDataReader, decodesWhatOtherProgramsCompressed) {
    struct Case {
        Encoding encoding;
        std::string stored;
    };
    const std::vector<Case> cases{{Encoding::stored, content},
                                  {Encoding::zlib, Gzip::compressed(content, Gzip::Framing::zlib, 6)},
                                  {Encoding::zlib, piped({"gzip", "-c"})},
                                  {Encoding::bzip2, piped({"bzip2", "-c"})},
                                  {Encoding::lzma, piped({"xz", "-c", "--format=lzma"})},
                                  {Encoding::xz, piped({"xz", "-c"})}};
    const Sandbox sandbox;
    for (const Case& each : cases) {
        const Data data{.stored = {20, each.stored.size()},
                        .size = content.size(),
                        .encoding = each.encoding,
                        .archivedChecksum = sha1(each.stored),
                        .extractedChecksum = Checksum{DigestKind::md5, digest(DigestKind::md5, content)}};
        EXPECT_EQ(readBack(sandbox, each.stored + "next", data), content);
        if (each.encoding == Encoding::stored) continue;
        // Cut off, or followed by more: both are found without any checksum but the codec's own.
        Data bare = data;
        bare.archivedChecksum = bare.extractedChecksum = std::nullopt;
        EXPECT_EQ(readBack(sandbox, each.stored + "next", bare), content);
        bare.stored.length -= 1;
        EXPECT_NE(errorOf([&] { readBack(sandbox, each.stored, bare); }), "");
        bare.stored.length += 2;
        EXPECT_NE(errorOf([&] { readBack(sandbox, each.stored + "next", bare); }), "");
    }
}

TEST(XarDataReader, comparesSizesAndChecksums) {
    const std::string stored = Gzip::compressed(content, Gzip::Framing::zlib, 6);
    const Data sound{.stored = {20, stored.size()},
                     .size = content.size(),
                     .encoding = Encoding::zlib,
                     .archivedChecksum = sha1(stored),
                     .extractedChecksum = sha1(content)};
    const Data plain{.stored = {20, stored.size()}, .size = stored.size(), .archivedChecksum = sha1(stored)};
    struct Case {
        const char* name;
        Data data;
        std::string problem;
    };
    std::vector<Case> cases{{"sound", sound, ""},
                            {"archived", sound, "stored data: expected the checksum"},
                            {"extracted", sound, "extracted data: expected the checksum"},
                            {"larger", sound, "extracted data: expected 1 more bytes"},
                            {"smaller", sound, "found more bytes"},
                            {"plain", plain, ""},
                            {"plain, two equal", plain, ""},
                            {"plain, two different", plain, "extracted data: expected the checksum"},
                            {"plain, extracted only", plain, "stored data: expected the checksum"}};
    cases[1].data.archivedChecksum->value[0] ^= 1;
    cases[2].data.extractedChecksum->value[19] ^= 1;
    cases[3].data.size += 1;
    cases[4].data.size -= 1;
    cases[6].data.extractedChecksum = sha1(stored);
    cases[7].data.extractedChecksum = sha1(content);
    cases[8].data.extractedChecksum = sha1(content);
    cases[8].data.archivedChecksum.reset();
    const Sandbox sandbox;
    for (const Case& each : cases) {
        const std::string message = errorOf([&] { readBack(sandbox, stored, each.data); });
        EXPECT_EQ(message.empty(), each.problem.empty()) << each.name << message;
        EXPECT_NE(message.find(each.problem), std::string::npos) << each.name << message;
    }
    EXPECT_EQ(readBack(sandbox, "", {.stored = {20, 0}, .size = 0, .encoding = Encoding::zlib}), "");
}

} // namespace
} // namespace corvane::Xar
