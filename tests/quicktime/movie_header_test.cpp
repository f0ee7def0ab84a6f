// Times, chunks and offsets of the index, also at sizes that no test writes to a disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <limits>

#include "base/clock.h"
#include "quicktime/movie_atoms.h"
#include "quicktime/movie_file.h"
#include "quicktime/raw_samples.h"
#include "quicktime/track_timing.h"
#include "support/table.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

constexpr FourCharacterCode kRaw = MakeFourCharacterCode("RAW1");

// Hexadecimal bytes, 'text' in quotes, and z20 for twenty zero bytes.
std::string Bytes(const std::string& notation) {
  std::string bytes;
  for (std::size_t at = 0; at < notation.size();) {
    if (notation[at] == '\'') {
      const std::size_t end = notation.find('\'', at + 1);
      bytes += notation.substr(at + 1, end - at - 1);
      at = end + 1;
    } else if (notation[at] == 'z') {
      bytes.append(static_cast<std::size_t>(std::atoi(notation.c_str() + ++at)), '\0');
      while (std::isdigit(notation[at]) != 0) ++at;
    } else if (notation[at] == ' ') {
      ++at;
    } else {
      bytes += static_cast<char>(std::stoi(notation.substr(at, 2), nullptr, 16));
      at += 2;
    }
  }
  return bytes;
}

// Players are as strict about these bytes as they are silent about why.
TEST(MovieHeader, HasTheseBytes) {
  const tvx::test::TemporaryFolder folder;
  tvx::SetWallClock([] { return std::int64_t{1000}; });
  CodedFrames frames;
  for (std::size_t i = 1; i <= 7; ++i) frames.push_back({std::string(i, 'x'), i == 1 || i == 4});
  WriteMovie("clip.mov", kRaw, 320, 240, 2.5, frames);
  tvx::SetWallClock({});
  const MovieFile movie = ReadMovie("clip.mov");
  EXPECT_THAT(movie.brokenRules, testing::IsEmpty());
  for (const auto& row : tvx::test::Rows(R"(
      ftyp      | 'qt  ' 00000200 'qt  '
      moov/mvhd | z4 7C25B468 7C25B468 000003E8 000009C4 00010000 0100 z10 00010000 z12 00010000 z12 40000000 z24 00000002
      moov/trak/tkhd      | 00000003 7C25B468 7C25B468 00000001 z4 000009C4 z16 00010000 z12 00010000 z12 40000000 01400000 00F00000
      moov/trak/edts/elst | z4 00000001 000009C4 00000000 00010000
      moov/trak/mdia/mdhd | z4 7C25B468 7C25B468 0000000E 00000023 55C4 0000
      moov/trak/mdia/hdlr | z4 'mhlrvide' z12 13 'Video Media Handler'
      moov/trak/mdia/minf/vmhd      | 00000001 z8
      moov/trak/mdia/minf/hdlr      | z4 'dhlrurl ' z12 0C 'Data Handler'
      moov/trak/mdia/minf/dinf/dref | z4 00000001 0000000C 'url ' 00000001
      moov/trak/mdia/minf/stbl/stsd | z4 00000001 00000056 'RAW1' z6 0001 z8 00000200 00000200 0140 00F0 00480000 00480000 z4 0001 z32 0018 FFFF
      moov/trak/mdia/minf/stbl/stts | z4 00000001 00000007 00000005
      moov/trak/mdia/minf/stbl/stss | z4 00000002 00000001 00000004
      moov/trak/mdia/minf/stbl/stsc | z4 00000002 00000001 00000003 00000001 00000003 00000001 00000001
      moov/trak/mdia/minf/stbl/stsz | z8 00000007 00000001 00000002 00000003 00000004 00000005 00000006 00000007
      wide |)")) {
    ASSERT_EQ(movie.atoms.count(row[0]), 1U) << row[0];
    EXPECT_EQ(movie.atoms.at(row[0]), Bytes(row[1])) << row[0];
  }
  const std::string& room = movie.atoms.at("free");
  EXPECT_EQ(room, std::string(room.size(), '\0'));
}

