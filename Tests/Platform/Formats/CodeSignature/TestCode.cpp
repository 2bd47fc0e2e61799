#include "Tests/Platform/Formats/CodeSignature/TestCode.hpp"

#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace corvane::TestSupport {
namespace {

using CodeSignature::Slot;
using Components = std::map<Slot, std::string>;
using PropertyList::Data;
using PropertyList::Dictionary;
using PropertyList::Value;

std::string padded(std::string bytes, std::size_t unit) {
    bytes.resize((bytes.size() + unit - 1) / unit * unit);
    return bytes;
}

DigestKind digestKind(HashType type) {
    if (type == HashType::sha1) return DigestKind::sha1;
    return type == HashType::sha384 ? DigestKind::sha384 : DigestKind::sha256;
}

std::size_t hashSize(HashType type) { return type == HashType::sha256Truncated ? 20 : digestSize(digestKind(type)); }

std::string der(char tag, const std::string& content) {
    const std::string length =
        content.size() < 128 ? std::string() : '\x82' + bigEndian(content.size(), 2); // Below 64 KiB.
    return tag + (length.empty() ? bigEndian(content.size(), 1) : length) + content;
}

/// What has a digest in the directory.
Components specialComponents(const SignatureShape& shape) {
    Components found{{Slot::infoPropertyList, shape.infoPropertyList},
                     {Slot::requirements, shape.requirements},
                     {Slot::resourceDirectory, shape.resourceDirectory}};
    if (!shape.entitlements.empty()) found[Slot::entitlements] = blob(0xFADE7171, shape.entitlements);
    if (!shape.entitlementsDER.empty()) found[Slot::entitlementsDER] = blob(0xFADE7172, shape.entitlementsDER);
    std::erase_if(found, [](const auto& each) { return each.second.empty(); });
    return found;
}

std::string hashes(const std::string& code, const SignatureShape& shape, HashType type, std::uint32_t specialCount) {
    const auto hash = [&](const std::string& bytes) {
        return digest(digestKind(type), bytes).substr(0, hashSize(type));
    };
    const Components special = specialComponents(shape);
    std::string found;
    for (std::uint32_t slot = specialCount; slot > 0; --slot) {
        const auto component = special.find(static_cast<Slot>(slot));
        found += component == special.end() ? std::string(hashSize(type), '\0') : hash(component->second);
    }
    const std::size_t page = shape.pageSize == 0 ? code.size() : shape.pageSize;
    for (std::size_t at = 0; at < code.size(); at += page) found += hash(code.substr(at, page));
    return found;
}

std::string codeDirectory(const std::string& code, const SignatureShape& shape, HashType type) {
    constexpr std::uint32_t fixedSize = 96;
    const Components special = specialComponents(shape);
    const std::uint32_t specialCount = special.empty() ? 0 : static_cast<std::uint32_t>(special.rbegin()->first);
    const std::string names = shape.identifier + '\0' + (shape.team.empty() ? "" : shape.team + '\0');
    const std::size_t pages = shape.pageSize == 0 ? 1 : (code.size() + shape.pageSize - 1) / shape.pageSize;
    int exponent = 0;
    while (shape.pageSize >> exponent > 1) ++exponent;
    const std::uint32_t flags = shape.flags | (shape.signer == nullptr ? CodeSignature::CodeDirectory::adhoc : 0);
    return blob(0xFADE0C02,
                bigEndian(0x20500) + bigEndian(flags) +
                    bigEndian(fixedSize + names.size() + specialCount * hashSize(type)) + bigEndian(fixedSize) +
                    bigEndian(specialCount) + bigEndian(pages) + bigEndian(code.size()) + bigEndian(hashSize(type), 1) +
                    bigEndian(static_cast<std::uint64_t>(type), 1) + bigEndian(0, 1) +
                    bigEndian(static_cast<std::uint64_t>(exponent), 1) + bigEndian(0) + bigEndian(0) +
                    bigEndian(shape.team.empty() ? 0 : fixedSize + shape.identifier.size() + 1) + bigEndian(0) +
                    bigEndian(0, 8) + bigEndian(0, 8) + bigEndian(code.size(), 8) + bigEndian(1, 8) +
                    bigEndian(shape.runtime) + bigEndian(0) + names + hashes(code, shape, type, specialCount));
}

/// The signed attributes that name the directories.
std::vector<std::pair<std::string, std::string>> digestAttributes(const std::vector<std::string>& directories,
                                                                  const std::vector<HashType>& types) {
    const std::string sha2("\x60\x86\x48\x01\x65\x03\x04\x02", 8);
    PropertyList::Array list;
    std::string set;
    for (std::size_t index = 0; index < types.size(); ++index) {
        const DigestKind kind = digestKind(types[index]);
        const std::string hash = digest(kind, directories[index]);
        const std::string oid =
            kind == DigestKind::sha1 ? "\x2b\x0e\x03\x02\x1a" : sha2 + (kind == DigestKind::sha256 ? '\x01' : '\x02');
        list.push_back({Data{hash.substr(0, 20)}});
        set.insert(0, der('\x30', der('\x06', oid) + der('\x04', hash)));
    }
    const std::string text = PropertyList::serializedXML({Dictionary{{"cdhashes", {list}}}});
    return {{"1.2.840.113635.100.9.2", set}, {"1.2.840.113635.100.9.1", der('\x04', text)}};
}

std::string message(const std::vector<std::string>& directories, const SignatureShape& shape) {
    MessageShape wanted{.stamper = shape.stamper, .stampedAt = shape.stampedAt};
    if (shape.namesDigests) wanted.attributes = digestAttributes(directories, shape.hashes);
    if (shape.editMessage) shape.editMessage(wanted);
    return signedMessage(*shape.signer, shape.issuers, directories.front(), wanted);
}

/// The parts of a slice in the byte order and width of its processor.
class SliceWriter {
  public:
    explicit SliceWriter(const Architecture& architecture)
        : isWide_((architecture.cpuType & 0x01000000) != 0), isBigEndian_((architecture.cpuType & 0xFF) == 18) {}

