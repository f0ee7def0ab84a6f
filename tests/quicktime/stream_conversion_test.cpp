// What becomes of each unit of a stream: kept in its sample, moved to the description, or dropped.
// The streams are made by hand, so that they hold what encoders at hand do not send.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "quicktime/coded_clip.h"
#include "quicktime/movie_file.h"
#include "quicktime/start_code.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Writes the fields of headers, most significant bit first.
class Bits {
 public:
  Bits& U(unsigned value, int width) {
    for (int i = width - 1; i >= 0; --i) bits_ += (value >> i & 1) != 0 ? '1' : '0';
    return *this;
  }
  Bits& Ue(unsigned value) {
    int width = 0;
    while ((value + 1) >> (width + 1) != 0) ++width;
    return U(0, width).U(value + 1, width + 1);
  }
  // The bits as bytes, after a stop bit.
  std::string Unit(char first) const {
    std::string unit(1, first);
    std::string bits = bits_ + "1";
    bits.resize((bits.size() + 7) / 8 * 8, '0');
    for (std::size_t i = 0; i < bits.size(); i += 8) {
      unit += static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
    }
    return unit;
  }

 private:
  std::string bits_;
};

// A sequence set of the Main profile, 1920 x 1088 in macroblocks, the lowest lines cropped away.
std::string Sps(unsigned id, unsigned croppedLines = 8) {
  return Bits()
      .U(77, 8)
      .U(0, 8)
      .U(31, 8)
      .Ue(id)
      .Ue(0)
      .Ue(2)
      .Ue(1)
      .U(0, 1)
      .Ue(119)
      .Ue(67)
      .U(1, 1)
      .U(1, 1)
      .U(1, 1)
      .Ue(0)
      .Ue(0)
      .Ue(0)
      .Ue(croppedLines / 2)
      .U(0, 1)
      .Unit('\x67');
}

std::string Pps(unsigned id, unsigned sequenceId = 0, unsigned references = 0) {
  return Bits().Ue(id).Ue(sequenceId).U(0, 2).Ue(0).Ue(references).Unit('\x68');
}

const std::string kIdr = "\x65\x88key";
const std::string kSlice = "\x41\x9Aslice";
const std::string kSei = "\x06\x05sei";

std::string Join(const std::vector<std::string>& units) {
  std::string payload;
  for (const std::string& unit : units) payload += "\0\0\0\1"s + unit;
  return payload;
}
CodedFrame Key(const std::vector<std::string>& units) {
  return {Join(units), true};
}
CodedFrame Other(const std::vector<std::string>& units) {
  return {Join(units), false};
}

// At every distance from the search's blocks, with look-alikes before it, in memory that ends with
// it.
TEST(StartCode, IsFoundWhereverItIs) {
  const std::string codes[] = {"\0\0\1"s, "\0\0\0\1"s, "\0\0\2"s, "\0\1"s, "\0\0"s};
  const std::string fillers[] = {"x"s, "\0"s, "\1"s, "\0\0\2"s, "\0\1"s};
  for (const std::string& filler : fillers) {
    for (std::size_t before = 0; before < 140; ++before) {
      for (const std::size_t after : {0U, 1U, 62U, 63U, 64U, 65U}) {
        for (const std::string& code : codes) {
          std::string text;
          while (text.size() < before) text += filler;
          text = text.substr(0, before) + code + std::string(after, 'x');
          const std::vector<std::uint8_t> bytes(text.begin(), text.end());
          const std::uint8_t* end = bytes.data() + bytes.size();
          const std::size_t expected = std::min(text.find("\0\0\1"s), text.size());
          ASSERT_EQ(FindStartCode(bytes.data(), end) - bytes.data(),
                    static_cast<std::ptrdiff_t>(expected));
        }
      }
    }
  }
}

class StreamConversion : public ::testing::Test {
 protected:
  void Convert(FourCharacterCode code, const CodedFrames& frames, unsigned width = 320,
               unsigned height = 240) {
    WriteMovie("clip.mov", code, width, height, 1.5, frames);
    movie_ = ReadMovie("clip.mov");
    EXPECT_THAT(movie_.brokenRules, IsEmpty());
  }
  std::vector<std::string> Units(std::size_t sample) {
    return SampleUnits(movie_.samples.at(sample), movie_.brokenRules);
  }
  std::vector<std::string> Held() { return HeldSets(movie_, movie_.brokenRules); }
  void TearDown() override { EXPECT_THAT(movie_.brokenRules, IsEmpty()); }

  tvx::test::TemporaryFolder folder_;
  MovieFile movie_;
};

