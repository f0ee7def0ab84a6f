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

using namespace std::string_literals;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class AttachmentPreparation : public VideoTest {
 protected:
  AttachmentPreparation() { boost::filesystem::create_directory("data"); }

  // A clip of a stream of this standard, cut at a tick between these frames and finished.
  std::shared_ptr<CVideoEmailStream> Clip(int standard, const std::string& before,
                                          std::uint32_t trigger, const std::string& after = {},
                                          int height = 480) {
    Reset("3e9/1 640x" + std::to_string(height) + " " + std::to_string(standard));
    Feed("d0 " + before + " T" + std::to_string(trigger) + " C60,30 " + after + " F");
    return cuts.back().first;
  }

  AttachmentGroups Prepare(const std::vector<AttachmentSource>& sources, std::uint32_t limit = 0) {
    host.ClearLog();
    files_.clear();
    const auto note = [this](const std::string& path) { return files_.push_back(path), true; };
    return PrepareVideoAttachments(sources, limit, "data", &FakeHost::Entry, note);
  }

  using Lines = std::vector<LogLine>;
  TemporaryFolder folder_;
  std::vector<std::string> files_;
};

TEST_F(AttachmentPreparation, WritesFilesAndTellsAboutThem) {
  const std::tuple<std::string, std::shared_ptr<CVideoEmailStream>, std::string> rows[] = {
      {"Gate", Clip(standard::kH264, "K1000 d1500 K2000 d2500 d3050", 3100),
       "Gate.mov, preview 2.100, length 2.050, frames 5, Gop size 2, fps 2, sizeKB 0"},
      {"Late", Clip(standard::kMpeg4, "", 1000, "K1005:1900 d1008:1900"),
       "Late.mov, preview 0.000, length 0.003, frames 2, Gop size 2, fps 1000, sizeKB 3"},
      {"Once", Clip(standard::kH264, "K1000 K1000", 1000),
       "Once.mov, preview 0.000, length 0.001, frames 2, Gop size 1, fps 3000, sizeKB 0"},
      {"", Clip(standard::kJpeg, "K1001 K1002 K1003:10", 1063),
       "default.jpg, preview 0.060, length 0.001, frames 1, Gop size 1, fps 2000, sizeKB 0"}};
  // The host's locale may part thousands; what is logged does not.
  struct Parting : std::numpunct<char> {
    std::string do_grouping() const override { return "\1"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new Parting));
  for (const auto& [name, clip, line] : rows) {
    const AttachmentGroups groups = Prepare({{"Nothing", nullptr}, {name, clip}});
    EXPECT_EQ(host.Log(), (Lines{{25, "Attachment data/" + line}}));
    ASSERT_EQ(groups.size() * groups[0].size(), 1u);
    EXPECT_TRUE(groups[0][0].include && groups[0][0].note.empty());
    EXPECT_EQ(groups[0][0].path, "data/" + line.substr(0, line.find(',')));
    EXPECT_THAT(files_, ElementsAre(groups[0][0].path));
  }
  std::locale::global(before);
  EXPECT_EQ(ReadFile("data/default.jpg"), "picture3");
  EXPECT_THAT(ReadFile("data/Late.mov"), HasSubstr("DIVX"));
  const std::string size = "\x02\x80\x01\xE0\0\x48"s, key = "stss\0\0\0\0\0\0\0\2\0\0\0\1\0\0\0\3"s;
  const std::string duration = "\0\0\3\xE8\0\0\x08\x02"s;
  EXPECT_THAT(ReadFile("data/Gate.mov"),
              AllOf(HasSubstr("H264"), HasSubstr(size), HasSubstr(key), HasSubstr(duration)));
  Prepare({{"Gate", Clip(standard::kH264, "K1000", 1000, "", 65536 + 480)}});
  EXPECT_THAT(ReadFile("data/Gate.mov"), HasSubstr(size));
}

TEST_F(AttachmentPreparation, NamesFilesSoThatEverySystemCanStoreThem) {
  const auto clip = Clip(standard::kJpeg, "K1000", 1000);
  const std::pair<std::string, std::string> rows[] = {
      {"a/b?c<d>e\\f:g*h|i\"j\x01k\x1Fl m", "a_b_c_d_e_f_g_h_i_j_k_l m.jpg"},
      {"Tor gr\xC3\xBCn", "Tor gr\xC3\xBCn.jpg"},
      {"..", "...jpg"},
      {std::string(300, 'x'), std::string(251, 'x') + ".jpg"},
      {std::string(250, 'x') + "\xC3\xBC", std::string(250, 'x') + ".jpg"}};
  for (const auto& [name, file] : rows) {
    EXPECT_EQ(Prepare({{name, clip}})[0][0].path, "data/" + file);
    EXPECT_TRUE(FileExists(files_.at(0)));
  }
}

