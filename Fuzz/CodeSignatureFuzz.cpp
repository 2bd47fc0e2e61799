// Reads bytes as the end of a signed slice and as a single directory, asks every directory everything, and verifies the
// message over them.

#include "Platform/Formats/CodeSignature/CodeSigner.hpp"
#include "Platform/Formats/CodeSignature/SuperBlob.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

using namespace corvane;
using namespace corvane::CodeSignature;

/// Between the dates of the seeds.
constexpr Time now = std::chrono::sys_days(std::chrono::January / 1 / 2026);
const TrustSettings settings{.extraRoots = {}, .now = now, .appleRoots = AppleRoots::pinned()};

template <class Question>
void ask(Question question) {
    try {
        question();
    } catch (const FormatError&) {
    }
}

void askDirectory(const CodeDirectory& directory) {
    for (std::uint32_t index = 0; index < directory.codeSlotCount(); ++index) {
        if (directory.codeSlot(index).size() != directory.hashSize()) std::abort();
    }
    for (std::uint32_t number = 0; number <= directory.specialSlotCount(); ++number) {
        const auto stored = directory.specialSlot(static_cast<Slot>(number));
        if (stored && stored->size() != directory.hashSize()) std::abort();
    }
    directory.matches(Slot::requirements, directory.identifier());
    directory.runtimeVersion();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    ask([&] { askDirectory(CodeDirectory::parse(std::string(bytes))); });
    ask([&] {
        const Components components = readSuperBlob(bytes);
        const CodeDirectories directories = CodeDirectories::of(components);
        for (const CodeDirectory& directory : directories.all) askDirectory(directory);
        if (directories.cdhashes().size() != directories.all.size()) std::abort();
        const std::string* message = components.find(Slot::signature);
        if (message != nullptr) CodeSigner::verify(*message, directories, settings).certificates();
    });
    return 0;
}
