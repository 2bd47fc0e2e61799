// The whole `dmg-to-pkg` job with the real portable tools, on real images where they are at hand and on made ones.

#include "Platform/Formats/Xar/Archive.hpp"
#include "Support/FileManager.hpp"
#include "Support/PropertyList.hpp"
#include "Tests/EndToEnd/ImageOfFolder.hpp"
#include "Tests/EndToEnd/SigningMachine.hpp"
#include "Tests/Platform/Formats/CodeSignature/TestCode.hpp"
#include "Tests/Platform/Tools/PseudoTerminal.hpp"

#include <csignal>
#include <thread>

namespace corvane {
namespace {

using namespace TestSupport;
using Strings = std::vector<std::string>;

/// The application on a sample image, read by others: with all modes that the image has.
FileURL outsideExtraction(const FileURL& image, const FileURL& folder) {
    run({"sh", "-c",
         "umask 0; mkdir \"$2\"; case $1 in */sparkle_SparkleTestCodeSign*) tar -xf \"${1%/*}\"/*App.tar -C \"$2\" ;; "
         "*) 7zz x -y -sns- -o\"$2\" \"$1\" ;; esac",
         "sh", image.string(), folder.string()});
    const std::string found = run({"find", folder.string(), "-maxdepth", "2", "-name", "*.app"}).output;
    return found.substr(0, found.find('\n'));
}

class DmgToPkgTest : public testing::Test {
  protected:
    Outcome convert(const FileURL& image, Strings options) const {
        Strings arguments{"dmg-to-pkg", image.string(), "--output-dir", (machine / "out").string()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return machine.corvane(arguments);
    }

    FileURL output(const std::string& name) const { return machine / "out" / name; }

    /// Writes the image of a folder's content.
    FileURL imageOf(const FileURL& folder, const TestImage::Options& options = {}) const {
        return machine.sandbox().write("in/Vendor.dmg", imageOfFolder(folder, options));
    }

    /// @param attributed the entries that carry extended attributes on the volume
    void expectProven(const FileURL& application, const FileURL& package, const Strings& attributed = {}) const {
        Strings command{source("Tests/EndToEnd/prove-from-image").string(), application.string(), package.string()};
        command.insert(command.end(), attributed.begin(), attributed.end());
        EXPECT_EQ(run(command).errors, "");
    }
    /// @param result the output's name, or the refusal
    void expectResult(const FileURL& image, const std::string& result, const Strings& attributed,
                      const Strings& options) const {
        const Outcome outcome = convert(image, options);
        if (!result.ends_with(".pkg")) {
            EXPECT_EQ(outcome.status, 1);
            EXPECT_TRUE(outcome.errors.ends_with("\ncorvane: " + result + "\n")) << outcome.errors;
        } else {
            EXPECT_EQ(outcome.output, output(result).string() + "\n") << outcome.errors;
            expectProven(outsideExtraction(image, machine / "outside"), output(result), attributed);
            FileManager::removeItem(machine / "outside");
            FileManager::removeItem(output(result));
        }
        EXPECT_EQ(machine.outputFiles(), Strings{});
        expectNothingLeft();
    }

    void expectNothingLeft() const {
        EXPECT_EQ(machine.temporaryFiles(), Strings{});
        EXPECT_EQ(hdiutil({"info", "-plist"}).output.find("mount-point"), std::string::npos);
    }

    static Outcome hdiutil(const Strings& arguments) {
        Strings command{program("libexec/corvane/hdiutil").string()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return run(command);
    }

    SigningMachine machine;
    const FileURL example = source("Examples/Harbor Monitor.dmg");
};

TEST_F(DmgToPkgTest, convertsRealImages) {
    CORVANE_REQUIRE_SAMPLES();
    const std::string extensions = "/Contents/Library/SystemExtensions/";
    const std::string driver = "CH34xVCPDriver.app" + extensions + "cn.wch.CH34xVCPDriver.dext";
    const std::string client = "Karabiner-DriverKit-VirtualHIDDeviceClient.app";
    const std::string manager = "Karabiner-DriverKit-ExtensionManager.app";
    const std::string profile = "/embedded.provisionprofile";
    const struct {
        const char* image;
        /// What becomes of it without options; the output's name, or the refusal.
        const char* result;
        /// The same when untrusted applications are let through.
        const char* untrusted;
        Strings attributed = {};
    } cases[] = {
        {"karabiner-client-0.20.0-signed-stapled-ulfo",
         "Karabiner-DriverKit-VirtualHIDDeviceClient-0.20.0.pkg",
         nullptr,
         {client + "/Contents" + profile}},
        {"karabiner-extmgr-0.17.0-signed-stapled-ulfo",
         "Karabiner-DriverKit-ExtensionManager-0.17.0.pkg",
         nullptr,
         {manager + extensions + "org.pqrs.Karabiner-DriverKit-VirtualHIDDevice.dext" + profile,
          manager + "/Contents" + profile}},
        {"ch34xvcp-2025-pkg-inside", "CH34xVCPDriver-1.9.pkg", nullptr, {driver, driver + "/Info.plist"}},
        {"karabiner-client-0.10.0-signed-unstapled-ulfo",
         "Gatekeeper rejects Karabiner-DriverKit-VirtualHIDDeviceClient.app (not notarized/trusted)",
         "Karabiner-DriverKit-VirtualHIDDeviceClient-0.10.0.pkg",
         {client + "/Contents" + profile}},
        {"relic_dummy", "Gatekeeper rejects dummy.app (not notarized/trusted)", "dummy-1.0.pkg"},
        {"sparkle_SparkleTestCodeSign_apfs", "Vendor code signature is invalid or missing",
         "Cannot read CFBundleShortVersionString from Info.plist"},
        {"sparkle_SparkleTestCodeSign_apfs_lzma_aux_files", "Vendor code signature is invalid or missing",
         "Cannot read CFBundleShortVersionString from Info.plist"},
        {"squidman-1.5-apm-rsrc", "Vendor code signature is invalid or missing",
         "Cannot read CFBundleIdentifier from Info.plist"},
        {"autopkg-test", "Vendor code signature is invalid or missing", "Test-300.0.pkg"},
        {"r2_src", "Expected exactly 1 .app at the DMG root, found 0", nullptr},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.image);
        const FileURL image = *samples() / "dmg" / (std::string(each.image) + ".dmg");
        expectResult(image, each.result, each.attributed, {"--unsigned"});
        if (each.untrusted == nullptr) continue;
        expectResult(image, each.untrusted, each.attributed, {"--unsigned", "--allow-untrusted"});
    }
}

TEST_F(DmgToPkgTest, convertsTheExampleAsDocumented) {
    const Outcome outcome = convert(example, {"--unsigned", "--allow-untrusted"});
    const std::string shown = "--output-dir /tmp\n" + outcome.errors + "/tmp/Harbor Monitor-2.1.pkg\n```\n";
    EXPECT_NE(read(source("README.md")).find(shown), std::string::npos) << shown;
}

/// The payload's root is a new folder each time, so the time of that has to be given.
TEST_F(DmgToPkgTest, givesTheSameBytesAtAGivenTime) {
    ::setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
    Strings packages;
    for (int time = 0; time < 2; ++time) {
        convert(example, {"--unsigned", "--allow-untrusted"});
        packages.push_back(read(output("Harbor Monitor-2.1.pkg")));
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    }
    ::unsetenv("SOURCE_DATE_EPOCH");
    EXPECT_TRUE(packages[0] == packages[1]);
}

TEST_F(DmgToPkgTest, anyCallThatFailsOrIsInterruptedLeavesNothing) {
    const std::string interruptUs = "kill -INT " + std::to_string(::getpid()) + "; sleep 100";
    const std::pair<std::string, int> calls[] = {{"hdiutil", 1},  {"plutil", 1},   {"plutil", 2},   {"ditto", 1},
                                                 {"pkgbuild", 1}, {"pkgbuild", 2}, {"installer", 1}};
    for (const auto& [tool, call] : calls) {
        for (const std::string& end : {interruptUs, std::string("exit 1"), std::string("kill -9 $$")}) {
            SCOPED_TRACE(tool + std::to_string(call) + " " + end);
            for (const std::string& each : jobTools) machine.before(each, "");
            machine.before(tool, "if test $call = " + std::to_string(call) + "; then " + end + "; fi");
            const Outcome outcome = convert(example, {"--unsigned", "--allow-untrusted"});
            EXPECT_EQ(outcome.status, end == interruptUs ? 130 : 1) << outcome.errors;
            EXPECT_EQ(machine.outputFiles(), Strings{});
            expectNothingLeft();
        }
    }
}

TEST_F(DmgToPkgTest, detachesByForceAndKeepsWhatCannotBeDetached) {
    machine.before("hdiutil", "if test $1 = detach -a $3 != -force; then exit 16; fi");
    EXPECT_EQ(convert(example, {"--unsigned", "--allow-untrusted"}).status, 0);
    expectNothingLeft();
    machine.before("hdiutil", "if test $1 = detach; then exit 16; fi");
    const Outcome outcome = convert(example, {"--unsigned", "--allow-untrusted"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.errors.find("    WARNING: could not unmount "), std::string::npos) << outcome.errors;
    const Strings left = machine.temporaryFiles();
    ASSERT_EQ(left.size(), 1U);
    EXPECT_TRUE(FileManager::isDirectory(machine / "temporary" / left[0] / "mnt/Harbor Monitor.app"));
}

TEST_F(DmgToPkgTest, acceptsAStapledApplication) {
    CORVANE_REQUIRE_SAMPLES();
    const std::string pkgutil = program("libexec/corvane/pkgutil").string();
    run({pkgutil, "--expand-full", (*samples() / "sig/ch34vcp.pkg").string(), (machine / "expanded").string()});
    const FileURL volume = machine / "expanded/CH34xVCPDriver.pkg/Payload/Applications";
    const Outcome outcome = convert(imageOf(volume), {"--sign", machine.identity()});
    EXPECT_EQ(outcome.output, output("CH34xVCPDriver-1.9.pkg").string() + "\n") << outcome.errors;
    EXPECT_NE(outcome.errors.find("    Gatekeeper assessment: accepted\n"), std::string::npos);
    expectProven(volume / "CH34xVCPDriver.app", output("CH34xVCPDriver-1.9.pkg"));
    const Outcome signature = run({pkgutil, "--check-signature", output("CH34xVCPDriver-1.9.pkg").string()});
    EXPECT_NE(signature.output.find("Signed with a trusted timestamp on: "), std::string::npos) << signature.output;
    expectNothingLeft();
}

TEST_F(DmgToPkgTest, decidesOnMadeApplications) {
    const auto made = [](SignatureShape signature) {
        return [signature](const FileURL& folder) {
            BundleShape shape{.signature = signature,
                              .info = {{"CFBundleIdentifier", PropertyList::Value{"com.example.tool"}},
                                       {"CFBundleShortVersionString", PropertyList::Value{"1.2"}}}};
            makeApplication(folder, shape);
        };
    };
    const World& world = World::shared();
    const auto plain = made({});
    const auto changed = [&](const FileURL& folder) {
        plain(folder);
        FileManager::writeFile(folder / "Contents/Resources/a.txt", "changed");
    };
    const auto expired = made({.signer = &world.expiredApplication, .issuers = {world.developerAuthority.certificate}});
    const auto unsignedTool = [&](const FileURL& folder) {
        plain(folder);
        FileManager::writeFile(folder / "Contents/MacOS/Test", machO({.isSigned = false}).bytes);
    };
    const std::string gatekeeper = "Gatekeeper rejects Tool.app (not notarized/trusted)";
    const std::string invalid = "Vendor code signature is invalid or missing";
    const std::string warning = "    WARNING: Gatekeeper rejects the app (continuing; quarantine kept)\n";
    const std::string invalidWarning = "    WARNING: vendor app unsigned/invalid (continuing; quarantine kept)\n";
    const std::string normalized =
        "    Vendor image contains signature-incompatible Finder/resource metadata; validating "
        "a normalized copy\n    Normalized copy passes strict vendor signature verification\n";
    const struct {
        const char* name;
        std::function<void(const FileURL&)> make;
        std::string refusal;
        std::string warning;
        /// Of a file on the image.
        std::string finderInfo;
        /// The files that keep it in the package: a normalized copy has none.
        Strings attributed = {};
    } cases[] = {
        {"ad hoc", plain, gatekeeper, "(TeamIdentifier=not set)\n" + warning, ""},
        {"administrator", made(administratorSignature()), gatekeeper, warning, ""},
        {"foreign", expired, invalid, invalidWarning, ""},
        {"changed", changed, invalid, invalidWarning, ""},
        {"unsigned", unsignedTool, invalid, invalidWarning, ""},
        {"Finder information", plain, gatekeeper, normalized, std::string(8, 'F') + std::string(24, '\0')},
        {"changed, Finder information",
         changed,
         invalid,
         invalidWarning,
         std::string(8, 'F') + std::string(24, '\0'),
         {"Tool.app/Contents/Resources/a.txt"}},
    };
    machine.trust(world.adminRoot.certificate.der());
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const FileURL volume = machine / "volume";
        each.make(volume / "Tool.app");
        TestTree tree = treeOfFolder(volume);
        tree.at("Tool.app/Contents/Resources/a.txt").finderInfo = each.finderInfo;
        const FileURL image = machine.sandbox().write("in/Vendor.dmg", TestImage::image(testVolume(tree)));
        const Outcome refused = convert(image, {"--unsigned"});
        EXPECT_TRUE(refused.errors.ends_with("\ncorvane: " + each.refusal + "\n")) << refused.errors;
        EXPECT_EQ(refused.status, 1);
        EXPECT_EQ(machine.outputFiles(), Strings{});
        const Outcome passed = convert(image, {"--unsigned", "--allow-untrusted"});
        EXPECT_NE(passed.errors.find(each.warning), std::string::npos) << passed.errors;
        EXPECT_EQ(passed.output, output("Tool-1.2.pkg").string() + "\n");
        expectProven(volume / "Tool.app", output("Tool-1.2.pkg"), each.attributed);
        FileManager::removeItem(output("Tool-1.2.pkg"));
        FileManager::removeItem(volume);
        expectNothingLeft();
    }
}

/// An image on which an application lies that nobody signed.
class InteractionTest : public DmgToPkgTest {
  protected:
    InteractionTest() {
        machine.sandbox().write("volume/Tool.app/Contents/Info.plist",
                                "<plist><dict><key>CFBundleIdentifier</key><string>com.example.tool</string>"
                                "<key>CFBundleShortVersionString</key><string>1</string></dict></plist>");
    }

