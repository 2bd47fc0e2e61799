// Expands bytes as a pbzx stream, with one thread and with several: both must give the same bytes and the same error.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Pbzx/Reader.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

using namespace corvane;

namespace {

/// Small inputs can expand a thousandfold; what comes later tells nothing new.
constexpr std::size_t limit = std::size_t{1} << 20;

struct Outcome {
    std::string content;
    std::string error;
};

Outcome expand(std::string_view bytes, unsigned threads, std::size_t bufferSize) {
    Outcome outcome;
    std::vector<char> buffer(bufferSize);
    try {
        MemorySource source(bytes);
        Pbzx::Reader reader(source, threads);
        while (outcome.content.size() < limit) {
            const std::size_t wanted = std::min(buffer.size(), limit - outcome.content.size());
            const std::size_t count = reader.read(std::span(buffer).first(wanted));
            if (count == 0) break;
            outcome.content.append(buffer.data(), count);
        }
    } catch (const FormatError& error) {
        outcome.error = error.what();
    }
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const Outcome one = expand(bytes, 1, 1 << 16);
    const Outcome several = expand(bytes, 3, 4001);
    if (one.content != several.content || one.error != several.error) std::abort();
    return 0;
}
