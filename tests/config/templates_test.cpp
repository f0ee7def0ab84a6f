#include "config/templates.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "config/event_types.h"

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
    ExpandTemplates(
        facts_,
        [this] {
          ++linksAsked_;
          return std::string("[link]");
        },
        subject_, expanded);
    return expanded;
  }

  TemplateFacts facts_;
  std::string subject_;
  int linksAsked_ = 0;
};

TEST_F(TemplatesTest, ReplacesEachSimplePlaceholderOnceInBodyAndSubject) {
  EXPECT_EQ(
      Body("{source}|{event type}|{system name}|{serial}|{licensed mac}|{event state}|{serial}",
           "{serial} {serial} {weblink}"),
      "Gate camera|Video Motion|North|S-1|00:11|Start|{serial}");
  EXPECT_EQ(subject_, "S-1 {serial} {weblink}");
  EXPECT_EQ(linksAsked_, 0);  // the body has no "{weblink}"
  EXPECT_EQ(Body("see {weblink} {weblink}"), "see [link] {weblink}");
  EXPECT_EQ(linksAsked_, 1);
}

TEST_F(TemplatesTest, NamesTheKindOfEvent) {
  const struct {
    std::int32_t type;
    const char* text;
  } kCases[] = {{-1, "[Test Event Type]/Gate camera"},
                {0, "{event type}/Gate camera"},
                {-2, "{event type}/Gate camera"},
                {8, "Health/Storage"},
                {7, "Health/Gate camera"},
                {35, "Unknown/Gate camera"},
                {12, "Source Group/Gate camera"}};
  for (const auto& each : kCases) {
    facts_.eventType = each.type;
    EXPECT_EQ(Body("{event type}/{source}", "{event type}/{source}"), each.text);
    EXPECT_EQ(subject_, each.text);
  }
}

TEST_F(TemplatesTest, TheDatePassRewritesTokensAndDropsTheOthers) {
  struct Case {
    const char* text;
    const char* expanded;
  };
  for (const Case& c : {
           Case{"Motion at {time} on {date format=\"%Y\"} {foo}", "Motion at 03:40:00 on 2017 "},
           Case{"Motion {foo}", "Motion {foo}"},
           Case{"{date}{date}", "07/14/1707/14/17"},
           Case{"{date}{date format=\"%Q\"}{date format=\"50%\"}",
                "07/14/17[invalid format specified][invalid format specified]"},
           Case{"{date format=\"100%%\"}", "100%"},
           Case{"{date}{ time}{  time format='%H'}", "07/14/1703:40:0003"},
           Case{"{time}{Date}{}{ }{a{b}", "03:40:00"},
           Case{"{time} { no end", "03:40:00 { no end"},
           Case{"{time}}", "03:40:00}"},
           Case{"{time format=\"%H\"}", "{time format=\"%H\"}"},  // sets off no pass by itself
           Case{"{date format=\"%d.%m.%Y &lt;%H&gt;\"}", "14.07.2017 <03>"},
           Case{"{date format='%c%c%c%Y-%m'}",  // 79 characters
                "Fri Jul 14 03:40:00 2017Fri Jul 14 03:40:00 2017Fri Jul 14 03:40:00 20172017-07"},
           Case{"{date format='%c%c%c%Y-%m!'}", ""},  // one more
           Case{"{date}{time><time>}{date format=%Y}", "07/14/172017"},
           Case{"{serial}{serial}{time}", "S-103:40:00"},
       }) {
    EXPECT_EQ(Body(c.text), c.expanded) << c.text;
  }
}

TEST_F(TemplatesTest, FindsEveryPlaceholder) {
  for (const char* text : {"{weblink}", "{source}", "{event type}", "{system name}", "{serial}",
                           "{licensed mac}", "{event state}", "{date}", "{time}", "{date format"}) {
    EXPECT_TRUE(ContainsPlaceholder(std::string("a") + text + "b")) << text;
  }
  for (const char* text : {"", "{", "{Serial}", "{ date}", "{date Format", "{timeformat}"}) {
    EXPECT_FALSE(ContainsPlaceholder(text)) << text;
  }
}

}  // namespace
}  // namespace tvx
