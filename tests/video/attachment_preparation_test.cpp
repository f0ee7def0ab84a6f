#include "video/attachment_preparation.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include "base/clock.h"
#include "support/fake_host.h"
#include "support/temporary_folder.h"
#include "video_fixture.h"

namespace tvx {
namespace {

using test::FakeHost;
using test::LogLine;
using test::StreamRow;

constexpr std::int32_t kStream = 1001;

class AttachmentPreparation : public testing::Test {
 protected:
  AttachmentPreparation() {
    SetTickClock([this] { return now_; });
    ::mkdir("data", 0700);
  }
  ~AttachmentPreparation() override {
    clips_.clear();
    SetTickClock(MonotonicTick);
  }

  // A clip of a stream of this standard: frames at these ticks, each of ten bytes, the first two of
  // which are the host's own; cut at the trigger time and finished.
  std::shared_ptr<CVideoEmailStream> Clip(std::int32_t standard,
                                          const std::vector<std::uint32_t>& ticks,
                                          std::uint32_t trigger, std::int32_t height = 480) {
    sets_.push_back(std::make_unique<VideoBufferSet>(&FakeHost::Entry));
    VideoBufferSet& set = *sets_.back();
    FrameBin bin;
    set.SelectStreams(std::make_shared<const SystemDirectory>(
                          test::MakeDirectory({StreamRow{kStream, 1, 640, height, standard}})),
                      {test::SourceOf(1)}, bin);
    for (const std::uint32_t tick : ticks) {
      now_ = tick;
      payloads_.push_back(std::make_unique<std::string>("..picture" + std::to_string(tick % 10)));
      const bool isKey = standard == standard::kJpeg || tick == ticks.front() || tick % 1000 == 0;
      EXPECT_TRUE(set.TakeFrame({kStream, isKey ? kKeyFrame : 0u, 2, payloads_.back()->data(),
                                 static_cast<std::uint32_t>(payloads_.back()->size())},
                                bin));
    }
    now_ = trigger;
    clips_.push_back(set.TakeClip(kStream, 60, 30, {}));
    clips_.back()->Finish(bin);
    return clips_.back();
  }

  AttachmentGroups Prepare(const std::vector<AttachmentSource>& sources, std::uint32_t limit = 0) {
    files_.clear();
    return PrepareVideoAttachments(sources, limit, "data", &FakeHost::Entry,
                                   [this](const std::string& path) { files_.push_back(path); });
  }

