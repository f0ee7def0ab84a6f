// Documents: as text, and as the file in which the configuration outlives the process.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/input_limits.h"
#include "config/config_file.h"
#include "config/notify_writer.h"
#include "config/parse.h"
#include "config/xml_document.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

std::string Repeat(const std::string& text, int times) {
  std::string repeated;
  for (int i = 0; i < times; ++i) repeated += text;
  return repeated;
}

TEST(ParseDocument, RefusesWhatIsNoDocumentOrOutOfBounds) {
  const std::string ends = Repeat("</a>", 100000);
  const std::string starts = Repeat("<a>", 100000);
  const std::string blanks(kMaxDocumentBytes - 7, ' ');
  const auto attributes = [](int count) {
    std::string text = "<tDVR";
    for (int i = 0; i < count; ++i) text += " a" + std::to_string(i) + "='='";
    return text + "/>";
  };
  const auto around = [](const std::string& text, int times) {
    return "<a>" + Repeat(text, times) + "</a>";
  };
  const std::pair<ParseOutcome, std::vector<std::string>> cases[] = {
      {ParseOutcome::Empty, {""}},
      {ParseOutcome::TooLarge, {"<tDVR/>" + blanks + " "}},
      {ParseOutcome::TooManyAttributes, {attributes(kMaxAttributes + 1)}},
      // A byte promises more than there is. Ends that the library does not take for ends must not
      // hide a level, either; each once overran the stack.
      {ParseOutcome::Unreadable,
       {"<tDVR><a></tDVR>", "<tDVR", std::string("\0\xff\x01<", 4), "<tDVR>\xE2", "<a><?pi </a>",
        ends + starts, "<a><1 " + Repeat("</ ", 100000) + ">" + starts,
        "<a><?xml version=\"" + ends + "\"?>" + starts, "<a b=x<!-- >" + starts + "-->"}},
      // Width is no depth, and an instruction ends at "?>".
      {ParseOutcome::Parsed,
       {"<tDVR/>" + blanks, Repeat("<a>", 256) + Repeat("</a>", 256), around("<b c='>'/>", 10000),
        "<?pi ><r>" + starts + "?><r/>", "<?xml version=\"?><!-- \" ?><r>" + starts + "--><r/>",
        attributes(kMaxAttributes), around("<b/>", kMaxNodes - 1)}},
      // Ends that are only text must not hide a level.
      {ParseOutcome::TooDeep,
       {Repeat("<a>", 257) + Repeat("</a>", 257), Repeat("<a b='/>'>", 100000),
        Repeat("<a><!-- </a> -->", 100000), Repeat("<a><![CDATA[</a>]]>", 100000),
        "<a><?pi x='>' <b ?>" + starts, "<?xml ><r>" + starts + "?>",
        "<!--><![CDATA[ --><r>" + starts + "]]>"}},
      {ParseOutcome::TooManyNodes,
       {around("<b/>", kMaxNodes), around("x<!>", kMaxNodes), around("<!---->", kMaxNodes),
        around("<?p?>", kMaxNodes), around(" x <b/>", kMaxNodes / 2),
        around("<b c='' d='' e=''/>", kMaxNodes / 4)}}};
  for (const auto& [outcome, texts] : cases) {
    for (const std::string& text : texts) {
      EXPECT_EQ(ParseDocument(text.data(), text.size()).outcome, outcome) << text.substr(0, 40);
    }
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
    const auto number = [](const auto& found) { return found ? std::to_string(*found) : "none"; };
    return number(IntAttribute(root, "a")) + ' ' + number(PatternAttribute(root, "a"));
  };
  test::ExpectRows(row, R"(
7 7 <= 7   7 7 <= +7   -1 4294967295 <= -1   12 12 <= 12x   2147483647 4026597377 <= 4026597377
-2147483648 4294967294 <= -4294967298   none none <= x   none none <= -   none none <=)");
}

// Also without UTF-8: each byte stands before a character to escape.
TEST(Texts, ComeBackAsTheyWereWhateverTheyHold) {
  for (const std::string text :
       {"plain", "&#x41; stays a reference in text", "&#x", "a & b < c > \"d\" 'e' &amp; &lt;",
        "line\r\nline\n\ttab and  two blanks ", "gr\xC3\xBC\xC3\x9F Gott \xE2\x82\xAC",
        "latin \xE9\"\xE9<\xE9&\xE9"}) {
    TiXmlDocument document;
    TiXmlElement& root = AppendElement(document, "tDVR");
    root.SetAttribute("text", text);
    root.LinkEndChild(std::make_unique<TiXmlText>(text).release());
    const ParsedDocument parsed = test::Parse(PrintDocument(document));
    EXPECT_EQ(TextAttribute(*parsed.Root(), "text"), text);
    EXPECT_EQ(parsed.Root()->FirstChild()->ValueStr(), text);
  }
}

LoadOutcome Load(NotifyConfig& config) {
  return TakeConfigDocument(ReadConfigFile(kConfigFile), config);
}

