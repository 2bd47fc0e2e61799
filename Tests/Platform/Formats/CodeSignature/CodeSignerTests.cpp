#include "Platform/Formats/CodeSignature/CodeSigner.hpp"
#include "Platform/Formats/CodeSignature/SuperBlob.hpp"
#include "Platform/Formats/MachO/Image.hpp"
#include "Platform/Formats/NotarizationTicket/NotarizationTicket.hpp"
#include "Support/UniqueDescriptor.hpp"
#include "Tests/Platform/Formats/CodeSignature/TestCode.hpp"
#include "Tests/TestSupport.hpp"

#include <fcntl.h>

#include <algorithm>
#include <set>

namespace corvane::CodeSignature {
namespace {

using namespace TestSupport;

const World& world() { return World::shared(); }

SignatureShape by(const Issued& signer, const std::vector<Certificate>& issuers = {}, const Issued* stamper = nullptr,
                  Time stampedAt = present) {
    return {.signer = &signer, .issuers = issuers, .stamper = stamper, .stampedAt = stampedAt};
}

struct Signed {
    std::string message;
    CodeDirectories directories;
};

Signed made(const SignatureShape& shape) {
    Components components;
    for (const auto& [slot, bytes] : signatureComponents("code", shape)) components.add(slot, bytes);
    return {*components.find(Slot::signature), CodeDirectories::of(components)};
}

CodeSigner verified(const Signed& code) { return CodeSigner::verify(code.message, code.directories, world().trust()); }

TEST(CodeSigner, isJudgedAtTheTimestampThatCounts) {
    const std::vector<Certificate> authority{world().developerAuthority.certificate};
    const Issued root = issue({"Own Root", authorityExtensions()});
    const Issued leaf = issue({"Own Leaf", leafExtensions("codeSigning"), -1000, -100}, &root);
    const Issued stamper = issue({"Own Stamper", leafExtensions("timeStamping")}, &root);
    const Issued self = issue({"Self-Made", leafExtensions("codeSigning")});
    const Issued unmarked = issue({"Other Use", leafExtensions("emailProtection")}, &root);
    const std::vector<Certificate> own{root.certificate};
    const Issued* const admin = &world().adminStamper;
    constexpr auto apple = AnchorOwner::apple, administrator = AnchorOwner::administrator, nobody = AnchorOwner::nobody;
    const struct {
        const char* name;
        SignatureShape shape;
        AnchorOwner owner;
        bool isRooted, expired, isStamped, hasTimestampProblem;
        std::size_t certificates;
    } cases[] = {
        {"developer", by(world().application, authority), apple, true, false, false, false, 3},
        {"stamped", by(world().application, authority, &world().stamper, day(-5)), apple, true, false, true, false, 3},
        {"stamped by another", by(world().application, authority, admin), apple, true, false, false, true, 3},
        {"stamped by a root that travels", by(world().application, {authority[0], root.certificate}, &stamper), apple,
         true, false, false, true, 3},
        {"expired", by(world().expiredApplication, authority), apple, true, true, false, false, 3},
        {"stamped before it expired", by(world().expiredApplication, authority, &world().stamper, day(-200)), apple,
         true, false, true, false, 3},
        {"stamped by another before it expired", by(world().expiredApplication, authority, admin, day(-200)), apple,
         true, true, false, true, 3},
        {"stamped after it expired", by(world().expiredApplication, authority, &world().stamper, day(-50)), apple, true,
         true, true, false, 3},
        {"authority not carried", by(world().application), nobody, false, false, false, false, 1},
        {"administrator's", by(world().adminApplication, {}, admin), administrator, true, false, true, false, 2},
        {"root that travels", by(leaf, own), nobody, true, true, false, false, 2},
        {"root that travels, stamped below it", by(leaf, own, &stamper, day(-200)), nobody, true, false, true, false,
         2},
        {"root left at home", by(leaf), nobody, false, false, false, false, 1},
        {"self-made", by(self), nobody, true, false, false, false, 1},
        {"of another use", by(unmarked, own), nobody, false, false, false, false, 2},
        {"installer's", by(world().installer, authority), nobody, false, false, false, false, 3},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const CodeSigner signer = verified(made(each.shape));
        EXPECT_EQ(signer.leaf(), each.shape.signer->certificate);
        EXPECT_EQ(signer.chain.owner, each.owner);
        EXPECT_EQ(signer.isRooted(), each.isRooted) << signer.chain.problem;
        EXPECT_EQ(signer.chain.expired, each.expired);
        EXPECT_EQ(signer.timestamp, each.isStamped ? std::optional(each.shape.stampedAt) : std::nullopt);
        EXPECT_EQ(!signer.timestampProblem.empty(), each.hasTimestampProblem) << signer.timestampProblem;
        EXPECT_EQ(signer.certificates().size(), each.certificates);
    }
}

TEST(CodeSigner, tellsWhenItClaimsToHaveSigned) {
    // Behind 2049 times are written in another form.
    for (const Time time : {day(-3), day(10000)}) {
        SignatureShape shape = developerSignature();
        shape.editMessage = [&](MessageShape& message) { message.signingTime = time; };
        EXPECT_EQ(verified(made(shape)).signingTime, time);
    }
}

TEST(CodeSigner, speaksForAllDirectories) {
    SignatureShape shape = developerSignature();
    shape.hashes = {HashType::sha1, HashType::sha256, HashType::sha384};
    const Signed good = made(shape);
    EXPECT_NO_THROW(verified(good));
    const auto edited = [&](std::function<void(MessageShape&)> edit) {
        SignatureShape other = shape;
        other.editMessage = std::move(edit);
        return made(other);
    };
    SignatureShape stranger = shape;
    stranger.identifier = "test.other";
    const Signed others = made(stranger);
    // One directory of another signature among those of this, at each place.
    for (std::size_t index = 0; index < 3; ++index) {
        Signed mixed = good;
        mixed.directories.all[index] = others.directories.all[index];
        EXPECT_THROW(verified(mixed), FormatError) << index;
    }
    EXPECT_NO_THROW(
        verified(edited([](MessageShape& message) { message.attributes.erase(message.attributes.begin()); })));
    EXPECT_NO_THROW(verified(edited([](MessageShape& message) { message.attributes.pop_back(); })));
    const auto attribute = [](std::size_t index, const std::string& value) {
        return [=](MessageShape& message) { message.attributes[index].second = value; };
    };
    const std::string list = PropertyList::serializedXML({PropertyList::Dictionary{}});
    const struct {
        const char* name;
        Signed code;
    } cases[] = {
        {"none named", edited([](MessageShape& message) { message.attributes.clear(); })},
        {"list of nothing", edited(attribute(1, "\x04\x81" + bigEndian(list.size(), 1) + list))},
        {"list that is none", edited(attribute(1, "\x04\x04none"))},
        {"digest too few", edited([](MessageShape& message) {
             message.attributes[0].second.erase(0, 2 + static_cast<std::size_t>(message.attributes[0].second[1]));
         })},
        {"digest too many", edited([](MessageShape& message) {
             std::string& values = message.attributes[0].second;
             values += values.substr(0, 2 + static_cast<std::size_t>(values[1]));
         })},
        {"digest under another name", edited([](MessageShape& message) {
             std::string& values = message.attributes[0].second;
             values[values.find("\x60\x86\x48") + 8] = '\x03';
         })},
        {"content in the message", edited([](MessageShape& message) { message.detached = false; })},
        {"stamp over other bytes", edited([](MessageShape& message) {
             message.stamper = &world().stamper;
             message.stampsOtherBytes = true;
         })},
        {"message of other code", {others.message, good.directories}},
        {"empty message", {"", good.directories}},
    };
    for (const auto& each : cases) EXPECT_THROW(verified(each.code), FormatError) << each.name;
}

/// The applications of the samples, unpacked, and loose signed files.
class SignedSamples : public ::testing::Test {
  protected:
    void unpack(const FileURL& archive) {
        const FileURL folder = sandbox / archive.filename().string();
        std::filesystem::create_directory(folder);
        const bool isZip = archive.extension() == ".zip";
        const std::vector<std::string> command =
            isZip ? std::vector<std::string>{"unzip", "-q", archive.string(), "-d", folder.string()}
                  : std::vector<std::string>{"tar", "-xf", archive.string(), "-C", folder.string()};
        EXPECT_EQ(run(command).status, 0) << archive;
    }

