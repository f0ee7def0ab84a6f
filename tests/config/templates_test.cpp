#include "config/templates.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "config/event_types.h"
#include "config/parse.h"

namespace tvx {
namespace {

class TemplatesTest : public testing::Test {
 protected:
  TemplatesTest() {
    ::setenv("TZ", "TST-1", 1);
    facts_.eventTime = 1500000000;  // 2017-07-14 03:40:00 there
    facts_.eventType = event_type::kVideoMotion;
    facts_.sourceName = "Gate camera";
    facts_.systemName = "North";
    facts_.serial = "S-1";
    facts_.macAddress = "00:11";
    facts_.eventState = "Start";
  }

  std::string Body(const std::string& body, const std::string& subject = "") {
    subject_ = subject;
    std::string expanded = body;
    const auto link = [this] { return ++linksAsked_, std::string("[link]"); };
    ExpandTemplates(facts_, link, subject_, expanded);
    return expanded;
  }

  TemplateFacts facts_;
  std::string subject_;
  int linksAsked_ = 0;
};

TEST_F(TemplatesTest, ReplacesEachSimplePlaceholderOnceInBodyAndSubject) {
  const std::string body =
      "{source}|{event type}|{system name}|{serial}|{licensed mac}|{event state}|{serial}";
  EXPECT_EQ(Body(body, "{serial} {serial} {weblink}"),
            "Gate camera|Video Motion|North|S-1|00:11|Start|{serial}");
  EXPECT_EQ(subject_, "S-1 {serial} {weblink}");
  EXPECT_EQ(linksAsked_, 0);  // the body has no "{weblink}"
  EXPECT_EQ(Body("see {weblink} {weblink}"), "see [link] {weblink}");
  EXPECT_EQ(linksAsked_, 1);
}

// A name comes from other machines; the template is the administrator's.
TEST_F(TemplatesTest, NoNameCanEndTheMail) {
  facts_.sourceName = "Gate\n.\r\nMAIL\x7F";
  facts_.systemName = ".";
  EXPECT_EQ(Body("a\r\n.\n{source}\n{system name}\n", "{source}\n{system name}"),
            "a\r\n.\nGate .  MAIL \n .\n");
  EXPECT_EQ(subject_, "Gate .  MAIL \n.");
}

TEST_F(TemplatesTest, NamesTheKindOfEvent) {
  const auto row = [&](const std::string& type) {
    facts_.eventType = std::stoi(type);
    EXPECT_EQ(Body("{event type}/{source}", "{event type}/{source}"), subject_);
    return subject_;
  };
  test::ExpectRows(row, test::Table(TABLES));
}

// Texts of 79 characters fit; "{time format" sets off no pass by itself.
TEST_F(TemplatesTest, TheDatePassRewritesTokensAndDropsTheOthers) {
  test::ExpectRows([this](const std::string& text) { return Body(text); }, R"(
Motion at 03:40:00 on 2017 <= Motion at {time} on {date format="%Y"} {foo}
Motion {foo} <= Motion {foo}   07/14/1707/14/17 <= {date}{date}
07/14/17[invalid format specified][invalid format specified] <= {date}{date format="%Q"}{date format="50%"}
100% <= {date format="100%%"}   07/14/1703:40:0003 <= {date}{ time}{  time format='%H'}
03:40:00 <= {time}{Date}{}{ }{a{b}   03:40:00 { no end <= {time} { no end   03:40:00} <= {time}}
{time format="%H"} <= {time format="%H"}   14.07.2017 <03> <= {date format="%d.%m.%Y &lt;%H&gt;"}
Fri Jul 14 03:40:00 2017Fri Jul 14 03:40:00 2017Fri Jul 14 03:40:00 20172017-07 <= {date format='%c%c%c%Y-%m'}
<= {date format='%c%c%c%Y-%m!'}   07/14/172017 <= {date}{time><time>}{date format=%Y}
S-103:40:00 <= {serial}{serial}{time})");
}

TEST_F(TemplatesTest, FindsEveryPlaceholder) {
  const auto row = [](const std::string& text) { return ContainsPlaceholder(text) ? "yes" : ""; };
  test::ExpectRows(row, R"(
yes <= a{weblink}b & {source} & {event type} & {system name} & {serial} & {licensed mac} & {event state}
yes <= {date} & {time} & {date format & a{{time}   <= & { & {Serial} & { date} & {date Format & {timeformat})");
}

}  // namespace
}  // namespace tvx