TEST_F(AttachmentPreparation, WhatCannotBeWrittenBecomesANoteAndNoFile) {
  const auto movie = Clip(standard::kH264, "K1000", 1000);
  const auto picture = Clip(standard::kJpeg, "K1000:10", 1000);
  const auto letGo = Clip(standard::kH264, "K1000", 1000);
  letGo->LetGo(bin);
  const auto expect = [&](const std::string& name, const auto& clip, const std::string& error) {
    const AttachmentGroups groups = Prepare({{name, clip}});
    ASSERT_EQ(groups.at(0).size(), 1u);
    EXPECT_FALSE(groups[0][0].include);
    EXPECT_EQ(groups[0][0].note,
              "Failed to prepare video attachment for source: \"\"" + name + "\"\", " + error);
    EXPECT_THAT(files_, IsEmpty());
  };
  const std::string refused = " is not supported for .mov attachments";
  expect("A", Clip(standard::kH265, "K1", 1), "video format encoder.standard(6:h265)" + refused);
  expect("C.c", Clip(9, "K1", 1), "video format encoder.standard(9)" + refused);
  expect("D", Clip(standard::kJpeg, "", 1), "");
  expect("E", letGo, "too much video was waiting to be sent, and this was the oldest");
  expect("F", Clip(standard::kH264, "K1:0", 1), "");
  EXPECT_THAT(host.Log(), IsEmpty());
  EXPECT_THAT(Prepare({{"A & B", letGo}})[0][0].note, HasSubstr("\"\"A && B\"\", "));

  Prepare({{"Full", picture}});
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{4, RLIM_INFINITY}, usual{RLIM_INFINITY, RLIM_INFINITY};
  ::setrlimit(RLIMIT_FSIZE, &full);
  expect("Full", picture, "");
  EXPECT_THAT(host.Log(), IsEmpty());
  expect("Full", movie, "");
  ::setrlimit(RLIMIT_FSIZE, &usual);
  EXPECT_EQ(host.Log(),
            (Lines{{50, "Failed to write video frames to QuickTime format file data/Full.mov"}}));
  EXPECT_EQ(ReadFile("data/Full.jpg"), "picture0") << "an earlier picture stays";
  boost::filesystem::remove("data/Full.jpg");
  EXPECT_TRUE(boost::filesystem::is_empty("data"));
}

// Frames, key or dependent, of sequence (S, s: changed) and picture sets, filler and a set that is
// too long (L), and a picture; F changes the format. The sets that the movie begins with which is
// cut at C, or else at the end.
TEST_F(AttachmentPreparation, RemembersHeadersThatCameBeforeTheClip) {
  const std::map<char, std::string> units = {
      {'S', "gM@\x1F\xDA\x01\xE0\x08\x9F\x95"},
      {'s', "gM@\x1E\xDA\x01\xE0\x08\x9F\x95"},
      {'P', "h\xCE\x3C\x80"},
      {'p', "h\xCE\x38\x80"},
      {'L', "\x0C" + std::string(3000, 'L') + "\0\0\1h\xCE"s + std::string(2000, 'L')},
      {'I', "\x65\x88\x84picture"}};
  for (const auto& row : Rows(R"(
      KSPI dI KI  | SP | once, in the first frame
      KS dP KI    | SP | in frames of their own
      dP dS KI    | SP | of no type, the other way round
      KSPI ds KI  | sP | changed there
      KSPI KsI KI | sP | or in a key frame
      KSPI KsI    | sP | or in the clip itself
      KSPI KI C KsI | SP | or later in it
      dI C KS KP KI | SP | piece by piece
      KSPI F KI   | -  | of another format
      KSPI KLI KI | SP | too long to be remembered
      KSPI dspI KI | SP | looked for where they can be
      KI KI       | -  | never)")) {
    Reset();
    std::istringstream frames(row[0]);
    std::shared_ptr<CVideoEmailStream> clip;
    for (std::string frame; frames >> frame; ++now) {
      if (frame == "C") clip = Cut(0, 60);
      if (frame == "F") SelectStreams("3e9/1 320x240 5");
      if (frame.size() == 1) continue;
      std::string bytes;
      for (const char unit : frame.substr(1)) bytes += std::string("\0\0\0\1", 4) + units.at(unit);
      bytes.resize(std::max<std::size_t>(bytes.size(), frame == "dspI" ? 600 : 0), 'x');
      Deliver({kH264Stream, frame[0] == 'K' ? kKeyFrame : kDependent, 0, host.Lend(bytes),
               static_cast<std::uint32_t>(bytes.size())});
    }
    if (clip == nullptr) clip = Cut(0, 60);
    clip->Finish(bin);
    Prepare({{"Gate", clip}});
    const std::string movie = ReadFile("data/Gate.mov");
    const std::string record = movie.substr(std::min(movie.find("avcC"), movie.size()), 40);
    std::string held = record.empty() ? "-" : "";
    for (const char name : {'S', 's', 'P', 'p'}) {
      if (record.find(units.at(name)) != std::string::npos) held += name;
    }
    EXPECT_EQ(held, row[1]) << row[2];
    // Where they change, the samples have them, too.
    const std::string samples = held == "-" ? "" : movie.substr(movie.find("mdat"));
    EXPECT_EQ((samples + units.at('S')).find(units.at('S')) < samples.size() ||
                  (samples + units.at('s')).find(units.at('s')) < samples.size(),
              movie.find("avcC") != movie.rfind("avcC"))
        << row[2];
  }
}

// Clips of 10 bytes, of 30, and refused ones; the limit; the groups, of clips by their number.
TEST_F(AttachmentPreparation, OpensAGroupBeforeTheClipThatExceedsTheLimit) {
  std::map<char, std::shared_ptr<CVideoEmailStream>> clips;
  clips['s'] = Clip(standard::kJpeg, "K1000:10", 1000);
  clips['l'] = Clip(standard::kH264, "K1000:10 d1001:10 d1002:10", 1002);
  clips['r'] = Clip(standard::kH265, "K1000:10", 1000);
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
