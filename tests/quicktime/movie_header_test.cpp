// Times, chunks and offsets of the index, also at sizes that no test writes to a disk.
#include "base/clock.h"
#include "quicktime/movie_atoms.h"
#include "quicktime/movie_fixture.h"
#include "quicktime/raw_samples.h"
#include "quicktime/track_timing.h"

namespace quicktime::test {
namespace {

using testing::HasSubstr;

class MovieHeaderTest : public MovieTest {
 protected:
  std::string Header(const SampleTable& samples, std::size_t room) {
    const ByteWriter header =
        MovieHeader({0, {320, 240}, UniformTiming(1, samples.Count()), format_, samples}, room);
    return {header.View().begin(), header.View().end()};
  }
  std::size_t Room(std::uint32_t samples, std::uint32_t samplesPerChunk) {
    const SampleTable longest = SampleTable::Longest(samples, samplesPerChunk);
    return UsualHeader({0, {320, 240}, UniformTiming(1, samples), format_, longest});
  }
  RawSamples format_{kRaw};
};

// Players are as strict about these bytes as they are silent about why.
TEST_F(MovieHeaderTest, HasTheseBytes) {
  tvx::SetWallClock([] { return std::int64_t{1000}; });
  CodedFrames frames;
  for (std::size_t i = 1; i <= 7; ++i) frames.push_back({std::string(i, 'x'), i == 1 || i == 4});
  Convert(kRaw, frames, 2.5);
  tvx::SetWallClock({});
  for (const auto& row : tvx::test::Rows(R"(
      ftyp | 71742020 200 71742020
      moov/mvhd | 0 7C25B468 7C25B468 3E8 9C4 10000 1000000 0 0 10000 0 0 0 10000 0 0 0 40000000 0 0 0 0 0 0 2
      moov/trak/tkhd | 3 7C25B468 7C25B468 1 0 9C4 0 0 0 0 10000 0 0 0 10000 0 0 0 40000000 1400000 F00000
      moov/trak/edts/elst | 0 1 9C4 0 10000
      moov/trak/mdia/mdhd | 0 7C25B468 7C25B468 E 23 55C40000
      moov/trak/mdia/hdlr | 0 6D686C72 76696465 0 0 0 13566964 656F204D 65646961 2048616E 646C6572
      moov/trak/mdia/minf/vmhd | 1 0 0
      moov/trak/mdia/minf/hdlr | 0 64686C72 75726C20 0 0 0 C446174 61204861 6E646C65 72
      moov/trak/mdia/minf/dinf/dref | 0 1 C 75726C20 1
      moov/trak/mdia/minf/stbl/stsd | 0 1 56 52415731 0 1 0 0 200 200 14000F0 480000 480000 0 10000 0 0 0 0 0 0 0 18 FFFF
      moov/trak/mdia/minf/stbl/stts | 0 1 7 5
      moov/trak/mdia/minf/stbl/stss | 0 2 1 4
      moov/trak/mdia/minf/stbl/stsc | 0 2 1 3 1 3 1 1
      moov/trak/mdia/minf/stbl/stsz | 0 0 7 1 2 3 4 5 6 7
      wide |)")) {
    EXPECT_EQ(Words(movie_.atoms.at(row[0])), row[1]) << row[0];
  }
  const std::string& room = movie_.atoms.at("free");
  EXPECT_EQ(room, std::string(room.size(), '\0'));
}

// Exact, but where 31 bits do not hold the sum. What is no duration is that of usual frames.
TEST_F(MovieHeaderTest, TimingGivesTheWholeTheDurationAndEverySampleSome) {
  // Seconds and samples; durations of movie, sample and media, and the media's scale between them.
  for (const auto& row : tvx::test::Rows(R"(
      5.123 | 149 | 5123, 149000, 5123, 763327
      0.001 | 5000 | 1, 5000000, 1, 5000
      1.2346 | 1 | 1235, 200, 247, 247
      1.2344 | 1 | 1234, 500, 617, 617
      0.0002 | 3 | 1, 3000, 1, 3
      86399.9 | 2000000 | 86399900, 24838, 1073, 2146000000
      1999.999 | 1074 | 1999999, 1073742, 1999519, 2147483406
      inf | 3 | 2147483647, 1000, 715827882, 2147483646
      -3 | 25 | 1000, 25, 1, 25
      nan | 25 | 1000, 25, 1, 25
      0 | 2000000 | 80000000, 25, 1, 2000000)")) {
    const auto samples = static_cast<std::uint32_t>(std::stoul(row[1]));
    const TrackTiming timing = UniformTiming(std::stod(row[0]), samples);
    const std::uint64_t times[] = {timing.movieDuration, timing.mediaTimeScale,
                                   timing.sampleDuration, timing.mediaDuration};
    EXPECT_EQ(testing::PrintToString(times), "{ " + row[2] + " }") << row[0];
  }
}

// The worst tables: all samples but one are sync samples, and offsets take 64 bits. A movie may
// have fewer samples than frames were announced.
TEST_F(MovieHeaderTest, LeavesRoomForTheLongestIndexThatTheFrameCountAllows) {
  for (const std::uint32_t samples : {2U, 4U, 6U, 7U, 40U}) {
    for (const std::uint32_t perChunk : {1U, 2U, 3U, 20U, 100U}) {
      const std::size_t room = Room(samples, perChunk);
      SampleTable table(perChunk);
      while (table.Count() < samples) {
        table.Add(0xFFFFFFFF, table.Count() != 1);
        const std::string header = Header(table, room);
        EXPECT_EQ(header.size(), room);
        EXPECT_THAT(header, HasSubstr(table.Count() > perChunk ? "co64" : "stco"));
      }
      EXPECT_TRUE(samples <= perChunk || Header(table, room - 64).size() > room - 64);
    }
  }
}

TEST_F(MovieHeaderTest, NumbersAreLongOnlyWhereTheyMustBe) {
  const std::size_t room = Room(2, 1);
  const std::tuple<std::uint64_t, std::uint32_t, std::string> rows[] = {
      {0xFFFFFFFF - 8, 0, "\0\0\0\x08wide\xFF\xFF\xFF\xFFmdat"s},
      {0xFFFFFFFF - 8, 1, "\0\0\0\1mdat\0\0\0\1\0\0\0\x08"s},
      {0xFFFFFFFF - room, 1, "stco\0\0\0\0\0\0\0\2"s},
      {0xFFFFFFFF - room, 1, "\xFF\xFF\xFF\xFF\0\0\0"s},
      {0x100000000 - room, 1, "co64\0\0\0\0\0\0\0\2\0\0\0\0"s},
      {0x100000000 - room, 1, "\0\0\0\1\0\0\0\0\0\0\0"s}};
  for (const auto& [first, second, text] : rows) {
    SampleTable table(1);
    table.Add(static_cast<std::uint32_t>(first), true);
    if (second != 0) table.Add(second, true);
    EXPECT_THAT(Header(table, room), HasSubstr(text));
  }
}

// Chunks of about a second, the last one shorter.
TEST_F(MovieHeaderTest, ChunksLastAboutASecondAndHoldEverySample) {
  using Row = std::tuple<int, double, int>;
  for (const auto& [count, seconds, perChunk] :
       {Row(1, 0.1, 1), Row(9, 0.9, 9), Row(11, 1.1, 10), Row(30, 1.01, 30), Row(30, 1.1, 28),
        Row(30, -5.0, 30), Row(30, 100.0, 1)}) {
    CodedFrames frames;
    for (int i = 0; i < count; ++i) {
      frames.push_back({std::string(1 + i * 37 % 101, static_cast<char>('a' + i)), i % 4 == 0});
    }
    Convert(kRaw, frames, seconds);
    EXPECT_EQ(movie_.atoms.at("moov/trak/mdia/minf/stbl/stsc").at(15), perChunk) << seconds;
  }
}

}  // namespace
}  // namespace quicktime::test
