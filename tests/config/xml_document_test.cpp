#include "config/xml_document.h"

#include <gtest/gtest.h>

#include <string>

#include "base/input_limits.h"

namespace tvx {
namespace {

ParseOutcome Outcome(const std::string& text) {
  return ParseDocument(text.data(), text.size()).outcome;
}

std::string Repeat(const std::string& text, int times) {
  std::string repeated;
  for (int i = 0; i < times; ++i) repeated += text;
  return repeated;
}

TEST(ParseDocument, RefusesWhatIsNoDocumentOrOutOfBounds) {
  EXPECT_EQ(ParseDocument(nullptr, 5).outcome, ParseOutcome::Empty);
  EXPECT_EQ(Outcome(""), ParseOutcome::Empty);
  EXPECT_EQ(Outcome("<tDVR><a></tDVR>"), ParseOutcome::Unreadable);
  EXPECT_EQ(Outcome("<tDVR"), ParseOutcome::Unreadable);
  EXPECT_EQ(Outcome(std::string("\0\xff\x01<", 4)), ParseOutcome::Unreadable);
  EXPECT_EQ(Outcome(std::string(kMaxDocumentBytes + 1, ' ')), ParseOutcome::TooLarge);
  // An 8-bit byte that promises more than the text has left.
  EXPECT_EQ(Outcome("<tDVR>\xE2"), ParseOutcome::Unreadable);
}

TEST(ParseDocument, BoundsNestingHoweverItIsWritten) {
  EXPECT_EQ(Outcome(Repeat("<a>", 256) + Repeat("</a>", 256)), ParseOutcome::Parsed);
  EXPECT_EQ(Outcome(Repeat("<a>", 257) + Repeat("</a>", 257)), ParseOutcome::TooDeep);
  EXPECT_EQ(Outcome(Repeat("<a>", 100000)), ParseOutcome::TooDeep);
  // Ends that are only text must not hide a level.
  EXPECT_EQ(Outcome(Repeat("<a b='/>'>", 100000)), ParseOutcome::TooDeep);
  EXPECT_EQ(Outcome(Repeat("<a><!-- </a> -->", 100000)), ParseOutcome::TooDeep);
  EXPECT_EQ(Outcome(Repeat("<a><![CDATA[</a>]]>", 100000)), ParseOutcome::TooDeep);
  // Nor must ends that the library does not take for ends; each of these once overran the stack.
  const std::string ends = Repeat("</a>", 100000);
  const std::string starts = Repeat("<a>", 100000);
  EXPECT_EQ(Outcome(ends + starts), ParseOutcome::Unreadable);
  EXPECT_EQ(Outcome("<a><1 " + Repeat("</ ", 100000) + ">" + starts), ParseOutcome::Unreadable);
  EXPECT_EQ(Outcome("<a><?xml version=\"" + ends + "\"?>" + starts), ParseOutcome::Unreadable);
  EXPECT_EQ(Outcome("<a b=x<!-- >" + starts + "-->"), ParseOutcome::Unreadable);
  EXPECT_EQ(Outcome("<?pi ><r>" + starts + "?>"), ParseOutcome::TooDeep);
  EXPECT_EQ(Outcome("<?xml ><r>" + starts + "?>"), ParseOutcome::TooDeep);
  EXPECT_EQ(Outcome("<?xml version=\"?><!-- \" ?><r>" + starts + "-->"), ParseOutcome::Unreadable);
  EXPECT_EQ(Outcome("<!--><![CDATA[ --><r>" + starts + "]]>"), ParseOutcome::TooDeep);
  // Width is no depth.
  EXPECT_EQ(Outcome("<a>" + Repeat("<b c='>'/>", 10000) + "</a>"), ParseOutcome::Parsed);
}

TEST(ParseDocument, BoundsTheAttributesOfAnElement) {
  const auto element = [](int attributes) {
    std::string text = "<tDVR";
    for (int i = 0; i < attributes; ++i) text += " a" + std::to_string(i) + "='='";
    return text + "/>";
  };
  EXPECT_EQ(Outcome(element(kMaxAttributes)), ParseOutcome::Parsed);
  EXPECT_EQ(Outcome(element(kMaxAttributes + 1)), ParseOutcome::TooManyAttributes);
}

TEST(ParseDocument, BoundsTheNodesOfADocument) {
  for (const char* node : {"<b/>", "x<!>", "<!---->"}) {
    EXPECT_EQ(Outcome("<a>" + Repeat(node, kMaxNodes) + "</a>"), ParseOutcome::TooManyNodes)
        << node;
  }
  EXPECT_EQ(Outcome("<a>" + Repeat("<b c='' d='' e=''/>", kMaxNodes / 4) + "</a>"),
            ParseOutcome::TooManyNodes);
}

TEST(ParseDocument, NeedsNoTerminatorAndSkipsAByteOrderMark) {
  const std::string text = "\xEF\xBB\xBF<tDVR Delta=\"1\"/>garbage behind the length";
  const ParsedDocument parsed = ParseDocument(text.data(), text.find("garbage"));
  ASSERT_NE(parsed.Root(), nullptr);
  EXPECT_EQ(IntAttribute(*parsed.Root(), "Delta"), 1);
  EXPECT_EQ(ParseDocument("<other/>", 8).Root(), nullptr);
}

TEST(Attributes, IdentifiersAreTakenModulo32Bits) {
  const std::string text = "<tDVR a='4026597377' b='-1' c='+7' d='4294967298' e='x' f='' g='12x'/>";
  const ParsedDocument parsed = ParseDocument(text.data(), text.size());
  const TiXmlElement& root = *parsed.Root();
  EXPECT_EQ(PatternAttribute(root, "a"), 0xF0010001u);
  EXPECT_EQ(PatternAttribute(root, "b"), 0xFFFFFFFFu);
  EXPECT_EQ(PatternAttribute(root, "c"), 7u);
  EXPECT_EQ(PatternAttribute(root, "d"), 2u);
  EXPECT_EQ(PatternAttribute(root, "e"), std::nullopt);
  EXPECT_EQ(PatternAttribute(root, "f"), std::nullopt);
  EXPECT_EQ(PatternAttribute(root, "missing"), std::nullopt);
  EXPECT_EQ(IntAttribute(root, "e"), std::nullopt);
}

TEST(Texts, ComeBackAsTheyWereWhateverTheyHold) {
  const std::string texts[] = {
      "plain",
      "&#x41; stays a reference in text",
      "&#x",
      "a & b < c > \"d\" 'e' &amp; &lt;",
      "line\r\nline\n\ttab and  two blanks ",
      "gr\xC3\xBC\xC3\x9F Gott \xE2\x82\xAC",
      "latin \xE9\"\xE9<\xE9&\xE9",  // not UTF-8: each byte stands before a character to escape
  };
  for (const std::string& text : texts) {
    TiXmlDocument document;
    TiXmlElement& root = AppendElement(document, "tDVR");
    root.SetAttribute("text", text);
    root.LinkEndChild(std::make_unique<TiXmlText>(text).release());
    const std::string printed = PrintDocument(document);
    const ParsedDocument parsed = ParseDocument(printed.data(), printed.size());
    ASSERT_NE(parsed.Root(), nullptr) << printed;
    EXPECT_EQ(TextAttribute(*parsed.Root(), "text"), text);
    EXPECT_EQ(parsed.Root()->FirstChild()->ValueStr(), text);
  }
}

}  // namespace
}  // namespace tvx