    bool isWide() const { return isWide_; }
    std::string word(std::uint64_t value, int size = 4) const {
        return isBigEndian_ ? bigEndian(value, size) : littleEndian(value, size);
    }
    /// As wide as an address.
    std::string address(std::uint64_t value) const { return word(value, isWide_ ? 8 : 4); }
    static std::string name(std::string text) { return text.append(16 - text.size(), '\0'); }

    std::string segment(const std::string& segmentName, std::uint64_t offset, std::uint64_t size,
                        const std::string& section = "") const {
        const std::uint64_t commandSize = (isWide_ ? 72 : 56) + section.size();
        return word(isWide_ ? 0x19 : 1) + word(commandSize) + name(segmentName) + address(offset) + address(size) +
               address(offset) + address(size) + word(7) + word(5) + word(section.empty() ? 0 : 1) + word(0) + section;
    }
    std::string section(std::uint64_t offset, std::uint64_t size) const {
        return name("__info_plist") + name("__TEXT") + address(offset) + address(size) + word(offset) +
               std::string(isWide_ ? 28 : 24, '\0');
    }

  private:
    bool isWide_, isBigEndian_;
};

constexpr std::size_t commandsRoom = 1024;
constexpr std::size_t symbolsSize = 64;

/// Bytes that a slice keeps for its signature; the load commands, which are signed, state them.
std::size_t signatureRoom(const SignatureShape& shape, std::size_t codeSize) {
    const std::size_t pages = shape.pageSize == 0 ? 1 : codeSize / shape.pageSize + 1;
    const std::size_t fixed = shape.signer == nullptr ? 256 : 16384;
    const std::size_t directory = 200 + shape.identifier.size() + shape.team.size() + 48 * (pages + 8);
    return (fixed + directory * shape.hashes.size() + shape.requirements.size() + shape.entitlements.size() +
            shape.entitlementsDER.size()) /
           16 * 16;
}

/// A slice without its signature, whose load commands tell of it.
std::string unsignedSlice(const Architecture& architecture, const CodeShape& code, const SignatureShape& signature) {
    const SliceWriter writer(architecture);
    const std::string& info = code.infoPropertyList;
    const std::size_t textSize = (commandsRoom + info.size() + code.fillerSize + 15) / 16 * 16;
    const std::size_t end = textSize + symbolsSize;
    const std::size_t room = code.isSigned ? signatureRoom(signature, end) : 0;
    std::string commands =
        writer.segment("__TEXT", 0, textSize, info.empty() ? "" : writer.section(commandsRoom, info.size())) +
        writer.segment("__LINKEDIT", textSize, symbolsSize + room);
    if (code.isSigned) commands += writer.word(0x1D) + writer.word(16) + writer.word(end) + writer.word(room);
    std::string slice = writer.word(writer.isWide() ? 0xFEEDFACF : 0xFEEDFACE) + writer.word(architecture.cpuType) +
                        writer.word(architecture.cpuSubtype) + writer.word(2) + writer.word(code.isSigned ? 3 : 2) +
                        writer.word(commands.size()) + std::string(writer.isWide() ? 8 : 4, '\0') + commands;
    slice.resize(commandsRoom);
    slice += info;
    while (slice.size() < textSize) slice += static_cast<char>(slice.size() / 4096 + slice.size());
    return slice + std::string(symbolsSize, 's');
}

std::string signedSlice(const Architecture& architecture, const CodeShape& code, SignatureShape signature,
                        std::vector<std::string>& cdhashes) {
    if (signature.infoPropertyList.empty()) signature.infoPropertyList = code.infoPropertyList;
    std::string slice = unsignedSlice(architecture, code, signature);
    if (!code.isSigned) return slice;
    const Components components = signatureComponents(slice, signature);
    const HashType last = signature.hashes.back();
    cdhashes.push_back(digest(digestKind(last), codeDirectory(slice, signature, last)).substr(0, 20));
    std::string bytes = superBlob(components);
    const std::size_t room = signatureRoom(signature, slice.size());
    if (bytes.size() > room) throw std::length_error("test code: the signature is longer than its room");
    bytes.resize(room);
    return slice + bytes;
}

/// What the platform's own tool seals a bundle by.
Dictionary usualRules() {
    const auto rule = [](double weight, const char* flag = nullptr) {
        Dictionary content{{"weight", {weight}}};
        if (flag != nullptr) content[flag] = {true};
        return Value{content};
    };
    return {{"^.*", {true}},
            {"^[^/]+$", rule(10, "nested")},
            {"^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|"
             "Library/(Automator|Spotlight|LoginItems))/",
             rule(10, "nested")},
            {".*\\.dSYM($|/)", rule(11)},
            {"^Info\\.plist$", rule(20, "omit")},
            {"^PkgInfo$", rule(20, "omit")},
            {"^version\\.plist$", rule(20)},
            {"^embedded\\.provisionprofile$", rule(20)},
            {"^Resources/", rule(20)},
            {"^Resources/.*\\.lproj/", rule(1000, "optional")},
            {"^Resources/Base\\.lproj/", rule(1010)},
            {"^Resources/.*\\.lproj/locversion.plist$", rule(1100, "omit")},
            {"^(.*/)?\\.DS_Store$", rule(2000, "omit")}};
}

/// The older pair's rules: those of the newer one that speak of resources, without a rule for all else.
Dictionary olderRules() {
    Dictionary rules = usualRules();
    std::erase_if(rules, [](const auto& rule) { return !rule.first.starts_with("^Resources/"); });
    rules["^Resources/"] = {true};
    rules["^version.plist$"] = {true};
    return rules;
}

Value fileSeal(const std::string& path, const std::string& content, bool isOlder) {
    const Data sha1{digest(DigestKind::sha1, content)};
    const bool isOptional = path.find(".lproj/") != std::string::npos && path.find("Base.lproj/") == std::string::npos;
    if (isOlder && !isOptional) return {sha1};
    Dictionary seal{{"hash", {sha1}}};
    if (!isOlder) seal["hash2"] = {Data{digest(DigestKind::sha256, content)}};
    if (isOptional) seal["optional"] = {true};
    return {seal};
}

Value nestedSeal(const std::vector<std::string>& cdhashes) {
    std::string requirement;
    for (const std::string& each : cdhashes) {
        requirement += (requirement.empty() ? "" : " or ") + ("cdhash H\"" + hexadecimal(each) + '"');
    }
    return {Dictionary{{"cdhash", {Data{cdhashes.front()}}}, {"requirement", {requirement}}}};
}

Dictionary seal(const FileURL& root, const std::string& executable,
                const std::map<std::string, std::vector<std::string>>& nested) {
    const std::set<std::string> leftOut{"Info.plist", "PkgInfo", "_CodeSignature", "CodeResources", executable};
    Dictionary files, files2;
    for (auto item = std::filesystem::recursive_directory_iterator(root);
         item != std::filesystem::recursive_directory_iterator(); ++item) {
        const std::string path = item->path().lexically_relative(root).string();
        const auto code = nested.find(path);
        if (leftOut.contains(path) || code != nested.end()) item.disable_recursion_pending();
        if (leftOut.contains(path) || ExtendedAttributes::isCompanion(item->path())) continue;
        if (code != nested.end()) {
            files2[path] = nestedSeal(code->second);
        } else if (item->is_symlink()) {
            files2[path] = {Dictionary{{"symlink", {std::filesystem::read_symlink(item->path()).string()}}}};
        } else if (item->is_regular_file()) {
            files2[path] = fileSeal(path, read(item->path()), false);
            if (path.starts_with("Resources/")) files[path] = fileSeal(path, read(item->path()), true);
        }
    }
    return {{"files", {files}}, {"files2", {files2}}, {"rules", {olderRules()}}, {"rules2", {usualRules()}}};
}

void writeInfo(const FileURL& url, const BundleShape& shape, const char* type) {
    Dictionary info = shape.info;
    info.insert({{"CFBundleIdentifier", {shape.signature.identifier}},
                 {"CFBundleExecutable", {shape.name}},
                 {"CFBundlePackageType", {type}}});
    FileManager::createDirectory(deletingLastPathComponent(url));
    FileManager::writeFile(url, PropertyList::serializedXML({info}));
}

void makeExecutable(const FileURL& url, const std::string& content) {
    FileManager::createDirectory(deletingLastPathComponent(url));
    FileManager::writeFile(url, content);
    std::filesystem::permissions(url, std::filesystem::perms(0755));
}

/// Of nested code: signed as the code around it is.
BundleShape inner(const BundleShape& shape, const std::string& suffix) {
    BundleShape found{.name = "Test", .code = shape.code, .signature = shape.signature};
    found.code.infoPropertyList.clear();
    if (found.code.architectures.empty()) found.code.architectures = CodeShape().architectures;
    found.signature.identifier += suffix;
    return found;
}

} // namespace