TEST_F(StreamConversion, KeepsPicturesAndDropsWhatSamplesMustNotHold) {
  const std::string end = "\0\0\0"s;
  CodedFrames frames = {
      Key({"\x09\x10", Sps(0), Pps(0), kSei, kIdr, kIdr + end, "\x0C\xFF\xFF\x80", "\x0A"}),
      Other({"\x09\x30", kSlice, kSlice, "\x0B"}), Key({Sps(0), Pps(0), kIdr})};
  frames[1].payload = "junk" + WithShortStartCodes(frames[1].payload) + "\0\0\1"s;
  Convert(kH264Video, frames);
  EXPECT_THAT(Held(), ElementsAre(Sps(0), Pps(0)));
  EXPECT_THAT(Units(0), ElementsAre(kSei, kIdr, kIdr));
  EXPECT_THAT(Units(1), ElementsAre(kSlice, kSlice));
  EXPECT_THAT(Units(2), ElementsAre(kIdr));
  EXPECT_THAT(movie_.syncSamples, ElementsAre(1, 3));
  EXPECT_THAT(BrokenFormatRules(movie_), IsEmpty());
}

TEST_F(StreamConversion, HoldsSetsWithNewNumbersThatComeLater) {
  Convert(kH264Video, {Key({Sps(0), Pps(0), kIdr}), Key({Sps(1), Pps(7, 1), kIdr}),
                       Key({Sps(0), Pps(0), Sps(1), Pps(7, 1), Pps(255), kIdr})});
  EXPECT_THAT(Held(), ElementsAre(Sps(0), Sps(1), Pps(0), Pps(7, 1), Pps(255)));
  EXPECT_THAT(Units(1), ElementsAre(kIdr));
  EXPECT_THAT(Units(2), ElementsAre(kIdr));
}

// A decoder that has seen the other set keeps it, so the first one must be told again, too.
TEST_F(StreamConversion, LeavesSetsInSamplesFromTheFirstChangedOneOn) {
  const std::string changed = Pps(0, 0, 3);
  Convert(kH264Video, {Key({Sps(0), Pps(0), kIdr}), Key({Sps(0), changed, kIdr}),
                       Key({Sps(0), Pps(0), Pps(1), kIdr})});
  EXPECT_THAT(Held(), ElementsAre(Sps(0), Pps(0)));
  EXPECT_THAT(Units(0), ElementsAre(kIdr));
  EXPECT_THAT(Units(1), ElementsAre(changed, kIdr));
  EXPECT_THAT(Units(2), ElementsAre(Sps(0), Pps(0), Pps(1), kIdr));
}

TEST_F(StreamConversion, LeavesLaterSetsInSamplesWhenTheRoomForThemIsUsedUp) {
  const std::string large = Pps(1) + std::string(400, '\x55');
  const std::string larger = Pps(2) + std::string(400, '\x55');
  Convert(kH264Video, {Key({Sps(0), Pps(0), kIdr}), Key({large, larger, Pps(3), kIdr}),
                       Key({large, larger, Pps(3), kIdr})});
  EXPECT_THAT(Held(), ElementsAre(Sps(0), Pps(0), large, Pps(3)));
  EXPECT_THAT(Units(1), ElementsAre(larger, kIdr));
  EXPECT_THAT(Units(2), ElementsAre(larger, kIdr));
}

// A set that is cut off, of a number out of range, or for a set that is not there.
TEST_F(StreamConversion, LeavesSetsThatMakeNoSenseInTheirSamples) {
  const std::vector<std::string> bad = {"\x67",  "\x67\x64",         Sps(0).substr(0, 4),
                                        Sps(32), Pps(256),           Pps(1, 5),
                                        "\x68",  "\x68\0\0\0\0\x40"s};
  std::vector<std::string> units = {Sps(0), Pps(0)};
  units.insert(units.end(), bad.begin(), bad.end());
  units.push_back(kIdr);
  Convert(kH264Video, {Key(units)});
  EXPECT_THAT(Held(), ElementsAre(Sps(0), Pps(0)));
  units.erase(units.begin(), units.begin() + 2);
  EXPECT_EQ(Units(0), units);
}

// Sets or delimiters in a frame of their own are no pictures: the samples share the duration.
TEST_F(StreamConversion, JoinsFramesWithoutAPictureToTheNextPicture) {
  Convert(kH264Video, {Key({Sps(0), Pps(0)}),
                       Other({kSei}),
                       Other({kIdr}),
                       Other({"\x09\x30"}),
                       {"garbage", false},
                       Other({kSlice}),
                       {"", false},
                       Key({kSei}),
                       Other({kIdr}),
                       Other({kSei})});
  ASSERT_EQ(movie_.samples.size(), 3U);
  EXPECT_THAT(Units(0), ElementsAre(kSei, kIdr));
  EXPECT_THAT(Units(1), ElementsAre(kSlice));
  EXPECT_THAT(Units(2), ElementsAre(kSei, kIdr, kSei));
  EXPECT_THAT(movie_.syncSamples, ElementsAre(1, 3));
  EXPECT_EQ(movie_.Seconds(), 1.5);
}

