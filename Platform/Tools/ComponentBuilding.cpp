#include "Platform/Tools/ComponentBuilding.hpp"

#include "Platform/Formats/Bom/Writer.hpp"
#include "Platform/Formats/Cpio/FolderArchive.hpp"
#include "Platform/Formats/FlatPackage/PayloadBom.hpp"
#include "Platform/Formats/Gzip/Writer.hpp"
#include "Platform/Formats/Pbzx/Writer.hpp"
#include "Platform/Formats/Xar/Writer.hpp"
#include "Support/AtomicFile.hpp"
#include "Support/FileManager.hpp"
#include "Support/SourceDate.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <stdexcept>
#include <vector>

namespace corvane::Tools {
namespace {

using Report = std::function<void(const std::string&)>;

FolderTree readTree(const FileURL& root, const std::stop_token& stop) {
    if (!FileManager::fileExists(root)) {
        throw std::runtime_error("Specified root path \"" + root.string() + "\" does not exist.");
    }
    return {root, stop};
}

std::vector<FlatPackage::BundleComponent> components(const FolderTree& tree, const std::optional<FileURL>& listURL,
                                                     const std::stop_token& stop, const Report& report) {
    if (!listURL) {
        report("Inferring bundle components from contents of " + tree.root().string());
        return FlatPackage::defaultComponents(FlatPackage::findBundles(tree, stop));
    }
    report("Reading components from " + listURL->string());
    const PropertyList::Value list = PropertyList::read(*listURL);
    try {
        return FlatPackage::listedComponents(list, FlatPackage::findBundles(tree, stop));
    } catch (const PropertyList::Error& error) {
        throw PropertyList::Error(listURL->string() + ": " + error.what());
    }
}

class Building {
  public:
    Building(ComponentRequest request, std::stop_token stop, const Report& report)
        : request_(std::move(request)), stop_(std::move(stop)), report_(report) {}

    void run(const FileURL& package) {
        if (request_.root) addPayload(*request_.root);
        if (request_.scripts) addScripts(*request_.scripts);
        add("PackageInfo", FlatPackage::serialized(request_.info), Xar::Encoding::zlib);
        // Like its checksum, the description comes without attributes of a file.
        entries_.back().entry.mode.reset();
        Xar::writeArchive(std::move(entries_), package, static_cast<std::int64_t>(latestTime_.value_or(0)), stop_);
    }

  private:
    void add(const char* name, std::variant<std::monostate, std::string, FileURL, Xar::ArchivedContent> content,
             Xar::Encoding encoding) {
        entries_.push_back({.entry = {.name = name, .mode = 0644},
                            .content = std::move(content),
                            .encoding = encoding,
                            .children = {}});
    }

    void addPayload(const FileURL& root) {
        const FolderTree tree = readTree(root, stop_);
        request_.info.components = components(tree, request_.componentList, stop_, report_);
        for (const FlatPackage::BundleComponent& component : request_.info.components) {
            if (!component.bundle.isNested) report_("Adding component at " + component.bundle.path);
        }
        request_.info.numberOfFiles = tree.entries().size();
        request_.info.installKBytes = tree.installKBytes();
        const auto checksums =
            request_.usesBlocks ? archive<Pbzx::Writer>(tree, "Payload") : archive<Gzip::Writer>(tree, "Payload");
        AtomicFile bom(work_.url() / "Bom");
        FlatPackage::writePayloadBom(tree, checksums, latestTime_, [&](std::string_view bytes) { bom.write(bytes); });
        bom.commit();
        add("Bom", work_.url() / "Bom", Xar::Encoding::zlib);
        add("Payload", work_.url() / "Payload", Xar::Encoding::stored);
    }

    void addScripts(const FileURL& folder) {
        const FolderTree tree(folder, stop_);
        for (const FolderTree::Entry& entry : tree.entries()) {
            bool* known = nullptr;
            if (entry.path == "preinstall") known = &request_.info.hasPreinstall;
            if (entry.path == "postinstall") known = &request_.info.hasPostinstall;
            if (known == nullptr || entry.isDirectory()) continue;
            *known = true;
            report_("Adding top-level " + entry.path + " script");
        }
        archive<Gzip::Writer>(tree, "Scripts");
        add("Scripts", work_.url() / "Scripts", Xar::Encoding::stored);
    }

    template <class Compressor>
    Cpio::FolderChecksums archive(const FolderTree& tree, const char* name) {
        AtomicFile output(work_.url() / name);
        Compressor compressor([&](std::string_view bytes) { output.write(bytes); });
        auto checksums =
            Cpio::archiveFolder(tree, latestTime_, stop_, [&](std::string_view bytes) { compressor.write(bytes); });
        compressor.finish();
        output.commit();
        return checksums;
    }

    ComponentRequest request_;
    std::stop_token stop_;
    const Report& report_;
    TemporaryDirectory work_{"corvane-pkgbuild-"};
    std::optional<std::uint64_t> latestTime_ = sourceDate();
    std::vector<Xar::NewEntry> entries_;
};

} // namespace

void analyzeRoot(const FileURL& root, const FileURL& list, const std::stop_token& stop, const Report& report) {
    const FolderTree tree = readTree(root, stop);
    const auto found = components(tree, std::nullopt, stop, report);
    report("Writing new component property list to " + list.string());
    AtomicFile output(list);
    output.write(PropertyList::serializedXML(FlatPackage::makeComponentList(found)));
    output.commit();
}

void buildComponent(ComponentRequest request, const FileURL& package, const std::stop_token& stop,
                    const Report& report) {
    Building(std::move(request), stop, report).run(package);
}

} // namespace corvane::Tools