std::string bigEndian(std::uint64_t value, int size) {
    const std::string bytes = littleEndian(value, size);
    return {bytes.rbegin(), bytes.rend()};
}

std::string blob(std::uint32_t magic, const std::string& content) {
    return bigEndian(magic) + bigEndian(content.size() + 8) + content;
}

SignatureShape developerSignature() {
    const World& world = World::shared();
    return {.team = "TEAM123456",
            .signer = &world.application,
            .issuers = {world.developerAuthority.certificate, world.root.certificate}};
}

SignatureShape administratorSignature() {
    const World& world = World::shared();
    return {.team = "TEAM123456", .signer = &world.adminApplication, .issuers = {world.adminRoot.certificate}};
}

Components signatureComponents(const std::string& code, const SignatureShape& shape) {
    Components components = specialComponents(shape);
    components.erase(Slot::infoPropertyList);
    components.erase(Slot::resourceDirectory);
    std::vector<std::string> directories;
    for (const HashType type : shape.hashes) directories.push_back(codeDirectory(code, shape, type));
    components[Slot::codeDirectory] = directories.front();
    for (std::uint32_t index = 1; index < directories.size(); ++index) {
        components[static_cast<Slot>(0x1000 + index - 1)] = directories[index];
    }
    components[Slot::signature] = shape.signer == nullptr ? "" : message(directories, shape);
    return components;
}

