// Reads any bytes as a signed message and as a timestamp token, and asks them everything.

#include "Platform/Formats/FormatError.hpp"
#include "Platform/Trust/SignedMessage.hpp"
#include "Platform/Trust/TimestampToken.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

using namespace corvane;

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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    ask([&] {
        const auto message = SignedMessage::parse(bytes, "fuzz");
        ask([&] { message.verify(message.content().value_or("content")); });
        ask([&] {
            evaluateChain(message.signer(), message.certificates(), settings, now, ChainPurpose::packageSigning);
        });
        ask([&] {
            if (const auto token = message.timestampToken()) {
                TimestampToken::verify(*token, message.signatureValue(), settings);
            }
        });
    });
    ask([&] { TimestampToken::verify(bytes, "content", settings); });
    return 0;
}
