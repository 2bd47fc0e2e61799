#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/CodeSignature/TestCode.hpp"
#include "Tests/Platform/Tools/SigningFixture.hpp"

#include <filesystem>

namespace corvane {
namespace {

using namespace TestSupport;

class CodeVerdict : public SigningFixture {
  protected:
    CodeVerdict() {
        const std::string root = World::shared().adminRoot.certificate.der();
        expectGood("security", {"add-trusted-cert", sandbox.write("root.cer", root)});
        SignatureShape signature = administratorSignature();
        signature.requirements = blob(0xfade0c01, bigEndian(0));
        signature.runtime = 0x000e0200;
        signature.flags = 0x10000;
        makeApplication(sandbox / "Test.app", {.signature = signature});
    }

    Outcome codesign(std::vector<std::string> arguments) const { return tool("codesign", std::move(arguments)); }
};

TEST_F(CodeVerdict, isToldInTheUsualWords) {
    makeTool(sandbox / "adhoc");
    makeTool(sandbox / "unsigned", {.isSigned = false});
    sandbox.write("text", "text");
    FileManager::createDirectory(sandbox / "folder");
    std::filesystem::copy(sandbox / "Test.app", sandbox / "Changed.app",
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
    sandbox.write("Changed.app/Contents/b\nb", "");
    sandbox.write("Changed.app/Contents/Resources/a.txt", "b");
    const std::string good = "Test.app: valid on disk\nTest.app: satisfies its Designated Requirement\n";
    const std::string team = "-R=certificate leaf[subject.OU] = TEAM123456";
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string errors;
    } cases[] = {
        {{"--verify", "--deep", "--strict", "Test.app"}, 0, ""},
        {{"-v", "Test.app"}, 0, ""},
        {{"--verify", "--verbose", "Test.app"}, 0, good},
        {{"-vv", "--deep", "Test.app/Contents/MacOS/Test", "adhoc"},
         0,
         "Test.app/Contents/MacOS/Test: valid on disk\n"
         "Test.app/Contents/MacOS/Test: satisfies its Designated Requirement\n"
         "adhoc: valid on disk\nadhoc: satisfies its Designated Requirement\n"},
        {{"-vv", team, "Test.app"}, 0, good + "Test.app: explicit requirement satisfied\n"},
        {{"--verify", "-R", "=anchor apple generic", "Test.app"},
         3,
         "Test.app: code failed to satisfy specified code requirement(s)\nIn architecture: x86_64\n"},
        {{"--verify", "--deep", "Changed.app", "text"},
         1,
         "Changed.app: a sealed resource is missing or invalid\nfile modified: Changed.app/Contents/Resources/a.txt\n"
         "file added: Changed.app/Contents/b\xEF\xBF\xBD"
         "b\ntext: code object is not signed at all\n"},
        {{"--verify", "unsigned"}, 1, "unsigned: code object is not signed at all\nIn architecture: x86_64\n"},
        {{"--verify", "-R=and", "Test.app"},
         2,
         "codesign: requirement: offset 0: expected a condition, found \"and\"\n"},
        {{"--verify", "folder"}, 1, "folder: bundle format unrecognized, invalid, or unsuitable\n"},
        {{"--verify", "none.app"}, 1, "none.app: No such file or directory\n"},
        {{"-d", "unsigned"}, 1, "unsigned: code object is not signed at all\n"},
    };
    for (const auto& each : cases) {
        const Outcome outcome = codesign(each.arguments);
        EXPECT_EQ(outcome.status, each.status) << each.errors;
        EXPECT_EQ(outcome.errors, each.errors);
        EXPECT_EQ(outcome.output, "");
    }
    const std::vector<std::string> calls[] = {{},
                                              {"Test.app"},
                                              {"--verify"},
                                              {"-d"},
                                              {"-x", "Test.app"},
                                              {"--verify", "-d", "Test.app"},
                                              {"--sign"},
                                              {"-v", "-R", "x", "Test.app"}};
    for (const auto& arguments : calls) {
        const Outcome outcome = codesign(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.errors.find("usage: codesign "), 0U) << outcome.errors;
    }
}

TEST_F(CodeVerdict, describesCode) {
    makeTool(sandbox / "adhoc", {.architectures = {x86_64}}, {.team = "OTHER"});
    const std::string path = "Executable=" + (sandbox / "Test.app/Contents/MacOS/Test").string() + "\n";
    EXPECT_EQ(codesign({"-d", "Test.app"}).errors, path);
    const std::string description = codesign({"-dvv", "Test.app"}).errors;
    const auto hasLine = [&](const std::string& line) {
        return ("\n" + description).find("\n" + line) != std::string::npos;
    };
    for (const char* line :
         {"Identifier=test.code\n", "Format=app bundle with Mach-O universal (x86_64 arm64)\n",
          "CodeDirectory v=20500 size=", "Signature size=",
          "Authority=Administrator's Application\nAuthority=Administrator's Root\nSigned Time=", "Info.plist entries=",
          "TeamIdentifier=TEAM123456\nRuntime Version=14.2.0\nSealed Resources version=2 rules=13 files=",
          "Internal requirements count=0 size=12\n"}) {
        EXPECT_TRUE(hasLine(line)) << line << description;
    }
    const std::string adhoc = codesign({"-dvv", "adhoc"}).errors;
    EXPECT_NE(adhoc.find("Format=Mach-O thin (x86_64)\n"), std::string::npos) << adhoc;
    EXPECT_NE(adhoc.find(" flags=0x2(adhoc) "), std::string::npos) << adhoc;
    EXPECT_NE(adhoc.find("Signature=adhoc\nInfo.plist=not bound\nTeamIdentifier=not set\nSealed Resources=none\n"
                         "Internal requirements=none\n"),
              std::string::npos)
        << adhoc;
}

TEST_F(CodeVerdict, ofGatekeeperNeedsApple) {
    makeApplication(sandbox / "Adhoc.app");
    const struct {
        const char* path;
        int status;
        std::string errors;
    } cases[] = {
        {"Test.app", 3, "Test.app: rejected (not issued by Apple)\n"},
        {"Adhoc.app", 3, "Adhoc.app: rejected (signed ad hoc)\n"},
        {"Adhoc.app/Contents/MacOS/helper", 3,
         "Adhoc.app/Contents/MacOS/helper: rejected (the code is valid but does not seem to be an app)\n"},
    };
    for (const auto& each : cases) {
        const Outcome outcome = tool("spctl", {"--assess", "--type", "exec", each.path});
        EXPECT_EQ(outcome.status, each.status);
        EXPECT_EQ(outcome.errors, each.errors);
    }
    sandbox.write("Test.app/Contents/b", "");
    const Outcome outcome = tool("spctl", {"--assess", "--type", "exec", "Test.app"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "Test.app: a sealed resource is missing or invalid\n");
}

TEST_F(CodeVerdict, isThatOfThePage) {
    CORVANE_REQUIRE_SAMPLES();
    const Outcome page = TestSupport::run({TestSupport::source("Documentation/code-verdicts"),
                                           TestSupport::program("libexec/corvane"), *TestSupport::samples()});
    EXPECT_EQ(page.status, 0) << page.errors;
    EXPECT_EQ(page.output, TestSupport::read(TestSupport::source("Documentation/CodeVerdicts.md")));
}

} // namespace
} // namespace corvane
