// What becomes of each unit of a stream: kept in its sample, moved to the description, or dropped.
// The streams are made by hand, so that they hold what encoders at hand do not send.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "quicktime/movie_file.h"
#include "quicktime/notation.h"
#include "support/table.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The units that the rows speak of: sets of the Main profile, and one of High, 1920 x 1080 cropped
// from macroblocks.
std::map<std::string, std::string> MakeUnits() {
  const std::string size = " e0 e2 e1 0:1 e119 e67 1:1 1:1 1:1 e0 e0 e0 e4 0:1";
  std::map<std::string, std::string> units;
  for (const auto& row : tvx::test::Rows(R"(
      I      | 65 | 7:8 0:16 1:8 7:8
      s      | 41 | 154:8
      a      | 02 | 154:8 | a partition
      E      | 06 | 5:8
      x      | 0E | 154:8 | neither picture nor set
      y      | 75 | 154:8 | nor this
      D      | 09 | 16:8
      Q      | 0A | 128:8
      T      | 0B | 128:8
      F      | 0C | 255:8
      S0     | 67 | 77:8 0:8 31:8 e0 size
      S1     | 67 | 77:8 0:8 31:8 e1 size
      S32    | 67 | 77:8 0:8 31:8 e32 size
      H0     | 67 | 100:8 64:8 40:8 e0 e2 e1 e0 0:2 size
      Z0     | 67 | 77:8 0:8 0:8 e0 size
      cutS   | 67 | 77:8 0:8
      P0     | 68 | e0 e0 0:2
      P0new  | 68 | e0 e0 3:2
      P1     | 68 | e1 e0 0:2
      P3     | 68 | e3 e0 0:2
      P255   | 68 | e255 e0 0:2
      P256   | 68 | e256 e0 0:2
      P7of1  | 68 | e7 e1 0:2
      P1of5  | 68 | e1 e5 0:2
      P1of32 | 68 | e1 e32 0:2
      cutP   | 68 | 0:32
      full   | 68 | e1 e0 0:2 85:8*508
      over   | 68 | e2 e0 0:2 85:8*509)")) {
    std::string fields = row[2];
    if (fields.find(" size") != std::string::npos) fields.replace(fields.find(" size"), 5, size);
    units[row[0]] = CodedUnit(static_cast<char>(std::stoi(row[1], nullptr, 16)), fields);
  }
  return units;
}

const std::string& Unit(const std::string& name) {
  static const auto units = MakeUnits();
  return units.at(name);
}

// Units apart by blanks, frames by "/"; "*" begins a key frame. A "." is a start code of three
// bytes, a "+" zeros behind the unit, "~" bytes without a start code, "." alone one without a unit.
CodedFrames Frames(const std::string& notation) {
  CodedFrames frames(1);
  std::istringstream tokens(notation);
  for (std::string token; tokens >> token;) {
    if (token == "/") {
      frames.emplace_back();
    } else if (token == "*") {
      frames.back().isKey = true;
    } else if (token == "~") {
      frames.back().payload += "junk";
    } else {
      const bool isShort = token[0] == '.';
      const bool isPadded = token.back() == '+';
      token = token.substr(isShort ? 1 : 0, token.size() - (isShort ? 1 : 0) - (isPadded ? 1 : 0));
      frames.back().payload += isShort ? "\0\0\1"s : "\0\0\0\1"s;
      if (!token.empty()) frames.back().payload += Unit(token);
      if (isPadded) frames.back().payload += "\0\0\0"s;
    }
  }
  return frames;
}

// The record of a movie that holds these sets, each behind its length. Only that of a High profile
// ends in chroma format and depths.
std::string Record(const std::string& held) {
  std::string sets[2];
  int counts[2] = {};
  std::istringstream names(held);
  for (std::string name; names >> name;) {
    const std::string& set = Unit(name);
    const bool isPicture = set[0] == '\x68';
    ++counts[isPicture];
    sets[isPicture] += static_cast<char>(set.size() >> 8);
    sets[isPicture] += static_cast<char>(set.size()) + set;
  }
  const std::string profile = held[0] == 'H'   ? "\x64\x40\x28"
                              : held[0] == 'Z' ? "\x4D\0\0"s
                                               : "\x4D\0\x1F"s;
  return "\1" + profile + "\xFF" + static_cast<char>(0xE0 | counts[0]) + sets[0] +
         static_cast<char>(counts[1]) + sets[1] + (held[0] == 'H' ? "\xFE\xF9\xF8\0"s : "");
}

