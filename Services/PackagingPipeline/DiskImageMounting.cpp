#include "Services/PackagingPipeline/DiskImageMounting.hpp"

#include "Support/FileManager.hpp"
#include "Support/PropertyList.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <optional>

namespace corvane::Packaging {
namespace {

using PropertyList::Array;
using PropertyList::Dictionary;
using PropertyList::Value;

constexpr const char* hdiutil = "/usr/bin/hdiutil";

/// The text under a key; null when there is none.
const std::string* text(const Value& dictionary, std::string_view key) {
    const Value* value = dictionary.find(key);
    return value != nullptr ? value->get<std::string>() : nullptr;
}

/// The dictionaries under a key; none when anything else stands there, or among them.
Array dictionaries(const Value& dictionary, std::string_view key) {
    const Value* value = dictionary.find(key);
    const Array* array = value != nullptr ? value->get<Array>() : nullptr;
    const auto isDictionary = [](const Value& element) { return element.get<Dictionary>() != nullptr; };
    if (array == nullptr || !std::all_of(array->begin(), array->end(), isDictionary)) return {};
    return *array;
}

/// What two ways of writing a path have in common when they lead to the same place.
FileURL resolved(const FileURL& url) {
    std::error_code failure;
    const FileURL standard = standardized(std::filesystem::absolute(url, failure));
    FileURL target = std::filesystem::weakly_canonical(standard, failure);
    return failure ? standard : target;
}

bool isReadOnly(const Value& image) {
    const Value* writeable = image.find("writeable");
    const bool* value = writeable != nullptr ? writeable->get<bool>() : nullptr;
    return value != nullptr && !*value;
}

/// Where the first of an image's volumes that is mounted stands.
std::optional<FileURL> mountPoint(const Value& image) {
    for (const Value& entity : dictionaries(image, "system-entities")) {
        const std::string* path = text(entity, "mount-point");
        if (path == nullptr) continue;
        const FileURL folder(*path);
        return folder.has_filename() ? folder : folder.parent_path();
    }
    return std::nullopt;
}

/// What is attached now; nothing when the list cannot be had.
std::optional<FileURL> existingReadOnlyMount(const Context& context) {
    const CommandResult list = context.run(hdiutil, {"info", "-plist"});
    if (!list.succeeded()) return std::nullopt;
    const std::vector<FileURL> mounts = readOnlyMounts(context.configuration.inputURL, list.standardOutput);
    return mounts.empty() ? std::nullopt : std::optional(mounts.front());
}

/// Asks the front end, as often as it takes, until its user has mounted the image.
FileURL mountWithInteraction(const Context& context, const std::string& attachError) {
    const std::string reason = Text::trimmingWhitespaceAndNewlines(attachError);
    const std::string message = "Automatic mount needs user interaction";
    context.log(reason.empty() ? message : message + ": " + Text::firstLine(reason));
    for (;;) {
        context.emit(PipelineEvents::MountInteractionRequired{});
        context.mountInteractionGate->wait(context.stop);
        if (auto mount = existingReadOnlyMount(context)) {
            context.log("Confirmed read-only mount at " + mount->string());
            return *mount;
        }
        context.log("No read-only mount detected yet; requesting user interaction again");
    }
}

} // namespace

std::vector<FileURL> readOnlyMounts(const FileURL& image, std::string_view hdiutilInfo) {
    Value list;
    try {
        list = PropertyList::parse(hdiutilInfo, "the list of attached images");
    } catch (const PropertyList::Error&) {
        return {};
    }
    const FileURL target = resolved(image);
    std::vector<FileURL> mounts;
    for (const Value& each : dictionaries(list, "images")) {
        const std::string* path = text(each, "image-path");
        if (!isReadOnly(each) || path == nullptr || resolved(*path) != target) continue;
        const std::optional<FileURL> mount = mountPoint(each);
        if (!mount || !FileManager::isDirectory(*mount)) continue;
        if (std::find(mounts.begin(), mounts.end(), *mount) == mounts.end()) mounts.push_back(*mount);
    }
    return mounts;
}

void mountDiskImage(Context& context) {
    FileManager::createPrivateDirectory(context.workDirectory);
    context.begin(PipelineStep::mount);
    const FileURL privateMountPoint = context.workDirectory / "mnt";
    FileManager::createDirectory(privateMountPoint);
    const std::string input = context.configuration.inputURL.string();
    const CommandResult attach = context.run(
        hdiutil, {"attach", input, "-nobrowse", "-readonly", "-noautoopen", "-mountpoint", privateMountPoint.string()});
    if (attach.succeeded()) {
        context.mountPoint = privateMountPoint;
        context.ownsMount = true;
    } else if (auto mount = existingReadOnlyMount(context)) {
        context.log("Image already mounted read-only at " + mount->string() + "; reusing it");
        context.mountPoint = mount;
    } else {
        context.mountPoint = mountWithInteraction(context, attach.standardError);
    }
    context.end(PipelineStep::mount);
}

} // namespace corvane::Packaging
