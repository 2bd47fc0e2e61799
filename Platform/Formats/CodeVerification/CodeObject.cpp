#include "Platform/Formats/CodeVerification/CodeObject.hpp"

#include "Platform/Formats/ByteSource.hpp"
#include "Platform/Formats/CodeSignature/CodeProblem.hpp"
#include "Platform/Formats/CodeSignature/SuperBlob.hpp"
#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <fcntl.h>

#include <algorithm>

namespace corvane::CodeSignature {
namespace {

std::string readRange(int descriptor, const FileURL& file, const MachO::Slice& slice, const MachO::Range& range) {
    if (range.size > componentSizeLimit) throw FormatError("Mach-O: a part of more than 64 MiB");
    FileRange source(descriptor, file, slice.offset + range.offset, range.size);
    return readAll(source, componentSizeLimit, "Mach-O");
}

/// Reads a slice and its signature. What is damaged in them is a failure of that architecture.
CodeArchitecture readSlice(int descriptor, const FileURL& file, const MachO::Slice& slice) {
    CodeArchitecture architecture;
    architecture.name = MachO::architectureName(slice);
    architecture.slice = slice;
    try {
        architecture.image = MachO::Image::read(descriptor, file, slice);
        if (const auto& signature = architecture.image.signature) {
            architecture.components = readSuperBlob(readRange(descriptor, file, slice, *signature));
        }
    } catch (const FormatError&) {
        throw CodeFailure{.problem = CodeProblem::signatureInvalid, .architecture = architecture.name};
    }
    return architecture;
}

/// Slices that share their bytes could make a small file large.
bool overlap(std::vector<MachO::Slice> slices) {
    std::ranges::sort(slices, {}, &MachO::Slice::offset);
    const auto found = std::adjacent_find(slices.begin(), slices.end(), [](const auto& left, const auto& right) {
        return left.offset + left.size > right.offset;
    });
    return found != slices.end();
}

/// None for a file that is no Mach-O file.
std::vector<MachO::Slice> readSlices(int descriptor, const FileURL& file, std::uint64_t size) {
    FileRange source(descriptor, file, 0, std::min<std::uint64_t>(size, MachO::headerSize));
    const std::string front = readAll(source, MachO::headerSize, "Mach-O");
    auto slices = MachO::slices(front, size);
    if (slices.empty() && MachO::isMachO(front)) throw FormatError("Mach-O: the header contradicts the file");
    if (overlap(slices)) throw FormatError("Mach-O: expected slices side by side, found some that overlap");
    return slices;
}

void readArchitectures(CodeObject& object) {
    const UniqueDescriptor file = object.openExecutable();
    const std::uint64_t size = FileManager::fileSize(object.executable);
    for (const MachO::Slice& slice : readSlices(file.get(), object.executable, size)) {
        object.architectures.push_back(readSlice(file.get(), object.executable, slice));
    }
    object.isMachO = !object.architectures.empty();
    if (object.isMachO) return;
    CodeArchitecture whole;
    whole.slice.size = size;
    whole.components = Components::ofAttributes(object.executable);
    object.architectures.push_back(std::move(whole));
}

/// The parts of a signature may stand in files of the bundle, but never some here and some there.
void readSignatureFolder(CodeObject& object) {
    const auto isSigned = [](const CodeArchitecture& each) { return each.components.isSigned(); };
    if (std::any_of(object.architectures.begin(), object.architectures.end(), isSigned)) return;
    const Components inFolder = Components::ofFolder(object.bundle->signatureFolder());
    for (CodeArchitecture& architecture : object.architectures) architecture.components = inFolder;
}

std::optional<BundleLayout> layout(const FileURL& path, const std::string& version) {
    if (!FileManager::isDirectory(path)) return BundleLayout::whoseExecutableIs(path);
    auto found = BundleLayout::of(path, version);
    if (!found || !(found->executable || found->infoPropertyListURL)) {
        throw CodeFailure{.problem = CodeProblem::badBundle};
    }
    return found;
}

} // namespace

UniqueDescriptor CodeObject::openExecutable() const {
    UniqueDescriptor descriptor(::open(executable.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!descriptor) throw FileError("Cannot open", executable, lastSystemError());
    return descriptor;
}

CodeObject CodeObject::open(const FileURL& path, const std::string& version) try {
    CodeObject object;
    object.bundle = layout(path, version);
    object.url = object.bundle ? object.bundle->root : path;
    object.executable = path;
    if (object.bundle) {
        object.executable =
            object.bundle->executable ? *object.bundle->executable : *object.bundle->infoPropertyListURL;
    }
    readArchitectures(object);
    if (object.bundle) readSignatureFolder(object);
    return object;
} catch (const PropertyList::Error&) {
    throw CodeFailure{.problem = CodeProblem::badBundle};
} catch (const FormatError&) {
    throw CodeFailure{.problem = CodeProblem::signatureInvalid};
}

std::string CodeObject::format() const {
    std::string text;
    if (bundle) text = bundle->isApplication() ? "app bundle" : "bundle";
    if (bundle && !bundle->executable) return text;
    if (bundle) text += " with ";
    if (!isMachO) return text + "generic";
    std::vector<std::string> names;
    for (const CodeArchitecture& each : architectures) names.push_back(each.name);
    const bool isUniversal = architectures.front().slice.offset > 0;
    return text + (isUniversal ? "Mach-O universal (" : "Mach-O thin (") + Text::joined(names, " ") + ")";
}

std::optional<std::string> CodeObject::infoPropertyList(const CodeArchitecture& architecture) const {
    if (bundle) {
        if (!bundle->infoPropertyListURL) return std::nullopt;
        return FileManager::readFile(*bundle->infoPropertyListURL, PropertyList::sizeLimit);
    }
    const auto& section = architecture.image.infoPropertyList;
    if (!section) return std::nullopt;
    return readRange(openExecutable().get(), executable, architecture.slice, *section);
}

} // namespace corvane::CodeSignature