  test::TemporaryFolder folder_;
  FakeHost host_;
  std::uint32_t now_ = 0;
  std::vector<std::unique_ptr<std::string>> payloads_;
  std::vector<std::unique_ptr<VideoBufferSet>> sets_;
  std::vector<std::shared_ptr<CVideoEmailStream>> clips_;
  std::vector<std::string> files_;
};

TEST_F(AttachmentPreparation, WritesAMovieAndTellsAboutIt) {
  const auto clip = Clip(standard::kH264, {1000, 1500, 2000, 2500, 3050}, 3100);
  const AttachmentGroups groups = Prepare({{"Gate", clip}, {"Nothing", nullptr}});
  ASSERT_EQ(groups.size(), 1u);
  ASSERT_EQ(groups[0].size(), 1u);
  EXPECT_TRUE(groups[0][0].include);
  EXPECT_EQ(groups[0][0].path, "data/Gate.mov");
  EXPECT_EQ(groups[0][0].note, "");
  EXPECT_EQ(files_, (std::vector<std::string>{"data/Gate.mov"}));
  EXPECT_EQ(test::ReadFile("data/Gate.mov").substr(4, 8), "ftypqt  ");
  EXPECT_EQ(
      host_.Log(),
      (std::vector<LogLine>{{25,
                             "Attachment data/Gate.mov, preview 2.100, length 2.050, frames 5, "
                             "Gop size 2, fps 2, sizeKB 0"}}));
}

TEST_F(AttachmentPreparation, WritesTheOldestPictureOfAStillStream) {
  const auto clip = Clip(standard::kJpeg, {1001, 1002, 1003}, 1003);
  EXPECT_TRUE(Prepare({{"", clip}})[0][0].include);
  EXPECT_EQ(test::ReadFile("data/default.jpg"), "picture3");
  EXPECT_EQ(host_.Log()[0].text,
            "Attachment data/default.jpg, preview 0.000, length 0.001, frames 1, Gop size 1, "
            "fps 2000, sizeKB 0");
}

TEST_F(AttachmentPreparation, NamesFilesSoThatEverySystemCanStoreThem) {
  const auto clip = Clip(standard::kJpeg, {1000}, 1000);
  const AttachmentGroups groups = Prepare({{"a/b?c<d>e\\f:g*h|i\"j\x01k\x1Fl m", clip},
                                           {"Tor gr\xC3\xBC"
                                            "n",
                                            clip},
                                           {"..", clip}});
  EXPECT_EQ(groups[0][0].path, "data/a_b_c_d_e_f_g_h_i_j_k_l m.jpg");
  EXPECT_EQ(groups[0][1].path,
            "data/Tor gr\xC3\xBC"
            "n.jpg");
  EXPECT_EQ(groups[0][2].path, "data/...jpg");
  EXPECT_EQ(files_.size(), 3u);
}

TEST_F(AttachmentPreparation, RefusesStandardsThatHaveNoMovie) {
  const auto h265 = Clip(standard::kH265, {1000}, 1000);
  const auto other = Clip(9, {1000}, 1000);
  const AttachmentGroups groups = Prepare({{"A & B", h265}, {"C", other}});
  ASSERT_EQ(groups[0].size(), 2u);
  EXPECT_FALSE(groups[0][0].include);
  EXPECT_EQ(groups[0][0].note,
            "Failed to prepare video attachment for source: \"\"A && B\"\", video format "
            "encoder.standard(6:h265) is not supported for .mov attachments");
  EXPECT_EQ(groups[0][1].note,
            "Failed to prepare video attachment for source: \"\"C\"\", video format "
            "encoder.standard(9) is not supported for .mov attachments");
  EXPECT_TRUE(files_.empty());
  EXPECT_FALSE(test::FileExists("data/C.mov"));
  EXPECT_TRUE(host_.Log().empty());
}

TEST_F(AttachmentPreparation, ADiskThatRefusesGivesANoteAndNoFile) {
  const auto movie = Clip(standard::kH264, {1000}, 1000);
  const auto picture = Clip(standard::kJpeg, {1000}, 1000);
  ASSERT_EQ(::symlink("/dev/full", "data/Full.jpg"), 0);
  ASSERT_EQ(::symlink("/dev/full", "data/Full.mov"), 0);
  const AttachmentGroups full = Prepare({{"Full", movie}, {"Full", picture}});
  EXPECT_FALSE(full[0][0].include);
  EXPECT_FALSE(full[0][1].include);
  ASSERT_EQ(host_.Log().size(), 1u);
  EXPECT_EQ(host_.Log()[0], (LogLine{50,
                                     "Failed to write video frames to QuickTime format file "
                                     "data/Full.mov"}));
  host_.ClearLog();
  ASSERT_EQ(::rename("data", "moved"), 0);
  const AttachmentGroups gone = Prepare({{"Gate", movie}, {"Gate", picture}});
  EXPECT_EQ(gone[0][0].note, "Failed to prepare video attachment for source: \"\"Gate\"\", ");
  EXPECT_FALSE(gone[0][1].include);
  EXPECT_EQ(host_.Log(),
            (std::vector<LogLine>{{50,
                                   "Failed to open file \"data/Gate.mov\"for writing in "
                                   "QuickTime format. Error 2"}}));
  EXPECT_TRUE(files_.empty());
}

TEST_F(AttachmentPreparation, OpensAGroupBeforeTheClipThatExceedsTheLimit) {
  const auto small = Clip(standard::kJpeg, {1000}, 1000);              // 10 bytes
  const auto large = Clip(standard::kH264, {1000, 1001, 1002}, 1002);  // 30 bytes
  const auto refused = Clip(standard::kH265, {1000}, 1000);
  const auto sizes = [](const AttachmentGroups& groups) {
    std::vector<std::size_t> counts;
    for (const auto& group : groups) counts.push_back(group.size());
    return counts;
  };
  using Sizes = std::vector<std::size_t>;
  EXPECT_EQ(sizes(Prepare({{"a", small}, {"b", large}, {"c", small}})), (Sizes{3}));
  EXPECT_EQ(sizes(Prepare({{"a", small}, {"b", small}, {"c", small}}, 20)), (Sizes{2, 1}));
  EXPECT_EQ(sizes(Prepare({{"a", large}, {"b", small}}, 20)), (Sizes{1, 1}));  // too large, alone
  EXPECT_EQ(sizes(Prepare({{"a", small}, {"b", large}, {"c", small}}, 20)), (Sizes{1, 1, 1}));
  EXPECT_EQ(sizes(Prepare({{"a", refused}, {"b", large}}, 20)), (Sizes{1, 1}));
  EXPECT_EQ(sizes(Prepare({}, 20)), (Sizes{0}));
}

}  // namespace
}  // namespace tvx
