// Times, chunks and offsets of the index, also at sizes that no test writes to a disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "quicktime/coded_clip.h"
#include "quicktime/movie_atoms.h"
#include "quicktime/movie_file.h"
#include "quicktime/output_file.h"
#include "quicktime/raw_samples.h"
#include "quicktime/track_timing.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

TEST(UniformTiming, GivesTheWholeTheDurationAndEverySampleSome) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    double given;
    std::uint32_t samples;
    double seconds;
    double tolerance;
  } cases[] = {
      {2.0, 50, 2.0, 0},
      {5.123, 149, 5.123, 0},
      {0.001, 1, 0.001, 0},
      {0.001, 5000, 0.001, 0},
      {59.999, 1801, 59.999, 0},
      {600.001, 18000, 600.001, 1e-4},
      {86399.9, 2'000'000, 86399.9, 0.05},
      {0.0, 1, 0.04, 0},
      {0.0, 25, 1.0, 0},
      {-3.0, 25, 1.0, 0},
      {kNan, 25, 1.0, 0},
      {1e-9, 3, 0.001, 0},
      {kInfinity, 3, 2147483.647, 1},
  };
  for (const auto& c : cases) {
    const TrackTiming timing = UniformTiming(c.given, c.samples);
    SCOPED_TRACE(testing::Message() << c.given << " s, " << c.samples << " samples");
    EXPECT_GT(timing.sampleDuration, 0U);
    EXPECT_EQ(timing.mediaDuration, std::uint64_t{timing.sampleDuration} * c.samples);
    EXPECT_LT(timing.mediaDuration, 0x80000000U);
    EXPECT_LT(timing.mediaTimeScale, 0x80000000U);
    EXPECT_NEAR(static_cast<double>(timing.mediaDuration) / timing.mediaTimeScale, c.seconds,
                c.tolerance + 1e-12);
    EXPECT_NEAR(timing.movieDuration / 1000.0, c.seconds, c.tolerance + 0.0005);
  }
}

class MovieHeaderTest : public ::testing::Test {
 protected:
  std::string Header(const SampleTable& samples, std::size_t room) {
    const ByteWriter header =
        MovieHeader({0, {320, 240}, UniformTiming(1, samples.Count()), format_, samples}, room);
    return {header.View().begin(), header.View().end()};
  }
  std::size_t Room(std::uint32_t samples, std::uint32_t samplesPerChunk) {
    const SampleTable longest = SampleTable::Longest(samples, samplesPerChunk);
    return LargestHeader({0, {320, 240}, UniformTiming(1, samples), format_, longest});
  }

  tvx::test::TemporaryFolder folder_;
  RawSamples format_{MakeFourCharacterCode("RAW1")};
};

// The worst tables: all samples but one can be started at, and offsets take 64 bits. A movie may
// have fewer samples than frames were announced.
TEST_F(MovieHeaderTest, LeavesRoomForTheLongestIndexThatTheFrameCountAllows) {
  constexpr std::size_t kWaste = 64;
  for (const std::uint32_t samples : {2U, 4U, 6U, 7U, 40U}) {
    for (const std::uint32_t perChunk : {1U, 2U, 3U, 20U, 100U}) {
      const std::size_t room = Room(samples, perChunk);
      SampleTable table(perChunk);
      while (table.Count() < samples) {
        table.Add(0xFFFFFFFF, table.Count() != 1);
        const std::string header = Header(table, room);
        EXPECT_EQ(header.size(), room);
        EXPECT_EQ(header.find("co64") != std::string::npos, table.Chunks() > 1);
        EXPECT_EQ(header.find("stco") != std::string::npos, table.Chunks() == 1);
      }
      if (table.Chunks() > 1) {
        EXPECT_THROW(Header(table, room - kWaste), std::length_error);
      }
    }
  }
}

TEST_F(MovieHeaderTest, WritesALongLengthOnlyForMediaDataBeyondFourGigabytes) {
  for (const bool isLong : {false, true}) {
    SampleTable table(1);
    table.Add(0xFFFFFFFF - 8, true);
    if (isLong) table.Add(1, true);
    const std::string header = Header(table, Room(2, 1));
    const std::string end = header.substr(header.size() - 16);
    EXPECT_EQ(end,
              isLong ? "\0\0\0\1mdat\0\0\0\1\0\0\0\x08"s : "\0\0\0\x08wide\xFF\xFF\xFF\xFFmdat"s);
  }
}

// Chunks of about a second, the last one shorter; all samples where they are said to be.
TEST_F(MovieHeaderTest, FindsEverySampleThroughItsChunk) {
  for (const std::size_t count : {1U, 9U, 10U, 11U, 30U}) {
    CodedFrames frames;
    for (std::size_t i = 0; i < count; ++i) {
      frames.push_back({std::string(1 + i * 37 % 101, static_cast<char>('a' + i)), i % 4 == 0});
    }
    WriteMovie("clip.mov", MakeFourCharacterCode("RAW1"), 320, 240,
               0.1 * static_cast<double>(count), frames);
    const MovieFile movie = ReadMovie("clip.mov");
    EXPECT_THAT(movie.brokenRules, testing::IsEmpty());
    ASSERT_EQ(movie.samples.size(), count);
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(movie.samples[i], frames[i].payload);
  }
}

// Samples that are gathered, that just fill what is gathered, and that are written by themselves.
TEST_F(MovieHeaderTest, KeepsSamplesOfEveryLengthWhole) {
  constexpr std::size_t kPiece = OutputFile::kLongPiece;
  CodedFrames frames;
  char letter = 'a';
  for (const std::size_t length :
       {kPiece, kPiece - 1, kPiece - 1, kPiece - 1, kPiece - 1, std::size_t{4}, std::size_t{1},
        kPiece - 1, kPiece - 1, kPiece - 1, kPiece - 1, std::size_t{5}, 9 * kPiece}) {
    frames.push_back({std::string(length, letter), letter == 'a'});
    ++letter;
  }
  WriteMovie("clip.mov", MakeFourCharacterCode("RAW1"), 320, 240, 2, frames);
  const MovieFile movie = ReadMovie("clip.mov");
  EXPECT_THAT(movie.brokenRules, testing::IsEmpty());
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_TRUE(movie.samples.at(i) == frames[i].payload) << i;
  }
}

}  // namespace
}  // namespace quicktime::test
