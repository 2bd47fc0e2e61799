#include "Support/MD5.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

// The lengths lie on both sides of where the padding takes another block.
TEST(MD5, agreesWithDigestsMadeElsewhere) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {std::string(55, '\xa5'), "2cc6d369ed29824d4d6773abf071f793"},
        {std::string(56, '\xa5'), "a0089308214de80d143ad475d20a43cb"},
        {std::string(63, '\xa5'), "14785634a92900e6dd3caa7fed09113b"},
        {std::string(64, '\xa5'), "f789afefff2e7e3c97537c40e730bb3e"},
        {std::string(65, '\xa5'), "725dbff640afcd6477b5bcc1e956faf6"},
        {std::string(100000, '\xa5'), "23463da71abd0b8f690568169d874a78"},
    };
    for (const auto& [bytes, digest] : cases) EXPECT_EQ(hexadecimalMD5(bytes), digest) << bytes.size();
}

} // namespace
} // namespace corvane
