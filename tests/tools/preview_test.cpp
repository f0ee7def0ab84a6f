// What the preview finds out about placeholders, and how it reads the facts of an event. That its
// messages are the plug-in's is shown by tests/e2e/preview_test.py.
#include "preview/preview.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/templates.h"
#include "preview/event_options.h"
#include "preview/placeholder_marks.h"

namespace tvx::tool {
namespace {

constexpr std::int32_t kNoon = 1784548800;  // 2026-07-20 12:00:00 UTC

class PreviewTest : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }
};

Preview PreviewOf(const std::string& subject, const std::string& body, SampleEvent event = {},
                  const SampleAttachments& attachments = {}) {
  const auto config = std::make_shared<NotifyConfig>();
  NotifyProfile& profile = config->profiles[1];
  profile.ID = 1;
  profile.from = "nvr@example.com";
  profile.to = {"guard@example.com"};
  profile.subject = subject;
  profile.body = body;
  profile.usesPlaceholders = ContainsPlaceholder(subject) || ContainsPlaceholder(body);
  event.seconds = kNoon;
  return MakePreview(event, attachments, config, profile);
}

// "MARK line:column token=value" for each token, one a line.
std::string Tokens(const std::vector<Piece>& pieces) {
  std::string text;
  for (const Piece& piece : pieces) {
    if (piece.fate == Fate::Text) continue;
    text += "?+=-!"[static_cast<int>(piece.fate)];
    text += " " + std::to_string(piece.line) + ":" + std::to_string(piece.column) + " " +
            piece.before + "=" + piece.after + (piece.why.empty() ? "" : " (" + piece.why + ")") +
            "\n";
  }
  return text;
}

TEST_F(PreviewTest, TellsWhatBecameOfEachToken) {
  const struct {
    const char* body;
    const char* tokens;
  } cases[] = {
      {"no braces", ""},
      {"} no { token", ""},
      {"Tür\r\nan {source}{serial}", "+ 2:4 {source}=Camera 1\n+ 2:12 {serial}=A-1001\n"},
      {"{serial} {serial}",
       "+ 1:1 {serial}=A-1001\n= 1:10 {serial}={serial} (only the first is replaced)\n"},
      {"ü{foo} {Serial}",
       "= 1:2 {foo}={foo} (no placeholder)\n"
       "= 1:8 {Serial}={Serial} (no placeholder)\n"},
      {"{time} {foo} {serial} {serial}",
       "+ 1:1 {time}=12:00:00\n- 1:8 {foo}= (no placeholder)\n+ 1:14 {serial}=A-1001\n"
       "- 1:23 {serial}= (only the first is replaced)\n"},
      // An empty value is not the same as nothing.
      {"{licensed mac}", "+ 1:1 {licensed mac}=\n"},
      {"{date}{licensed mac}", "+ 1:1 {date}=07/20/26\n+ 1:7 {licensed mac}=\n"},
      {"{date format=\"%Q\"} {date format=\"50%\"}",
       "! 1:1 {date format=\"%Q\"}=[invalid format specified]\n"
       "! 1:20 {date format=\"50%\"}=[invalid format specified]\n"},
      {"{ time} {time format=\"%H\"}",
       "= 1:1 { time}={ time} (read only in a text with {date}, {time} or {date format=...})\n"
       "= 1:9 {time format=\"%H\"}={time format=\"%H\"} (read only in a text with {date}, {time} "
       "or {date format=...})\n"},
      {"{ time} {time format=\"%H\"} {date format=\"\"}",
       "+ 1:1 { time}=12:00:00\n+ 1:9 {time format=\"%H\"}=12\n- 1:28 {date format=\"\"}= (its "
       "format gives no text, or too much of it, or cannot be read)\n"},
      // Braces within braces: the inner ones are replaced first, what is around them goes.
      {"{foo {source}} {", "+ 1:6 {source}=Camera 1\n"},
      {"{foo {source}} {time}",
       "- 1:1 {foo {source}}= (inside of other braces)\n+ 1:16 {time}=12:00:00\n"},
      {"{date format=\"%Y {serial}\"}", "+ 1:1 {date format=\"%Y {serial}\"}=2026 A-1001\n"},
      // A stray brace takes along all up to the next end.
      {"at { {time} in {source}",
       "- 1:4 { {time}= (its first \"{\" reaches to the next \"}\")\n+ 1:16 {source}=Camera 1\n"},
      {"a { at {time} b {date}",
       "- 1:3 { at {time}= (its first \"{\" reaches to the next \"}\")\n+ 1:17 {date}=07/20/26\n"},
      {"a {time {date} b", "- 1:3 {time {date}= (its first \"{\" reaches to the next \"}\")\n"},
      {"{weblink}", "+ 1:1 {weblink}=[No Valid Web Server Address]\n"},
  };
  SampleEvent event;
  event.macAddress = "";
  for (const auto& one : cases) {
    SCOPED_TRACE(one.body);
    const Preview preview = PreviewOf("Alarm", one.body, event);
    ASSERT_TRUE(preview.marks);
    EXPECT_EQ(Tokens(preview.marks->body), one.tokens);
    std::string before;
    std::string after;
    for (const Piece& piece : preview.marks->body) {
      before += piece.before;
      after += piece.after;
    }
    EXPECT_EQ(before, one.body);
    EXPECT_EQ(after, preview.body);
  }
}