std::string Names(const std::vector<std::string>& units) {
  std::string names;
  for (const std::string& unit : units) {
    std::string name = "?";
    for (const auto& [known, bytes] : MakeUnits()) {
      if (bytes == unit) name = known;
    }
    names += (names.empty() ? "" : " ") + name;
  }
  return names;
}

class StreamConversion : public ::testing::Test {
 protected:
  void Convert(FourCharacterCode code, const CodedFrames& frames, unsigned width = 320,
               unsigned height = 240) {
    WriteMovie("clip.mov", code, width, height, 1.5, frames);
    movie_ = ReadMovie("clip.mov");
    EXPECT_THAT(movie_.brokenRules, IsEmpty());
  }
  // In the notation of the frames.
  std::string Samples() {
    const auto& sync = movie_.syncSamples;
    std::string text;
    for (std::uint32_t i = 1; i <= movie_.samples.size(); ++i) {
      const bool isSync = sync.empty() || std::count(sync.begin(), sync.end(), i) != 0;
      text += (i == 1 ? "" : " / ") + (isSync ? "* "s : "") +
              Names(SampleUnits(movie_.samples[i - 1], movie_.brokenRules));
    }
    return text;
  }
  void TearDown() override { EXPECT_THAT(movie_.brokenRules, IsEmpty()); }

  tvx::test::TemporaryFolder folder_;
  MovieFile movie_;
};

// Delimiters, end marks, filler and sets leave their samples, all else stays. Sets with new numbers
// are held, up to 512 bytes of those that come later; from the first changed one on all stay, since
// a decoder that has seen another set keeps it. A set that makes no sense stays. Frames without a
// picture go to the next one, the last ones to the one before.
TEST_F(StreamConversion, H264UnitsGoWhereTheyBelong) {
  for (const auto& row : tvx::test::Rows(R"(
      * D S0 P0 E I I+ F x Q / ~ .D .s+ .a .T . / * .S0 P0+ .I | * E I I x / s a / * I | S0 P0
      * S0 P0 I / * S1 P7of1 I / S0 P0 S1 P7of1 P255 s | * I / * I / s          | S0 S1 P0 P7of1 P255
      * S0 P0 I / * S0 P0new I / * S0 P0 P1 I          | * I / * P0new I / * S0 P0 P1 I | S0 P0
      * S0 P0 I / * H0 P0 I                            | * I / * H0 P0 I        | S0 P0
      * S0 P0 I / * over full P3 I / full P3 s         | * I / * over P3 I / P3 s | S0 P0 full
      * S0 P0 full over I                              | * I                    | S0 P0 full over
      * S0 P0 cutS S32 P256 P1of5 P1of32 cutP I | * cutS S32 P256 P1of5 P1of32 cutP I | S0 P0
      * Z0 P0 I                                        | * I                    | Z0 P0
      / * H0 P0 I / s                                  | * I / s                | H0 P0
      * S0 P0 / E / I / D / ~ y / s /  / * E / I / E   | * E I / y s / * E I E  | S0 P0
      S0 P0 s / s / * I                                | * s / s / * I          | S0 P0)")) {
    SCOPED_TRACE(row[0]);
    Convert(kH264Video, Frames(row[0]));
    EXPECT_EQ(movie_.format, "avc1");
    EXPECT_EQ(Samples(), row[1]);
    EXPECT_EQ(movie_.description, Record(row[2]));
  }
}

// As many as the counts of the record can say, and as long; the others stay in the sample.
TEST_F(StreamConversion, HoldsAsManySetsAsTheRecordCounts) {
  const std::string code = "\0\0\1"s;
  std::string payload;
  for (int id = 0; id < 32; ++id) {
    payload += code + CodedUnit('\x67', "77:8 0:8 31:8 e" + std::to_string(id));
  }
  for (int id = 0; id < 256; ++id) {
    payload += code + CodedUnit('\x68', "e" + std::to_string(id) + " e0");
  }
  Convert(kH264Video, {{payload + code + Unit("I"), true}});
  EXPECT_EQ(SampleUnits(movie_.samples[0], movie_.brokenRules).size(), 3U);
  EXPECT_EQ(movie_.description[5], '\xFF');
  for (const std::size_t size : {0xFFFFU, 0x10000U}) {
    const std::string set = Unit("P1") + std::string(size - Unit("P1").size(), 'U');
    Convert(kH264Video, {{Frames("S0 P0")[0].payload + code + set + code + Unit("I"), true}});
    EXPECT_EQ(SampleUnits(movie_.samples[0], movie_.brokenRules).size(), size - 0xFFFE);
  }
}

