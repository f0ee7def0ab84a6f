// What `notifypi check` finds in the files of configurations/, and in files of its own.
//
// That it keeps what the plug-in keeps is tested with the plug-in itself (e2e/check_test.py).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "configuration_check/check_json.h"
#include "configuration_check/check_text.h"
#include "configuration_check/configuration_check.h"
#include "support/temporary_folder.h"

namespace tvx::tool {
namespace {

using test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::string BlockWith(const std::string& servers, const std::string& profile = {}) {
  return "<tDVR><Notify ID='786432'><Servers>" + servers +
         "</Servers>\n<Profiles autoincrement='9'><smtp ID='1' description='Gate' from='a@b' "
         "subject='s'><to>c@d</to>" +
         (profile.empty() ? "<body>x</body>" : profile) + "</smtp></Profiles></Notify></tDVR>";
}

class Check : public testing::Test {
 protected:
  // Checks a private file with this text.
  static CheckReport Text(const std::string& text, mode_t mode = 0600) {
    WriteFile("notify.xml", text);
    EXPECT_EQ(::chmod("notify.xml", mode), 0);
    return CheckConfiguration("notify.xml");
  }

  // "line code" of every finding; warnings have a "?" behind it.
  static std::vector<std::string> Codes(const CheckReport& report) {
    std::vector<std::string> codes;
    for (const Finding& finding : report.findings) {
      codes.push_back(std::to_string(finding.place.line) + " " + finding.code +
                      (finding.severity == Severity::Warning ? "?" : ""));
      for (const std::string& text : {finding.what, finding.why, finding.instead, finding.mend}) {
        EXPECT_FALSE(text.empty()) << codes.back();
      }
    }
    return codes;
  }

