#include "Platform/Formats/FormatError.hpp"
#include "Platform/Formats/Gzip/Reader.hpp"
#include "Platform/Formats/Gzip/Writer.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane::Gzip {
namespace {

const std::string content = std::string(500000, 'a') + "end";

std::string inflated(const std::string& bytes, Framing framing = Framing::gzip) {
    MemorySource source(bytes);
    Reader reader(source, framing);
    return readAll(reader, std::size_t{1} << 24, "test");
}

TEST(Gzip, writesTheHeaderOfPackagesAtEveryLevel) {
    for (const int level : {1, 6, 9}) {
        const std::string bytes = compressed(content, Framing::gzip, level);
        EXPECT_EQ(bytes.substr(0, 10), std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10)) << level;
        const auto outcome = TestSupport::run({"gzip", "-dc"}, {.input = bytes});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(outcome.output, content);
    }
}

TEST(Gzip, readsExactlyOneMember) {
    const std::string sound = TestSupport::run({"gzip", "-c"}, {.input = content}).output;
    EXPECT_EQ(inflated(sound), content);
    EXPECT_EQ(inflated(compressed("", Framing::gzip, 6)), "");
    EXPECT_EQ(inflated(compressed(content, Framing::zlib, 6), Framing::either), content);
    std::string wrongSum = sound;
    wrongSum[sound.size() - 6] = static_cast<char>(wrongSum[sound.size() - 6] ^ 1);
    const std::vector<std::string> broken{"",
                                          sound.substr(0, 5),
                                          sound.substr(0, sound.size() - 1),
                                          sound + sound,
                                          sound + std::string(1, '\0'),
                                          wrongSum,
                                          "plain text",
                                          content,
                                          compressed(content, Framing::zlib, 6)};
    for (const std::string& bytes : broken) EXPECT_THROW(inflated(bytes), FormatError) << bytes.size();
}

} // namespace
} // namespace corvane::Gzip