std::string Mode(const char* path) {
  struct stat status {};
  if (::lstat(path, &status) != 0) return "none";
  std::ostringstream mode;
  mode << std::oct << status.st_mode;
  return mode.str();
}

TEST(ConfigFile, IsLoadedMissingRejectedOrCannotBeRead) {
  const test::TemporaryFolder folder;
  NotifyConfig config;
  EXPECT_EQ(Load(config), LoadOutcome::Missing);
  const std::string block = "<any><Notify ID='786432'><Servers/><Profiles/></Notify></any>";
  const std::string largest = block + std::string(kMaxDocumentBytes - block.size(), ' ');
  for (const std::string& content :
       {largest, largest + ' ', std::string(),
        std::string("<tDVR><Notify ID='786432' MaxRetryQueue='7'><Servers/></Notify></tDVR>")}) {
    test::WriteFile(kConfigFile, content);
    EXPECT_EQ(Load(config), content == largest ? LoadOutcome::Loaded : LoadOutcome::Rejected);
    EXPECT_EQ(config.MaxRetryQueue, 100) << "nothing is left of a rejected file";
  }
  ASSERT_EQ(::chmod(kConfigFile, 0640), 0);
  EXPECT_TRUE(KeepRejectedFile(kConfigFile));
  EXPECT_EQ(Mode("notify.xml.rejected"), "100640");
  ASSERT_EQ(::mkfifo(kConfigFile, 0600), 0);  // would be waited for
  EXPECT_EQ(Load(config), LoadOutcome::Rejected);
  ASSERT_EQ(std::remove(kConfigFile), 0);
  ASSERT_EQ(::symlink(kConfigFile, kConfigFile), 0);
  EXPECT_EQ(ReadConfigFile(kConfigFile).fault.text, "Too many levels of symbolic links");
  EXPECT_EQ(Load(config), LoadOutcome::Failed);
}

TEST(ConfigFile, IsReplacedWithItsPermissionsOrElseWrittenInPlace) {
  const test::TemporaryFolder folder;
  const std::string text = PrintDocument(*BuildNotifyDocument(NotifyConfig{}));
  const auto isSaved = [](const char* path) {
    return test::ReadFile(path).find("<?xml ?>") == 0 && Mode("notify.xml.new") != "100600";
  };
  EXPECT_EQ(SaveConfigFile(kConfigFile, text), 0);
  EXPECT_EQ(Mode(kConfigFile), "100600");  // it may hold passwords
  ASSERT_EQ(::chmod(kConfigFile, 0640), 0);
  test::WriteFile("notify.xml.new", "left by a process that died");
  EXPECT_EQ(SaveConfigFile(kConfigFile, text), 0);
  EXPECT_EQ(Mode(kConfigFile), "100640");
  EXPECT_EQ(Mode("notify.xml.new"), "none");
  ASSERT_EQ(std::rename(kConfigFile, "elsewhere.xml"), 0);
  ASSERT_EQ(::symlink("elsewhere.xml", kConfigFile), 0);
  for (const char* content : {"", "old"}) {  // behind a link, which may lead nowhere yet
    if (*content == '\0') std::remove("elsewhere.xml");
    if (*content != '\0') test::WriteFile("elsewhere.xml", content);
    EXPECT_EQ(SaveConfigFile(kConfigFile, text), 0);
    EXPECT_EQ(Mode(kConfigFile), "120777");
    EXPECT_TRUE(isSaved("elsewhere.xml"));
  }
  EXPECT_TRUE(KeepRejectedFile(kConfigFile));
  EXPECT_EQ(Mode(kConfigFile) + Mode("elsewhere.xml.rejected"), "120777100600");

  ASSERT_EQ(std::remove(kConfigFile), 0);
  test::WriteFile(kConfigFile, std::string(9999, 'x'));
  ASSERT_EQ(::mkfifo("notify.xml.new", 0600), 0);  // neither waited for nor removed
  EXPECT_EQ(SaveConfigFile(kConfigFile, text), 0);
  EXPECT_TRUE(isSaved(kConfigFile));
  EXPECT_EQ(SaveConfigFile("missing/notify.xml", text), ENOENT);
  ASSERT_EQ(::mkdir("folder", 0700), 0);
  EXPECT_NE(SaveConfigFile("folder", text), 0);
  EXPECT_EQ(Mode("folder.new"), "none");
}

TEST(ConfigFile, IsNotToBeRefusedByTheNextStart) {
  NotifyConfig config;
  config.webAddress = std::string(kMaxDocumentBytes / 6, '\n');  // each is written as "&#x0A;"
  EXPECT_STREQ(WhyNotReadAgain(PrintDocument(*BuildNotifyDocument(config))),
               "it is larger than 16 MiB");
  config.webAddress.resize(100);
  EXPECT_EQ(WhyNotReadAgain(PrintDocument(*BuildNotifyDocument(config))), nullptr);
}

}  // namespace
}  // namespace tvx
