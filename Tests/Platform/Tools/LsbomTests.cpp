#include "Platform/Formats/Bom/Writer.hpp"
#include "Tests/TestSupport.hpp"

#include <sys/stat.h>

namespace corvane {
namespace {

using TestSupport::Sandbox;

TestSupport::Outcome lsbom(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{TestSupport::program("libexec/corvane/lsbom")};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return TestSupport::run(command);
}

std::string smallBom() {
    using Bom::EntryType;
    Bom::Writer writer;
    writer.add({.path = ".", .type = EntryType::directory, .mode = S_IFDIR | 0755, .size = 96});
    writer.add({.path = "a\xFF", .type = EntryType::directory, .mode = S_IFDIR | 01775, .groupID = 80, .size = 96});
    writer.add({.path = "a\xFF/b", .mode = S_IFREG | 0644, .userID = 501, .size = 12, .checksum = 2146730865});
    writer.add({.path = "c", .type = EntryType::symbolicLink, .mode = S_IFLNK | 0755, .size = 1, .checksum = 7});
    writer.add({.path = "large", .mode = S_IFREG | 0600, .size = std::uint64_t{5} << 32});
    writer.add({.path = "null", .type = EntryType::device, .mode = S_IFCHR | 0666, .checksum = 259});
    std::string bytes;
    writer.finish([&](std::string_view piece) { bytes += piece; });
    return bytes;
}

TEST(Lsbom, printsTheFieldsInTheOrderAskedFor) {
    const Sandbox sandbox;
    const FileURL bom = sandbox.write("Bom", smallBom());
    const std::vector<std::pair<const char*, std::string>> cases{
        {"fmugsc", ".\t40755\t0\t0\t\t\n"
                   "./a\xFF\t41775\t0\t80\t\t\n"
                   "./c\t120755\t0\t0\t1\t7\n"
                   "./large\t100600\t0\t0\t21474836480\t0\n"
                   "./null\t20666\t0\t0\t0\t259\n"
                   "./a\xFF/b\t100644\t501\t0\t12\t2146730865\n"},
        {"f", ".\n./a\xFF\n./c\n./large\n./null\n./a\xFF/b\n"},
        {"cf", "\t.\n\t./a\xFF\n7\t./c\n0\t./large\n259\t./null\n2146730865\t./a\xFF/b\n"}};
    for (const auto& [letters, lines] : cases) {
        const auto outcome = lsbom({"-p", letters, bom});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_EQ(outcome.output, lines);
    }
}

TEST(Lsbom, saysWhatIsWrong) {
    const Sandbox sandbox;
    const std::string whole = smallBom();
    const std::string noBom = sandbox.write("no", "nothing of the kind");
    const std::string cut = sandbox.write("cut", whole.substr(0, whole.size() / 2));
    const std::string missing = sandbox / "missing";
    const std::vector<std::pair<std::string, std::string>> cases{
        {noBom, "lsbom: " + noBom + ": bom: offset 0: expected \"BOMStore\", found \"nothing \"\n"},
        {cut, "lsbom: " + cut + ": bom: offset "},
        {missing, "lsbom: Cannot read " + missing + ": No such file or directory\n"},
        {sandbox.url(), "lsbom: Cannot read " + sandbox.url().string()}};
    for (const auto& [file, text] : cases) {
        const auto outcome = lsbom({"-p", "fmugsc", file});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.errors.substr(0, text.size()), text);
        EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
    }
    const std::string bom = sandbox.write("Bom", whole);
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {}, {bom}, {"-p", bom}, {"-p", "", bom}, {"-p", "fx", bom}, {"-f", "fm", bom}, {"-p", "f", bom, bom}}) {
        EXPECT_EQ(lsbom(arguments).status, 64);
    }
}

TEST(Lsbom, listsRealBoms) {
    CORVANE_REQUIRE_SAMPLES();
    const FileURL folder = *TestSupport::samples() / "bom";
    EXPECT_EQ(lsbom({"-p", "fmugsc", folder / "from-pkg/arcade-simple-component.pkg__Bom"}).output,
              ".\t40755\t0\t0\t\t\n./Sample.txt\t100644\t0\t0\t12\t2146730865\n");
    EXPECT_EQ(lsbom({"-p", "mfs", folder / "stlinkshield-postflight.bom"}).output, "40700\t.\t\n");
    EXPECT_NE(lsbom({"-p", "f", folder / "Assets.car"}).errors.find("expected a list of paths"), std::string::npos);
}

} // namespace
} // namespace corvane
