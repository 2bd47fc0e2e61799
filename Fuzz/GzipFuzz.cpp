// Inflates bytes with each framing, through large and small buffers: the bytes and the error must be the same. What is
// inflated completely is compressed again and must come back.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Reader.hpp"
#include "Platform/Formats/Gzip/Writer.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

using namespace corvane;

namespace {

/// Small inputs can expand a thousandfold; what comes later tells nothing new.
constexpr std::size_t limit = std::size_t{1} << 20;

/// Gives no more than a few bytes at once.
class SlowSource : public ByteSource {
  public:
    SlowSource(std::string_view bytes, std::size_t step) : inner_(bytes), step_(step) {}
    std::size_t read(std::span<char> buffer) override {
        return inner_.read(buffer.first(std::min(step_, buffer.size())));
    }

  private:
    MemorySource inner_;
    std::size_t step_;
};

struct Outcome {
    std::string content;
    std::string error;
    bool complete = false;
};

Outcome inflate(std::string_view bytes, Gzip::Framing framing, std::size_t step) {
    Outcome outcome;
    std::vector<char> buffer(step);
    try {
        SlowSource source(bytes, step);
        Gzip::Reader reader(source, framing);
        while (outcome.content.size() < limit && !outcome.complete) {
            const std::size_t wanted = std::min(buffer.size(), limit - outcome.content.size());
            const std::size_t count = reader.read(std::span(buffer).first(wanted));
            outcome.content.append(buffer.data(), count);
            outcome.complete = count == 0;
        }
    } catch (const FormatError& error) {
        outcome.error = error.what();
    }
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    for (const Gzip::Framing framing : {Gzip::Framing::gzip, Gzip::Framing::zlib, Gzip::Framing::either}) {
        const Outcome whole = inflate(bytes, framing, std::size_t{1} << 16);
        const Outcome slow = inflate(bytes, framing, 251);
        const bool areEqual = whole.complete == slow.complete && whole.error.empty() == slow.error.empty();
        // An error comes with the read that meets it; how much was given before depends on the buffers.
        if (!areEqual || (whole.error.empty() && whole.content != slow.content)) std::abort();
        if (!whole.complete) continue;
        const std::string again = Gzip::compressed(whole.content, Gzip::Framing::gzip, 6);
        if (inflate(again, Gzip::Framing::gzip, 1000).content != whole.content) std::abort();
    }
    return 0;
}
