#pragma once

#include "Support/FileManager.hpp"
#include "Tests/Platform/Formats/HfsPlus/TestVolume.hpp"
#include "Tests/Platform/Formats/Udif/TestImage.hpp"
#include "Tests/TestSupport.hpp"

namespace corvane::TestSupport {

/// Disk images, and a state folder of the test's own.
class MountFixture : public ::testing::Test {
  protected:
    static std::string image(const TestTree& tree = {{"Folder/file", {.data = "content"}}},
                             const TestImage::Options& options = {}, const std::string& volumeName = "Test") {
        return TestImage::image({{TestImage::guidDisk(testVolume(tree, {.name = volumeName}))}}, options);
    }
    static std::string licensed(const std::string& text = "Be kind.\r\x1b[2J") {
        return image({{"file", {.data = "content"}}}, {.resources = {{{"LPic", 5000}, ""}, {{"TEXT", 5000}, text}}});
    }

    std::string state() const { return "XDG_STATE_HOME=" + (sandbox / "state").string(); }
    FileURL volumes() const { return sandbox / "state/corvane/volumes"; }

    Outcome hdiutil(std::vector<std::string> arguments, const std::string& input = "") const {
        arguments.insert(arguments.begin(), program("libexec/corvane/hdiutil").string());
        return run(arguments, {.environment = {state()}, .folder = sandbox.url(), .input = input});
    }
    /// How many images are attached.
    std::size_t mountCount() const {
        const std::string list = hdiutil({"info"}).output;
        std::size_t count = 0;
        for (std::size_t at = 0; (at = list.find("image-path", at)) != std::string::npos; ++at) ++count;
        return count;
    }
    std::vector<std::string> namesIn(const FileURL& folder) const {
        std::vector<std::string> names;
        for (const FileURL& url : FileManager::contentsOfDirectory(folder)) names.push_back(url.filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    Sandbox sandbox;
};

} // namespace corvane::TestSupport