// The clocks are exact but where 31 bits do not hold the sum: 600.001006, 86399.871 and 1999.9994
// seconds. What is no duration is that of usual frames.
TEST(UniformTiming, GivesTheWholeTheDurationAndEverySampleSome) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    double seconds;
    std::uint32_t samples, movieDuration, scale, sampleDuration;
  } rows[] = {{2.0, 50, 2000, 25, 1},
              {5.123, 149, 5123, 149000, 5123},
              {0.001, 5000, 1, 5000000, 1},
              {1.2346, 1, 1235, 200, 247},
              {1.2344, 1, 1234, 500, 617},
              {0.0002, 3, 1, 3000, 1},
              {600.001, 18000, 600001, 3579114, 119304},
              {86399.9, 2'000'000, 86399900, 24838, 1073},
              {1999.999, 1074, 1999999, 1073742, 1999519},
              {kInfinity, 1, 2147483647, 1000, 2147483647},
              {kInfinity, 3, 2147483647, 1000, 715827882},
              {0.0, 1, 40, 25, 1},
              {-3.0, 25, 1000, 25, 1},
              {kNan, 25, 1000, 25, 1},
              {0.0, 2'000'000, 80'000'000, 25, 1}};
  for (const auto& row : rows) {
    const TrackTiming timing = UniformTiming(row.seconds, row.samples);
    EXPECT_THAT((std::vector<std::uint32_t>{timing.movieDuration, timing.mediaTimeScale,
                                            timing.sampleDuration, timing.mediaDuration}),
                testing::ElementsAre(row.movieDuration, row.scale, row.sampleDuration,
                                     row.sampleDuration * row.samples))
        << row.seconds << " s, " << row.samples << " samples";
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
  RawSamples format_{kRaw};
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

TEST_F(MovieHeaderTest, NumbersAreLongOnlyWhereTheyMustBe) {
  const std::size_t room = Room(2, 1);
  const auto header = [&](std::uint64_t first, std::uint32_t second) {
    SampleTable table(1);
    table.Add(static_cast<std::uint32_t>(first), true);
    if (second != 0) table.Add(second, true);
    return Header(table, room);
  };
  const auto ends = [](const std::string& text) { return testing::EndsWith(text); };
  EXPECT_THAT(header(0xFFFFFFFF - 8, 0), ends("\0\0\0\x08wide\xFF\xFF\xFF\xFFmdat"s));
  EXPECT_THAT(header(0xFFFFFFFF - 8, 1), ends("\0\0\0\1mdat\0\0\0\1\0\0\0\x08"s));
  EXPECT_THAT(header(0xFFFFFFFF - room, 1), testing::HasSubstr("stco\0\0\0\0\0\0\0\2"s));
  EXPECT_THAT(header(0xFFFFFFFF - room, 1), testing::HasSubstr("\xFF\xFF\xFF\xFF\0\0\0"s));
  EXPECT_THAT(header(0x100000000 - room, 1), testing::HasSubstr("co64\0\0\0\0\0\0\0\2\0\0\0\0"s));
  EXPECT_THAT(header(0x100000000 - room, 1), testing::HasSubstr("\0\0\0\1\0\0\0\0\0\0\0"s));
}

// Chunks of about a second, the last one shorter; all samples where they are said to be.
TEST_F(MovieHeaderTest, ChunksLastAboutASecondAndHoldEverySample) {
  const struct {
    std::size_t count;
    double seconds;
    std::uint32_t perChunk;
  } rows[] = {{1, 0.1, 1},    {9, 0.9, 9},   {11, 1.1, 10}, {30, 3.0, 10}, {30, 1.0, 30},
              {30, 1.01, 30}, {30, 1.1, 28}, {30, 0, 30},   {30, -5, 30},  {30, 100, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.count << " in " << row.seconds);
    CodedFrames frames;
    for (std::size_t i = 0; i < row.count; ++i) {
      frames.push_back({std::string(1 + i * 37 % 101, static_cast<char>('a' + i)), i % 4 == 0});
    }
    WriteMovie("clip.mov", kRaw, 320, 240, row.seconds, frames);
    const MovieFile movie = ReadMovie("clip.mov");
    EXPECT_THAT(movie.brokenRules, testing::IsEmpty());
    EXPECT_EQ(movie.atoms.at("moov/trak/mdia/minf/stbl/stsc").at(15),
              static_cast<char>(row.perChunk));
    ASSERT_EQ(movie.samples.size(), row.count);
    for (std::size_t i = 0; i < row.count; ++i) EXPECT_EQ(movie.samples[i], frames[i].payload);
  }
}

}  // namespace
}  // namespace quicktime::test
