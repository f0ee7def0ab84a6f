#include "config/xml_document.h"

#include <gtest/gtest.h>

#include <string>

#include "base/input_limits.h"
#include "config/rows.h"

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
  const std::string ends = Repeat("</a>", 100000);
  const std::string starts = Repeat("<a>", 100000);
  const auto attributes = [](int count) {
    std::string text = "<tDVR";
    for (int i = 0; i < count; ++i) text += " a" + std::to_string(i) + "='='";
    return text + "/>";
  };
  const struct {
    std::string text;
    ParseOutcome outcome;
  } kCases[] = {
      {"", ParseOutcome::Empty},
      {"<tDVR><a></tDVR>", ParseOutcome::Unreadable},
      {"<tDVR", ParseOutcome::Unreadable},
      {std::string("\0\xff\x01<", 4), ParseOutcome::Unreadable},
      {"<tDVR>\xE2", ParseOutcome::Unreadable},  // a byte that promises more than there is
      {"<tDVR/>" + std::string(kMaxDocumentBytes - 7, ' '), ParseOutcome::Parsed},
      {"<tDVR/>" + std::string(kMaxDocumentBytes - 6, ' '), ParseOutcome::TooLarge},

      {Repeat("<a>", 256) + Repeat("</a>", 256), ParseOutcome::Parsed},
      {Repeat("<a>", 257) + Repeat("</a>", 257), ParseOutcome::TooDeep},
      {"<a>" + Repeat("<b c='>'/>", 10000) + "</a>", ParseOutcome::Parsed},  // width is no depth
      // Ends that are only text must not hide a level.
      {Repeat("<a b='/>'>", 100000), ParseOutcome::TooDeep},
      {Repeat("<a><!-- </a> -->", 100000), ParseOutcome::TooDeep},
      {Repeat("<a><![CDATA[</a>]]>", 100000), ParseOutcome::TooDeep},
      {"<?pi ><r>" + starts + "?><r/>", ParseOutcome::Parsed},  // an instruction ends at "?>"
      {"<a><?pi x='>' <b ?>" + starts, ParseOutcome::TooDeep},
      {"<a><?pi </a>", ParseOutcome::Unreadable},
      {"<?xml ><r>" + starts + "?>", ParseOutcome::TooDeep},
      {"<!--><![CDATA[ --><r>" + starts + "]]>", ParseOutcome::TooDeep},
      // Nor must ends that the library does not take for ends; each once overran the stack.
      {ends + starts, ParseOutcome::Unreadable},
      {"<a><1 " + Repeat("</ ", 100000) + ">" + starts, ParseOutcome::Unreadable},
      {"<a><?xml version=\"" + ends + "\"?>" + starts, ParseOutcome::Unreadable},
      {"<a b=x<!-- >" + starts + "-->", ParseOutcome::Unreadable},
      {"<?xml version=\"?><!-- \" ?><r>" + starts + "--><r/>", ParseOutcome::Parsed},

      {attributes(kMaxAttributes), ParseOutcome::Parsed},
      {attributes(kMaxAttributes + 1), ParseOutcome::TooManyAttributes},
      {"<a>" + Repeat("<b/>", kMaxNodes - 1) + "</a>", ParseOutcome::Parsed},
      {"<a>" + Repeat("<b/>", kMaxNodes) + "</a>", ParseOutcome::TooManyNodes},
      {"<a>" + Repeat("x<!>", kMaxNodes) + "</a>", ParseOutcome::TooManyNodes},
      {"<a>" + Repeat("<!---->", kMaxNodes) + "</a>", ParseOutcome::TooManyNodes},
      {"<a>" + Repeat("<?p?>", kMaxNodes) + "</a>", ParseOutcome::TooManyNodes},
      {"<a>" + Repeat(" x <b/>", kMaxNodes / 2) + "</a>", ParseOutcome::TooManyNodes},
      {"<a>" + Repeat("<b c='' d='' e=''/>", kMaxNodes / 4) + "</a>", ParseOutcome::TooManyNodes},
  };
  for (const auto& each : kCases) {
    EXPECT_EQ(Outcome(each.text), each.outcome) << each.text.substr(0, 40) << each.text.size();
  }
  EXPECT_EQ(ParseDocument(nullptr, 5).outcome, ParseOutcome::Empty);
}

TEST(ParseDocument, NeedsNoTerminatorAndSkipsAByteOrderMark) {
  const std::string text = "\xEF\xBB\xBF<tDVR Delta=\"1\"/></garbage behind the length";
  const ParsedDocument parsed = ParseDocument(text.data(), text.find("</garbage"));
  ASSERT_NE(parsed.Root(), nullptr);
  EXPECT_EQ(test::Parse("<other/>").Root(), nullptr);
}

// Numbers stop at the ends of 32 bits, as the library reads them; patterns are taken modulo 2^32.
TEST(Attributes, AreNumbersPatternsAndTexts) {
  const auto row = [](const std::string& text) {
    const ParsedDocument parsed = test::Parse("<tDVR a='" + text + "'/>");
    const TiXmlElement& root = *parsed.Root();
    EXPECT_EQ(TextAttribute(root, "a"), text);
    EXPECT_FALSE(IntAttribute(root, "b") || PatternAttribute(root, "b") ||
                 TextAttribute(root, "b"));
    const auto number = IntAttribute(root, "a");
    const auto pattern = PatternAttribute(root, "a");
    return (number ? std::to_string(*number) : "none") + ' ' +
           (pattern ? std::to_string(*pattern) : "none");
  };
  test::ExpectRows(row, R"(
7 7 <= 7
7 7 <=  +7
-1 4294967295 <= -1
12 12 <= 12x
2147483647 4026597377 <= 4026597377
-2147483648 4294967294 <= -4294967298
none none <= x
none none <= -
none none <= 
)");
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
    const ParsedDocument parsed = test::Parse(PrintDocument(document));
    EXPECT_EQ(TextAttribute(*parsed.Root(), "text"), text);
    EXPECT_EQ(parsed.Root()->FirstChild()->ValueStr(), text);
  }
}

}  // namespace
}  // namespace tvx
