#include "video/attachment_preparation.h"

#include <sys/resource.h>

#include <boost/filesystem/operations.hpp>
#include <csignal>
#include <locale>
#include <map>

#include "support/temporary_folder.h"
#include "video_fixture.h"

namespace tvx::test {
namespace {

class AttachmentPreparation : public VideoTest {
 protected:
  AttachmentPreparation() { boost::filesystem::create_directory("data"); }

  // A clip of a stream of this standard, cut at the trigger time and finished: frames at these
  // ticks, of ten bytes or as many as given, the first two of which are the host's own.
  std::shared_ptr<CVideoEmailStream> Clip(std::int32_t standard,
                                          const std::vector<std::uint32_t>& ticks,
                                          std::uint32_t trigger, std::size_t bytes = 10,
                                          std::int32_t height = 480) {
    Reset("3e9/1 640x" + std::to_string(height) + " " + std::to_string(standard));
    Push(kH264Stream, false);
    std::shared_ptr<CVideoEmailStream> clip;
    const auto cut = [&] {
      now = trigger;
      clip = Cut(60, 30);
    };
    for (const std::uint32_t tick : ticks) {
      if (clip == nullptr && tick > trigger) cut();
      now = tick;
      std::string payload = "..picture" + std::to_string(tick % 10);
      payload.resize(bytes);
      const bool isKey = standard == standard::kJpeg || tick == ticks.front() || tick % 1000 == 0;
      const std::uint32_t offset = bytes == 0 ? 0 : 2;
      EXPECT_TRUE(Deliver({kH264Stream, isKey ? kKeyFrame : kDependent, offset, host.Lend(payload),
                           static_cast<std::uint32_t>(bytes)}));
    }
    if (clip == nullptr) cut();
    clip->Finish(bin);
    return clip;
  }

  AttachmentGroups Prepare(const std::vector<AttachmentSource>& sources, std::uint32_t limit = 0) {
    host.ClearLog();
    files_.clear();
    return PrepareVideoAttachments(sources, limit, "data", &FakeHost::Entry,
                                   [this](const std::string& path) { files_.push_back(path); });
  }

