// What the preview finds out about placeholders, and how it reads the facts of an event.
#include "preview/preview.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/algorithm/string/replace.hpp>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "support/table.h"
#include "support/temporary_folder.h"

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
  std::string table = test::ReadFile(PLACEHOLDERS);
  for (const auto& [word, reason] :
       {std::pair("FIRST", "only the first is replaced\\n"),
        {"DATE", "read only in a text with {date}, {time} or {date format=...}\\n"},
        {"STRAY", "is dropped: its first \"{\" reaches to the next \"}\"\\n"}}) {
    boost::replace_all(table, word, reason);
  }
  SampleEvent event;
  event.macAddress = "";
  event.systemName = "{North}";
  for (const auto& row : test::Rows(table.substr(table.find("\n\n")))) {
    SCOPED_TRACE(row[1]);
    const Preview preview = PreviewOf(row[0], row[1], event);
    const std::string text = PreviewText(preview, Palette(false));
    const std::size_t lines = text.find("\n\n", text.find("\n\n", text.find("\n\n") + 2) + 2);
    EXPECT_EQ(lines == std::string::npos ? "" : text.substr(lines + 2), row[2]);
    std::string before, after;
    for (const Piece& piece : preview.bodyPieces) {
      before += piece.before;
      after += piece.after;
    }
    EXPECT_EQ(before, row[1]);
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
