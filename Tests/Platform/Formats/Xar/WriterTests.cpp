#include "Platform/Formats/Xar/DataReader.hpp"
#include "Platform/Formats/Xar/Writer.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/Xar/ArchiveBuilder.hpp"

namespace corvane::Xar {
namespace {

using TestArchive::errorOf;
using TestSupport::Sandbox;

NewEntry folder(const std::string& name, std::vector<NewEntry> children) {
    return {.entry = {.name = name, .type = EntryType::directory, .mode = 0700}, .children = std::move(children)};
}

std::string contentOf(const Archive& archive, const std::string& path) {
    const Entry* entry = archive.contents().find(path);
    if (entry == nullptr || !entry->data) return "no such entry";
    DataReader reader(archive, *entry->data);
    return readAll(reader, std::size_t{1} << 24, "test");
}

/// One of everything that is written: from memory and from a file, stored and compressed, copied, linked.
std::vector<NewEntry> everything(const Sandbox& sandbox, const Archive& other) {
    const FileURL payload = sandbox.write("payload", std::string(300000, 'p'));
    const Entry& copied = *other.contents().find("old");
    return {folder("a.pkg", {{.entry = {.name = "Bom"}, .content = std::string("bom")},
                             {.entry = {.name = "Payload", .mode = 04755, .modificationTime = 86399},
                              .content = payload,
                              .encoding = Encoding::stored},
                             {.entry = {.name = "old"}, .content = ArchivedContent{&other, *copied.data}}}),
            folder("b.pkg", {}),
            {.entry = {.name = " odd\x01"}, .content = payload},
            {.entry = {.name = "link", .type = EntryType::symbolicLink, .linkTarget = "a.pkg/<&>"}},
            {.entry = {.name = "Distribution"}, .content = std::string()}};
}

TEST(XarWriter, writesWhatItsReaderAndOthersRead) {
    const Sandbox sandbox;
    const std::string old = Gzip::compressed("old content", Gzip::Framing::zlib, 1);
    const std::string element = "<file id='3'><name>old</name><data><offset>20</offset><length>" +
                                std::to_string(old.size()) +
                                "</length><size>11</size><encoding style='application/x-gzip'/><archived-checksum "
                                "style='md5'>" +
                                hexadecimal(digest(DigestKind::md5, old)) + "</archived-checksum></data></file>";
    const Archive other =
        Archive::open(sandbox.write("other.xar", TestArchive::bytes(TestArchive::contents(element), old)));
    writeArchive(everything(sandbox, other), sandbox / "new.pkg", 1, {});

    const Archive archive = Archive::open(sandbox / "new.pkg");
    EXPECT_EQ(archive.trailerOffset(), archive.fileSize());
    EXPECT_EQ(archive.document().query("/xar/toc/creation-time").at(0).text(), "1970-01-01T00:00:01");
    std::vector<std::string> names;
    for (const Entry& entry : archive.contents().entries) names.push_back(entry.name);
    EXPECT_EQ(names, (std::vector<std::string>{"Distribution", "link", " odd\x01", "b.pkg", "a.pkg"}));
    EXPECT_EQ(contentOf(archive, "a.pkg/Bom"), "bom");
    EXPECT_EQ(contentOf(archive, "a.pkg/Payload"), std::string(300000, 'p'));
    EXPECT_EQ(contentOf(archive, "a.pkg/old"), "old content");
    EXPECT_EQ(contentOf(archive, " odd\x01"), std::string(300000, 'p'));
    EXPECT_EQ(contentOf(archive, "Distribution"), "");
    const Entry& payload = *archive.contents().find("a.pkg/Payload");
    EXPECT_EQ(payload.mode, 04755U);
    EXPECT_EQ(payload.modificationTime, 86399);
    EXPECT_EQ(payload.id, 3U);
    EXPECT_EQ(payload.data->encoding, Encoding::stored);
    const Entry& copy = *archive.contents().find("a.pkg/old");
    EXPECT_EQ(copy.data->archivedChecksum->kind, DigestKind::md5);
    EXPECT_EQ(archive.heapBytes(copy.data->stored, 100), old) << "copied as it was compressed";
    EXPECT_EQ(archive.contents().find("link")->linkTarget, "a.pkg/<&>");
    const auto outcome = TestSupport::run({"7zz", "t", "-txar", sandbox / "new.pkg"});
    EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;

    writeArchive(everything(sandbox, other), sandbox / "again.pkg", 1, {});
    EXPECT_EQ(TestSupport::read(sandbox / "again.pkg"), TestSupport::read(sandbox / "new.pkg"));
}

TEST(XarWriter, leavesNothingBehindWhenItFails) {
    const Sandbox sandbox;
    const std::string bytes = TestArchive::bytes(TestArchive::contents(TestArchive::storedFile("old", "abc")), "abX");
    const Archive damaged = Archive::open(sandbox.write("damaged.xar", bytes));
    const NewEntry copied{.entry = {.name = "old"},
                          .content = ArchivedContent{&damaged, *damaged.contents().entries.at(0).data}};
    EXPECT_NE(errorOf([&] { writeArchive({copied}, sandbox / "new.pkg", 0, {}); }).find("checksum"), std::string::npos);
    std::stop_source stopped;
    stopped.request_stop();
    const NewEntry file{.entry = {.name = "file"}, .content = std::string("bytes")};
    EXPECT_THROW(writeArchive({file}, sandbox / "new.pkg", 0, stopped.get_token()), CancellationError);
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox.url()).size(), 1U);
}

} // namespace
} // namespace corvane::Xar
