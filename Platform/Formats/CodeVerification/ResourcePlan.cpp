#include "Platform/Formats/CodeVerification/ResourcePlan.hpp"

#include "Platform/Formats/CodeBundle/FileKind.hpp"
#include "Platform/Formats/CodeResources/ResourceScan.hpp"
#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Support/FileManager.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>

namespace corvane::CodeSignature {
namespace {

using CodeResources::FoundResource;
using CodeResources::Seal;
using CodeResources::SealedResources;
using Note = FileNote::Kind;

/// Where links that begin at the root may lead: folders that belong to the system. They are not on this one.
constexpr std::array<std::string_view, 2> systemFolders{"/System/", "/Library/"};

/// The list of sealed resources, when the slices' directories and the disk agree that there is one.
std::optional<std::string> readSealedResources(const VerifiedCode& code) {
    const auto allHave = [&](auto has) {
        return std::all_of(code.slices.begin(), code.slices.end(), [&](const SignedSlice& slice) {
            return std::all_of(slice.directories.all.begin(), slice.directories.all.end(), has);
        });
    };
    const auto hasSlot = [](const CodeDirectory& each) {
        return each.specialSlot(Slot::resourceDirectory).has_value();
    };
    if (!code.object.bundle) {
        if (allHave([&](const CodeDirectory& each) { return !hasSlot(each); })) return std::nullopt;
        throw CodeFailure{.problem = CodeProblem::resourcesNotFound};
    }
    const FileURL file = code.object.bundle->sealedResourcesURL();
    // Reading a pipe would wait forever.
    if (!allHave(hasSlot) || !FileKind::leadsToFile(file)) {
        throw CodeFailure{.problem = CodeProblem::resourcesNotFound};
    }
    std::string bytes = FileManager::readFile(file, PropertyList::sizeLimit);
    if (!allHave([&](const CodeDirectory& each) { return each.matches(Slot::resourceDirectory, bytes); })) {
        throw CodeFailure{.problem = CodeProblem::resourceDirectoryFailed};
    }
    return bytes;
}

SealedResources parseSealedResources(const std::string& bytes) try {
    return SealedResources::parse(bytes, "CodeResources");
} catch (const FormatError&) {
    throw CodeFailure{.problem = CodeProblem::resourceDirectoryFailed};
} catch (const PropertyList::Error&) {
    throw CodeFailure{.problem = CodeProblem::resourceDirectoryFailed};
}

void checkRules(const SealedResources& resources) {
    if (resources.rules.areWeak(resources.version)) throw CodeFailure{.problem = CodeProblem::weakRules};
    if (resources.version == 1) throw CodeFailure{.problem = CodeProblem::oldEnvelope};
}

/// The rules of the list. The main executable is sealed by its own pages.
CodeResources::ResourceRules completeRules(const VerifiedCode& code) {
    CodeResources::ResourceRules rules = code.sealedResources->rules;
    const BundleLayout& bundle = *code.object.bundle;
    if (bundle.executable) rules.exclude(bundle.executable->lexically_relative(bundle.resourceRoot).string());
    return rules;
}

/// Plans the resources of one bundle.
class ResourcePlan {
  public:
    ResourcePlan(VerifiedCode& code, const CodePlan::Place& place, const PlanSetting& setting, Checks& checks)
        : code_(code),
          place_(place),
          setting_(setting),
          checks_(checks),
          scope_{.root = std::filesystem::canonical(root()),
                 .executable = std::filesystem::canonical(code.object.executable),
                 .rules = completeRules(code),
                 .outer = place.outer} {}

    void make() {
        const auto& sealed = code_.sealedResources->files;
        std::set<std::string_view> found;
        const auto resources = CodeResources::scan(root(), scope_.rules);
        for (const FoundResource& resource : resources) {
            const auto seal = sealed.find(resource.path);
            if (seal != sealed.end()) found.insert(seal->first);
            plan(resource, seal == sealed.end() ? nullptr : &seal->second);
        }
        for (const auto& [path, seal] : sealed) {
            if (!seal.isOptional && !found.contains(path)) fail(Note::missing, path);
        }
        checks_.endResources();
    }

  private:
    const FileURL& root() const { return code_.object.bundle->resourceRoot; }
    bool isStrict() const { return setting_.options.isStrict; }

    void fail(Note kind, const std::string& path, const char* problem = CodeProblem::resourceFailed) {
        checks_.addResourceFailure(problem, {.kind = kind, .file = root() / path});
    }

