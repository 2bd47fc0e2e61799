#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/PackageSignature/PackageSignature.hpp"
#include "Platform/Formats/PackageSignature/SignedPackageWriter.hpp"
#include "Platform/Formats/Xar/SealedContents.hpp"
#include "Platform/Trust/TimestampAuthority.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestHierarchy.hpp"
#include "Tests/TestSupport.hpp"
#include "Tests/TimestampServer.hpp"

#include <functional>
#include <map>

namespace corvane::PackageSigning {
namespace {

using TestSupport::Credential;
using TestSupport::run;
using TestSupport::Sandbox;
using TestSupport::TestHierarchy;
using TestSupport::TimestampServer;

constexpr Time signingTime{std::chrono::seconds{1'700'000'000}};

TestHierarchy& hierarchy() { return TestHierarchy::shared(); }

Certificate certificate(const Credential& credential) { return Certificate::parse(credential.certificate, "test"); }

TrustSettings trust() {
    return {.extraRoots = {certificate(hierarchy().root())},
            .now = certificate(hierarchy().installer()).notBefore() + std::chrono::hours(1)};
}

Signer signer(const Credential& credential) {
    return {.key = PrivateKey::parse(credential.key, "test"),
            .certificates = {certificate(credential), certificate(hierarchy().intermediate()),
                             certificate(hierarchy().root())},
            .signingTime = signingTime};
}

void sign(const FileURL& input, const FileURL& output, const Signer& by) {
    SignedPackageWriter package(input);
    package.sign(by);
    package.write(output);
}

/// Runs openssl on files of the sandbox.
void expectOpenssl(const Sandbox& sandbox, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "openssl");
    const auto outcome = run(arguments, {.folder = sandbox.url()});
    EXPECT_EQ(outcome.status, 0) << arguments[1] << ": " << outcome.errors;
}

/// Has the openssl program verify both signatures over the digest that it computes itself.
void expectOpensslVerifies(const Xar::Archive& archive, const std::string& digestName) {
    const Sandbox sandbox;
    const auto& signatures = archive.contents().signatures;
    ASSERT_EQ(signatures.size(), 2U);
    sandbox.write("toc", archive.compressedContents());
    sandbox.write("rsa", archive.heapBytes(signatures[0].stored, 1 << 20));
    sandbox.write("cms", archive.heapBytes(signatures[1].stored, 1 << 20));
    sandbox.write("root.pem", hierarchy().root().certificate);
    sandbox.write("leaf.pem", hierarchy().installer().certificate);
    expectOpenssl(sandbox, {"dgst", "-" + digestName, "-binary", "-out", "checksum", "toc"});
    expectOpenssl(sandbox, {"cms", "-verify", "-binary", "-inform", "DER", "-in", "cms", "-content", "checksum", "-out",
                            "content", "-CAfile", "root.pem", "-purpose", "any", "-ignore_critical"});
    expectOpenssl(sandbox, {"pkeyutl", "-verify", "-certin", "-inkey", "leaf.pem", "-sigfile", "rsa", "-in", "checksum",
                            "-pkeyopt", "digest:" + digestName, "-pkeyopt", "rsa_padding_mode:pkcs1"});
}

/// The stored bytes of every file, by path.
std::map<std::string, std::string> storedBytes(const Xar::Archive& archive) {
    std::map<std::string, std::string> bytes;
    archive.contents().visit([&](const std::string& path, const Xar::Entry& entry) {
        if (entry.data) bytes[path] = archive.heapBytes(entry.data->stored, std::size_t{1} << 30);
        for (const auto& attribute : entry.extendedAttributes) {
            bytes[path + "#" + attribute.name] += archive.heapBytes(attribute.stored, std::size_t{1} << 30);
        }
    });
    return bytes;
}

/// The table of contents without what signing changes.
std::string unchangedContents(const Xar::Archive& archive) {
    const XML::Document document = XML::Document::parse(archive.document().serialized(false), "test");
    for (const char* changed :
         {"//toc/checksum", "//toc/signature", "//toc/x-signature", "//signature-creation-time"}) {
        for (const XML::Node& node : document.query(changed)) node.remove();
    }
    for (const XML::Node& offset : document.query("//data/offset | //ea/offset")) offset.setText("");
    // White space between elements stays as it was where elements are gone.
    const std::string text = document.serialized(true);
    std::string dense;
    for (const char character : text) {
        if (character != ' ' && character != '\n') dense += character;
    }
    return dense;
}

void expectSignedCopy(const FileURL& input, const FileURL& output, const std::string& digestName) {
    const Xar::Archive before = Xar::Archive::openUnverified(input);
    const Xar::Archive after = Xar::Archive::open(output);
    EXPECT_TRUE(storedBytes(before) == storedBytes(after)) << input;
    EXPECT_EQ(unchangedContents(before), unchangedContents(after)) << input;
    EXPECT_EQ(after.trailerOffset(), after.fileSize()) << input;
    expectOpensslVerifies(after, digestName);
    EXPECT_EQ(run({"7zz", "t", "-txar", output}).status, 0) << input;
    const auto judged = PackageSignature::evaluate(after, trust());
    EXPECT_EQ(judged.seal, PackageSignature::Seal::intact) << input << judged.problem;
    EXPECT_TRUE(judged.chain.isTrusted()) << input << judged.chain.problem;
}

/// The heap of `makeArchive` behind the checksum: each byte is the last digit of its offset.
std::string heapBytes(std::size_t offset, std::size_t length) {
    std::string bytes;
    while (bytes.size() < length) bytes += static_cast<char>('0' + (offset + bytes.size()) % 10);
    return bytes;
}

/// An archive with a checksum of a kind and 100 bytes for files in its heap. @param toc the content of `toc`
FileURL makeArchive(const Sandbox& sandbox, const std::string& toc, std::optional<DigestKind> kind = DigestKind::sha1) {
    const auto document = XML::Document::parse("<xar><toc>" + toc + "</toc></xar>", "test");
    Xar::SealedContents sealed = Xar::SealedContents::make(document, kind.value_or(DigestKind::sha1));
    // The last four bytes of the header say which digest there is.
    if (!kind) sealed.start.replace(24, 4, 4, '\0');
    std::string heap = kind ? sealed.checksum : "";
    heap += heapBytes(heap.size(), 100);
    return sandbox.write("archive.pkg", sealed.start + heap);
}

std::string checksum(const std::string& style, int size) {
    return "<checksum style=\"" + style + "\"><offset>0</offset><size>" + std::to_string(size) + "</size></checksum>";
}

std::string file(const std::string& name, std::size_t offset, std::size_t length, const std::string& more = "") {
    const std::string size = std::to_string(length);
    return "<file id=\"1\"><name>" + name + "</name><type>file</type><data><length>" + size + "</length><offset>" +
           std::to_string(offset) + "</offset><size>" + size +
           "</size><encoding style=\"application/octet-stream\"/><archived-checksum style=\"sha1\">" +
           hexadecimal(digest(DigestKind::sha1, heapBytes(offset, length))) + "</archived-checksum></data>" + more +
           "</file>";
}

TEST(SignedPackageWriter, signsEveryRealPackage) {
    CORVANE_REQUIRE_SAMPLES();
    const Sandbox sandbox;
    const FileURL output = sandbox / "signed.pkg";
    for (const FileURL& input : FileManager::contentsOfDirectory(*TestSupport::samples() / "pkg")) {
        SCOPED_TRACE(input);
        sign(input, output, signer(hierarchy().installer()));
        expectSignedCopy(input, output, "sha1");
    }
}

TEST(SignedPackageWriter, keepsWhatItDoesNotKnow) {
    const std::string attribute = "<ea id=\"0\"><name>com.apple.x</name><offset>50</offset><length>40</length></ea>";
    const std::string overlapping = "<ea id=\"0\"><name>com.apple.y</name><offset>10</offset><length>30</length></ea>";
    const struct {
        const char* what;
        std::string toc;
        DigestKind kind = DigestKind::sha1;
    } cases[] = {
        {"unknown elements, attributes and a repeated name",
         "<creation-time>2024-01-01T00:00:00</creation-time>" + checksum("sha1", 20) +
             "<future level=\"3\">x</future>" +
             file("a", 20, 10, "<name>a</name><FinderCreateTime><time>1900-01-00</time></FinderCreateTime>")},
        {"gaps and dead space", checksum("sha1", 20) + file("a", 30, 5) + file("b", 60, 5)},
        {"attributes that overlap", checksum("sha1", 20) + file("a", 40, 30, attribute + overlapping)},
        {"folders and empty files", checksum("sha1", 20) + "<file id=\"7\"><name>d</name><type>directory</type>" +
                                        file("a", 25, 10) + file("empty", 0, 0) + "</file>"},
        {"shared data", checksum("sha1", 20) + file("a", 25, 10) + file("b", 25, 10)},
        {"no files", checksum("sha1", 20)},
        {"SHA-256", checksum("sha256", 32) + file("a", 40, 10), DigestKind::sha256},
        {"SHA-512", checksum("sha512", 64) + file("a", 64, 10), DigestKind::sha512},
        {"an old signature behind the files",
         checksum("sha1", 20) + "<signature style=\"RSA\"><offset>90</offset><size>30</size></signature>" +
             "<signature-creation-time>1.5</signature-creation-time>" + file("a", 20, 10)},
    };
    for (const auto& example : cases) {
        SCOPED_TRACE(example.what);
        const Sandbox sandbox;
        const FileURL input = makeArchive(sandbox, example.toc, example.kind);
        sign(input, sandbox / "signed.pkg", signer(hierarchy().installer()));
        expectSignedCopy(input, sandbox / "signed.pkg", std::string(digestName(example.kind)));
        sign(sandbox / "signed.pkg", sandbox / "again.pkg", signer(hierarchy().installer()));
        expectSignedCopy(input, sandbox / "again.pkg", std::string(digestName(example.kind)));
        EXPECT_EQ(FileManager::fileSize(sandbox / "signed.pkg"), FileManager::fileSize(sandbox / "again.pkg"));
    }
}

TEST(SignedPackageWriter, givesArchivesWithoutAUsableDigestOne) {
    const std::pair<std::string, std::optional<DigestKind>> cases[] = {
        {file("a", 0, 10), std::nullopt},
        {checksum("none", 0) + file("a", 5, 10), std::nullopt},
        {checksum("md5", 16) + file("a", 16, 10), DigestKind::md5},
    };
    for (const auto& [toc, kind] : cases) {
        const Sandbox sandbox;
        const FileURL input = makeArchive(sandbox, toc, kind);
        sign(input, sandbox / "signed.pkg", signer(hierarchy().installer()));
        expectSignedCopy(input, sandbox / "signed.pkg", "sha1");
    }
}

TEST(SignedPackageWriter, laysOutTheHeapAsTheInstallerExpectsIt) {
    const Sandbox sandbox;
    const FileURL input = makeArchive(sandbox, checksum("sha1", 20) + file("a", 20, 10));
    sign(input, sandbox / "signed.pkg", signer(hierarchy().installer()));
    const Xar::Archive archive = Xar::Archive::open(sandbox / "signed.pkg");
    const auto& contents = archive.contents();
    EXPECT_EQ(contents.checksum->stored, (Xar::HeapRange{0, 20}));
    EXPECT_EQ(contents.signatures.at(0).stored, (Xar::HeapRange{20, 256}));
    EXPECT_EQ(contents.signatures.at(1).stored, (Xar::HeapRange{276, 9216}));
    EXPECT_EQ(contents.entries.at(0).data->stored, (Xar::HeapRange{9492, 10}));
    const std::vector<std::string> chain = {certificate(hierarchy().installer()).der(),
                                            certificate(hierarchy().intermediate()).der(),
                                            certificate(hierarchy().root()).der()};
    for (const auto& signature : contents.signatures) EXPECT_EQ(signature.certificates, chain);
    const std::string text = archive.document().serialized(false);
    const std::size_t start = text.find("<X509Certificate>") + 17;
    EXPECT_EQ(text.find('\n', start) - start, 72U);
    EXPECT_NE(text.find("<KeyInfo xmlns=\"http://www.w3.org/2000/09/xmldsig#\">"), std::string::npos);
}

TEST(SignedPackageWriter, signsTheSameBytesAlike) {
    const Sandbox sandbox;
    const FileURL input = makeArchive(sandbox, checksum("sha1", 20) + file("a", 20, 10));
    for (const char* name : {"first.pkg", "second.pkg"}) sign(input, sandbox / name, signer(hierarchy().installer()));
    EXPECT_TRUE(TestSupport::read(sandbox / "first.pkg") == TestSupport::read(sandbox / "second.pkg"));
    // The signing time is in the CMS: 2023-11-14 22:13:20.
    EXPECT_NE(TestSupport::read(sandbox / "first.pkg").find("231114221320Z"), std::string::npos);
}

TEST(SignedPackageWriter, putsTheTimestampIntoTheSignature) {
    const Sandbox sandbox;
    const TimestampServer server;
    const FileURL input = makeArchive(sandbox, checksum("sha1", 20) + file("a", 20, 10));
    Signer by = signer(hierarchy().installer());
    by.timestamp = [&](std::string_view value, DigestKind kind) {
        return TimestampAuthority{.address = server.url()}.token(value, kind, trust());
    };
    sign(input, sandbox / "signed.pkg", by);
    expectSignedCopy(input, sandbox / "signed.pkg", "sha1");
    const auto judged = PackageSignature::evaluate(Xar::Archive::open(sandbox / "signed.pkg"), trust());
    EXPECT_TRUE(judged.timestamp.has_value());
}

TEST(SignedPackageWriter, makesRoomForALargeSignature) {
    const Sandbox sandbox;
    const FileURL input = makeArchive(sandbox, checksum("sha1", 20) + file("a", 20, 10));
    Signer by = signer(hierarchy().installer());
    by.timestamp = [](std::string_view, DigestKind) {
        // An attribute of this size in place of a token: SEQUENCE { OCTET STRING of 10,000 bytes }.
        return "\x30\x82\x27\x14\x04\x82\x27\x10" + std::string(10'000, 'x');
    };
    sign(input, sandbox / "signed.pkg", by);
    const Xar::Archive archive = Xar::Archive::open(sandbox / "signed.pkg");
    EXPECT_GT(archive.contents().signatures.at(1).stored.length, 12'000U);
    EXPECT_EQ(archive.contents().signatures.at(1).stored.length % 1024, 0U);
    EXPECT_TRUE(storedBytes(Xar::Archive::open(input)) == storedBytes(archive));
    expectOpensslVerifies(archive, "sha1");
}

TEST(SignedPackageWriter, refusesDamagedPackagesAndOtherKeys) {
    const std::string good = checksum("sha1", 20) + file("a", 20, 10);
    const auto damagedAt = [](std::size_t offset) {
        return [=](std::string& bytes) { bytes[offset] = static_cast<char>(bytes[offset] ^ 0x20); };
    };
    const struct {
        const char* what;
        std::string toc;
        std::function<void(std::string&)> damage;
    } cases[] = {
        {"header", good, damagedAt(9)},
        {"table of contents", good, damagedAt(40)},
        {"data", good, [](std::string& bytes) { bytes[bytes.size() - 100] = 'x'; }},
        {"a file without a checksum",
         checksum("sha1", 20) +
             "<file id=\"1\"><name>a</name><data><length>5</length><offset>20</offset><size>5</size></data></file>",
         [](std::string&) {}},
        {"cut short", good, [](std::string& bytes) { bytes.resize(bytes.size() - 95); }},
        {"empty", good, [](std::string& bytes) { bytes.clear(); }},
    };
    for (const auto& example : cases) {
        const Sandbox sandbox;
        std::string bytes = TestSupport::read(makeArchive(sandbox, example.toc));
        example.damage(bytes);
        const FileURL input = sandbox.write("damaged.pkg", bytes);
        EXPECT_THROW(sign(input, sandbox / "out", signer(hierarchy().installer())), FormatError) << example.what;
        EXPECT_FALSE(FileManager::fileExists(sandbox / "out")) << example.what;
    }
    const Sandbox sandbox;
    const FileURL input = makeArchive(sandbox, good);
    EXPECT_THROW(sign(input, sandbox / "out", signer(hierarchy().ellipticInstaller())), FormatError);
}

TEST(SignedPackageWriter, leavesNothingWhenItIsStopped) {
    const Sandbox sandbox;
    const FileURL input = makeArchive(sandbox, checksum("sha1", 20) + file("a", 20, 10));
    SignedPackageWriter package(input);
    package.sign(signer(hierarchy().installer()));
    std::stop_source source;
    source.request_stop();
    EXPECT_THROW(package.write(sandbox / "out", source.get_token()), CancellationError);
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox.url()), std::vector<FileURL>{input});
}

} // namespace
} // namespace corvane::PackageSigning
