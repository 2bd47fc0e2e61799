#include "Support/FileManager.hpp"
#include "Tests/TestSupport.hpp"

#include <filesystem>

namespace corvane {
namespace {

using TestSupport::Sandbox;

/// Each call with its whole answer; what one writes the next ones see.
TEST(Xattr, showsAndChangesAttributes) {
    const Sandbox sandbox;
    for (const char* name : {"a/file", "a/!x", "a/sub/file", "outside"}) sandbox.write(name, "1");
    // Damage is named, and the rest still done.
    for (const char* name : {"b/1", "b/2", "b/3"}) sandbox.write(name, "1");
    sandbox.write("b/._2", std::string("\x00\x05\x16\x07\x00\x02\x00\x00", 8));
    std::filesystem::create_symlink("../outside", sandbox / "a/link");
    std::filesystem::create_symlink("outside", sandbox / "link");
    const std::string large(100000, 'x');
    const std::string binary = "two\nlines\tand \x01 more bytes";
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string output, errors;
    };
    const std::vector<Case> cases{
        {{"a/file"}, 0, "", ""},
        {{"-w", "n.text", "one\ntwo", "a/file"}, 0, "", ""},
        {{"-w", "n.large", large, "a/file", "a/!x", "a/sub"}, 0, "", ""},
        {{"-w", "n.text", binary, "link"}, 0, "", ""},
        {{"a/file"}, 0, "n.large\nn.text\n", ""},
        {{"-l", "outside"},
         0,
         "n.text:\n74 77 6F 0A 6C 69 6E 65 73 09 61 6E 64 20 01 20\n6D 6F 72 65 20 62 79 74 65 73\n",
         ""},
        {{"-p", "n.text", "a/file"}, 0, "one\ntwo\n", ""},
        {{"-p", "n.text", "a/file", "a/sub"}, 1, "a/file: one\ntwo\n", "xattr: a/sub: No such xattr: n.text\n"},
        {{"-r", "a"}, 0, "a/!x: n.large\na/file: n.large\na/file: n.text\na/sub: n.large\n", ""},
        {{"-rp", "n.text", "a"}, 0, "a/file: one\ntwo\n", ""},
        {{"-d", "n.none", "a/file", "missing"},
         1,
         "",
         "xattr: a/file: No such xattr: n.none\nxattr: No such file: missing\n"},
        {{"-dr", "n.none", "a"}, 0, "", ""},
        {{"-dr", "n.large", "a"}, 0, "", ""},
        {{"-r", "-d", "n.text", "a"}, 0, "", ""},
        {{"-r", "a"}, 0, "", ""},
        {{"outside"}, 0, "n.text\n", ""},
        {{"-w", "n", "v", "b/1", "b/3"}, 0, "", ""},
        {{"-dr", "n", "b"}, 1, "", "xattr: b/._2: AppleDouble: offset 8: expected 16 more bytes, found 0\n"},
        {{"b/1", "b/3"}, 0, "", ""},
        {{"-dr", "n.text", "missing"}, 1, "", "xattr: No such file: missing\n"},
        {{"-w", "com.apple.FinderInfo", "short", "a/file"}, 1, "", "xattr: a/file: Numerical result out of range\n"},
    };
    for (const auto& [arguments, status, output, errors] : cases) {
        std::vector<std::string> command{TestSupport::program("libexec/corvane/xattr")};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const auto outcome = TestSupport::run(command, {.folder = sandbox.url()});
        EXPECT_EQ(outcome.status, status) << arguments[0];
        EXPECT_EQ(outcome.output, output);
        EXPECT_EQ(outcome.errors, errors);
    }
    // No companion is left.
    EXPECT_EQ(FileManager::contentsOfDirectory(sandbox / "a").size(), 4U);

    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {"-l"}, {"-p", "n"}, {"-w", "n", "v"}, {"-dp", "n", "a"}, {"-x", "a"}}) {
        std::vector<std::string> command{TestSupport::program("libexec/corvane/xattr")};
        command.insert(command.end(), arguments.begin(), arguments.end());
        EXPECT_EQ(TestSupport::run(command).status, 64) << arguments.size();
    }
}

} // namespace
} // namespace corvane
