#include "XmlDocument.h"
#include "ExBase.h"

#include <gtest/gtest.h>

using namespace Vn;

// Written and parsed back, elements, attributes and texts are what they were, whatever their
// characters; comments and blank text between elements are not children.
TEST(XmlDocument, WriterAndParserAgree) {
    XmlWriter w;
    w.startElement("Root");
    w.addAttribute("a", "<\"&'>\t");
    w.startElement("Child");
    w.addText("  x < y & z  ");
    w.endElement();
    w.startElement("Child");
    w.addText("   ");
    w.endElement();
    w.startElement("Other");
    w.endElement();
    w.endElement();
    XmlDocument d = XmlDocument::parse(w.toString());
    XmlElement root = d.getRoot();
    EXPECT_EQ(root.getName(), "Root");
    EXPECT_EQ(root.getAttribute("a"), "<\"&'>\t");
    EXPECT_FALSE(root.hasAttribute("b"));
    ASSERT_EQ(root.getChildren("Child").size(), 2u);
    EXPECT_EQ(root.getChildren("Child")[0].getText(), "  x < y & z  ");
    EXPECT_EQ(root.getChildren("Child")[1].getText(), "   ");
    EXPECT_EQ(root.getChildren().size(), 3u);

    XmlDocument c = XmlDocument::parse("<R><!-- note --> text <A/>\n<B x='1'/></R>");
    std::vector<XmlElement> kids = c.getRoot().getChildren();
    ASSERT_EQ(kids.size(), 2u);
    EXPECT_EQ(kids[1].getAttributes(),
              (std::vector<std::pair<std::string, std::string>>{{"x", "1"}}));
    EXPECT_TRUE(kids[1].getFirstChild().isNull());

    // A writer can fill an element of another document.
    XmlWriter inner(kids[0]);
    inner.startElement("Deep");
    inner.endElement();
    EXPECT_NE(c.toString().find("<Deep"), std::string::npos);
}

TEST(XmlDocument, MalformedTextIsRefusedWithWhereAndWhy) {
    try {
        XmlDocument::parse("<a>\n<b>\n</a>");
        FAIL();
    } catch (ExBase const& e) {
        EXPECT_NE(e.getReason().find("malformed XML at byte"), std::string::npos) << e.getReason();
        EXPECT_NE(e.getReason().find("(line 3)"), std::string::npos) << e.getReason();
    }
    // Elements of a parsed document know their line; built ones do not.
    XmlDocument lines = XmlDocument::parse("<a>\n  <b/>\n\n  <c/></a>");
    EXPECT_EQ(lines.getLineOf(lines.getRoot()), 1);
    EXPECT_EQ(lines.getLineOf(lines.getRoot().getChildren("c")[0]), 4);
    XmlDocument built;
    EXPECT_EQ(built.getLineOf(built.createRoot("r")), 0);
    EXPECT_THROW(XmlDocument::parse("just text"), ExBase);
    EXPECT_THROW(XmlDocument::parse(std::string("<a>\0</a>", 8)), ExBase);
    XmlWriter w;
    w.startElement("x");
    EXPECT_THROW(w.toString(), ExAssertionFailed) << "an element is still open";
}
