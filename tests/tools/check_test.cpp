// What `notifypi check` finds. configurations/expected.txt has a line for each finding in the files
// beside it, and one at least for each rule but that on the file's permissions.
#include "configuration_check/configuration_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <boost/algorithm/string.hpp>
#include <cctype>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace tvx::tool {
namespace {

using test::WriteFile;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string BlockWith(const std::string& servers) {
  return "<tDVR><Notify ID='786432'><Web address='web'/><Servers>" + servers +
         "</Servers><Profiles autoincrement='9'><smtp ID='1' description='Gate' from='a@b' "
         "subject='s'><to>c@d</to><body>x</body></smtp></Profiles></Notify></tDVR>";
}

class Check : public testing::Test {
 protected:
  // Checks a private file with this text.
  static CheckReport Text(const std::string& text, mode_t mode = 0600) {
    WriteFile("notify.xml", text);
    EXPECT_EQ(::chmod("notify.xml", mode), 0);
    return CheckConfiguration("notify.xml");
  }

  // "line:column severity code: what: why | effect | fix" of every finding, one a line.
  static std::string Lines(const CheckReport& report) {
    std::string lines;
    for (const Finding& it : report.findings) {
      lines += std::to_string(it.place.line) + ":" + std::to_string(it.place.column) +
               (it.severity == Severity::Error ? " error " : " warning ") + it.code + ": " +
               it.what + ": " + it.why + " | " + it.effect + " | " + it.fix + "\n";
    }
    return lines;
  }

  static std::string Mistakes(const std::vector<std::string>& document) {
    std::string text = boost::join(document, "\n");
    boost::replace_all(text, "\\xFC", "\xFC");
    std::string lines;
    for (const Finding& it : Text(text).findings) {
      lines += "-> " + std::to_string(it.place.line) +
               (it.severity == Severity::Error ? " error: " : " warning: ") + it.what + " | " +
               it.fix + "\n";
    }
    return lines;
  }

  test::TemporaryFolder folder_;
};

TEST_F(Check, FindsWhatIsWrongInTheFiles) {
  std::set<std::string> names;
  for (const auto& it : std::filesystem::directory_iterator(CONFIGURATIONS)) {
    if (it.path().extension() == ".xml") names.insert(it.path().filename());
  }
  std::string found;
  for (const std::string& name : names) {
    found += "== " + name + "\n" + Lines(Text(test::ReadFile(CONFIGURATIONS "/" + name)));
  }
  EXPECT_EQ(found, test::ReadFile(CONFIGURATIONS "/expected.txt"));
}

// The file's own words, but for the findings, which are written anew.
TEST_F(Check, NamesTypicalMistakesWithTheirCures) {
  const std::string file = test::ReadFile(CONFIGURATIONS "/mistakes.txt");
  std::istringstream lines(file);
  std::vector<std::string> good, mistaken;
  std::string found;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("->", 0) == 0) continue;
    if (line[0] == '<') good.push_back(line);
    if (line.rfind("==", 0) == 0) mistaken = good;
    if (std::isdigit(line[0]) != 0) mistaken.at(line[0] - '1') = line.substr(2);
    if (line.empty() && !mistaken.empty()) found += Mistakes(mistaken);
    found += line + "\n";
  }
  EXPECT_EQ(found + Mistakes(mistaken), file);
}

TEST_F(Check, TellsWhyAFileIsNotTaken) {
  std::string deep = "<a>\n", wide = "\r\n\r\n<a ";
  for (int level = 1; level <= 256; ++level) deep += "<a>";
  for (int i = 0; i <= 64; ++i) wide += "a" + std::to_string(i) + "='' ";
  const std::string rejected = " error rejected-file: the file is not taken: ";
  EXPECT_THAT(Lines(Text(deep)),
              StartsWith("2:766" + rejected + "its elements are nested more than 256 deep |"));
  EXPECT_THAT(Lines(Text(wide + "/>")),
              StartsWith("3:1" + rejected + "one of its elements has more than 64 attributes |"));
  EXPECT_THAT(Lines(Text(std::string((16u << 20) + 1, ' '))),
              StartsWith("0:0" + rejected + "it is larger than 16 MiB |"));
  EXPECT_EQ(CheckConfiguration("missing.xml").outcome, LoadOutcome::Missing);
  ASSERT_EQ(::mkfifo("pipe.xml", 0600), 0);
  EXPECT_THAT(Lines(CheckConfiguration("pipe.xml")), StartsWith("0:0" + rejected));
}

TEST_F(Check, PrintsNeitherPasswordsNorWhatATerminalObeys) {
  const std::string server =
      "<smtp description='\x1b[2J\xFF\xC2\x9B\xE2\x80\xAE\xC3\xBC' address='localhost'>"
      "<Authentication username='u' password='secret'/></smtp>";
  EXPECT_EQ(Lines(Text(BlockWith(server), 0640)), "");
  const CheckReport report = Text(BlockWith(server + server), 0644);
  const std::string text = CheckText(report, Palette(false));
  EXPECT_THAT(text, HasSubstr("notify.xml: warning: everybody on this machine can read the pass"));
  EXPECT_THAT(text, HasSubstr("notify.xml:1: warning: server "
                              "\"\\x1b[2J\\xff\\xc2\\x9b\\xe2\\x80\\xae\xC3\xBC\" says the same"));
  const std::string json = CheckJson(report);
  EXPECT_THAT(text + json, Not(HasSubstr("secret")));
  EXPECT_EQ(json.find_first_not_of("\n !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                   "[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"),
            std::string::npos);
  EXPECT_EQ(nlohmann::json::parse(json)["kept"]["servers"][0]["description"],
            "\x1b[2J\xEF\xBF\xBD\xC2\x9B\xE2\x80\xAE\xC3\xBC");
}

}  // namespace
}  // namespace tvx::tool
