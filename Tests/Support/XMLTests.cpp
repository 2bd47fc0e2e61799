#include "Support/XML.hpp"

#include <gtest/gtest.h>

namespace corvane {
namespace {

std::string errorOf(const std::string& text) {
    try {
        XML::Document::parse(text, "PackageInfo");
    } catch (const XML::Error& error) {
        return error.what();
    }
    return "no error";
}

TEST(XML, readsAndEditsATree) {
    const auto document = XML::Document::parse("<a x='1'><b>t&amp;</b><c/><b y='2'/></a>", "test");
    const XML::Node root = document.root();
    EXPECT_EQ(root.name(), "a");
    EXPECT_EQ(root.attribute("x"), "1");
    EXPECT_EQ(root.attribute("z"), std::nullopt);
    EXPECT_EQ(root.elements("b").size(), 2U);
    EXPECT_EQ(root.firstElement("b")->text(), "t&");
    EXPECT_EQ(document.query("//b/@y | //c").size(), 2U);
    root.firstElement("c")->insertElementBefore("d").setText("<");
    root.firstElement("c")->remove();
    root.setAttribute("x", "\"");
    EXPECT_EQ(document.serialized(false),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a x=\"&quot;\"><b>t&amp;</b><d>&lt;</d><b y=\"2\"/></a>\n");
}

TEST(XML, refusesWhatIsNoDocumentAndNamesTheLine) {
    EXPECT_EQ(errorOf("<a>\n<b>\n</a>"), "PackageInfo: line 3: Opening and ending tag mismatch: b line 2 and a");
    for (const char* text : {"", "text", "<a/><b/>", "<a", "<a>\xFF</a>"}) EXPECT_NE(errorOf(text), "no error") << text;
}

TEST(XML, expandsEntitiesWithinBoundsAndReadsNoFile) {
    EXPECT_EQ(XML::Document::parse("<!DOCTYPE a [<!ENTITY e 'v'>]><a>&e;</a>", "t").root().text(), "v");
    for (const char* text : {"<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><a>&e;</a>",
                             "<!DOCTYPE a PUBLIC 'x' 'http://localhost/x.dtd'><a>b&nbsp;c</a>", "<a>&e;</a>"}) {
        EXPECT_NE(errorOf(text), "no error") << text;
    }
    std::string bomb = "<!DOCTYPE a [<!ENTITY e0 'aaaaaaaaaa'>";
    for (int level = 1; level < 30; ++level) {
        const std::string inner = "&e" + std::to_string(level - 1) + ";";
        bomb += "<!ENTITY e" + std::to_string(level) + " '" + inner + inner + inner + inner + "'>";
    }
    EXPECT_NE(errorOf(bomb + "]><a>&e29;</a>"), "no error");
}

TEST(XML, keepsTheTreeWithinLimits) {
    const auto nested = [](std::size_t depth) {
        std::string text;
        for (std::size_t level = 0; level < depth; ++level) text += "<a>";
        for (std::size_t level = 0; level < depth; ++level) text += "</a>";
        return errorOf(text);
    };
    EXPECT_EQ(nested(XML::Document::depthLimit), "no error");
    EXPECT_EQ(nested(XML::Document::depthLimit + 1), "PackageInfo: elements lie too deep");
    std::string wide = "<a>";
    for (std::size_t count = 0; count < XML::Document::nodeLimit; ++count) wide += "<b/>";
    EXPECT_EQ(errorOf(wide + "</a>"), "PackageInfo: too many elements");
}

} // namespace
} // namespace corvane
