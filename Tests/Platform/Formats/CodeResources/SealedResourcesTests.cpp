#include "Platform/Formats/CodeResources/SealedResources.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/Base64.hpp"

#include <gtest/gtest.h>

namespace corvane::CodeResources {
namespace {

std::string data(const std::string& bytes) { return "<data>" + Base64::encoded(bytes) + "</data>"; }
std::string entry(const std::string& key, const std::string& value) { return "<key>" + key + "</key>" + value; }
std::string dict(const std::string& content) { return "<dict>" + content + "</dict>"; }

SealedResources parsed(const std::string& content) {
    return SealedResources::parse("<plist>" + dict(content) + "</plist>", "list");
}

/// The seal of a path with a value in a list of the newer kind.
Seal sealed(const std::string& value) {
    return parsed(entry("files2", dict(entry("a", value))) + entry("rules2", dict(""))).files.at("a");
}

TEST(SealedResources, readsEveryKindOfSeal) {
    using Digests = std::map<DigestKind, std::string>;
    const std::string whole256 = digest(DigestKind::sha256, "x");
    const std::string whole1 = digest(DigestKind::sha1, "x");
    const std::string whole384 = digest(DigestKind::sha384, "x");
    const std::string cut256 = whole256.substr(0, 20);

    const Seal old = sealed(data(whole1));
    EXPECT_TRUE(old.kind == Seal::Kind::file && !old.isOptional);
    EXPECT_EQ(old.digests, (Digests{{DigestKind::sha1, whole1}}));

    const Seal all =
        sealed(dict(entry("hash", data(whole1)) + entry("hash2", data(whole256)) + entry("hash3", data(cut256)) +
                    entry("hash4", data(whole384)) + entry("optional", "<true/>")));
    EXPECT_TRUE(all.isOptional);
    EXPECT_EQ(all.digests,
              (Digests{{DigestKind::sha1, whole1}, {DigestKind::sha256, whole256}, {DigestKind::sha384, whole384}}));

    const Seal cut = sealed(dict(entry("hash3", data(cut256))));
    EXPECT_EQ(cut.digests, (Digests{{DigestKind::sha256, cut256}}));

    const Seal link = sealed(dict(entry("symlink", "<string>../b</string>")));
    EXPECT_TRUE(link.kind == Seal::Kind::link && link.linkTarget == "../b" && link.digests.empty());

    const Seal nested = sealed(dict(entry("cdhash", data(whole1)) + entry("requirement", "<string>always</string>")));
    EXPECT_TRUE(nested.kind == Seal::Kind::nestedCode && nested.requirement == "always");
}

TEST(SealedResources, prefersTheNewerPair) {
    const std::string sha1 = data(std::string(20, 'a'));
    const std::string older = entry("files", dict(entry("old", sha1))) + entry("rules", dict(entry("old", "<true/>")));
    const SealedResources one = parsed(older + entry("rules2", dict("")));
    EXPECT_EQ(one.version, 1);
    EXPECT_TRUE(one.files.contains("old") && one.rules.treatment("old").isSealed);
    const SealedResources two =
        parsed(older + entry("files2", dict(entry("new", sha1))) + entry("rules2", dict(entry("new", "<true/>"))));
    EXPECT_EQ(two.version, 2);
    EXPECT_TRUE(two.files.size() == 1 && two.files.contains("new"));
    EXPECT_TRUE(two.rules.treatment("new").isSealed && !two.rules.treatment("old").isSealed);
}

TEST(SealedResources, refusesSealsThatSayNothing) {
    for (const std::string& value : {
             data("short"),
             std::string("<string>x</string>"),
             dict(""),
             dict(entry("optional", "<true/>")),
             dict(entry("cdhash", data(std::string(20, 'a')))),
             dict(entry("hash5", data(std::string(64, 'a')))),
             dict(entry("hash2", data(std::string(20, 'a')))),
             dict(entry("hash2", "<string>x</string>")),
             dict(entry("symlink", "<string></string>")),
             dict(entry("symlink", "<true/>")),
             dict(entry("requirement", "<string></string>")),
             dict(entry("symlink", "<string>b</string>") + entry("hash", data(std::string(20, 'a')))),
             dict(entry("hash", data(std::string(20, 'a'))) + entry("optional", "<string>yes</string>")),
         }) {
        EXPECT_THROW(sealed(value), FormatError) << value;
    }
    for (const std::string& content :
         {std::string(), entry("files2", dict("")), entry("rules2", dict("")),
          entry("files2", dict("")) + entry("files", dict("")) + entry("rules", dict("")),
          entry("files", "<array/>") + entry("rules", dict("")), entry("files", dict(""))}) {
        EXPECT_THROW(parsed(content), FormatError) << content;
    }
    EXPECT_THROW(SealedResources::parse("<plist><array/></plist>", "list"), FormatError);
    EXPECT_THROW(SealedResources::parse("junk", "list"), PropertyList::Error);
}

} // namespace
} // namespace corvane::CodeResources
