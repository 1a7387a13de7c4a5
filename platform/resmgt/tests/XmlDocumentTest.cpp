#include "XmlDocument.h"
#include "ExBase.h"

#include <gtest/gtest.h>
#include <random>
#include <sstream>

using namespace Vn;

// Written and parsed back, elements, attributes and texts are what they were, whatever their
// characters; comments and blank text between elements are not children.
TEST(XmlDocument, WriterAndParserAgree) {
    XmlWriter w;
    w.openTag("Root");
    w.writeAttrib("a", "<\"&'>\t");
    w.openTag("Child");
    w.writeText("  x < y & z  ");
    w.closeTag();
    w.openTag("Child");
    w.writeText("   ");
    w.closeTag();
    w.openTag("Other");
    w.closeTag();
    w.closeTag();
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
    XmlDocument const attributes = XmlDocument::parse("<B x='1' y=''/>");
    XmlElement const two = attributes.getRoot();
    XmlAttribute x = two.getFirstAttribute();
    ASSERT_FALSE(x.isNull());
    EXPECT_EQ(x.getName(), "x");
    EXPECT_EQ(x.getValue(), "1");
    EXPECT_EQ(x.getNext().getName(), "y");
    EXPECT_TRUE(x.getNext().getNext().isNull());
    EXPECT_STREQ(two.findAttribute("y"), "");
    EXPECT_EQ(two.findAttribute("z"), nullptr);

    // A writer can fill an element of another document.
    XmlWriter inner(kids[0]);
    inner.openTag("Deep");
    inner.closeTag();
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
    w.openTag("x");
    EXPECT_THROW(w.toString(), ExAssertionFailed) << "an element is still open";
}

namespace {
// A random element tree written twice: by a writer of its own, and through the document's
// elements, whose saving is the reference for the writer's bytes.
struct RandomTree {
    std::mt19937 rng;
    explicit RandomTree(unsigned seed) : rng(seed) {}

    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }
    std::string value() {
        std::string v;
        for (int i = pick(6); i > 0; --i)
            v.push_back(static_cast<char>(pick(8) == 0 ? pick(256) : 'a' + pick(3)));
        return v;
    }
    void element(XmlWriter& w, XmlElement e, int depth) {
        static char const* const names[] = {"a", "ba", "ab", "aa", "id"};
        for (int i = pick(7); i > 0; --i) {
            std::string const n = names[pick(5)];
            std::string const v = value();
            w.writeAttrib(n, v);
            e.setAttribute(n, v);
        }
        if (depth < 3 && pick(2) == 0) {
            for (int i = pick(4); i > 0; --i) {
                std::string const n = names[pick(5)];
                w.openTag(n);
                element(w, e.appendChild(n), depth + 1);
                w.closeTag();
            }
        } else {
            for (int i = pick(3); i > 0; --i) {
                std::string const t = value();
                w.writeText(t);
                e.setText(t);
            }
        }
    }
};
} // namespace

// Whatever the characters, repeats and nesting, the writer's text is the document's, byte for
// byte; a NUL ends a text as it does in a document.
TEST(XmlDocument, WriterTextIsTheDocumentsOwn) {
    for (unsigned seed = 0; seed < 400; ++seed) {
        RandomTree t(seed);
        XmlWriter w;
        XmlDocument d;
        w.openTag("Root");
        t.element(w, d.createRoot("Root"), 0);
        w.closeTag();
        ASSERT_EQ(w.toString(), d.toString()) << "seed " << seed;
        XmlDocument::parse(w.toString());
    }
    XmlWriter w;
    w.openTag(std::string("R\0x", 3));
    w.writeAttrib("a", std::string("1\0002", 3));
    w.closeTag();
    EXPECT_EQ(w.toString(), "<R a=\"1\" />\n");

    // Another indent, and the text handed to a stream once the root closes.
    std::ostringstream stream;
    XmlWriter flat(stream, 0);
    flat.openTag("R");
    flat.openTag("C");
    flat.writeText("x");
    flat.closeTag();
    EXPECT_EQ(stream.str(), "");
    flat.closeTag();
    EXPECT_EQ(stream.str(), "<R>\n<C>x</C>\n</R>\n");
}

// A writer of its own refuses what it could only write by going back: attributes or text after
// elements, elements after text, a second root.
TEST(XmlDocument, WriterRefusesOutOfOrderParts) {
    struct Case {
        char const* what;
        void (*write)(XmlWriter&);
    } const cases[] = {
        {"attribute after an element",
         [](XmlWriter& w) {
             w.openTag("c");
             w.closeTag();
             w.writeAttrib("a", "1");
         }},
        {"attribute after text",
         [](XmlWriter& w) {
             w.writeText("t");
             w.writeAttrib("a", "1");
         }},
        {"text after an element",
         [](XmlWriter& w) {
             w.openTag("c");
             w.closeTag();
             w.writeText("t");
         }},
        {"element after text",
         [](XmlWriter& w) {
             w.writeText("t");
             w.openTag("c");
         }},
        {"second root",
         [](XmlWriter& w) {
             w.closeTag();
             w.openTag("r");
         }},
    };
    for (Case const& c : cases) {
        XmlWriter w;
        w.openTag("r");
        EXPECT_THROW(c.write(w), ExAssertionFailed) << c.what;
    }
}
