// Elementary streams cut into frames.
#include "simulated_host/access_units.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace tvx::test {
namespace {

using nlohmann::json;
using tool::AccessUnit;
using tool::AccessUnitSplitter;
using tool::VideoCodec;

// A "!" in front marks key frames.
std::vector<std::string> Split(VideoCodec codec, const std::string& stream, std::size_t piece) {
  AccessUnitSplitter splitter(codec);
  std::vector<std::string> units;
  const auto take = [&] {
    while (const auto unit = splitter.Next()) {
      units.push_back((unit->key ? "!" : "") +
                      std::string(reinterpret_cast<const char*>(unit->data), unit->size));
    }
  };
  for (std::size_t at = 0; at < stream.size(); at += piece) {
    const std::string bytes = stream.substr(at, piece);
    splitter.Add(bytes.data(), bytes.size());
    take();
  }
  splitter.End();
  take();
  return units;
}

// Bytes from hexadecimal digits; blanks are ignored.
std::string Hex(const std::string& digits) {
  std::string bytes;
  std::string pair;
  for (const char digit : digits) {
    if (digit == ' ') continue;
    pair += digit;
    if (pair.size() < 2) continue;
    bytes += static_cast<char>(std::strtol(pair.c_str(), nullptr, 16));
    pair.clear();
  }
  return bytes;
}

TEST(AccessUnits, BeginWhereTheStandardsSay) {
  const struct {
    const char* what;
    VideoCodec codec;
    const char* before;              // of no unit
    std::vector<const char*> units;  // a "!" in front of key frames
  } cases[] = {
      {"H.264: parameter sets and all slices belong to one picture",
       VideoCodec::H264,
       "",
       {"!00000001 67420A 00000001 68CE 000001 65B811 000001 6511AA 000001 6515BB",
        "00000001 41E022 000001 4111CC", "000001 41E033"}},
      {"H.264: a delimiter or supplemental information begins one, end of sequence ends one",
       VideoCodec::H264,
       "1234 00",
       {"!00000001 0910 000001 0605 000001 658811 000001 0AFF 0000",
        "00000001 0930 000001 419A22 00", "00000001 061122 000001 419A33 000001 0CFF"}},
      {"H.264: the partitions of a slice",
       VideoCodec::H264,
       "",
       {"000001 42E011 000001 4322 000001 4433", "000001 42E044"}},
      {"MPEG-4: headers and groups begin one, coding type 0 is a key frame",
       VideoCodec::Mpeg4,
       "0000",
       {"!000001B001 000001B509 00000100 0000012000C8 000001B2AA 000001B300 000001B61022",
        "000001B65033 00", "000001B69044", "!000001B300 000001B60055 000001B1FF"}},
      {"JPEG: restart markers, stuffed zeros, an image in an application segment, several scans",
       VideoCodec::Jpeg,
       "00FFD7",
       {"!FFD8 FFE1 0006 FFD8FFD9 FFDA 0003 01 11FF00 22FFD3 33 FFC4 0002 FFDA 0002 44FFFFD9",
        "!FFD8 FFFFDB 0002 FFDA 0002 55 FFD9"}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    std::string stream = Hex(one.before);
    std::vector<std::string> expected;
    for (const std::string unit : one.units) {
      const bool key = unit[0] == '!';
      const std::string bytes = Hex(unit.substr(key ? 1 : 0));
      stream += bytes;
      expected.push_back((key ? "!" : "") + bytes);
    }
    for (const std::size_t piece : {stream.size(), std::size_t{1}, std::size_t{3}}) {
      EXPECT_EQ(Split(one.codec, stream, piece), expected) << piece;
    }
  }
}

TEST(AccessUnits, AreNoneWhereThereIsNoVideo) {
  const std::string garbage[] = {"",
                                 std::string(100, '\0'),
                                 std::string(100, '\xFF'),
                                 Hex("000001"),
                                 Hex("000001 67420A"),
                                 Hex("FFD8 1234 FFD9"),
                                 Hex("FFD8 FFDA 0002 11")};
  for (const VideoCodec codec : {VideoCodec::H264, VideoCodec::Mpeg4, VideoCodec::Jpeg}) {
    for (const std::string& stream : garbage) {
      EXPECT_TRUE(Split(codec, stream, 7).empty()) << Name(codec) << " " << stream.size();
    }
  }
  AccessUnitSplitter splitter(VideoCodec::H264);
  const std::vector<char> much(AccessUnitSplitter::kMaxUnit + 1);
  splitter.Add(much.data(), much.size());
  EXPECT_THROW(splitter.Add(much.data(), 1), tool::AccessUnitError);
}

std::string RunShell(const std::string& command) {
  std::string output;
  std::FILE* pipe = popen(command.c_str(), "r");
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
  pclose(pipe);
  return output;
}

// What encoders make is cut as ffmpeg's own parsers cut it.
TEST(AccessUnits, AreThoseThatFfmpegFinds) {
  const struct {
    const char* name;
    VideoCodec codec;
    const char* encoder;
  } cases[] = {
      {"slices.h264", VideoCodec::H264, "-c:v libx264 -g 10 -x264-params slices=4:aud=1"},
      {"plain.h264", VideoCodec::H264, "-c:v libx264 -profile:v baseline -g 7"},
      {"b-frames.h264", VideoCodec::H264, "-c:v libx264 -bf 3 -g 12"},
      {"plain.mpeg4", VideoCodec::Mpeg4, "-c:v mpeg4 -g 8 -f m4v"},
      {"pictures.mjpeg", VideoCodec::Jpeg, "-c:v mjpeg -pix_fmt yuvj420p"},
  };
  const TemporaryFolder folder;
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    const std::string name = one.name;
    RunShell("ffmpeg -v error -f lavfi -i testsrc2=size=96x64:rate=25:duration=1.2 " +
             std::string(one.encoder) + " -y " + name);
    std::ifstream file(name, std::ios::binary);
    const std::string stream{std::istreambuf_iterator<char>(file),
                             std::istreambuf_iterator<char>()};
    const json probed = json::parse(
        RunShell("ffprobe -v error -show_packets -show_entries packet=flags -of json " + name));
    std::vector<bool> expected;
    for (const json& packet : probed["packets"]) {
      expected.push_back(packet["flags"].get<std::string>().find('K') != std::string::npos);
    }
    ASSERT_EQ(expected.size(), 30u);
    std::vector<bool> found;
    std::string whole;
    for (const std::string& unit : Split(one.codec, stream, 1000)) {
      found.push_back(unit[0] == '!');
      whole += unit.substr(unit[0] == '!' ? 1 : 0);
    }
    EXPECT_EQ(found, expected);
    EXPECT_TRUE(whole == stream);
  }
}

}  // namespace
}  // namespace tvx::test