std::string superBlob(const Components& components) {
    std::string index, content;
    const std::size_t start = 12 + 8 * components.size();
    for (const auto& [slot, bytes] : components) {
        index += bigEndian(static_cast<std::uint64_t>(slot)) + bigEndian(start + content.size());
        content += slot == Slot::signature ? blob(0xFADE0B01, bytes) : bytes;
    }
    return blob(0xFADE0CC0, bigEndian(components.size()) + index + content);
}

SignedCode machO(const CodeShape& code, const SignatureShape& signature) {
    constexpr std::size_t alignment = 4096;
    SignedCode made;
    std::string header = bigEndian(0xCAFEBABE) + bigEndian(code.architectures.size());
    std::string content;
    for (const Architecture& each : code.architectures) {
        content = padded(content, alignment);
        const std::string slice = signedSlice(each, code, signature, made.cdhashes);
        header += bigEndian(each.cpuType) + bigEndian(each.cpuSubtype) + bigEndian(alignment + content.size()) +
                  bigEndian(slice.size()) + bigEndian(12);
        content += slice;
    }
    made.bytes = code.architectures.size() == 1 ? content : padded(header, alignment) + content;
    return made;
}

std::vector<std::string> makeTool(const FileURL& file, const CodeShape& code, const SignatureShape& signature) {
    SignedCode made = machO(code, signature);
    makeExecutable(file, made.bytes);
    return made.cdhashes;
}