// Descriptors inside each other, each behind its tag and four bytes of length.
TEST_F(StreamConversion, Mpeg4HeadersAreInTheDescriptionToo) {
  const auto number = [](std::size_t value, int width) {
    std::string bytes;
    while (width-- > 0) bytes += static_cast<char>(value >> 8 * width);
    return bytes;
  };
  const auto descriptor = [](char tag, const std::string& content) {
    std::string bytes(1, tag);
    for (int shift = 21; shift >= 0; shift -= 7) {
      bytes += static_cast<char>((content.size() >> shift & 0x7F) | (shift != 0 ? 0x80 : 0));
    }
    return bytes + content;
  };
  const std::string layer =
      "\0\0\1\x20"s +
      CodedBits("0:1 1:8 0:1 1:4 0:1 0:2 1:1 25:16 1:1 0:1 1:1 704:13 1:1 480:13 0:3");
  const std::string vop = "\0\0\1\xB6picture"s;
  for (const std::size_t userData : {0U, 20U, 100U, 200U, 20000U}) {
    const std::string headers = layer + std::string(userData, 'u');
    const std::string first = headers + "\0\0\1\xB3group"s + vop;
    Convert(kMpeg4Video, {{first, true}, {"\0\0\1\xB2user"s, false}, {vop, false}, {vop, true}}, 0,
            0);
    EXPECT_EQ(movie_.format, "mp4v");
    EXPECT_THAT(movie_.samples, ElementsAre(first, "\0\0\1\xB2user"s + vop, vop));
    EXPECT_THAT(movie_.syncSamples, ElementsAre(1, 3));
    EXPECT_EQ(movie_.width, 704U);
    EXPECT_EQ(movie_.height, 480U);
    // Three samples of half a second each.
    const std::size_t bytes = first.size() + 8 + 2 * vop.size();
    const std::string config = "\x20\x11"s + number(first.size(), 3) +
                               number(first.size() * 16, 4) + number(bytes * 16 / 3, 4) +
                               descriptor(5, headers);
    EXPECT_EQ(
        movie_.description,
        number(0, 4) + descriptor(3, number(0, 3) + descriptor(4, config) + descriptor(6, "\2")));
  }
}

TEST_F(StreamConversion, StoresVideoWithoutHeadersAsItComes) {
  const std::string vop = "\0\0\1\xB6\x10picture"s;
  const std::string sets = Frames("S0 P0")[0].payload;
  const std::pair<FourCharacterCode, std::string> cases[] = {
      {kH264Video, Frames("E I")[0].payload},      {kH264Video, Frames("S0 I P0")[0].payload},
      {kH264Video, std::string(5000, '\0')},       {kMpeg4Video, vop + "\0\0\1\x20\x08"s},
      {MakeFourCharacterCode("WXYZ"), sets + vop},
  };
  for (const auto& [code, first] : cases) {
    Convert(code, {{first, true}, {"anything", false}, {sets, false}});
    EXPECT_EQ(movie_.format, code == kH264Video ? "H264" : code == kMpeg4Video ? "DIVX" : "WXYZ");
    EXPECT_EQ(movie_.description, "");
    EXPECT_THAT(movie_.samples, ElementsAre(first, "anything", sets));
  }
}

TEST_F(StreamConversion, TheSizeIsTheGivenOneOrElseThatOfTheHeaders) {
  for (const auto& [width, height, expected] : {std::tuple(320U, 240U, "320x240"),
                                                {0U, 0U, "1920x1080"},
                                                {320U, 0U, "1920x1080"},
                                                {0U, 240U, "1920x1080"},
                                                {0x10140U, 0x100F0U, "320x240"}}) {
    Convert(kH264Video, Frames("* S0 P0 I"), width, height);
    EXPECT_EQ(std::to_string(movie_.width) + "x" + std::to_string(movie_.height), expected);
  }
}

}  // namespace
}  // namespace quicktime::test
