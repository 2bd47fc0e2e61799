#include "Platform/Formats/BigEndian.hpp"
#include "Platform/Formats/CodeSignature/Requirement.hpp"
#include "Platform/Formats/Digest.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Tests/Platform/Trust/TestAuthority.hpp"

#include <gtest/gtest.h>

#include <concepts>

namespace corvane::CodeSignature {
namespace {

using namespace TestSupport;

const std::string cdhash = "twenty bytes of hash";
const std::string otherHash = "other bytes for hash";

/// A number or a string of a compiled requirement.
struct Word {
    std::string bytes;

    template <std::integral Number>
    Word(Number number) {
        appendBigEndian(bytes, static_cast<std::uint64_t>(number), 4);
    }
    Word(const char* text) : Word(std::string(text)) {}
    Word(const std::string& text) {
        appendBigEndian(bytes, text.size(), 4);
        bytes.append(text).append((4 - text.size() % 4) % 4, '\0');
    }
};

std::string words(std::initializer_list<Word> list) {
    std::string bytes;
    for (const Word& word : list) bytes += word.bytes;
    return bytes;
}

std::string compiled(std::initializer_list<Word> list, std::uint32_t kind = 1) {
    const std::string content = words(list);
    std::string blob("\xfa\xde\x0c\x00", 4);
    appendBigEndian(blob, content.size() + 12, 4);
    appendBigEndian(blob, kind, 4);
    return blob + content;
}

constexpr std::uint32_t root = 0xFFFFFFFF;
/// 1.2.840.113635.100.6.x
const std::string developerAuthorityMarker("\x2a\x86\x48\x86\xf7\x63\x64\x06\x02\x06");
const std::string developerSinceMarker("\x2a\x86\x48\x86\xf7\x63\x64\x06\x01\x21");
const std::string installerMarker("\x2a\x86\x48\x86\xf7\x63\x64\x06\x01\x0e");

std::uint32_t secondsSince2001(std::chrono::sys_days date) {
    return static_cast<std::uint32_t>(Time(date).time_since_epoch().count() - PropertyList::secondsFrom1970To2001);
}

std::string hex(const std::string& bytes) { return "H\"" + hexadecimal(bytes) + "\""; }

CertificateChain chainOf(const Issued& leaf, const std::vector<Certificate>& issuers, const TrustSettings& trust) {
    return evaluateChain(leaf.certificate, issuers, trust, present, ChainPurpose::packageSigning);
}

/// Code as a developer signs it, with lists that hold one value of every kind.
struct Developer {
    CertificateChain chain =
        chainOf(World::shared().installer, {World::shared().developerAuthority.certificate}, World::shared().trust());
    PropertyList::Value info{PropertyList::Dictionary{
        {"Version", {std::string("1.10.2")}},
        {"Off", {false}},
        {"Many", {PropertyList::Array{{std::string("one")}, {std::string("two")}}}},
        {"Number", {std::int64_t{7}}},
        {"Date", {PropertyList::Date{0.5}}},
    }};
    PropertyList::Value entitlements{PropertyList::Dictionary{{"com.example.on", {true}}}};
    RequirementSubject subject{.identifier = "org.example.tool",
                               .cdhashes = {otherHash, cdhash},
                               .platform = 2,
                               .chain = &chain,
                               .infoPropertyList = &info,
                               .entitlements = &entitlements,
                               .isNotarized = true};
};

/// The same condition as text and compiled.
TEST(Requirement, isEvaluatedInBothForms) {
    const Developer developer;
    const std::string rootHash = World::shared().root.certificate.sha1();
    const struct {
        std::string text, blob;
        bool isMet;
    } cases[] = {
        {"identifier \"org.example.tool\"", compiled({2, "org.example.tool"}), true},
        {"identifier = org.example.TOOL", compiled({2, "org.example.TOOL"}), false},
        {"cdhash " + hex(cdhash), compiled({8, cdhash}), true},
        {"cdhash " + hex("twenty bytes of hasp"), compiled({8, "twenty bytes of hasp"}), false},
        {"always", compiled({1}), true},
        {"!always", compiled({9, 1}), false},
        {"never and never or always", compiled({7, 6, 0, 0, 1}), true},
        {"always or always and never", compiled({7, 1, 6, 1, 0}), true},
        {"(always or always) and never", compiled({6, 7, 1, 1, 0}), false},
        {"!never and never", compiled({6, 9, 0, 0}), false},
        {"notarized", compiled({21}), true},
        {"legacy", compiled({23}), false},
        {"platform = 2", compiled({20, 2}), true},
        {"platform = -2", compiled({20, 0xFFFFFFFE}), false},
        {"anchor apple", compiled({3}), false},
        {"anchor apple generic", compiled({15}), true},
        {"anchor trusted", compiled({13}), true},
        {"anchor = " + hex(rootHash), compiled({4, root, rootHash}), true},
        {"certificate 2 = " + hex(rootHash), compiled({4, 2, rootHash}), true},
        {"certificate leaf = " + hex(rootHash), compiled({4, 0, rootHash}), false},
        {"certificate 3 = " + hex(rootHash), compiled({4, 3, rootHash}), false},
        {"certificate -4 = " + hex(rootHash), compiled({4, 0xFFFFFFFC, rootHash}), false},
        {"certificate root trusted", compiled({12, root}), true},
        {"cert 1 trusted", compiled({12, 1}), false},
        {"certificate leaf[subject.OU] = TEAM123456", compiled({11, 0, "subject.OU", 1, "TEAM123456"}), true},
        {"certificate leaf[subject.OU] = TEAM", compiled({11, 0, "subject.OU", 1, "TEAM"}), false},
        {"certificate leaf[subject.CN] = *stall*", compiled({11, 0, "subject.CN", 2, "stall"}), true},
        {"certificate leaf[subject.CN] = \"Inst\"*", compiled({11, 0, "subject.CN", 3, "Inst"}), true},
        {"certificate leaf[subject.CN] = *aller", compiled({11, 0, "subject.CN", 4, "aller"}), true},
        {"certificate leaf[subject.CN] = *Inst", compiled({11, 0, "subject.CN", 4, "Inst"}), false},
        {"certificate -2[subject.CN] = \"Developer Authority\"",
         compiled({11, 0xFFFFFFFE, "subject.CN", 1, "Developer Authority"}), true},
        {"anchor[subject.CN] exists", compiled({11, root, "subject.CN", 0}), true},
        {"certificate leaf[subject.userid] absent", compiled({11, 0, "subject.userid", 14}), true},
        {"certificate 9[subject.UID] absent", compiled({11, 9, "subject.UID", 14}), false},
        {"certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */", compiled({14, 1, developerAuthorityMarker, 0}),
         true},
        {"certificate leaf[field.1.2.840.113635.100.6.2.6]", compiled({14, 0, developerAuthorityMarker, 0}), false},
        {"certificate leaf[field.1.2.840.113635.100.6.1.14] absent", compiled({14, 0, installerMarker, 14}), false},
        {"certificate leaf[field.1.2.840.113635.100.6.1.33] = 2021*",
         compiled({14, 0, developerSinceMarker, 3, "2021"}), true},
        {"certificate leaf[policy.1.2.840.113635.100.6.1.14] exists", compiled({17, 0, installerMarker, 0}), false},
        {"certificate leaf[timestamp.1.2.840.113635.100.6.1.33] < timestamp \"20210423000000Z\"",
         compiled({22, 0, developerSinceMarker, 10, 0, secondsSince2001(std::chrono::April / 23 / 2021)}), true},
        {"certificate leaf[timestamp.1.2.840.113635.100.6.1.33] = timestamp 20210422000000Z",
         compiled({22, 0, developerSinceMarker, 9, 0, secondsSince2001(std::chrono::April / 22 / 2021)}), true},
        {"certificate leaf[timestamp.1.2.840.113635.100.6.1.33] > timestamp 20210422000000Z",
         compiled({22, 0, developerSinceMarker, 11, 0, secondsSince2001(std::chrono::April / 22 / 2021)}), false},
        {"certificate leaf[timestamp.1.2.840.113635.100.6.1.33] <= timestamp 20210422000000Z",
         compiled({22, 0, developerSinceMarker, 12, 0, secondsSince2001(std::chrono::April / 22 / 2021)}), true},
        {"certificate leaf[timestamp.1.2.840.113635.100.6.1.33] >= timestamp 20210422000001Z",
         compiled({22, 0, developerSinceMarker, 13, 0, secondsSince2001(std::chrono::April / 22 / 2021) + 1}), false},
        {"certificate leaf[timestamp.1.2.840.113635.100.6.1.14] exists", compiled({22, 0, installerMarker, 0}), false},
        {"info[Version] < 1.11", compiled({10, "Version", 5, "1.11"}), true},
        {"info[Version] > \"1.9\"", compiled({10, "Version", 6, "1.9"}), true},
        {"info[Version] <= 01.10.2", compiled({10, "Version", 7, "01.10.2"}), true},
        {"info[Version] >= 1.10.2.1", compiled({10, "Version", 8, "1.10.2.1"}), false},
        {"info[Off] exists", compiled({10, "Off", 0}), false},
        {"info[Off] absent", compiled({10, "Off", 14}), false},
        {"info[Many] = two", compiled({10, "Many", 1, "two"}), true},
        {"info[Many] absent", compiled({10, "Many", 14}), false},
        {"info[Number] = 7", compiled({10, "Number", 1, "7"}), false},
        {"info[Date] = timestamp 20010101000000Z", compiled({10, "Date", 9, 0, 0}), true},
        {"info[Other] absent", compiled({10, "Other", 14}), true},
        {"entitlement[\"com.example.on\"] exists", compiled({16, "com.example.on", 0}), true},
        {"entitlement[com.example.other]", compiled({16, "com.example.other", 0}), false},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(Requirement::parseText(each.text).isMet(developer.subject), each.isMet) << each.text;
        EXPECT_EQ(Requirement::parseBlob(each.blob).isMet(developer.subject), each.isMet) << "compiled " << each.text;
    }
}

TEST(Requirement, readsTheLanguageAsPeopleWriteIt) {
    const Developer developer;
    const struct {
        const char* text;
        bool isMet;
    } cases[] = {
        {"# first\n always // second\r\n/* third */and\talways", true},
        {"identifier \"org.\\example\\.tool\"", true},
        {"!!always", true},
        {"((identifier org.example.tool))", true},
        {"certificate root[subject.cn]=\"Trusted Root\"and always", true},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(Requirement::parseText(each.text).isMet(developer.subject), each.isMet) << each.text;
    }
}

/// Who signed decides what is said of the chain.
TEST(Requirement, goesByTheChain) {
    const World& world = World::shared();
    const Issued ownAuthority =
        issue({"Apple Code Signing Certification Authority", authorityExtensions(), -1000, 1000}, &world.root);
    Extensions withPolicy = leafExtensions("codeSigning");
    withPolicy.emplace_back("certificatePolicies", "DER:30:07:30:05:06:03:2a:03:04");
    const Issued own = issue({"Software Signing", withPolicy}, &ownAuthority);
    const Issued stranger = issue({"Trusted Root", authorityExtensions(), -1000, 1000});
    const Issued forgery = issue({"Installer", leafExtensions("codeSigning"), -1000, 1000, false, stranger.key},
                                 &world.developerAuthority);
    const Issued strangersLeaf = issue({"Leaf", leafExtensions("codeSigning")}, &stranger);
    const std::string authority = "certificate 1[field.1.2.840.113635.100.6.2.6]";
    const std::string genuineRoot = "certificate root = " + hex(world.root.certificate.sha1());
    const std::string strangersRoot = "certificate root = " + hex(stranger.certificate.sha1());
    const std::string rootOne = "certificate 1 = " + hex(stranger.certificate.sha1());
    TrustSettings nobody = world.trust();
    nobody.appleRoots.clear();
    nobody.extraRoots.clear();
    const auto chain = [&](const Issued& leaf, const Issued& issuer, const TrustSettings& trust) {
        return chainOf(leaf, {issuer.certificate, world.root.certificate}, trust);
    };
    const CertificateChain apple = chain(own, ownAuthority, world.trust());
    const CertificateChain expired = chain(world.expiredInstaller, world.developerAuthority, world.trust());
    const CertificateChain administrator = chainOf(world.adminInstaller, {}, world.trust());
    const CertificateChain forged = chain(forgery, world.developerAuthority, world.trust());
    const CertificateChain untrusted = chain(world.installer, world.developerAuthority, nobody);
    const CertificateChain untrustedForgery = chain(forgery, world.developerAuthority, nobody);
    const CertificateChain strange = chain(strangersLeaf, stranger, world.trust());
    const CertificateChain rootless = chainOf(world.installer, {world.developerAuthority.certificate}, nobody);
    const struct {
        const char* name;
        const CertificateChain* chain;
        std::string text;
        bool isMet;
    } cases[] = {
        {"Apple's own", &apple, "anchor apple and anchor apple generic", true},
        {"policy", &apple, "cert leaf[policy.1.2.3.4] and cert leaf[policy.1.2.3.5] absent", true},
        {"policy's value", &apple, "cert leaf[policy.1.2.3.4] = x or cert leaf[policy.1.2.3.4] absent", false},
        {"expired", &expired, "anchor apple generic and " + authority, true},
        {"administrator's", &administrator, "anchor trusted and !anchor apple generic and cert 1 trusted", true},
        {"forged", &forged, "anchor apple generic or anchor trusted or cert root trusted", false},
        {"forged, issuer", &forged, authority, false},
        {"untrusted, all but trust", &untrusted, authority + " and " + genuineRoot, true},
        {"untrusted", &untrusted, "anchor apple generic or anchor trusted", false},
        {"untrusted forgery", &untrustedForgery, authority + " or " + genuineRoot, false},
        {"stranger", &strange, strangersRoot + " and " + rootOne + " and !anchor trusted", true},
        {"stranger under a known name", &strange, "anchor apple generic or " + genuineRoot, false},
        {"without its root", &rootless, "certificate -1[subject.CN] exists", false},
        {"ad hoc", nullptr, "certificate leaf[subject.CN] exists or anchor trusted or anchor apple", false},
    };
    for (const auto& each : cases) {
        const RequirementSubject subject{.identifier = "x", .cdhashes = {}, .chain = each.chain};
        EXPECT_EQ(Requirement::parseText(each.text).isMet(subject), each.isMet) << each.name;
    }
}

TEST(Requirement, refusesBrokenTexts) {
    const std::string texts[] = {
        "",
        "identifier",
        "identifier \"open",
        "always /* open",
        "always always",
        "always or",
        "and always",
        "(always",
        "always)",
        "unknown",
        "cdhash H\"00\"",
        "cdhash H\"0g" + std::string(38, '0') + "\"",
        "certificate middle[subject.CN]",
        "certificate 99999999999[subject.CN]",
        "certificate leaf[subject.XX]",
        "certificate leaf[field.]",
        "certificate leaf[field.name]",
        "certificate leaf[subject.CN",
        "info[a] < timestamp yesterday",
        "info[a] = *",
        "platform = two",
        "info[a] $ b",
        std::string(100000, '(') + "always",
        std::string(100000, '!') + "always",
        "always" + std::string(std::size_t{1} << 20, ' '),
    };
    for (const std::string& text : texts) EXPECT_THROW(Requirement::parseText(text), FormatError) << text.substr(0, 60);
    try {
        Requirement::parseText("always or (never xor always)");
        ADD_FAILURE();
    } catch (const FormatError& error) {
        EXPECT_STREQ(error.what(), "requirement: offset 17: expected \")\", found \"xor\"");
    }
}

TEST(Requirement, knowsWhatItDoesNotKnow) {
    const Developer developer;
    EXPECT_FALSE(Requirement::parseBlob(compiled({0x80000063, "new"})).isMet(developer.subject));
    EXPECT_TRUE(Requirement::parseBlob(compiled({7, 0x80000063, "new", 1})).isMet(developer.subject));
    EXPECT_FALSE(Requirement::parseBlob(compiled({7, 18, "name", 19, "name"})).isMet(developer.subject));
    const std::string good = compiled({6, 2, "org.example.tool", 11, 0, "subject.OU", 1, "TEAM123456"});
    EXPECT_TRUE(Requirement::parseBlob(good).isMet(developer.subject));
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_THROW(Requirement::parseBlob(good.substr(0, size)), FormatError);
    }
    std::string deep;
    for (int level = 0; level < 10000; ++level) appendBigEndian(deep, 9, 4);
    const struct {
        const char* name;
        std::string blob;
    } broken[] = {
        {"another operation", compiled({99})},
        {"one to be passed over", compiled({0x40000063, "new", 1})},
        {"another kind", compiled({1}, 2)},
        {"bytes behind", compiled({1, 1})},
        {"another comparison", compiled({10, "a", 15})},
        {"hash too short", compiled({8, "short"})},
        {"no object identifier", compiled({14, 0, "", 0})},
        {"another field", compiled({9, 11, 0, "subject.XX", 0})},
        {"time without bounds", compiled({22, 0, installerMarker, 9, 0x7FFFFFFF, 0})},
        {"too deep",
         [&] {
             std::string blob = compiled({1}).substr(0, 4);
             appendBigEndian(blob, 12 + deep.size() + 4, 4);
             appendBigEndian(blob, 1, 4);
             return blob + deep + std::string(4, '\0');
         }()},
    };
    for (const auto& each : broken) EXPECT_THROW(Requirement::parseBlob(each.blob), FormatError) << each.name;
}

/// Many conditions on one large value could otherwise take hours.
TEST(Requirement, givesUpWhereTheAnswerTakesTooLong) {
    const std::string large(std::size_t{1} << 24, 'a');
    const PropertyList::Value text{PropertyList::Dictionary{{"a", {large}}}};
    const PropertyList::Value texts{PropertyList::Dictionary{{"a", {PropertyList::Array{{large}, {large}}}}}};
    std::string conditions = "info[a] = b";
    for (int more = 1; more < 10; ++more) conditions += " or info[a] = b";
    EXPECT_FALSE(
        Requirement::parseText(conditions).isMet({.identifier = {}, .cdhashes = {}, .infoPropertyList = &text}));
    EXPECT_THROW(
        Requirement::parseText(conditions).isMet({.identifier = {}, .cdhashes = {}, .infoPropertyList = &texts}),
        FormatError);
}

std::string set(const std::vector<std::pair<std::uint32_t, std::string>>& members) {
    std::string table;
    std::string content;
    for (const auto& [type, blob] : members) {
        appendBigEndian(table, type, 4);
        appendBigEndian(table, 12 + 8 * members.size() + content.size(), 4);
        content += blob;
    }
    std::string bytes("\xfa\xde\x0c\x01", 4);
    appendBigEndian(bytes, 12 + table.size() + content.size(), 4);
    appendBigEndian(bytes, members.size(), 4);
    return bytes + table + content;
}

TEST(RequirementSet, findsTheDesignatedOne) {
    const std::string never = compiled({0});
    const std::string ours = compiled({2, "org.example.tool"});
    const Developer developer;
    const auto found = RequirementSet::parse(set({{1, never}, {3, ours}}));
    EXPECT_EQ(found.count, 2U);
    ASSERT_TRUE(found.designated);
    EXPECT_TRUE(found.designated->isMet(developer.subject));
    EXPECT_FALSE(RequirementSet::parse(set({})).designated);
    EXPECT_THROW(RequirementSet::parse(set({{3, ours}, {3, ours}})), FormatError);
    EXPECT_THROW(RequirementSet::parse(set({{3, ours}}) + "x"), FormatError);
    EXPECT_THROW(RequirementSet::parse(set({{3, ours.substr(0, 20)}})), FormatError);
}

} // namespace
} // namespace corvane::CodeSignature