TEST_F(StreamConversion, StoresVideoWithoutHeadersAsItComes) {
  const std::string vop = "\0\0\1\xB6\x10picture"s;
  struct {
    FourCharacterCode code;
    const char* format;
    std::string first;
  } cases[] = {
      {kH264Video, "H264", Join({kSei, kIdr})},
      {kH264Video, "H264", Join({Sps(0), kIdr, Pps(0)})},
      {kH264Video, "H264", std::string(5000, '\0')},
      {kMpeg4Video, "DIVX", vop},
      {kMpeg4Video, "DIVX", vop + "\0\0\1\x20\x08"s},
      {kMpeg4Video, "DIVX", "\0\0\1\x20"s + std::string(70000, 'h') + vop},
      {MakeFourCharacterCode("WXYZ"), "WXYZ", Join({Sps(0), Pps(0), kIdr})},
  };
  for (const auto& c : cases) {
    Convert(c.code, {{c.first, true}, {"anything", false}, {Join({Sps(0), Pps(0)}), false}});
    EXPECT_EQ(movie_.format, c.format);
    EXPECT_EQ(movie_.description, "");
    EXPECT_THAT(movie_.samples, ElementsAre(c.first, "anything", Join({Sps(0), Pps(0)})));
  }
}

TEST_F(StreamConversion, TakesTheSizeFromTheHeadersWhenNoneIsGiven) {
  Convert(kH264Video, {Key({Sps(0), Pps(0), kIdr})}, 0, 0);
  EXPECT_EQ(movie_.width, 1920U);
  EXPECT_EQ(movie_.height, 1080U);

  const std::string layer = Bits()
                                .U(0, 1)
                                .U(1, 8)
                                .U(1, 1)
                                .U(1, 4)
                                .U(1, 3)
                                .U(15, 4)
                                .U(12, 8)
                                .U(11, 8)
                                .U(1, 1)
                                .U(1, 2)
                                .U(1, 1)
                                .U(0, 1)
                                .U(0, 2)
                                .U(1, 1)
                                .U(30000, 16)
                                .U(1, 1)
                                .U(1, 1)
                                .U(1001, 15)
                                .U(1, 1)
                                .U(704, 13)
                                .U(1, 1)
                                .U(480, 13)
                                .U(1, 1)
                                .Unit('\x20');
  const std::string headers = "\0\0\1\xB0\x01\0\0\1"s + layer;
  Convert(kMpeg4Video, {{headers + "\0\0\1\xB3group\0\0\1\xB6\x10vop"s, true}}, 0, 0);
  EXPECT_THAT(BrokenFormatRules(movie_), IsEmpty());
  EXPECT_EQ(movie_.width, 704U);
  EXPECT_EQ(movie_.height, 480U);
}

// Every cut of a frame and every flipped bit of its headers: a movie of sound structure or a
// clean refusal. Each frame has memory of exactly its size, so that sanitizers see a read past it.
TEST_F(StreamConversion, SurvivesDamagedFrames) {
  const std::string h264 = Join({"\x09\x10", Sps(0), Pps(0), Sps(1), Pps(1, 1), kSei, kIdr});
  const std::string mpeg4 =
      "\0\0\1\xB0\x01\0\0\1\xB5\x09\0\0\1\x20\x00\xC4\x88\x80\x0F\x51\x40\x20\x50\0\0\1\xB6\x10"s;
  int movies = 0;
  const auto write = [&](FourCharacterCode code, const std::string& damaged) {
    const CodedFrames frames = {{std::string(damaged.data(), damaged.size()), true},
                                {Join({kSlice}), false},
                                {std::string(damaged.data(), damaged.size()), false}};
    try {
      WriteMovie("clip.mov", code, 0, 0, 0, frames);
    } catch (const std::runtime_error&) {
      EXPECT_FALSE(tvx::test::FileExists("clip.mov"));
      return;
    }
    ++movies;
    EXPECT_THAT(ReadMovie("clip.mov").brokenRules, IsEmpty());
    std::remove("clip.mov");
  };
  const std::pair<FourCharacterCode, const std::string*> streams[] = {{kH264Video, &h264},
                                                                      {kMpeg4Video, &mpeg4}};
  for (const auto& [code, stream] : streams) {
    for (std::size_t length = 1; length <= stream->size(); ++length) {
      write(code, stream->substr(0, length));
      write(code, stream->substr(stream->size() - length));
    }
    for (std::size_t bit = 0; bit < stream->size() * 8; ++bit) {
      std::string damaged = *stream;
      damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
      write(code, damaged);
    }
  }
  EXPECT_GT(movies, 500);
}

}  // namespace
}  // namespace quicktime::test