std::vector<std::string> signFolder(const FileURL& root, const FileURL& infoPropertyList, const std::string& executable,
                                    const BundleShape& shape,
                                    const std::map<std::string, std::vector<std::string>>& nested) {
    Dictionary sealed = seal(root, executable, nested);
    if (shape.editSeal) shape.editSeal(sealed);
    SignatureShape signature = shape.signature;
    signature.infoPropertyList = read(infoPropertyList);
    signature.resourceDirectory = PropertyList::serializedXML({sealed});
    FileManager::createDirectory(root / "_CodeSignature");
    FileManager::writeFile(root / "_CodeSignature/CodeResources", signature.resourceDirectory);
    if (!shape.code.architectures.empty()) return makeTool(root / executable, shape.code, signature);
    const std::string script = "#!/bin/sh\nexit 0\n";
    makeExecutable(root / executable, script);
    for (const auto& [slot, bytes] : signatureComponents(script, signature)) {
        FileManager::writeFile(root / "_CodeSignature" / CodeSignature::componentName(slot), bytes);
    }
    const HashType last = signature.hashes.back();
    return {digest(digestKind(last), codeDirectory(script, signature, last)).substr(0, 20)};
}

std::vector<std::string> makeFramework(const FileURL& folder, const BundleShape& shape) {
    const FileURL version = folder / "Versions/A";
    writeInfo(version / "Resources/Info.plist", shape, "FMWK");
    std::filesystem::create_symlink("A", folder / "Versions/Current");
    for (const std::string& name : {shape.name, std::string("Resources")}) {
        std::filesystem::create_symlink("Versions/Current/" + name, folder / name);
    }
    return signFolder(version, version / "Resources/Info.plist", shape.name, shape);
}

std::vector<std::string> makeApplication(const FileURL& folder, const BundleShape& shape) {
    const FileURL contents = folder / "Contents";
    std::map<std::string, std::vector<std::string>> nested;
    if (shape.hasFramework) {
        const std::string path = "Frameworks/Test.framework";
        nested[path] = makeFramework(contents / path, inner(shape, ".framework"));
    }
    if (shape.hasHelper) {
        const BundleShape helper = inner(shape, ".helper");
        nested["MacOS/helper"] = makeTool(contents / "MacOS/helper", helper.code, helper.signature);
    }
    writeInfo(contents / "Info.plist", shape, "APPL");
    FileManager::writeFile(contents / "PkgInfo", "APPL????");
    FileManager::createDirectory(contents / "Resources/en.lproj");
    FileManager::writeFile(contents / "Resources/a.txt", "a");
    FileManager::writeFile(contents / "Resources/en.lproj/text.strings", "text");
    std::filesystem::create_symlink("a.txt", contents / "Resources/link");
    if (shape.prepare) shape.prepare(contents);
    std::vector<std::string> cdhashes =
        signFolder(contents, contents / "Info.plist", "MacOS/" + shape.name, shape, nested);
    for (const auto& [path, hashes] : nested) cdhashes.insert(cdhashes.end(), hashes.begin(), hashes.end());
    return cdhashes;
}

} // namespace corvane::TestSupport
