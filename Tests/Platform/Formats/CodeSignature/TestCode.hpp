#pragma once

#include "Platform/Formats/CodeSignature/CodeDirectory.hpp"
#include "Support/PropertyList.hpp"
#include "Tests/Platform/Trust/TestAuthority.hpp"

#include <functional>
#include <map>
#include <string>
#include <vector>

/// Signed code of a test's own, written apart from the code that is tested.
namespace corvane::TestSupport {

/// A processor's numbers. They decide on the layout of its slice: 32 or 64 bit, PowerPC with the high byte first.
struct Architecture {
    std::uint32_t cpuType = 0x01000007;
    std::uint32_t cpuSubtype = 3;
};
constexpr Architecture i386{7, 3}, x86_64{0x01000007, 3}, arm64{0x0100000C, 0}, arm64e{0x0100000C, 0x80000002},
    ppc{18, 0}, ppc64{0x01000012, 0};

/// A Mach-O file. Several architectures make a fat one.
struct CodeShape {
    std::vector<Architecture> architectures = {x86_64, arm64};
    /// Bytes of __TEXT behind its first 1024, which hold the load commands; no two pages are alike.
    std::size_t fillerSize = 9000;
    /// The section __info_plist; none when empty.
    std::string infoPropertyList = {};
    bool isSigned = true;
};

using HashType = CodeSignature::CodeDirectory::HashType;

/// How code is signed.
struct SignatureShape {
    std::string identifier = "test.code";
    std::string team = {};
    /// Null for an ad hoc signature.
    const Issued* signer = nullptr;
    std::vector<Certificate> issuers = {};
    /// A directory each, weaker digests first; the first stands in slot 0.
    std::vector<HashType> hashes = {HashType::sha256};
    /// The flag for an ad hoc signature is added where it belongs.
    std::uint32_t flags = 0;
    /// 0 for one page.
    std::uint32_t pageSize = 4096;
    /// 0x000e0200 is 14.2.0.
    std::uint32_t runtime = 0;
    /// Files outside the signature; a slot each, unless empty. What is in the section __info_plist counts where the
    /// first is empty.
    std::string infoPropertyList = {}, resourceDirectory = {};
    /// The set of requirements, a blob with its header.
    std::string requirements = {};
    /// Without headers.
    std::string entitlements = {}, entitlementsDER = {};
    const Issued* stamper = nullptr;
    Time stampedAt = present;
    /// Whether signed attributes name the directories' digests. Those of several values are not sorted as DER has it.
    bool namesDigests = true;
    /// May change the message before it is signed.
    std::function<void(MessageShape&)> editMessage = {};
};

/// By `World::application`, whose chain leads to the root in the place of Apple's.
SignatureShape developerSignature();
/// By `World::adminApplication`: for programs, to which a test can only tell an administrator's root.
SignatureShape administratorSignature();

/// 4 bytes of kind, 4 of length, and the content.
std::string blob(std::uint32_t magic, const std::string& content);
/// Highest byte first.
std::string bigEndian(std::uint64_t value, int size = 4);

/// The signature of some code in parts: blobs with their headers, the CMS bare and, for an ad hoc signature, empty.
std::map<CodeSignature::Slot, std::string> signatureComponents(const std::string& code, const SignatureShape& shape);
/// The parts as a slice ends with them.
std::string superBlob(const std::map<CodeSignature::Slot, std::string>& components);

/// What was signed, and the cdhash of each slice's last directory: what it would be notarized by.
struct SignedCode {
    std::string bytes;
    std::vector<std::string> cdhashes;
};
SignedCode machO(const CodeShape& code = {}, const SignatureShape& signature = {});

/// A bundle, and how it is signed; its code has the signature's identifier and is found under `name`.
struct BundleShape {
    std::string name = "Test";
    /// Without architectures the executable is a script, whose signature stands in _CodeSignature.
    CodeShape code = {};
    SignatureShape signature = {};
    /// Joins the usual keys of Info.plist.
    PropertyList::Dictionary info = {};
    /// Whether an application has Frameworks/Test.framework, with versions and links, and the tool MacOS/helper. They
    /// are signed alike.
    bool hasFramework = true, hasHelper = true;
    /// May put more into the application's Contents before they are sealed.
    std::function<void(const FileURL& contents)> prepare = {};
    /// May change the application's CodeResources before they are signed.
    std::function<void(PropertyList::Dictionary& sealed)> editSeal = {};
};

/// Makes an application from the inside out; the folder is the bundle, "Test.app". Besides the code there are
/// Resources/a.txt, Resources/en.lproj/text.strings and Resources/link, which leads to the first.
/// Returns the cdhashes of all code in it.
std::vector<std::string> makeApplication(const FileURL& folder, const BundleShape& shape = {});
/// Makes a framework alike, "Test.framework".
std::vector<std::string> makeFramework(const FileURL& folder, const BundleShape& shape = {});
/// Makes a tool.
std::vector<std::string> makeTool(const FileURL& file, const CodeShape& code = {},
                                  const SignatureShape& signature = {});

/// Seals what stands in a resource root, writes _CodeSignature/CodeResources, and the executable with a signature over
/// it all.
/// @param executable path in the root
/// @param nested the cdhashes of nested code by path in the root
/// @return the executable's cdhashes
std::vector<std::string> signFolder(const FileURL& root, const FileURL& infoPropertyList, const std::string& executable,
                                    const BundleShape& shape,
                                    const std::map<std::string, std::vector<std::string>>& nested = {});

} // namespace corvane::TestSupport
