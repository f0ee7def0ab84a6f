// What the preview finds out about placeholders, and how it reads the facts of an event.
#include "preview/preview.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tvx::tool {
namespace {

constexpr std::int32_t kNoon = 1784548800;  // 2026-07-20 12:00:00 UTC

Preview PreviewOf(const std::string& subject, const std::string& body, SampleEvent event = {},
                  const SampleAttachments& attachments = {}) {
  ::setenv("TZ", "UTC", 1);
  const auto config = std::make_shared<NotifyConfig>();
  NotifyProfile& profile = config->profiles[1];
  profile.ID = 1;
  profile.from = "nvr@example.com";
  profile.to = {"guard@example.com"};
  profile.subject = subject;
  profile.body = body;
  profile.usesPlaceholders = true;
  event.seconds = kNoon;
  return MakePreview(event, attachments, config, profile);
}

TEST(Preview, TellsWhatBecameOfEachToken) {
  const std::string first = "only the first is replaced\n";
  const std::string inDate = "read only in a text with {date}, {time} or {date format=...}\n";
  const std::string stray = "is dropped: its first \"{\" reaches to the next \"}\"\n";
  const struct {
    std::string subject, body, lines;
  } cases[] = {
      {"no braces", "} no { token", ""},
      {"s", "Tür\r\nan {source}{serial}",
       "+ body 2:4 {source} -> Camera 1\n+ body 2:12 {serial} -> A-1001\n"},
      {"{serial} {serial}", "€{foo} {Serial}",
       "+ subject 1:1 {serial} -> A-1001\n= subject 1:10 {serial} stays: " + first +
           "= body 1:2 {foo} stays: no placeholder\n= body 1:8 {Serial} stays: no placeholder\n"},
      // An empty value is not the same as nothing.
      {"{licensed mac}", "{foo}{licensed mac}{date}",
       "+ subject 1:1 {licensed mac} -> (nothing)\n- body 1:1 {foo} is dropped: no placeholder\n"
       "+ body 1:6 {licensed mac} -> (nothing)\n+ body 1:20 {date} -> 07/20/26\n"},
      {"s", "{date format=\"%Q\"} {date format=\"50%\"}",
       "! body 1:1 {date format=\"%Q\"} -> [invalid format specified]\n"
       "! body 1:20 {date format=\"50%\"} -> [invalid format specified]\n"},
      {"{ time} {time format=\"%H\"}", "{ time} {time format=\"%H\"} {date format=\"\"}",
       "= subject 1:1 { time} stays: " + inDate +
           "= subject 1:9 {time format=\"%H\"} stays: " + inDate +
           "+ body 1:1 { time} -> 12:00:00\n+ body 1:9 {time format=\"%H\"} -> 12\n"
           "- body 1:28 {date format=\"\"} is dropped: its format gives no text, or too much of "
           "it, or cannot be read\n"},
      // Braces within braces: the inner ones are replaced first, what is around them goes.
      {"{foo {source}} {", "{foo {source}} {time} {source}",
       "+ subject 1:6 {source} -> Camera 1\n"
       "- body 1:1 {foo {source}} is dropped: inside of other braces\n"
       "+ body 1:16 {time} -> 12:00:00\n- body 1:23 {source} is dropped: " +
           first},
      // A stray brace takes along all up to the next end.
      {"a {time {date} b", "at { {time} in {source}",
       "- subject 1:3 {time {date} " + stray + "- body 1:4 { {time} " + stray +
           "+ body 1:16 {source} -> Camera 1\n"},
      {"{weblink}", "{weblink}",
       "= subject 1:1 {weblink} stays: only the body can have a link\n"
       "+ body 1:1 {weblink} -> [No Valid Web Server Address]\n"},
      // A value may hold what looks like another token.
      {"s", "{system name}{system name} {time}",
       "- body 1:1 {system name} is dropped: inside of other braces\n- body 1:14 {system name} is "
       "dropped: " +
           first + "+ body 1:28 {time} -> 12:00:00\n"},
  };
  SampleEvent event;
  event.macAddress = "";
  event.systemName = "{North}";
  for (const auto& one : cases) {
    SCOPED_TRACE(one.body);
    const Preview preview = PreviewOf(one.subject, one.body, event);
    const std::string text = PreviewText(preview, Palette(false));
    const std::size_t lines = text.find("\n\n", text.find("\n\n", text.find("\n\n") + 2) + 2);
    EXPECT_EQ(lines == std::string::npos ? "" : text.substr(lines + 2), one.lines);
    std::string before, after;
    for (const Piece& piece : preview.bodyPieces) {
      before += piece.before;
      after += piece.after;
    }
    EXPECT_EQ(before, one.body);
    EXPECT_EQ(after, preview.body);
  }
}

TEST(Preview, ShowsTheHeaderAndTheNotesOfTheMessage) {
  const Preview preview =
      PreviewOf("Two\r\nlines", "\xC2\x9B\x7F\r\n--\r\n", {},
                {{{true, "/missing/gate.mov", {}}, {false, {}, "one"}, {false, {}, "two"}}, 2, 3});
  EXPECT_THAT(PreviewText(preview, Palette(false)),
              testing::HasSubstr("Subject: Two lines - Part 2 of 3\n    Attached: gate.mov\n\n"
                                 "    \\xc2\\x9b\\x7f\n    --\n\n    - one\n    - two\n"));
}

TEST(Preview, ReadsTimesAndTypes) {
  ::setenv("TZ", "<+02>-2", 1);
  EXPECT_EQ(ReadEventTime("1500000000"), 1500000000);
  EXPECT_EQ(ReadEventTime("2026-07-20 14:00:00"), kNoon);
  for (const char* bad : {"", "2026-07-20 12:00:00 ", "2026-02-30 12:00:00", "99999999999"}) {
    EXPECT_EQ(ReadEventTime(bad), std::nullopt) << bad;
  }
  EXPECT_EQ(ReadEventType("record alarm"), 34);
  EXPECT_EQ(ReadEventType("Unknown"), std::nullopt);
}

}  // namespace
}  // namespace tvx::tool