TEST_F(PreviewTest, TellsWhatASubjectOrAnEventLacks) {
  SampleEvent event;
  event.type = 0;
  const Preview preview = PreviewOf("{weblink} {event type}", "{event type} {date}", event);
  EXPECT_EQ(Tokens(preview.marks->subject),
            "= 1:1 {weblink}={weblink} (only the body can have a link)\n"
            "= 1:11 {event type}={event type} (the event has no type)\n");
  EXPECT_EQ(Tokens(preview.marks->body),
            "- 1:1 {event type}= (the event has no type)\n+ 1:14 {date}=07/20/26\n");
  EXPECT_EQ(preview.Findings(), 3u);
}

TEST_F(PreviewTest, TextsThatCannotBeMarkedAreShownWithoutMarks) {
  // A date's text of 79 bytes fits; with a mark in it, it would not.
  const std::string longest = "{date format=\"{" + std::string(78, 'x') + "\"}";
  for (const std::string& body : {std::string("\x01 {serial}"), longest}) {
    const Preview preview = PreviewOf("Alarm", body);
    EXPECT_FALSE(preview.marks);
    EXPECT_EQ(preview.message.substr(preview.message.find("\r\n\r\n") + 4), preview.body);
    EXPECT_NE(preview.body, body);
  }
}

TEST_F(PreviewTest, ShowsTheHeaderAndTheNotesOfTheMessage) {
  const Preview preview =
      PreviewOf("Two\r\nlines", "Body\r\n--\r\n", {},
                {{{true, "/missing/gate.mov", {}}, {false, {}, "one"}, {false, {}, "two"}}, 2, 3});
  EXPECT_EQ(preview.subject, "Two lines - Part 2 of 3");
  EXPECT_EQ(preview.body, "Body\r\n--\r\n");
  EXPECT_EQ(preview.notes, "\n- one\n- two");
  EXPECT_EQ(preview.attached, std::vector<std::string>{"gate.mov"});
}

TEST_F(PreviewTest, ReadsTimesAndTypes) {
  EXPECT_EQ(ReadEventTime("1500000000"), 1500000000);
  EXPECT_EQ(ReadEventTime("2026-07-20 12:00:00"), kNoon);
  setenv("TZ", "<+02>-2", 1);
  EXPECT_EQ(ReadEventTime("2026-07-20 14:00:00"), kNoon);
  for (const char* bad : {"", "12:00", "2026-07-20 12:00:00 ", "2026-02-30 12:00:00",
                          "2100-01-01 00:00:00", "99999999999"}) {
    EXPECT_EQ(ReadEventTime(bad), std::nullopt) << bad;
  }
  EXPECT_EQ(ReadEventType("record alarm"), 34);
  EXPECT_EQ(ReadEventType("-7"), -7);
  EXPECT_EQ(ReadEventType("Unknown"), std::nullopt);
}

}  // namespace
}  // namespace tvx::tool