    void plan(const FoundResource& found, const Seal* seal) {
        using Kind = FoundResource::Kind;
        if (found.kind == Kind::unsupported || found.kind == Kind::unreadableFolder) {
            if (isStrict()) refuse(found.kind);
            if (seal != nullptr) fail(Note::modified, found.path);
            return;
        }
        if (seal == nullptr) return fail(Note::added, found.path);
        if (seal->kind == Seal::Kind::nestedCode && found.kind != Kind::link) return planNested(found, *seal);
        if (seal->kind == Seal::Kind::link && found.kind == Kind::link) return planLink(found.path, seal->linkTarget);
        if (seal->kind == Seal::Kind::file && found.kind == Kind::file) return planFile(found, *seal);
        fail(Note::modified, found.path);
    }

    [[noreturn]] static void refuse(FoundResource::Kind kind) {
        const bool isUnreadable = kind == FoundResource::Kind::unreadableFolder;
        throw CodeFailure{.problem = isUnreadable ? CodeProblem::notReadable : CodeProblem::unsupportedResource};
    }

    void planFile(const FoundResource& found, const Seal& seal) {
        HashJob job{.file = root() / found.path, .length = found.size, .isWholeFile = true};
        for (const auto& [kind, digest] : seal.digests) {
            job.expected.push_back({.kind = kind, .size = digest.size(), .digests = digest});
        }
        const FileURL file = job.file;
        checks_.addResourceJob(setting_.work.add(std::move(job)), CodeProblem::resourceFailed,
                               {.kind = Note::modified, .file = file});
        if (!isStrict()) return;
        for (FileNote& note : detritus(file)) checks_.addResourceFailure(CodeProblem::detritus, std::move(note));
    }

    void planLink(const std::string& path, const std::string& target) {
        if (FileManager::linkTarget(root() / path) != target) return fail(Note::modified, path);
        if (isStrict() && !leadsToSealed(path, target)) fail(Note::modified, path, CodeProblem::badLink);
    }

    bool leadsToSealed(const std::string& path, const FileURL& target) const {
        if (target.is_absolute()) {
            const std::string plain = target.lexically_normal().string();
            return std::any_of(systemFolders.begin(), systemFolders.end(),
                               [&](std::string_view folder) { return plain.starts_with(folder); });
        }
        std::error_code error;
        const FileURL resolved = std::filesystem::canonical((root() / path).parent_path() / target, error);
        return !error && scope_.covers(resolved);
    }

    void planNested(const FoundResource& found, const Seal& seal) {
        const Requirement requirement = parseRequirement(seal.requirement);
        const FileURL url = root() / found.path;
        CodePlan plan = planCode(url, "", requirement);
        const auto otherVersions = plan.code && plan.code->object.bundle ? plan.code->object.bundle->otherVersions()
                                                                         : std::vector<std::string>();
        adopt(plan);
        checks_.addNested(url, std::move(plan.checks));
        // A file stands for its own version only, which would otherwise be verified once for every other.
        if (!isStrict() || found.kind != FoundResource::Kind::nestedFolder) return;
        for (const std::string& version : otherVersions) {
            CodePlan other = planCode(url, version, requirement);
            adopt(other);
            checks_.addOtherVersion(url, std::move(other.checks));
        }
    }

    static Requirement parseRequirement(const std::string& text) try {
        return Requirement::parseText(text);
    } catch (const FormatError&) {
        throw CodeFailure{.problem = CodeProblem::resourceDirectoryFailed};
    }

    CodePlan planCode(const FileURL& url, const std::string& version, const Requirement& requirement) {
        return CodePlan::of(
            {.path = url, .version = version, .requirement = &requirement, .outer = &scope_, .depth = place_.depth + 1},
            setting_);
    }

    void adopt(CodePlan& plan) {
        if (plan.code) code_.nested.push_back(std::move(plan.code));
    }

    VerifiedCode& code_;
    const CodePlan::Place& place_;
    const PlanSetting& setting_;
    Checks& checks_;
    SealedScope scope_;
};

} // namespace

void planResources(VerifiedCode& code, const CodePlan::Place& place, const PlanSetting& setting, Checks& checks) {
    const auto bytes = readSealedResources(code);
    if (!bytes) return;
    code.sealedResources = parseSealedResources(*bytes);
    if (setting.options.isStrict) checkRules(*code.sealedResources);
    ResourcePlan(code, place, setting, checks).make();
}

std::vector<FileNote> detritus(const FileURL& file) {
    std::vector<FileNote> notes;
    for (const std::string& name : ExtendedAttributes::names(file)) {
        if (name == ExtendedAttributes::finderInfo || name == ExtendedAttributes::resourceFork) {
            notes.push_back({.kind = Note::detritus, .file = file, .attribute = name});
        }
    }
    return notes;
}

} // namespace corvane::CodeSignature