  test::TemporaryFolder folder_;
};

TEST_F(Check, FindsWhatIsWrongInTheFiles) {
  struct Case {
    const char* file;
    std::vector<std::string> findings;
  };
  const std::vector<Case> cases = {
      {"good.xml", {}},
      {"defaults.xml", {}},
      {"servers.xml",
       {"4 missing-attribute", "5 missing-attribute", "7 half-credentials", "9 number", "10 number",
        "11 unknown-attribute", "12 unknown-element", "16 repeated-element", "18 unknown-element",
        "19 stray-text", "26 unknown-element", "28 unknown-element"}},
      {"profiles.xml",
       {"5 missing-attribute", "6 not-a-number",    "7 missing-attribute", "7 missing-attribute",
        "7 missing-attribute", "8 missing-element", "9 missing-element",   "10 empty-address",
        "14 several-elements", "16 empty-address",  "16 empty-address",    "17 id-given?",
        "18 number",           "18 number",         "18 number",           "19 no-address?",
        "19 no-text",          "19 stray-text",     "21 unknown-element",  "22 unknown-element",
        "22 stray-text",       "24 number"}},
      {"profile_lists.xml",
       {"5 profiles-replaced", "6 profile-replaced", "8 number", "8 autoincrement?",
        "10 profile-replaced"}},
      {"settings.xml",
       {"2 number", "3 number", "4 number", "4 limit?", "5 unknown-attribute",
        "6 unknown-attribute", "7 repeated-element", "9 number"}},
      {"unlikely_settings.xml",
       {"2 limit?", "2 limit?", "2 limit?", "3 web-address?", "4 no-servers?", "5 no-profiles?"}},
      {"unlikely_servers.xml",
       {"2 limit?", "3 web-address?", "5 server-address?", "6 server-address?", "7 server-address?",
        "8 server-address?", "9 server-address?", "10 port?", "11 use-ssl?", "12 tls-mismatch?",
        "13 tls-mismatch?", "15 login?", "18 login?", "21 plain-login?", "24 repeated-server?",
        "26 login?", "29 autoincrement?"}},
      {"unlikely_profiles.xml",
       {"5 never-triggers?", "6 no-address?", "8 part-of-address?", "9 no-address?",
        "10 part-of-address?", "13 empty-text?", "13 empty-text?", "14 subject-lines?",
        "14 empty-text?", "15 limit?", "15 limit?"}},
      {"templates.xml",
       {"5 placeholder?", "5 placeholder?", "5 placeholder?", "7 repeated-placeholder?",
        "7 placeholder?", "7 web-address?", "7 placeholder?", "9 placeholder?", "9 placeholder?",
        "11 date-format?", "11 date-format?", "11 date-format?", "11 placeholder?",
        "14 placeholder?"}},
      {"no_block.xml", {"1 missing-element"}},
      {"no_lists.xml", {"2 missing-element", "3 missing-element"}},
      {"other_module.xml", {"2 other-module"}},
      {"truncated.xml", {"5 rejected-file"}},
      {"open_tag.xml", {"2 rejected-file"}},
      {"attribute_twice.xml", {"2 rejected-file"}},
      {"no_xml.xml", {"0 rejected-file"}},
      {"declaration.xml", {"0 rejected-file"}},
      {"empty.xml", {"0 rejected-file"}},
  };
  for (const Case& c : cases) {
    const std::string text = test::ReadFile(std::string(CONFIGURATIONS "/") + c.file);
    EXPECT_EQ(Codes(Text(text)), c.findings) << c.file;
  }
}

TEST_F(Check, TellsWhereTheMarkupCannotBeRead) {
  std::string deep = "<a>\n";
  for (int level = 1; level <= 256; ++level) deep += "<a>";
  std::string wide = "\r\n\r\n<a ";
  for (int i = 0; i <= 64; ++i) wide += "a" + std::to_string(i) + "='' ";
  struct Case {
    std::string text;
    const char* why;
    int line;
    int column;
  };
  for (const Case& c :
       {Case{deep, "its elements are nested more than 256 deep", 2, 766},
        Case{wide + "/>", "one of its elements has more than 64 attributes", 3, 1},
        Case{"<a>\n  <!-- </a>", "a comment or the like has no end", 2, 3},
        Case{"<a b='>\n</a>", "the quotes around a value are not closed", 1, 1},
        Case{"<a>\r</b>", "the XML library says: Error reading end tag.", 2, 1},
        Case{"<a/>\n</a>", "an end tag has no start tag", 2, 1},
        Case{std::string((16u << 20) + 1, ' '), "it is larger than 16 MiB", 0, 0}}) {
    const CheckReport report = Text(c.text);
    EXPECT_EQ(report.outcome, LoadOutcome::Rejected);
    ASSERT_EQ(report.findings.size(), 1u) << c.why;
    EXPECT_EQ(report.findings[0].why, c.why);
    EXPECT_EQ(report.findings[0].place.line, c.line) << c.why;
    EXPECT_EQ(report.findings[0].place.column, c.column) << c.why;
  }
}

TEST_F(Check, NamesWhatStandsInThePlaceOfTheBlock) {
  const std::string lists = "<Servers/><Profiles/></";
  struct Case {
    std::string text;
    const char* what;
    const char* why;
    const char* mend;
    int line;
  };
  for (const Case& c :
       {Case{"<tDVR>\n<notify ID='786432'>" + lists + "notify></tDVR>",
             "element \"notify\" is not read", "it is not written \"Notify\"", "write \"Notify\"",
             2},
        Case{"<tDVR><Notify ID='786432'><Servers/>\n<profiles/></Notify></tDVR>",
             "element \"profiles\" is not read", "it is not written \"Profiles\"",
             "write \"Profiles\"", 2},
        Case{"<Notify ID='786432'>" + lists + "Notify>", "element \"Notify\" is not taken",
             "it is the root itself", "put it into a root element, <tDVR>...</tDVR>", 1},
        Case{std::string("\xFF\xFE<\0a\0/\0>\0", 10), "the file is not taken", "it is UTF-16",
             "save it as UTF-8", 0},
        Case{std::string("\0<\0a\0/\0>", 8), "the file is not taken", "it is UTF-16",
             "save it as UTF-8", 0}}) {
    const CheckReport report = Text(c.text);
    EXPECT_EQ(report.outcome, LoadOutcome::Rejected);
    ASSERT_EQ(report.findings.size(), 1u) << c.text;
    EXPECT_EQ(report.findings[0].what, c.what);
    EXPECT_EQ(report.findings[0].why, c.why);
    EXPECT_EQ(report.findings[0].mend, c.mend);
    EXPECT_EQ(report.findings[0].place.line, c.line) << c.text;
  }
}

TEST_F(Check, KnowsFilesThatAreNone) {
  EXPECT_EQ(CheckConfiguration("missing.xml").outcome, LoadOutcome::Missing);
  ASSERT_EQ(::mkfifo("pipe.xml", 0600), 0);
  EXPECT_THAT(Codes(CheckConfiguration("pipe.xml")), ElementsAre("0 rejected-file"));
}

TEST_F(Check, SeesWhoMayReadThePasswords) {
  const auto login = [](const char* password) {
    return BlockWith(std::string("<smtp description='d' address='localhost'><Authentication "
                                 "username='u' password='") +
                     password + "'/></smtp>");
  };
  EXPECT_THAT(Codes(Text(login("secret"), 0644)), ElementsAre("0 file-mode?"));
  EXPECT_THAT(Codes(Text(login("secret"), 0640)), ElementsAre());
  EXPECT_THAT(Codes(Text(login(""), 0644)), ElementsAre("1 login?"));
}

TEST_F(Check, DisplayNamesAreNoFinding) {
  for (const char* address :
       {"a@b", " a@b\n", "&lt;a@b&gt;", "Guard &lt;a@b&gt;", "\"Guard, gate\" &lt;a@b&gt;"}) {
    const std::string profile = std::string("<cc>") + address + "</cc><body>x</body>";
    EXPECT_THAT(Codes(Text(BlockWith("<smtp description='d' address='a'/>", profile))),
                ElementsAre())
        << address;
  }
  for (const char* address : {"a@b c@d", "a@b &lt;c@d&gt;", "a@b (Guard)", "&lt;a@b&gt;, Guard"}) {
    const std::string profile = std::string("<cc>") + address + "</cc><body>x</body>";
    EXPECT_THAT(Codes(Text(BlockWith("<smtp description='d' address='a'/>", profile))),
                ElementsAre("2 part-of-address?"))
        << address;
  }
}

TEST_F(Check, PrintsNeitherPasswordsNorControlCharacters) {
  const CheckReport report =
      Text(BlockWith("<smtp description='\x1b[2J\xFF' address='a'><Authentication username='u' "
                     "password='secret'/></smtp>"),
           0644);
  ASSERT_EQ(report.findings.size(), 2u);
  std::FILE* out = std::fopen("report.txt", "w");
  PrintReport(report, Palette(false), out);
  std::fclose(out);
  const std::string text = test::ReadFile("report.txt");
  EXPECT_THAT(text, HasSubstr("notify.xml:1: warning: server \"\\x1b[2J\xFF\" gets the password"));
  EXPECT_THAT(text, Not(HasSubstr("secret")));
  const std::string json = CheckJson(report);
  EXPECT_THAT(json, Not(HasSubstr("secret")));
  EXPECT_EQ(nlohmann::json::parse(json)["kept"]["servers"][0]["description"],
            "\x1b[2J\xEF\xBF\xBD");
}

}  // namespace
}  // namespace tvx::tool
