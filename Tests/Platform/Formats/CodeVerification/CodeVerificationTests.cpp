#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Formats/CodeVerification/CodeVerification.hpp"
#include "Platform/Formats/ExtendedAttributes/AppleDouble.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/CodeSignature/TestCode.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>

namespace corvane::CodeSignature {
namespace {

using namespace TestSupport;
using Change = std::function<void(const FileURL& application)>;

const World& world() { return World::shared(); }

const FileURL executable = "Contents/MacOS/Test";
const FileURL sealedResources = "Contents/_CodeSignature/CodeResources";
const FileURL framework = "Contents/Frameworks/Test.framework";

CodeVerification verify(const FileURL& path, bool isStrict = true) {
    return CodeVerification::of(path, {.isDeep = true, .isStrict = isStrict}, {world().trust(), {}});
}

Change write(const FileURL& file, const std::string& content) {
    return [=](const FileURL& application) { FileManager::writeFile(application / file, content); };
}
Change removal(const FileURL& file) {
    return [=](const FileURL& application) { FileManager::removeItem(application / file); };
}
Change edit(const FileURL& file, const std::function<void(std::string&)>& change) {
    return [=](const FileURL& application) {
        std::string bytes = read(application / file);
        change(bytes);
        FileManager::writeFile(application / file, bytes);
    };
}
Change append(const FileURL& file, const std::string& more) {
    return edit(file, [=](std::string& bytes) { bytes += more; });
}
Change flip(const FileURL& file, const std::string& before, std::size_t occurrence = 0, std::size_t distance = 0) {
    return edit(file, [=](std::string& bytes) {
        std::size_t at = bytes.find(before);
        for (std::size_t index = 0; index < occurrence; ++index) at = bytes.find(before, at + 1);
        ASSERT_NE(at, std::string::npos);
        bytes.at(at + distance) ^= 1;
    });
}
/// Changes a byte of a slice, counted from its start.
Change flipInSlice(const FileURL& file, std::size_t slice, std::size_t offset) {
    return edit(file, [=](std::string& bytes) {
        bytes.at(MachO::slices(bytes.substr(0, MachO::headerSize), bytes.size()).at(slice).offset + offset) ^= 1;
    });
}
Change link(const FileURL& file, const FileURL& target) {
    return [=](const FileURL& application) {
        std::filesystem::remove_all(application / file);
        std::filesystem::create_symlink(target, application / file);
    };
}
Change pipe(const FileURL& file) {
    return [=](const FileURL& application) {
        std::filesystem::remove(application / file);
        ASSERT_EQ(::mkfifo((application / file).c_str(), 0600), 0);
    };
}
Change attribute(const FileURL& file, const char* name, const std::string& value) {
    return [=](const FileURL& application) { ExtendedAttributes::set(application / file, name, value); };
}
Change tool(const FileURL& file, const CodeShape& code, const SignatureShape& signature) {
    return [=](const FileURL& application) { makeTool(application / file, code, signature); };
}

/// An application with more things in it than usual: code in a script, links that are allowed.
BundleShape richShape(const SignatureShape& signature) {
    return {.signature = signature, .prepare = [](const FileURL& contents) {
                std::filesystem::create_symlink("../Frameworks/Test.framework/Test", contents / "Resources/inner");
                std::filesystem::create_symlink("/System/Library/x", contents / "Resources/system");
            }};
}

SignatureShape stamped(SignatureShape shape, const Issued& stamper, Time time) {
    shape.stamper = &stamper;
    shape.stampedAt = time;
    return shape;
}

SignatureShape fullSignature() {
    SignatureShape shape = stamped(developerSignature(), world().stamper, day(-10));
    shape.hashes = {HashType::sha1, HashType::sha256};
    shape.entitlements = "<plist><dict><key>a</key><true/></dict></plist>";
    shape.entitlementsDER = "der";
    shape.requirements = blob(0xfade0c01, bigEndian(0));
    return shape;
}

struct Finding {
    std::string problem{}, subcomponent{}, architecture{}, notes{};
    bool operator==(const Finding&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Finding& finding) {
    return stream << finding.problem << " | " << finding.subcomponent << " | " << finding.architecture << " | "
                  << finding.notes;
}

Finding finding(const CodeVerification& verification, const FileURL& application) {
    if (!verification.failure) return {"good"};
    const CodeFailure& failure = *verification.failure;
    Finding found{.problem = failure.problem, .architecture = failure.architecture};
    if (!failure.subcomponent.empty()) found.subcomponent = failure.subcomponent.lexically_relative(application);
    for (const FileNote& note : failure.notes) {
        const std::string text = note.text();
        const std::string path = application.string() + "/";
        found.notes += text.substr(0, text.find(path)) + text.substr(text.find(path) + path.size()) + ";";
    }
    return found;
}

TEST(CodeVerification, findsWhatWasChanged) {
    namespace Problem = CodeProblem;
    const SignatureShape adhoc;
    const std::string helper = "Contents/MacOS/helper";
    const FileURL inner = framework / "Versions/A/Test";
    const std::string finderInfo(32, 'f');
    const struct {
        const char* name;
        Change change;
        Finding expected;
        /// The same without a strict look; empty when it makes no difference.
        std::string notStrict{};
    } cases[] = {
        {"nothing", [](const FileURL&) {}, {"good"}},
        {"page of the first slice", flipInSlice(executable, 0, 5000), {Problem::signatureFailed, "", "x86_64", ""}},
        {"page of the second slice", flipInSlice(executable, 1, 5000), {Problem::signatureFailed, "", "arm64", ""}},
        {"last page of the second slice",
         flipInSlice(executable, 1, 10000),
         {Problem::signatureFailed, "", "arm64", ""}},
        {"Info.plist", append("Contents/Info.plist", "\n"), {Problem::infoPropertyListFailed, "", "x86_64", ""}},
        {"Info.plist lost", removal("Contents/Info.plist"), {Problem::infoPropertyListFailed, "", "x86_64", ""}},
        {"resource changed",
         write("Contents/Resources/a.txt", "b"),
         {Problem::resourceFailed, "", "", "file modified: Contents/Resources/a.txt;"}},
        {"resource cut",
         write("Contents/Resources/a.txt", ""),
         {Problem::resourceFailed, "", "", "file modified: Contents/Resources/a.txt;"}},
        {"resource lost, another added, link changed",
         [](const FileURL& application) {
             removal("Contents/Resources/a.txt")(application);
             write("Contents/b.txt", "b")(application);
             link("Contents/Resources/link", "/etc/passwd")(application);
         },
         {Problem::resourceFailed, "", "",
          "file modified: Contents/Resources/link;file added: Contents/b.txt;file missing: Contents/Resources/a.txt;"}},
        {"localisation lost", removal("Contents/Resources/en.lproj"), {"good"}},
        {"localisation changed",
         write("Contents/Resources/en.lproj/text.strings", "other"),
         {Problem::resourceFailed, "", "", "file modified: Contents/Resources/en.lproj/text.strings;"}},
        {"file becomes a link",
         link("Contents/Resources/a.txt", "en.lproj/text.strings"),
         {Problem::resourceFailed, "", "", "file modified: Contents/Resources/a.txt;"}},
        {"link becomes a file",
         [](const FileURL& application) {
             removal("Contents/Resources/link")(application);
             write("Contents/Resources/link", "a")(application);
         },
         {Problem::resourceFailed, "", "", "file modified: Contents/Resources/link;"}},
        {"list of resources", append(sealedResources, " "), {Problem::resourceDirectoryFailed}},
        {"list of resources lost", removal(sealedResources), {Problem::resourcesNotFound}},
        {"pipe in the place of the list of resources", pipe(sealedResources), {Problem::resourcesNotFound}},
        {"framework's resource",
         append(framework / "Versions/A/Resources/Info.plist", " "),
         {Problem::infoPropertyListFailed, framework, "x86_64", ""}},
        {"framework's page", flipInSlice(inner, 1, 5000), {Problem::signatureFailed, framework, "arm64", ""}},
        {"framework's list of resources",
         append(framework / "Versions/A/_CodeSignature/CodeResources", " "),
         {Problem::resourceDirectoryFailed, framework}},
        {"file in a framework",
         write(framework / "Versions/A/Resources/b", "b"),
         {Problem::resourceFailed, framework, "", "file added: " + (framework / "Versions/A/Resources/b;").string()}},
        {"framework lost, with what a link leads to",
         removal(framework),
         {Problem::badLink, "", "",
          "file modified: Contents/Resources/inner;file missing: " + framework.string() + ";"},
         Problem::resourceFailed},
        {"other code in the helper's place",
         tool(helper, {}, adhoc),
         {Problem::nestedCodeFailed, "", "", "file modified: " + helper + ";"}},
        {"unsigned helper", tool(helper, {.isSigned = false}, {}), {Problem::notSigned, helper, "x86_64", ""}},
        {"text in the helper's place", write(helper, "text"), {Problem::notSigned, helper, "", ""}},
        {"nested code added",
         tool("Contents/PlugIns/b.bundle/x", {}, adhoc),
         {Problem::resourceFailed, "", "", "file added: Contents/PlugIns/b.bundle;"}},
        {"identifier", flip(executable, "test.code"), {Problem::signatureFailed, "", "x86_64", ""}},
        {"identifier in the second directory",
         flip(executable, "test.code", 1),
         {Problem::signatureFailed, "", "x86_64", ""}},
        {"entitlements", flip(executable, "<key>a</key>", 0, 5), {Problem::signatureFailed, "", "x86_64", ""}},
        {"requirements", flip(executable, "\xfa\xde\x0c\x01", 0, 11), {Problem::signatureFailed, "", "x86_64", ""}},
        {"slices that only a linker signed", tool(executable, {}, adhoc), {Problem::resourcesNotFound}},
        {"unsigned slices", tool(executable, {.isSigned = false}, {}), {Problem::notSigned, "", "x86_64", ""}},
        {"signature cut",
         edit(executable, [](std::string& bytes) { bytes.resize(bytes.size() - 600); }),
         {Problem::signatureInvalid}},
        {"bytes behind the code", append(executable, "more"), {Problem::badExecutable}, "good"},
        {"file beside Contents", write("b.txt", ""), {Problem::unsealedRoot}, "good"},
        {"what the Finder leaves beside Contents", write(".DS_Store", "x"), {"good"}},
        {"file in the signature's folder", write("Contents/_CodeSignature/b", ""), {Problem::unsealedRoot}, "good"},
        {"file in the framework's root",
         write(framework / "b", ""),
         {Problem::unsealedFrameworkRoot, framework},
         "good"},
        {"another version of the framework",
         [](const FileURL& application) {
             std::filesystem::copy(application / framework / "Versions/A", application / framework / "Versions/B",
                                   std::filesystem::copy_options::recursive);
             append(framework / "Versions/B/Test", "x")(application);
         },
         {Problem::badFrameworkVersion, framework},
         "good"},
        {"main executable is a link",
         [](const FileURL& application) {
             std::filesystem::rename(application / executable, application.parent_path() / "elsewhere");
             link(executable, application.parent_path() / "elsewhere")(application);
         },
         {Problem::notPlainFile},
         "good"},
        {"Finder information on a resource",
         attribute("Contents/Resources/a.txt", ExtendedAttributes::finderInfo, finderInfo),
         {Problem::detritus, "", "",
          "file with invalid attached data: Disallowed xattr com.apple.FinderInfo found on Contents/Resources/a.txt;"},
         "good"},
        {"resource fork on the executable",
         attribute(executable, ExtendedAttributes::resourceFork, std::string(9000, 'r')),
         {Problem::detritus, "", "",
          "file with invalid attached data: Disallowed xattr com.apple.ResourceFork found on Contents/MacOS/Test;"},
         "good"},
        {"Finder information on a folder",
         attribute("Contents/Resources", ExtendedAttributes::finderInfo, finderInfo),
         {"good"}},
        {"Finder information of zeros",
         attribute("Contents/Resources/a.txt", ExtendedAttributes::finderInfo, std::string(32, '\0')),
         {"good"}},
        {"quarantine",
         attribute("Contents/Resources/a.txt", ExtendedAttributes::quarantine, std::string(9000, 'q')),
         {"good"}},
        {"companion of nothing",
         write("Contents/Resources/._b", AppleDouble{{{"a", "b"}}}.serialized()),
         {Problem::resourceFailed, "", "", "file added: Contents/Resources/._b;"}},
        {"companion that is none",
         write("Contents/Resources/._a.txt", "text"),
         {Problem::resourceFailed, "", "", "file added: Contents/Resources/._a.txt;"}},
        {"pipe among the resources", pipe("Contents/Resources/pipe"), {Problem::unsupportedResource}, "good"},
        {"pipe in a resource's place",
         pipe("Contents/Resources/a.txt"),
         {Problem::unsupportedResource},
         Problem::resourceFailed},
    };
    const Sandbox sandbox;
    const FileURL original = sandbox / "original.app", application = sandbox / "Test.app";
    makeApplication(original, richShape(fullSignature()));
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        std::filesystem::remove_all(application);
        std::filesystem::copy(original, application,
                              std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
        each.change(application);
        EXPECT_EQ(finding(verify(application), application), each.expected);
        const auto withoutStrict = finding(verify(application, false), application);
        EXPECT_EQ(withoutStrict.problem, each.notStrict.empty() ? each.expected.problem : each.notStrict);
    }
}

TEST(CodeVerification, findsWhatWasSignedOtherwise) {
    namespace Problem = CodeProblem;
    const auto sealing = [](const FileURL& file, const FileURL& target) {
        return BundleShape{
            .prepare = [=](const FileURL& contents) { std::filesystem::create_symlink(target, contents / file); }};
    };
    const auto signedBy = [](const SignatureShape& signature) { return BundleShape{.signature = signature}; };
    const auto edited = [](const std::function<void(PropertyList::Dictionary&)>& change) {
        return BundleShape{.editSeal = change};
    };
    const auto rule = [](PropertyList::Dictionary& sealed, const std::string& pattern, bool seals) {
        std::get<PropertyList::Dictionary>(sealed["rules2"].content)[pattern].content = seals;
    };
    SignatureShape expired = developerSignature(), forced = expired, unrooted = developerSignature();
    expired.signer = &world().expiredApplication;
    forced = expired;
    forced.flags = CodeDirectory::forcedExpiration;
    unrooted.issuers = {};
    SignatureShape otherTeam = developerSignature(), noDigests = fullSignature(), strong = fullSignature();
    otherTeam.team = "OTHER";
    noDigests.namesDigests = false;
    strong.hashes = {HashType::sha256, HashType::sha384};
    strong.pageSize = 16384;
    const Issued critical =
        issue({"Critical", leafExtensions("codeSigning", "1.2.3.4"), -10, 10}, &world().developerAuthority);
    SignatureShape unknownExtension = developerSignature();
    unknownExtension.signer = &critical;
    const std::string link = "Contents/Resources/b";
    const struct {
        const char* name;
        BundleShape shape;
        Finding expected;
        std::string notStrict{};
    } cases[] = {
        {"ad hoc", {}, {"good"}},
        {"one architecture of 32 bit", {.code = {.architectures = {i386}}}, {"good"}},
        {"high byte first", {.code = {.architectures = {ppc, ppc64}}}, {"good"}},
        {"a script", {.code = {.architectures = {}}}, {"good"}},
        {"strong digests of large pages", signedBy(strong), {"good"}},
        {"expired", signedBy(expired), {"good"}},
        {"stamped before it expired", signedBy(stamped(expired, world().stamper, day(-200))), {"good"}},
        {"stamped after it expired",
         signedBy(stamped(expired, world().stamper, day(-1))),
         {Problem::expired, "Contents/Frameworks/Test.framework", "x86_64"}},
        {"expired and not to be used then", signedBy(forced), {Problem::expired}},
        {"stamped by an authority that does not count",
         signedBy(stamped(developerSignature(), world().adminStamper, day(-1))),
         {Problem::notTrusted}},
        {"no way to a root", signedBy(unrooted), {Problem::notTrusted}},
        {"the administrator's root", signedBy(administratorSignature()), {"good"}},
        {"unknown critical extension", signedBy(unknownExtension), {Problem::notTrusted}},
        {"a team that is not the certificate's", signedBy(otherTeam), {Problem::signatureInvalid}},
        {"second directory that nobody vouches for", signedBy(noDigests), {Problem::signatureFailed}},
        {"a file left out",
         edited([=](PropertyList::Dictionary& sealed) { rule(sealed, "^Resources/a", false); }),
         {Problem::weakRules},
         "good"},
        {"no rule for the rest",
         edited([=](PropertyList::Dictionary& sealed) {
             std::get<PropertyList::Dictionary>(sealed["rules2"].content).erase("^.*");
         }),
         {Problem::weakRules},
         "good"},
        {"only an old list",
         edited([](PropertyList::Dictionary& sealed) {
             sealed.erase("files2");
             sealed.erase("rules2");
         }),
         {Problem::oldEnvelope},
         "good"},
        {"no list at all",
         edited([](PropertyList::Dictionary& sealed) { sealed.clear(); }),
         {Problem::resourceDirectoryFailed}},
        {"link to the main executable", sealing("Resources/b", "../MacOS/Test"), {"good"}},
        {"link to nowhere",
         sealing("Resources/b", "nowhere"),
         {Problem::badLink, "", "", "file modified: " + link + ";"},
         "good"},
        {"link out of the bundle",
         sealing("Resources/b", "../../.."),
         {Problem::badLink, "", "", "file modified: " + link + ";"},
         "good"},
        {"link to a file of the machine",
         sealing("Resources/b", "/etc/passwd"),
         {Problem::badLink, "", "", "file modified: " + link + ";"},
         "good"},
        {"link through the system's folder",
         sealing("Resources/b", "/System/../etc/passwd"),
         {Problem::badLink, "", "", "file modified: " + link + ";"},
         "good"},
        {"link to the signature",
         sealing("Resources/b", "../_CodeSignature"),
         {Problem::badLink, "", "", "file modified: " + link + ";"},
         "good"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const Sandbox sandbox;
        const FileURL application = sandbox / "Test.app";
        makeApplication(application, each.shape);
        const Finding found = finding(verify(application), application);
        EXPECT_EQ(found.problem, each.expected.problem);
        EXPECT_EQ(found.notes, each.expected.notes);
        const auto withoutStrict = finding(verify(application, false), application);
        EXPECT_EQ(withoutStrict.problem, each.notStrict.empty() ? each.expected.problem : each.notStrict);
    }
}

TEST(CodeVerification, readsTheSignatureOfAScriptFromItsAttributes) {
    const Sandbox sandbox;
    const FileURL application = sandbox / "Test.app", script = application / "Contents/MacOS/script";
    const std::string text = "#!/bin/sh\n";
    const auto components = signatureComponents(text, fullSignature());
    BundleShape shape{.signature = fullSignature()};
    shape.prepare = [&](const FileURL& contents) {
        FileManager::writeFile(contents / "MacOS/script", text);
        for (const auto& [slot, bytes] : components) {
            ExtendedAttributes::set(contents / "MacOS/script", "com.apple.cs." + componentName(slot), bytes);
        }
    };
    shape.editSeal = [&](PropertyList::Dictionary& sealed) {
        const std::string& directory = components.at(Slot::codeDirectory);
        const std::string hash = hexadecimal(CodeDirectory::parse(directory).cdhash());
        auto& files = std::get<PropertyList::Dictionary>(sealed["files2"].content);
        files["MacOS/script"].content =
            PropertyList::Dictionary{{"requirement", PropertyList::Value{"cdhash H\"" + hash + "\""}}};
    };
    makeApplication(application, shape);
    EXPECT_EQ(finding(verify(application), application), (Finding{"good"}));
    EXPECT_EQ(finding(verify(script), script), (Finding{"good"}));
    FileManager::writeFile(script, text + "rm");
    EXPECT_EQ(finding(verify(application), application),
              (Finding{CodeProblem::signatureInvalid, "Contents/MacOS/script"}));
    const Finding changed{CodeProblem::signatureFailed, "Contents/MacOS/script"};
    FileManager::writeFile(script, "#!/bin/rm\n");
    EXPECT_EQ(finding(verify(application), application), changed);
    FileManager::writeFile(script, text);
    ExtendedAttributes::remove(script, "com.apple.cs.CodeSignature");
    EXPECT_EQ(finding(verify(application), application), changed);
}

TEST(CodeVerification, takesSlicesTogether) {
    const Sandbox sandbox;
    SignatureShape other = fullSignature();
    other.team = "OTHER";
    const FileURL tool = sandbox / "tool";
    const std::string good = machO({}, fullSignature()).bytes;
    std::string mixed = machO({.architectures = {x86_64, arm64}}, fullSignature()).bytes;
    const auto slices = MachO::slices(mixed.substr(0, MachO::headerSize), mixed.size());
    const std::string foreign = machO({.architectures = {arm64}}, {.team = fullSignature().team}).bytes;
    mixed.replace(slices[1].offset, std::string::npos, foreign);
    const auto place = mixed.find(bigEndian(slices[1].size), 28);
    mixed.replace(place, 4, bigEndian(foreign.size()));
    std::string swapped = good;
    std::swap_ranges(swapped.begin() + 8, swapped.begin() + 16, swapped.begin() + 28);
    std::string shared = good;
    std::copy_n(shared.begin() + 8, 20, shared.begin() + 28);
    const struct {
        const char* name;
        std::string bytes;
        const char* problem;
        const char* architecture;
    } cases[] = {
        {"one team", good, "good", ""},
        {"of two signers", mixed, CodeProblem::signatureInvalid, "arm64"},
        {"under each other's names", swapped, CodeProblem::signatureInvalid, "arm64"},
        {"over the same bytes", shared, CodeProblem::signatureInvalid, ""},
    };
    for (const auto& each : cases) {
        FileManager::writeFile(tool, each.bytes);
        const Finding found = finding(verify(tool), tool);
        EXPECT_EQ(found.problem, each.problem) << each.name;
        EXPECT_EQ(found.architecture, each.architecture) << each.name;
    }
}

} // namespace
} // namespace corvane::CodeSignature