    void checkSlice(const std::string& file, const FileURL& url, int descriptor, const MachO::Slice& slice) {
        const auto image = MachO::Image::read(descriptor, url, slice);
        if (!image.signature) return;
        ++slices;
        const std::string_view bytes = std::string_view(file).substr(slice.offset, slice.size);
        const Components components = readSuperBlob(bytes.substr(image.signature->offset, image.signature->size));
        const CodeDirectories directories = CodeDirectories::of(components);
        for (const CodeDirectory& directory : directories.all) {
            EXPECT_EQ(directory.codeLimit(), image.signature->offset);
            checkPages(directory, bytes);
            for (const Slot slot : {Slot::requirements, Slot::entitlements, Slot::entitlementsDER}) {
                const std::string* component = components.find(slot);
                EXPECT_EQ(directory.specialSlot(slot).has_value(), component != nullptr);
                EXPECT_EQ(component != nullptr && directory.matches(slot, *component), component != nullptr);
            }
        }
        for (const std::string& hash : directories.cdhashes()) cdhashes.insert(hash);
        best.push_back({url, directories.best().cdhash()});
        const std::string* message = components.find(Slot::signature);
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(message->empty(), directories.best().isAdhoc());
        if (message->empty()) return;
        ++messages;
        const CodeSigner signer = CodeSigner::verify(
            *message, directories, {.extraRoots = {}, .now = present, .appleRoots = AppleRoots::pinned()});
        EXPECT_EQ(signer.chain.owner, AnchorOwner::apple) << signer.chain.problem;
        EXPECT_TRUE(signer.timestampProblem.empty()) << signer.timestampProblem;
        EXPECT_NE(signer.timestamp.has_value(), signer.chain.expired);
    }