    std::string image(const TestImage::Options& options = {}) const {
        return imageOfFolder(machine / "volume", options);
    }
    std::string licensed() const {
        const std::string defaults("\0\0\0\1\0\0\0\0\0\0", 10); // English, the only one, in one-byte characters
        return image({.resources = {{{"LPic", 5000}, defaults}, {{"TEXT", 5000}, "You may use it.\r"}}});
    }

    /// The program on a terminal, on an image of these bytes.
    PseudoTerminal start(const std::string& bytes) const {
        const std::string input = machine.sandbox().write("in/Vendor.dmg", bytes).string();
        const std::string corvane = program("bin/corvane").string();
        const std::string out = (machine / "out").string();
        return PseudoTerminal([&] {
            ::execl(corvane.c_str(), corvane.c_str(), "dmg-to-pkg", input.c_str(), "--unsigned", "--allow-untrusted",
                    "--interactive", "--output-dir", out.c_str(), nullptr);
        });
    }

    const std::string prompt =
        "Complete the macOS mount dialog, wait for the volume, then press Return (Ctrl-C to cancel): ";
    const std::string again = "No read-only mount detected yet; requesting user interaction again";
};

TEST_F(InteractionTest, attachesWhatTheUserAgreesTo) {
    const struct {
        std::string image;
        std::string question;
        std::string answer;
    } cases[] = {{licensed(), "Agree Y/N? ", "y\n"},
                 {TestImage::encrypted(image(), "secret"), "Password of Vendor.dmg: ", "secret\n"}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.question);
        const auto terminal = start(each.image);
        terminal.readUntil(each.question);
        terminal.type(each.answer);
        const std::string said = terminal.readUntil(prompt);
        EXPECT_NE(said.find("detach"), std::string::npos) << said;
        terminal.type("\n");
        const std::string rest = terminal.readUntil();
        EXPECT_EQ(terminal.wait(), 0) << rest;
        EXPECT_NE(rest.find("    Confirmed read-only mount at "), std::string::npos) << rest;
        EXPECT_EQ(machine.outputFiles(), Strings{"Tool-1.pkg"});
        EXPECT_EQ(machine.temporaryFiles(), Strings{});

        // The image stays attached, and the next job finds it.
        const auto list = PropertyList::parse(hdiutil({"info", "-plist"}).output, "info");
        const auto& attached = std::get<PropertyList::Array>(list.find("images")->content);
        ASSERT_EQ(attached.size(), 1U);
        EXPECT_EQ(attached[0]
                      .find("image-path")
                      ->get<std::string>()
                      ->substr(attached[0].find("image-path")->get<std::string>()->rfind('/')),
                  "/Vendor.dmg");
        const Outcome next = convert(machine / "in/Vendor.dmg", {"--unsigned", "--allow-untrusted"});
        EXPECT_NE(next.errors.find("    Image already mounted read-only at "), std::string::npos) << next.errors;
        EXPECT_EQ(hdiutil({"detach", "disk4", "-quiet"}).status, 0);
        FileManager::removeItem(output("Tool-1.pkg"));
        expectNothingLeft();
    }
}

TEST_F(InteractionTest, endsAsTheUserSays) {
    const struct {
        const char* name;
        /// Answers the licence, the first prompt, and the second.
        std::string licence, first, second;
        int status;
        std::string ending;
    } cases[] = {
        {"declined, then end of input", "n\n", "\n", "\x04", 1,
         "stdin closed while waiting for DMG mount confirmation"},
        {"end of input at the licence", "\x04", "\x04", "", 1, "stdin closed while waiting for DMG mount confirmation"},
        {"interrupted", "n\n", "\x03\n", "", 130, "corvane: cancelled"},
        {"interrupted at the licence", "\x03", "\x03\n", "", 130, "corvane: cancelled"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const auto terminal = start(licensed());
        EXPECT_NE(terminal.readUntil("Agree Y/N? ").find("You may use it."), std::string::npos);
        terminal.type(each.licence);
        terminal.readUntil(prompt);
        terminal.type(each.first);
        if (!each.second.empty()) {
            terminal.readUntil(again);
            terminal.readUntil("Agree Y/N? ");
            terminal.type("n\n");
            terminal.readUntil(prompt);
            terminal.type(each.second);
        }
        const std::string rest = terminal.readUntil();
        EXPECT_NE(rest.find(each.ending), std::string::npos) << rest;
        EXPECT_EQ(terminal.wait(), each.status);
        EXPECT_EQ(machine.outputFiles(), Strings{});
        expectNothingLeft();
    }
}

TEST_F(InteractionTest, doesNotWaitForAnAnswerWhenItIsTerminated) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer keeps signals back while the C library waits for a line";
#endif
    const auto terminal = start(licensed());
    terminal.readUntil("Agree Y/N? ");
    terminal.type("n\n");
    terminal.readUntil(prompt);
    terminal.signalForeground(SIGTERM);
    terminal.readUntil();
    EXPECT_EQ(terminal.wait(), 128 + SIGTERM);
    expectNothingLeft();
}

TEST_F(InteractionTest, needsATerminal) {
    const FileURL input = machine.sandbox().write("in/Vendor.dmg", licensed());
    const Outcome outcome = convert(input, {"--unsigned"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors,
              "==> Mount disk image\n    Automatic mount needs user interaction: hdiutil: attach failed - "
              "the image has a licence agreement that must be accepted\n"
              "corvane: DMG mount requires system interaction; rerun with --interactive in a TTY\n");
    expectNothingLeft();
}

TEST_F(InteractionTest, jobsOnOneImageDoNotMeet) {
    const FileURL input = machine.sandbox().write("in/Vendor.dmg", image());
    std::vector<Outcome> outcomes(4);
    {
        std::vector<std::jthread> jobs;
        for (std::size_t number = 0; number < outcomes.size(); ++number) {
            const FileURL folder = machine / ("out-" + std::to_string(number));
            FileManager::createDirectory(folder);
            jobs.emplace_back([&, number, folder] {
                outcomes[number] =
                    run({"env", "SOURCE_DATE_EPOCH=1700000000", program("bin/corvane").string(), "dmg-to-pkg",
                         input.string(), "--unsigned", "--allow-untrusted", "--output-dir", folder.string()});
            });
        }
    }
    for (std::size_t number = 0; number < outcomes.size(); ++number) {
        EXPECT_EQ(outcomes[number].status, 0) << outcomes[number].errors;
        EXPECT_TRUE(read(machine / ("out-" + std::to_string(number)) / "Tool-1.pkg") ==
                    read(machine / "out-0/Tool-1.pkg"));
    }
    expectNothingLeft();
}

} // namespace
} // namespace corvane
