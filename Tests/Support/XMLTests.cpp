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

TEST(XML, copiesBetweenDocumentsAndKeepsHandlesOfWhatIsRemoved) {
    const auto document = XML::Document::parse("<a>\n<b k='1'><c/></b>\xC3\xA9</a>", "test");
    const auto other = XML::Document::parse("<x><y z='2'><w/>t</y></x>", "other");
    const XML::Node b = document.root().elements().front();
    const XML::Node c = b.elements().front();
    document.root().prependCopy(*other.root().firstElement("y"));
    b.replaceByCopy(*other.root().firstElement("y")).removeAttribute("z");
    EXPECT_EQ(document.root().serialized(), "<a><y z=\"2\"><w/>t</y>\n<y><w/>t</y>\xC3\xA9</a>");
    EXPECT_EQ(b.parent(), std::nullopt);
    EXPECT_EQ(c.parent(), b);
    EXPECT_EQ(other.root().serialized(), "<x><y z=\"2\"><w/>t</y></x>");
    EXPECT_EQ(document.root().children().size(), 4U);
    EXPECT_TRUE(document.root().children()[1].isText());
}

TEST(XML, tellsAttributesByTheirNamesAsTheyStand) {
    for (const char* declaration : {"", "<?xml version='1.0' encoding='utf-8'?>"}) {
        const auto document =
            XML::Document::parse(std::string(declaration) + "<a xmlns:n='u' z='\xC3\xA9&lt;' n:b='2' b='1'/>", "test");
        const XML::Node root = document.root();
        EXPECT_EQ(root.attribute("b"), "1");
        EXPECT_EQ(root.attribute("n:b"), "2");
        root.sortAttributes();
        EXPECT_EQ(root.serialized(), "<a xmlns:n=\"u\" b=\"1\" n:b=\"2\" z=\"\xC3\xA9&lt;\"/>");
        root.removeAttribute("n:b");
        EXPECT_EQ(root.attributes(), (XML::Attributes{{"b", "1"}, {"z", "\xC3\xA9<"}}));
    }
}

TEST(XML, tellsOfElementsUntilTheTextBreaks) {
    const auto seen = [](std::string_view text, std::size_t limit = 9) {
        std::string names;
        std::size_t count = 0;
        XML::forEachElement(text, [&](const std::string& name, const XML::Attributes& attributes) {
            names +=
                name + (attributes.empty() ? "" : "(" + attributes[0].first + "=" + attributes[0].second + ")") + " ";
            return ++count < limit;
        });
        return names;
    };
    EXPECT_EQ(seen("<a><n:b k='1&amp;'/>text<c/></a>"), "a n:b(k=1&) c ");
    EXPECT_EQ(seen("<a><b/><c/></a>", 2), "a b ");
    EXPECT_EQ(seen("<a><b k='v'/></wrong>"), "a b(k=v) ");
    EXPECT_EQ(seen("<!DOCTYPE a [<!ENTITY e 'v'>]><a k='&e;'/>"), "a(k=v) ");
    EXPECT_EQ(seen("<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><a>&e;</a>"), "a ");
    EXPECT_EQ(seen("no XML"), "");
    EXPECT_THROW(XML::forEachElement("<a/>", [](auto&, auto&) -> bool { throw std::runtime_error("x"); }),
                 std::runtime_error);
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
    const auto withAttributes = [](std::size_t count, const std::string& sign, const std::string& front) {
        std::string element = front + "<a";
        for (std::size_t number = 0; number < count; ++number) element += " a" + std::to_string(number) + sign + "'v'";
        return errorOf(element + "/>");
    };
    EXPECT_EQ(withAttributes(5000, "=", ""), "no error");
    EXPECT_EQ(withAttributes(5001, "=", ""), "PackageInfo: an element has too many attributes");
    EXPECT_EQ(withAttributes(5001, "&#61;", "<!DOCTYPE a [<!ENTITY e 'v'>]>"),
              "PackageInfo: an element has too many attributes");
    std::string wide = "<a>";
    for (std::size_t count = 0; count < XML::Document::nodeLimit; ++count) wide += "<b/>";
    EXPECT_EQ(errorOf(wide + "</a>"), "PackageInfo: too many elements");
}

} // namespace
} // namespace corvane
