#include "Platform/Formats/CodeVerification/CodeDescription.hpp"

#include "Platform/Formats/CodeBundle/FileKind.hpp"
#include "Platform/Formats/CodeResources/SealedResources.hpp"
#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Formats/CodeSignature/CodeSigner.hpp"
#include "Platform/Formats/CodeSignature/Requirement.hpp"
#include "Platform/Formats/CodeVerification/CodeObject.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

namespace corvane::CodeSignature {
namespace {

constexpr std::array<std::pair<std::uint32_t, const char*>, 10> flagNames{{{0x1, "host"},
                                                                           {0x2, "adhoc"},
                                                                           {0x100, "hard"},
                                                                           {0x200, "kill"},
                                                                           {0x400, "expires"},
                                                                           {0x800, "restrict"},
                                                                           {0x1000, "enforcement"},
                                                                           {0x2000, "library-validation"},
                                                                           {0x10000, "runtime"},
                                                                           {0x20000, "linker-signed"}}};

std::string hexadecimalNumber(std::uint32_t number) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    do {
        text.insert(text.begin(), digits[number & 15]);
        number >>= 4;
    } while (number > 0);
    return "0x" + text;
}

std::string flagText(std::uint32_t flags) {
    std::vector<std::string> names;
    for (const auto& [bit, name] : flagNames) {
        if ((flags & bit) != 0) names.emplace_back(name);
        flags &= ~bit;
    }
    if (flags != 0) names.push_back("???");
    return names.empty() ? "none" : Text::joined(names, ",");
}

const CodeArchitecture& preferred(const CodeObject& object) {
    const auto& all = object.architectures;
    const auto found = std::find_if(all.begin(), all.end(),
                                    [](const CodeArchitecture& each) { return each.name.starts_with("arm64"); });
    return found == all.end() ? all.front() : *found;
}

/// Collects the lines about one slice.
class Description {
  public:
    Description(const CodeObject& object, const CodeArchitecture& architecture, int verbosity)
        : object_(object),
          architecture_(architecture),
          verbosity_(verbosity),
          directories_(CodeDirectories::of(architecture.components)),
          directory_(directories_.best()) {}

    std::string text(const CodeTrust& trust) {
        line("Executable", std::filesystem::absolute(object_.executable).lexically_normal().string());
        if (verbosity_ == 0) return text_;
        line("Identifier", directory_.identifier());
        line("Format", object_.format());
        text_ += "CodeDirectory " + directoryText() + "\n";
        if (verbosity_ >= 3) addDigests();
        addSigner(trust.settings);
        if (trust.tickets.isStapled && trust.tickets.name(directories_)) line("Notarization Ticket", "stapled");
        addInfoPropertyList();
        line("TeamIdentifier", directory_.teamIdentifier().value_or("not set"));
        if (const auto version = directory_.runtimeVersion()) line("Runtime Version", *version);
        addSealedResources();
        addRequirements();
        return text_;
    }

  private:
    void line(const std::string& name, const std::string& value) {
        text_ += Text::printable(name + "=" + value) + "\n";
    }

    std::string directoryText() const {
        return "v=" + hexadecimalNumber(directory_.version()).substr(2) +
               " size=" + std::to_string(directory_.blob().size()) + " flags=" + hexadecimalNumber(directory_.flags()) +
               "(" + flagText(directory_.flags()) + ") hashes=" + std::to_string(directory_.codeSlotCount()) + "+" +
               std::to_string(directory_.specialSlotCount()) + " location=embedded";
    }

    void addDigests() {
        line("Hash type", std::string(hashName(directory_)) + " size=" + std::to_string(directory_.hashSize()));
        std::vector<std::string> names;
        for (const CodeDirectory& each : directories_.all) names.emplace_back(hashName(each));
        line("Hash choices", Text::joined(names, ","));
        line("CDHash", hexadecimal(directory_.cdhash()));
    }

    static std::string_view hashName(const CodeDirectory& directory) { return digestName(directory.digestKind()); }

    void addSigner(const TrustSettings& trust) {
        if (directory_.isAdhoc()) return line("Signature", "adhoc");
        const std::string* cms = architecture_.components.find(Slot::signature);
        line("Signature size", std::to_string(cms == nullptr ? 0 : cms->size()));
        try {
            if (cms == nullptr) throw FormatError("signature: absent");
            addSigner(CodeSigner::verify(*cms, directories_, trust));
        } catch (const FormatError&) {
            if (verbosity_ >= 2) line("Authority", "(unavailable)");
        }
    }

    void addSigner(const CodeSigner& signer) {
        if (verbosity_ >= 2) {
            for (const Certificate& certificate : signer.certificates()) line("Authority", certificate.commonName());
        }
        if (signer.timestamp) {
            line("Timestamp", timeText(*signer.timestamp));
        } else if (signer.signingTime) {
            line("Signed Time", timeText(*signer.signingTime));
        }
    }

    void addInfoPropertyList() {
        const auto bytes = object_.infoPropertyList(architecture_);
        if (!bytes || !directory_.specialSlot(Slot::infoPropertyList)) return line("Info.plist", "not bound");
        const PropertyList::Value list = PropertyList::parse(*bytes, "Info.plist");
        const auto* entries = list.get<PropertyList::Dictionary>();
        line("Info.plist entries", std::to_string(entries == nullptr ? 0 : entries->size()));
    }

    void addSealedResources() {
        const bool isSealed = object_.bundle && directory_.specialSlot(Slot::resourceDirectory);
        if (!isSealed || !FileKind::leadsToFile(object_.bundle->sealedResourcesURL())) {
            return line("Sealed Resources", "none");
        }
        const std::string bytes = FileManager::readFile(object_.bundle->sealedResourcesURL(), PropertyList::sizeLimit);
        const auto resources = CodeResources::SealedResources::parse(bytes, "CodeResources");
        line("Sealed Resources version", std::to_string(resources.version) +
                                             " rules=" + std::to_string(resources.rules.count()) +
                                             " files=" + std::to_string(resources.files.size()));
    }

    void addRequirements() {
        const std::string* blob = architecture_.components.find(Slot::requirements);
        if (blob == nullptr) return line("Internal requirements", "none");
        line("Internal requirements count",
             std::to_string(RequirementSet::parse(*blob).count) + " size=" + std::to_string(blob->size()));
    }

    const CodeObject& object_;
    const CodeArchitecture& architecture_;
    int verbosity_;
    CodeDirectories directories_;
    const CodeDirectory& directory_;
    std::string text_;
};

} // namespace

CodeDescription CodeDescription::of(const FileURL& path, int verbosity, const CodeTrust& trust) try {
    const CodeObject object = CodeObject::open(path);
    const CodeArchitecture& architecture = preferred(object);
    if (!architecture.components.isSigned()) throw CodeFailure{.problem = CodeProblem::notSigned};
    return {.text = Description(object, architecture, verbosity).text(trust)};
} catch (const UnsupportedVersion&) {
    throw CodeFailure{.problem = CodeProblem::unsupportedVersion};
} catch (const FormatError&) {
    throw CodeFailure{.problem = CodeProblem::signatureInvalid};
} catch (const PropertyList::Error&) {
    throw CodeFailure{.problem = CodeProblem::signatureInvalid};
}

} // namespace corvane::CodeSignature
