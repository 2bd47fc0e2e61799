// Real Boms: every one must survive reading and writing, agree with the payload that it describes, and, where
// `pkgbuild --root` made it, be what our writer makes of that payload.

#include "Platform/Formats/Bom/ArchitectureChecksums.hpp"
#include "Platform/Formats/Bom/Reader.hpp"
#include "Platform/Formats/Bom/Writer.hpp"
#include "Platform/Formats/Cpio/Reader.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Reader.hpp"
#include "Platform/Formats/PosixChecksum.hpp"
#include "Platform/Formats/Xar/Archive.hpp"
#include "Platform/Formats/Xar/DataReader.hpp"
#include "Tests/TestSupport.hpp"

#include <algorithm>
#include <map>

namespace corvane::Bom {
namespace {

constexpr std::size_t anySize = std::size_t{1} << 30;

std::string written(const std::vector<Entry>& entries) {
    Writer writer;
    for (const Entry& entry : entries) writer.add(entry);
    std::string bytes;
    writer.finish([&](std::string_view piece) { bytes += piece; });
    return bytes;
}

std::vector<Entry> listed(const std::string& bytes) {
    Reader reader(bytes);
    std::vector<Entry> entries;
    while (auto entry = reader.next()) entries.push_back(*std::move(entry));
    return entries;
}

/// Numbers are given anew, so the order changes.
std::vector<Entry> byPath(std::vector<Entry> entries) {
    std::sort(entries.begin(), entries.end(),
              [](const Entry& left, const Entry& right) { return left.path < right.path; });
    return entries;
}

std::vector<FileURL> filesBelow(const char* folder) {
    std::vector<FileURL> files;
    for (const auto& each : std::filesystem::recursive_directory_iterator(*TestSupport::samples() / folder)) {
        if (each.is_regular_file()) files.push_back(each.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

TEST(BomSamples, areReadAndWrittenAgain) {
    CORVANE_REQUIRE_SAMPLES();
    std::size_t count = 0;
    for (const FileURL& file : filesBelow("bom")) {
        if (file.filename() == "Assets.car") continue;
        SCOPED_TRACE(file);
        const std::vector<Entry> entries = listed(TestSupport::read(file));
        EXPECT_TRUE(byPath(listed(written(entries))) == byPath(entries));
        ++count;
    }
    EXPECT_GE(count, 38u);
}

TEST(BomSamples, otherStoresAreRefused) {
    CORVANE_REQUIRE_SAMPLES();
    const std::string bytes = TestSupport::read(*TestSupport::samples() / "bom/Assets.car");
    try {
        Reader reader(bytes);
        FAIL() << "no error";
    } catch (const FormatError& error) {
        EXPECT_NE(std::string(error.what()).find("expected a list of paths, found another store with APPEARANCEKEYS"),
                  std::string::npos)
            << error.what();
    }
}

struct Payload {
    std::vector<Cpio::Entry> entries;
    std::map<std::string, std::string> data;
};

Payload readPayload(const Xar::Archive& archive, const Xar::Entry& stored) {
    Payload payload;
    Xar::DataReader source(archive, *stored.data);
    Gzip::Reader inflated(source);
    Cpio::Reader reader(inflated);
    while (auto entry = reader.next()) {
        payload.data[entry->path] = entry->isSymbolicLink() ? entry->linkTarget : readAll(reader, anySize, "cpio");
        payload.entries.push_back(*std::move(entry));
    }
    return payload;
}

struct Component {
    std::string name;
    std::string bom;
    Payload payload;
};

void addComponents(const Xar::Archive& archive, const std::string& name, const std::vector<Xar::Entry>& entries,
                   std::vector<Component>& components) {
    const auto named = [&](const char* wanted) {
        return std::find_if(entries.begin(), entries.end(),
                            [&](const Xar::Entry& each) { return each.name == wanted; });
    };
    const auto bom = named("Bom");
    const auto payload = named("Payload");
    if (bom != entries.end() && payload != entries.end() && payload->data) {
        Xar::DataReader source(archive, *bom->data);
        components.push_back({name, readAll(source, anySize, "bom"), readPayload(archive, *payload)});
    }
    for (const Xar::Entry& each : entries) addComponents(archive, name + "/" + each.name, each.children, components);
}

std::vector<Component> components() {
    std::vector<Component> result;
    for (const FileURL& file : filesBelow("pkg")) {
        if (file.filename() == "xar-empty-toc.pkg") continue;
        const Xar::Archive archive = Xar::Archive::openUnverified(file);
        addComponents(archive, file.stem(), archive.contents().entries, result);
    }
    return result;
}

std::vector<Architecture> architectures(std::string_view file) {
    ArchitectureChecksums checksums(MachO::slices(file.substr(0, MachO::headerSize), file.size()));
    checksums.update(file);
    return checksums.finish();
}

void compareWithPayload(const Entry& entry, const Cpio::Entry& header, std::string_view data, bool hasTimes) {
    SCOPED_TRACE(entry.path);
    // A package that was made of a bundle says nothing of the folder round it.
    if (entry.path == "." && entry.mode == 0) return;
    if (entry.isCompanion) {
        EXPECT_EQ(entry.size + entry.checksum + entry.modificationTime + entry.userID + entry.groupID, 0u);
        return;
    }
    EXPECT_EQ(entry.mode, header.mode);
    EXPECT_EQ(entry.linkTarget, header.linkTarget);
    EXPECT_EQ(entry.modificationTime, hasTimes ? header.modificationTime : 0);
    EXPECT_EQ(entry.userID, header.userID);
    EXPECT_EQ(entry.groupID, header.groupID);
    if (entry.type == EntryType::directory) return;
    EXPECT_EQ(entry.size, data.size());
    EXPECT_EQ(entry.checksum, posixChecksum(data));
    if (entry.type == EntryType::file) {
        EXPECT_TRUE(entry.architectures == architectures(data));
    }
}

TEST(BomSamples, agreeWithTheirPayloads) {
    CORVANE_REQUIRE_SAMPLES();
    std::size_t count = 0;
    for (const Component& component : components()) {
        SCOPED_TRACE(component.name);
        std::map<std::string, Entry> described;
        for (Entry& entry : listed(component.bom)) described.emplace(entry.path, std::move(entry));
        const bool hasTimes = component.name != "foreign-osx-pkg-node/base.pkg"; // its packager writes zeros
        EXPECT_EQ(described.size(), component.payload.entries.size());
        for (const Cpio::Entry& header : component.payload.entries) {
            const auto found = described.find(header.path);
            if (found == described.end()) {
                ADD_FAILURE() << header.path;
                continue;
            }
            compareWithPayload(found->second, header, component.payload.data.at(header.path), hasTimes);
            ++count;
        }
    }
    EXPECT_GT(count, 500u);
}

/// All blocks in the order of their numbers.
std::vector<std::string> blocks(const std::string& bytes) {
    const Store store(bytes);
    std::vector<std::string> result;
    for (std::uint32_t number = 1; number < store.blockCount(); ++number) {
        ByteCursor block = store.block(number);
        result.emplace_back(block.bytes(block.remaining()));
    }
    return result;
}

/// Our Bom of the same entries in the payload's order.
std::string rewritten(const Component& component) {
    std::map<std::string, Entry> described;
    for (Entry& entry : listed(component.bom)) described.emplace(entry.path, std::move(entry));
    std::vector<Entry> entries;
    for (const Cpio::Entry& header : component.payload.entries) entries.push_back(described.at(header.path));
    return written(entries);
}

/// How much of a real Bom our writer must give again. Blocks 1 to 10 are the totals and the trees, then three follow
/// for each path, then those of the index of links.
enum class Likeness { everything, allButLinks, none };

Likeness likeness(const std::string& name) {
    static const std::map<std::string, Likeness> others{
        // Current systems; before macOS 15 the index of links was left empty.
        {"arcade-nestedpkg-component", Likeness::everything},
        {"arcade-simple-component", Likeness::everything},
        {"arcade-simple-product/Simple.pkg", Likeness::everything},
        {"arcade-test-product/NestedPkg.pkg", Likeness::everything},
        {"karabiner-vhid-7.3.0-stapled-2026", Likeness::everything},
        // Made of a bundle: other numbers, another root.
        {"arcade-withapp-component", Likeness::none},
        {"arcade-withapp-product/WithApp.pkg", Likeness::none},
        {"moz-example-product/example.pkg", Likeness::none},
        {"relic-dummy-product/com.sas.dummy.pkg", Likeness::none},
        // Other packagers: short records, no totals, another order.
        {"ch34x-install-1.3-appcert/mykextdir.pkg", Likeness::none},
        {"ch34x-install-1.5-appcert/mykextdir.pkg", Likeness::none},
        {"foreign-osx-pkg-node/base.pkg", Likeness::none},
        {"intune-dock-empty-payload/dock.pkg", Likeness::none},
        {"packages-imported-raw", Likeness::none},
        // Numbers its companions in an order of its own.
        {"karabiner-vhid-0.90.22-stapled-2020", Likeness::none}};
    const auto found = others.find(name);
    return found == others.end() ? Likeness::allButLinks : found->second;
}

TEST(BomSamples, areWrittenBlockByBlock) {
    CORVANE_REQUIRE_SAMPLES();
    std::map<Likeness, int> counts;
    for (const Component& component : components()) {
        SCOPED_TRACE(component.name);
        const Likeness wanted = likeness(component.name);
        ++counts[wanted];
        if (wanted == Likeness::none) continue;
        std::vector<std::string> real = blocks(component.bom);
        std::vector<std::string> ours = blocks(rewritten(component));
        if (wanted == Likeness::allButLinks) {
            for (auto* each : {&real, &ours}) {
                each->resize(10 + 3 * component.payload.entries.size());
                each->at(3).clear();
                each->at(4).clear();
            }
        }
        EXPECT_TRUE(real == ours);
    }
    EXPECT_EQ(counts[Likeness::everything], 5);
    EXPECT_GE(counts[Likeness::allButLinks], 15);
}

} // namespace
} // namespace corvane::Bom
