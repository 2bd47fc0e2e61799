#include "Support/FileError.hpp"
#include "Support/FileManager.hpp"
#include "Support/PropertyList.hpp"
#include "Tests/TestSupport.hpp"

#include <cmath>

namespace corvane::PropertyList {
namespace {

std::string errorOf(const std::string& bytes) {
    try {
        parse(bytes, "Info.plist");
        return "";
    } catch (const Error& error) {
        return error.what();
    }
}

TEST(PropertyList, readsBothFormsOfAnotherWriterAlike) {
    const FileURL folder = TestSupport::source("Fuzz/Seeds/PropertyList");
    const Value expected{Dictionary{{"CFBundleIdentifier", {"com.example.harbor"}},
                                    {"Count", {std::int64_t{3}}},
                                    {"Big", {(std::uint64_t{1} << 63) + 1}},
                                    {"Negative", {std::int64_t{-5}}},
                                    {"Ratio", {0.5}},
                                    {"Made", {Date{736672089}}},
                                    {"Blob", {Data{std::string("\0\x01\xfe", 3)}}},
                                    {"On", {true}},
                                    {"Off", {false}},
                                    {"List", {Array{{"a"}, {Array{{"b"}, {Dictionary{{"c", {"d"}}}}}}}}},
                                    {"Name",
                                     {"H\xc3\xa4"
                                      "fen \xf0\x9f\x98\x80"}}}};
    const Value xml = read(folder / "xml.plist");
    EXPECT_EQ(read(folder / "binary.plist"), xml);
    for (const auto& [key, value] : *expected.get<Dictionary>()) {
        ASSERT_NE(xml.find(key), nullptr) << key;
        EXPECT_EQ(*xml.find(key), value) << key;
    }
    EXPECT_EQ(xml.find("Missing"), nullptr);
    EXPECT_EQ(xml.find("Count")->find("a"), nullptr);
    EXPECT_THROW(read(folder / "missing"), FileError);
}

std::string xml(const std::string& value) { return "<plist version='1.0'>" + value + "</plist>"; }

TEST(PropertyList, readsEveryWayToWriteAValue) {
    EXPECT_EQ(parse(xml("<integer> 0x1F </integer>"), ""), Value{std::int64_t{31}});
    EXPECT_EQ(parse(xml("<integer>+7</integer>"), ""), Value{std::int64_t{7}});
    EXPECT_EQ(parse(xml("<real>+1e3</real>"), ""), Value{1000.0});
    EXPECT_EQ(parse(xml("<dict><key>k</key><true/><key>k</key><false/></dict>"), "").find("k")->get<bool>()[0], false);
    EXPECT_EQ(parse("<!DOCTYPE plist PUBLIC '-//A//DTD' 'http://localhost:1/x.dtd'>" + xml("<string/>"), ""),
              Value{""});
}

TEST(PropertyList, refusesBrokenXML) {
    const std::string deep = [] {
        std::string text;
        for (int level = 0; level < 100000; ++level) text += "<array>";
        return text;
    }();
    for (const std::string& broken :
         {std::string(), std::string("text"), std::string("<dict/>"), xml(""), xml("<true/><true/>"), xml("<what/>"),
          xml("<integer>1x</integer>"), xml("<integer>99999999999999999999</integer>"), xml("<real>half</real>"),
          xml("<date>today</date>"), xml("<data>?</data>"), xml("<dict><key>a</key></dict>"),
          xml("<dict><true/></dict>"), xml("<dict><key>a</key><key>b</key></dict>"), xml("<array><what/></array>"),
          xml(deep), deep}) {
        EXPECT_EQ(errorOf(broken).substr(0, 11), "Info.plist:") << broken.substr(0, 80);
    }
}

/// A binary list with one-byte references and two-byte offsets, of these objects; the first is the root.
std::string binary(const std::vector<std::string>& objects) {
    std::string bytes = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += static_cast<char>(bytes.size() >> 8);
        offsets += static_cast<char>(bytes.size() & 255);
        bytes += object;
    }
    const auto number = [](std::size_t value) {
        std::string field(8, '\0');
        field[6] = static_cast<char>(value >> 8);
        field[7] = static_cast<char>(value & 255);
        return field;
    };
    return bytes + offsets + std::string(6, '\0') + "\x02\x01" + number(objects.size()) + number(0) +
           number(bytes.size());
}

TEST(PropertyList, readsBinaryObjects) {
    EXPECT_EQ(parse(binary({"\x10\xff"}), ""), Value{std::int64_t{255}}) << "short integers are unsigned";
    EXPECT_EQ(parse(binary({"\x13\xff\xff\xff\xff\xff\xff\xff\xfe"}), ""), Value{std::int64_t{-2}});
    EXPECT_EQ(parse(binary({std::string("\x22\x3f\x00\x00\x00", 5)}), ""), Value{0.5});
    EXPECT_EQ(parse(binary({std::string("\x81\x01\x02", 3)}), ""), Value{UID{258}});
    EXPECT_EQ(parse(binary({"\x5f\x10\x10"
                            "0123456789abcdef"}),
                    ""),
              Value{"0123456789abcdef"});
    EXPECT_EQ(parse(binary({"\x61\xd8\x3d"}), ""), Value{"\xef\xbf\xbd"}) << "half of a pair";
}

TEST(PropertyList, refusesBrokenBinaryListsWithinBounds) {
    const std::string sound = TestSupport::read(TestSupport::source("Fuzz/Seeds/PropertyList/binary.plist"));
    for (std::size_t size = 0; size < sound.size(); ++size) EXPECT_NE(errorOf(sound.substr(0, size)), "") << size;
    std::vector<std::string> doubling;
    for (char level = 0; level < 40; ++level) doubling.push_back("\xa2" + std::string(2, static_cast<char>(level + 1)));
    doubling.push_back("\x09");
    const std::vector<std::string> broken{
        binary({std::string("\xa1\x00", 2)}),                              // holds itself
        binary(doubling),                                                  // expands to 2^40 values
        binary({"\xa1\x05"}),                                              // no such object
        binary({"\x5f\x13\xff\xff\xff\xff\xff\xff\xff\xff"}),              // a length of 2^64 - 1
        binary({"\xaf\x13\x7f\xff\xff\xff\xff\xff\xff\xff"}),              // as many elements
        binary({std::string("\xd1\x01\x01", 3), "\x09"}),                  // a key that is no string
        binary({"\x15" + std::string(32, '\0')}),                          // an integer of 32 bytes
        binary({"\x14" + std::string(1, '\x01') + std::string(15, '\0')}), // more than 64 bits
        binary({"\xf0"}),
        binary({"\x07"}),
        binary({})};
    for (const std::string& bytes : broken) EXPECT_EQ(errorOf(bytes).substr(0, 11), "Info.plist:");
}

/// Every kind of value, at a depth where lines of data have reached their shortest.
Value everyKind() {
    Value nested{Data{std::string(100, '\xff')}};
    for (int level = 0; level < 12; ++level) nested = {Array{std::move(nested)}};
    return {Dictionary{{"text <&> \"'", {"a\r\n\tb <&> \"' \xf0\x9f\x98\x80"}},
                       {"empty", {Array{{""}, {Array{}}, {Dictionary{}}, {Data{}}}}},
                       {"numbers", {Array{{INT64_MIN}, {std::int64_t{-1}}, {UINT64_MAX}, {0.1}, {-1e300}, {1e6}}}},
                       {"infinite", {Array{{HUGE_VAL}, {-HUGE_VAL}}}},
                       {"dates", {Array{{Date{0}}, {Date{-1}}, {Date{252423993600 - 978307200}}}}},
                       {"flags", {Array{{true}, {false}}}},
                       {"", nested},
                       {"data", {Data{std::string("\0\x01\x80", 3) + std::string(200, 'x')}}}}};
}

TEST(PropertyList, writesWhatItReads) {
    EXPECT_EQ(parse(serializedXML(everyKind()), "written"), everyKind());
    EXPECT_EQ(parse(serializedXML({UID{7}}), "written"), Value{Dictionary({{"CF$UID", {std::int64_t{7}}}})});
    EXPECT_EQ(parse(serializedXML({Date{0.75}}), "written"), Value{Date{0}});
    EXPECT_EQ(parse(serializedXML({Date{-0.25}}), "written"), Value{Date{-1}});
}

TEST(PropertyList, writesTheLayoutOfRealLists) {
    CORVANE_REQUIRE_SAMPLES();
    const FileURL folder = *TestSupport::samples() / "misc/relocation";
    int lists = 0;
    for (const FileURL& url : FileManager::contentsOfDirectory(folder)) {
        if (pathExtension(url) != "plist") continue;
        EXPECT_EQ(serializedXML(read(url)), TestSupport::read(url)) << url;
        ++lists;
    }
    EXPECT_GT(lists, 0);
}

TEST(PropertyList, writesWhatAnotherReaderReads) {
    if (TestSupport::run({"python3", "-c", "import plistlib"}).status != 0) GTEST_SKIP() << "there is no python3";
    const TestSupport::Sandbox sandbox;
    const std::string list = serializedXML(everyKind());
    const auto outcome =
        TestSupport::run({"python3", "-c",
                          "import plistlib, sys; sys.stdout.buffer.write(plistlib.dumps(plistlib.load(open("
                          "sys.argv[1], 'rb')), fmt=plistlib.FMT_BINARY))",
                          sandbox.write("list.plist", list)});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(parse(outcome.output, "binary"), everyKind());
}

TEST(PropertyList, writesNothingThatXMLCannotHold) {
    Value deep{true};
    for (std::size_t level = 0; level <= depthLimit; ++level) deep = {Array{std::move(deep)}};
    const std::vector<Value> refused{
        {std::string(1, '\0')}, {"\x1b[0m"},          {"\xef\xbf\xbf"}, {"\xff"},
        {Date{1e18}},           {Date{std::nan("")}}, {deep},           {Dictionary({{"\x01", {true}}})}};
    for (const Value& value : refused) EXPECT_THROW(serializedXML(value), Error);
}

} // namespace
} // namespace corvane::PropertyList