    static void checkPages(const CodeDirectory& directory, std::string_view bytes) {
        for (std::uint32_t index = 0; index < directory.codeSlotCount(); ++index) {
            const std::string_view page =
                bytes.substr(0, directory.codeLimit()).substr(index * directory.pageSize(), directory.pageSize());
            EXPECT_EQ(digest(directory.digestKind(), page), directory.codeSlot(index)) << index;
        }
    }

    void checkCode(const FileURL& url) {
        SCOPED_TRACE(url);
        const std::string file = read(url);
        const UniqueDescriptor descriptor(::open(url.c_str(), O_RDONLY | O_CLOEXEC));
        const auto found = MachO::slices(std::string_view(file).substr(0, MachO::headerSize), file.size());
        EXPECT_TRUE(found.empty() || MachO::isTightlyPacked(descriptor.get(), url));
        for (const MachO::Slice& slice : found) checkSlice(file, url, descriptor.get(), slice);
    }

    /// Sealed nested code, and what the ticket of a bundle names.
    void checkNames(const FileURL& url) {
        SCOPED_TRACE(url);
        if (url.parent_path().filename() != "_CodeSignature") {
            const auto ticket = NotarizationTicket::parse(read(url));
            for (const auto& [code, cdhash] : best) {
                if (!code.string().starts_with(url.parent_path().string() + '/')) continue;
                EXPECT_TRUE(ticket.names(NotarizationTicket::HashType::sha256, cdhash)) << code;
                ++notarized;
            }
            return;
        }
        const auto list = PropertyList::read(url);
        const auto* files = list.find("files2");
        if (files == nullptr) return;
        for (const auto& [path, seal] : *files->get<PropertyList::Dictionary>()) {
            const auto* cdhash = seal.find("cdhash");
            if (cdhash == nullptr) continue;
            EXPECT_TRUE(cdhashes.contains(cdhash->get<PropertyList::Data>()->bytes)) << path;
            ++nested;
        }
    }

    Sandbox sandbox;
    std::set<std::string> cdhashes;
    std::vector<std::pair<FileURL, std::string>> best;
    int slices = 0, messages = 0, nested = 0, notarized = 0;
};

TEST_F(SignedSamples, areWhatTheirSignaturesSay) {
    CORVANE_REQUIRE_SAMPLES();
    for (const char* folder : {"app", "sig"}) {
        for (const auto& each : std::filesystem::directory_iterator(*samples() / folder)) {
            const std::string extension = each.path().extension().string();
            if (extension == ".zip" || extension == ".gz" || extension == ".tgz") unpack(each.path());
            if (extension.empty()) checkCode(each.path());
        }
    }
    std::vector<FileURL> lists;
    for (const auto& each : std::filesystem::recursive_directory_iterator(sandbox.url())) {
        if (each.is_symlink() || !each.is_regular_file()) continue;
        if (each.path().filename() == "CodeResources")
            lists.push_back(each.path());
        else
            checkCode(each.path());
    }
    for (const FileURL& list : lists) checkNames(list);
    EXPECT_GE(slices, 58);
    EXPECT_GE(messages, 35);
    EXPECT_GE(nested, 10);
    EXPECT_GE(notarized, 8);
}

} // namespace
} // namespace corvane::CodeSignature
