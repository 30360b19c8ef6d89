#include "check/document.h"

#include <gtest/gtest.h>

using namespace plcctl::check;

namespace {

Document documentOf(const char* text)
{
    return parseDocument(QByteArray(text));
}

} // namespace

TEST(CheckDocument, PlacesAreThoseOfTagsAndAttributes)
{
    const Document document = documentOf("<?xml version=\"1.0\"?>\n<!-- <no a='1'/> -->\n<A x='1'\n   y = \"2\">\n"
                                         "  <B/><C z='>'/></A>");
    ASSERT_TRUE(document.top);
    EXPECT_EQ(document.top->place, (Place{3, 1}));
    EXPECT_EQ(document.top->attribute("x")->place, (Place{3, 4}));
    EXPECT_EQ(document.top->attribute("y")->place, (Place{4, 4}));
    EXPECT_EQ(document.top->firstChild("C")->place, (Place{5, 7}));
    EXPECT_EQ(document.top->firstChild("C")->attribute("z")->place, (Place{5, 10}));
}

TEST(CheckDocument, ColumnsCountCharactersNotBytes)
{
    const Document document = documentOf("<A t='\xC3\xBC\xF0\x9F\x98\x80' u=''/>"); // "ü" and a smiley
    EXPECT_EQ(document.top->attribute("u")->place, (Place{1, 11}));
}

TEST(CheckDocument, LinesOfWindowsAndAByteOrderMarkMoveNothing)
{
    const Document document = documentOf("\xEF\xBB\xBF<A>\r\n <B x='1'/>\r\n</A>");
    EXPECT_EQ(document.top->place, (Place{1, 1}));
    EXPECT_EQ(document.top->firstChild("B")->attribute("x")->place, (Place{2, 5}));
}

TEST(CheckDocument, ValuesAreWhatTheServiceTakes)
{
    const Document document = documentOf("<A a='&lt;&#65;' b='1' b='2'/>");
    EXPECT_EQ(document.top->attribute("a")->value, "<A");
    EXPECT_EQ(document.top->attribute("b")->value, "2");
    EXPECT_FALSE(document.top->attributes.at(1).isRepeated);
    EXPECT_TRUE(document.top->attributes.at(2).isRepeated);
}

TEST(CheckDocument, ABrokenDocumentKeepsWhatStandsAheadOfTheBreak)
{
    const Document document = documentOf("<A>\n<B x='1'/>\n<C>\n</A>");
    ASSERT_TRUE(document.problem);
    EXPECT_EQ(document.problem->place.line, 4);
    EXPECT_EQ(document.problem->message, "tag mismatch");
    ASSERT_TRUE(document.top);
    EXPECT_EQ(document.top->firstChild("B")->attribute("x")->place, (Place{2, 4}));
}

TEST(CheckDocument, DeclarationsAndTooManyOrTooDeepElementsAreProblems)
{
    const auto problemOf = [](const QByteArray& text) { return parseDocument(text).problem; };
    EXPECT_TRUE(problemOf("<!DOCTYPE A [<!ENTITY e 'e'>]><A/>"));
    EXPECT_TRUE(problemOf("<A>" + QByteArray("<B/>").repeated(50'001) + "</A>"));
    EXPECT_TRUE(problemOf(QByteArray("<A>").repeated(300) + QByteArray("</A>").repeated(300)));
    EXPECT_FALSE(problemOf(QByteArray("<A>").repeated(250) + QByteArray("</A>").repeated(250)));
}

TEST(CheckDocument, WhatIsNoXmlIsAProblemAndNothingElse)
{
    for (const char* text : {"", "<", "</", "<A", "<A x", "<A x='", "<!--", "<![CDATA[", "<?", "<!D '", "x<>y"}) {
        const Document document = documentOf(text);
        EXPECT_TRUE(document.problem) << text;
    }
}
