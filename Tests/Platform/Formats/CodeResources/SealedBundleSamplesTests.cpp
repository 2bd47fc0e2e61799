// Real signed bundles: what their rules find is what their lists seal.

#include "Platform/Formats/CodeBundle/BundleLayout.hpp"
#include "Platform/Formats/CodeResources/ResourceScan.hpp"
#include "Platform/Formats/CodeResources/SealedResources.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane::CodeResources {
namespace {

using TestSupport::Sandbox;
namespace fs = std::filesystem;

bool isArchive(const FileURL& url) {
    const std::string extension = url.extension();
    return extension == ".zip" || extension == ".gz" || extension == ".tgz";
}

std::vector<BundleLayout> sealedBundlesBelow(const FileURL& folder) {
    std::vector<BundleLayout> layouts;
    for (const auto& each : fs::recursive_directory_iterator(folder)) {
        if (!each.is_directory() || each.is_symlink()) continue;
        const bool isPart = each.path().filename() == "Contents" || each.path().parent_path().filename() == "Versions";
        const auto layout = isPart ? std::nullopt : BundleLayout::of(each.path());
        if (layout && FileManager::fileExists(layout->sealedResourcesURL())) layouts.push_back(*layout);
    }
    return layouts;
}

void expectAgrees(const FoundResource& found, const Seal& seal, const FileURL& root) {
    const FileURL url = root / found.path;
    EXPECT_EQ(found.kind == FoundResource::Kind::link, seal.kind == Seal::Kind::link) << url;
    if (seal.kind == Seal::Kind::link) {
        EXPECT_EQ(FileManager::linkTarget(url), seal.linkTarget) << url;
    } else if (seal.kind == Seal::Kind::file) {
        ASSERT_EQ(found.kind, FoundResource::Kind::file) << url;
        const std::string bytes = TestSupport::read(url);
        EXPECT_EQ(found.size, bytes.size());
        for (const auto& [kind, sealed] : seal.digests) {
            EXPECT_EQ(digest(kind, bytes).substr(0, sealed.size()), sealed) << url;
        }
    }
}

void expectSealHolds(const BundleLayout& layout) {
    const FileURL list = layout.sealedResourcesURL();
    SealedResources sealed = SealedResources::parse(TestSupport::read(list), list.string());
    const FileURL& root = layout.resourceRoot;
    if (layout.executable) sealed.rules.exclude(layout.executable->lexically_relative(root));
    EXPECT_EQ(layout.structuralProblem(), "");
    EXPECT_FALSE(layout.signatureFolderHoldsOthers());
    EXPECT_FALSE(sealed.version == 2 && sealed.rules.areWeak(2));
    for (const auto& [path, seal] : sealed.files) EXPECT_TRUE(isSealed(sealed.rules, path)) << path;
    auto leftover = sealed.files;
    for (const FoundResource& found : scan(root, sealed.rules)) {
        const auto seal = leftover.find(found.path);
        if (seal == leftover.end()) {
            ADD_FAILURE() << "added: " << found.path;
            continue;
        }
        expectAgrees(found, seal->second, root);
        leftover.erase(seal);
    }
    for (const auto& [path, seal] : leftover) EXPECT_TRUE(seal.isOptional) << "missing: " << path;
}

TEST(SealedBundleSamples, holdWhatIsSealed) {
    CORVANE_REQUIRE_SAMPLES();
    std::size_t count = 0;
    for (const char* folder : {"app", "sig"}) {
        for (const auto& archive : fs::directory_iterator(*TestSupport::samples() / folder)) {
            if (!isArchive(archive.path())) continue;
            const Sandbox sandbox;
            ASSERT_EQ(TestSupport::run({"bsdtar", "-xf", archive.path(), "-C", sandbox.url()}).status, 0);
            for (const BundleLayout& layout : sealedBundlesBelow(sandbox.url())) {
                SCOPED_TRACE(archive.path().filename().string() + ": " +
                             layout.root.lexically_relative(sandbox.url()).string());
                expectSealHolds(layout);
                ++count;
            }
        }
    }
    EXPECT_EQ(count, 31u);
}

} // namespace
} // namespace corvane::CodeResources