  using Lines = std::vector<LogLine>;
  using Texts = std::vector<std::string>;
  TemporaryFolder folder_;
  Texts files_;
};

// A big-endian word of a movie: this many bytes behind the start of what an atom is named by.
std::uint32_t Word(const std::string& movie, const char* atom, std::size_t offset) {
  const std::size_t at = movie.find(atom) + offset;
  std::uint32_t word = 0;
  for (std::size_t i = at; i < at + 4; ++i) word = word << 8 | static_cast<unsigned char>(movie[i]);
  return word;
}

TEST_F(AttachmentPreparation, WritesFilesAndTellsAboutThem) {
  struct Row {
    const char* name;
    std::shared_ptr<CVideoEmailStream> clip;
    const char* line;
  };
  const Row rows[] = {
      {"Gate", Clip(standard::kH264, {1000, 1500, 2000, 2500, 3050}, 3100),
       "Gate.mov, preview 2.100, length 2.050, frames 5, Gop size 2, fps 2, sizeKB 0"},
      {"Late", Clip(standard::kMpeg4, {1005, 1008}, 1000, 1900),
       "Late.mov, preview 0.000, length 0.003, frames 2, Gop size 2, fps 1000, sizeKB 3"},
      {"Once", Clip(standard::kH264, {1000, 1000}, 1000),
       "Once.mov, preview 0.000, length 0.001, frames 2, Gop size 1, fps 3000, sizeKB 0"},
      {"", Clip(standard::kJpeg, {1001, 1002, 1003}, 1063),
       "default.jpg, preview 0.060, length 0.001, frames 1, Gop size 1, fps 2000, sizeKB 0"},
  };
  // The host's locale may part thousands; what is logged does not.
  struct Parting : std::numpunct<char> {
    std::string do_grouping() const override { return "\1"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new Parting));
  for (const Row& row : rows) {
    const AttachmentGroups groups = Prepare({{"Nothing", nullptr}, {row.name, row.clip}});
    EXPECT_EQ(host.Log(), (Lines{{25, std::string("Attachment data/") + row.line}}));
    ASSERT_EQ(groups.size() * groups[0].size(), 1u);
    EXPECT_TRUE(groups[0][0].include);
    EXPECT_EQ(groups[0][0].path,
              "data/" + std::string(row.line).substr(0, groups[0][0].path.size() - 5));
    EXPECT_EQ(groups[0][0].note, "");
    EXPECT_EQ(files_, Texts{groups[0][0].path});
  }
  std::locale::global(before);
  EXPECT_EQ(ReadFile("data/default.jpg"), "picture3");
  EXPECT_NE(ReadFile("data/Late.mov").find("DIVX"), std::string::npos);
  const std::string movie = ReadFile("data/Gate.mov");
  EXPECT_EQ(Word(movie, "H264", 28), 640u << 16 | 480u);
  EXPECT_EQ(Word(movie, "mvhd", 20) * 1000ull / Word(movie, "mvhd", 16), 2050u);
  EXPECT_EQ(Word(movie, "stss", 8), 2u) << "key frames";
  EXPECT_EQ(Word(movie, "stss", 16), 3u) << "the third frame";
  Prepare({{"Gate", Clip(standard::kH264, {1000}, 1000, 10, 65536 + 480)}});
  EXPECT_EQ(Word(ReadFile("data/Gate.mov"), "H264", 28), 640u << 16 | 480u);
}

TEST_F(AttachmentPreparation, NamesFilesSoThatEverySystemCanStoreThem) {
  const auto clip = Clip(standard::kJpeg, {1000}, 1000);
  const std::pair<std::string, std::string> rows[] = {
      {"a/b?c<d>e\\f:g*h|i\"j\x01k\x1Fl m", "a_b_c_d_e_f_g_h_i_j_k_l m.jpg"},
      {"Tor gr\xC3\xBCn", "Tor gr\xC3\xBCn.jpg"},
      {"..", "...jpg"},
      {std::string(300, 'x'), std::string(251, 'x') + ".jpg"},
      {std::string(250, 'x') + "\xC3\xBC", std::string(250, 'x') + ".jpg"},
  };
  for (const auto& [name, file] : rows) {
    EXPECT_EQ(Prepare({{name, clip}})[0][0].path, std::string("data/") + file);
    EXPECT_TRUE(FileExists(files_.at(0)));
  }
}

TEST_F(AttachmentPreparation, WhatCannotBeWrittenBecomesANoteAndNoFile) {
  const std::string failed = "Failed to prepare video attachment for source: \"\"";
  const auto movie = Clip(standard::kH264, {1000}, 1000);
  const auto picture = Clip(standard::kJpeg, {1000}, 1000);
  const auto notes = [&](const std::vector<AttachmentSource>& sources) {
    Texts texts;
    const AttachmentGroups groups = Prepare(sources);
    for (const AttachmentEntry& entry : groups.at(0)) {
      EXPECT_FALSE(entry.include);
      texts.push_back(entry.note);
    }
    EXPECT_EQ(files_, Texts{});
    return texts;
  };
  EXPECT_EQ(notes({{"A & B", Clip(standard::kH265, {1000}, 1000)},
                   {"C.c", Clip(9, {1000}, 1000)},
                   {"D", Clip(standard::kJpeg, {}, 1000)}}),
            (Texts{failed + "A && B\"\", video format encoder.standard(6:h265) is not supported "
                            "for .mov attachments",
                   failed + "C.c\"\", video format encoder.standard(9) is not supported for .mov "
                            "attachments",
                   failed + "D\"\", "}));
  EXPECT_EQ(host.Log(), Lines{});

  const auto letGo = Clip(standard::kH264, {1000}, 1000);
  letGo->LetGo(bin);
  EXPECT_EQ(notes({{"E", letGo}, {"F", Clip(standard::kH264, {1000}, 1000, 0)}}),
            (Texts{failed + "E\"\", too much video was waiting to be sent, and this was the oldest",
                   failed + "F\"\", "}));

  Prepare({{"Full", picture}});
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit usual{};
  ::getrlimit(RLIMIT_FSIZE, &usual);
  const rlimit full{4, usual.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &full);
  EXPECT_EQ(notes({{"Full", movie}, {"Full", picture}}),
            (Texts{failed + "Full\"\", ", failed + "Full\"\", "}));
  ::setrlimit(RLIMIT_FSIZE, &usual);
  EXPECT_EQ(host.Log(),
            (Lines{{50, "Failed to write video frames to QuickTime format file data/Full.mov"}}));
  EXPECT_EQ(ReadFile("data/Full.jpg"), "picture0") << "an earlier picture stays";
  boost::filesystem::remove("data/Full.jpg");
  EXPECT_TRUE(boost::filesystem::is_empty("data"));
}

// Clips of 10 bytes, of 30, and refused ones; the limit; the groups, of clips by their number.
TEST_F(AttachmentPreparation, OpensAGroupBeforeTheClipThatExceedsTheLimit) {
  std::map<char, std::shared_ptr<CVideoEmailStream>> clips;
  clips['s'] = Clip(standard::kJpeg, {1000}, 1000);
  clips['l'] = Clip(standard::kH264, {1000, 1001, 1002}, 1002);
  clips['r'] = Clip(standard::kH265, {1000}, 1000);
  for (const auto& row : Rows(R"(
          | 20 |
    sls   | 0  | 012
    sssss | 20 | 01 23 4
    ls    | 20 | 0 1
    sls   | 20 | 0 1 2
    sls   | 40 | 01 2
    rlsrs | 20 | 0 1 234)")) {
    std::vector<AttachmentSource> sources;
    for (const char c : row[0]) sources.push_back({std::to_string(sources.size()), clips.at(c)});
    std::string groups;
    for (const auto& group : Prepare(sources, static_cast<std::uint32_t>(std::stoul(row[1])))) {
      groups += groups.empty() ? "" : " ";
      for (const AttachmentEntry& entry : group) groups += entry.path.at(5);
    }
    EXPECT_EQ(groups, row[2]) << row[0];
  }
}

}  // namespace
}  // namespace tvx::test
