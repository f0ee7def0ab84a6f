// What the headers of coded video tell: the fields that a movie needs, wherever they stand.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "quicktime/h264_sps.h"
#include "quicktime/mpeg4_headers.h"
#include "quicktime/notation.h"
#include "quicktime/start_code.h"
#include "support/table.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

// In memory that ends with it, so that sanitizers see a read past it.
struct Bytes {
  explicit Bytes(const std::string& text) : bytes(text.begin(), text.end()) {}
  ByteView View() const { return {bytes.data(), bytes.size()}; }
  std::vector<std::uint8_t> bytes;
};

std::string Text(const FrameSize& size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

// Number, chroma format, bits beyond 8 of luma and chroma, and size.
std::string Sequence(const std::string& unit) {
  const Bytes bytes(unit);
  const auto set = ParseSequenceParameters(bytes.View());
  if (!set) return "none";
  return std::to_string(set->id) + " " + (set->hasChromaFields ? "" : "implied ") +
         std::to_string(set->chromaFormat) + " " + std::to_string(set->lumaBitsMinus8) + "+" +
         std::to_string(set->chromaBitsMinus8) + " " + Text(set->size);
}

// "main" and "high" are profiles with their level. "middle" is frame number bits, picture order,
// reference frames and gaps. "whole" is 120 x 68 macroblocks of frames, and "cut" the same with 1,
// 2, 3 and 4 cropped away on the left, right, top and bottom.
TEST(H264Sequence, FieldsAreFoundBehindAllThatMayStandBeforeThem) {
  const std::pair<std::string, std::string> names[] = {
      {"main", "77:8 0:8 31:8"},
      {"high", "100:8 0:8 31:8"},
      {"middle", "e4 e0 e5 e3 1:1"},
      {"whole", "e119 e67 1:1 0:1 0:1 0:1"},
      {"cut", "e119 e67 1:1 1:1 1:1 e1 e2 e3 e4 0:1"},
  };
  for (auto row : tvx::test::Rows(R"(
      main e0 middle whole                       | 0 implied 1 0+0 1920x1088
      main e31 middle cut                        | 31 implied 1 0+0 1914x1074
      main e32 middle whole                      | none
      main e0 e7 e1610612735 e3 1:1 cut          | 0 implied 1 0+0 1914x1074 | 00 00 03 00 03
      main e1 e0 e1 0:1 s-3 s4 e3 s1 s-2 s70000 e3 0:1 whole | 1 implied 1 0+0 1920x1088 | order 1
      main e1 e0 e2 e3 0:1 whole                 | 1 implied 1 0+0 1920x1088 | and 2
      main e0 middle e44 e17 0:1 1:1 0:1 1:1 e0 e1 e1 e1 0:1 | 0 implied 1 0+0 718x568 | fields
      high e0 e0 e0 e0 0:1 0:1 middle cut        | 0 0 0+0 1917x1081 | cropped in chroma samples
      high e0 e1 e2 e6 1:1 0:1 middle cut        | 0 1 2+6 1914x1074
      high e0 e2 e6 e1 0:1 0:1 middle cut        | 0 2 6+1 1914x1081
      high e0 e3 0:1 e0 e0 0:1 0:1 middle cut    | 0 3 0+0 1917x1081
      high e0 e3 1:1 e0 e0 0:1 0:1 middle cut    | 0 3 0+0 1917x1081
      high e0 e4 e0 e0 0:1 0:1 middle whole      | none
      high e0 e1 e7 e0 0:1 0:1 middle whole      | none
      high e0 e1 e0 e7 0:1 0:1 middle whole      | none
      high e0 e1 e0 e0 0:1 1:1 0:1*8 middle whole | 0 1 0+0 1920x1088 | scaling lists left out,
      high e0 e3 0:1 e0 e0 0:1 1:1 0:1*11 1:1 s3*64 middle whole | 0 3 0+0 1920x1088 | in full,
      high e0 e1 e0 e0 0:1 1:1 1:1 s1*16 1:1 s-8 1:1 s2 s-10 0:1*2 1:1 s-9 s1 1:1 s5*64 1:1 s2*12 s-32 middle whole | 0 1 0+0 1920x1088 | ended by a scale of 0
      main e0 middle e119 e67 1:1 1:1 1:1 e959 e0 e0 e0 0:1 | 0 implied 1 0+0 2x1088 | nonsense:
      main e0 middle e119 e67 1:1 1:1 1:1 e959 e1 e0 e0 0:1 | 0 implied 1 0+0 0x0
      main e0 middle e119 e67 1:1 1:1 1:1 e0 e0 e500 e44 0:1 | 0 implied 1 0+0 0x0
      main e0 middle e4094 e4094 1:1 1:1 0:1 0:1 | 0 implied 1 0+0 65520x65520
      main e0 middle e4095 e67 1:1 1:1 0:1 0:1   | 0 implied 1 0+0 0x0
      main e0 middle e119 e4095 1:1 1:1 1:1 e0 e0 e0 e1 0:1 | 0 implied 1 0+0 1920x65534
      main 0:32 1:1 0:31                         | none | more zeros than a number has)")) {
    for (const auto& [name, fields] : names) {
      const std::size_t at = row[0].find(name);
      if (at != std::string::npos) row[0].replace(at, name.size(), fields);
    }
    EXPECT_EQ(Sequence(CodedUnit('\x67', row[0])), row[1]) << row[0];
  }
  // Cut off in front of its number, and in the size.
  const std::string whole =
      CodedUnit('\x67', "77:8 0:8 31:8 e0 e4 e0 e5 e3 1:1 e119 e67 1:1 0:1 0:1");
  for (std::size_t size = 1; size < whole.size(); ++size) {
    EXPECT_EQ(Sequence(whole.substr(0, size)), size < 5 ? "none" : "0 implied 1 0+0 0x0") << size;
  }
  const std::set<unsigned> withChroma = {100, 110, 122, 144, 244, 44,  83,
                                         86,  118, 128, 134, 135, 138, 139};
  for (unsigned profile = 1; profile < 256; ++profile) {
    const std::string fields = std::to_string(profile) + ":8 0:8 31:8 e0 e2 e2 e0 0:1*50";
    EXPECT_EQ(Sequence(CodedUnit('\x67', fields)).substr(0, 6),
              withChroma.count(profile) != 0 ? "0 2 2+" : "0 impl")
        << profile;
  }
}

std::string Layer(const std::string& fields) {
  return "\0\0\1\x20"s + CodedBits(fields);
}

const std::string kVop = "\0\0\1\xB6picture"s;

TEST(Mpeg4, HeadersReachFromTheFirstStartCodeToThePicture) {
  const std::string plain =
      Layer("0:1 1:8 0:1 1:4 0:1 0:2 1:1 25:16 1:1 0:1 1:1 704:13 1:1 480:13");
  const std::string another =
      Layer("0:1 1:8 0:1 1:4 0:1 0:2 1:1 25:16 1:1 0:1 1:1 16:13 1:1 16:13");
  const std::string user = "\0\0\1\xB2user"s;
  const struct {
    std::string before, headers, behind;
    bool found;
  } rows[] = {
      {"junk", "\0\0\1\xB0\1\0\0\1\xB5\x09"s + plain, kVop, true},
      {"", plain + user, "\0\0\1\xB3group"s + kVop, true},
      {"", plain, "", true},
      {"", plain + "\0\0\1"s, "", true},  // with nothing behind it
      {"", plain + another, kVop, true},  // the first layer counts
      {"", "\0\0\1\x2F"s + plain.substr(4), kVop, true},
      {"", "\0\0\1\x1F"s + plain.substr(4), kVop, false},
      {"", "\0\0\1\x30"s + plain.substr(4), kVop, false},
      {"", user, kVop + plain, false},
      {"", plain + std::string(0xFFFF - plain.size(), 'u'), kVop, true},
      {"", plain + std::string(0x10000 - plain.size(), 'u'), kVop, false},
      {"junk", "", "", false},
  };
  for (const auto& row : rows) {
    const Bytes bytes(row.before + row.headers + row.behind);
    Mpeg4Headers headers;
    ASSERT_EQ(FindMpeg4Headers(bytes.View(), headers), row.found) << &row - rows;
    if (!row.found) continue;
    EXPECT_EQ(Text(headers.size), "704x480");
    EXPECT_EQ(std::string(headers.bytes.begin(), headers.bytes.end()), row.headers);
  }
  for (const auto& [payload, has] :
       {std::pair(plain + kVop, true), {plain, false}, {"\0\0\1"s, false}, {"\0\0\1\xB6"s, true}}) {
    EXPECT_EQ(HasMpeg4Picture(Bytes(payload).View()), has);
  }
  const Bytes vop(kVop);
  EXPECT_FALSE(HasMpeg4Picture({vop.View().data, 3}));  // what tells is behind the end
}

// Version, aspect, control and buffer, shape, clock; no rectangle, no clock, no size, cut off.
TEST(Mpeg4, TheSizeIsFoundBehindAllThatMayStandBeforeIt) {
  for (const auto& row : tvx::test::Rows(R"(
      1:1 1:4 1:3 15:4 12:8 11:8 1:1 1:3 1:1 0:79 0:2 1:1 40000:16 1:1 1:1 1001:16 1:1 720:13 1:1 576:13 | 720x576
      0:1 1:4 1:1 1:2 0:1 0:1 0:2 1:1 1:16 1:1 1:1 0:1 1:1 352:13 1:1 288:13 | 352x288
      0:1 1:4 0:1 0:2 1:1     2:16 1:1 1:1  1:1 1:1  352:13 1:1  288:13 | 352x288
      0:1 1:4 0:1 0:2 1:1     3:16 1:1 1:1  1:2 1:1  352:13 1:1  288:13 | 352x288
      0:1 1:4 0:1 0:2 1:1 65535:16 1:1 1:1 1:16 1:1 8191:13 1:1 8190:13 | 8191x8190
      0:1 1:4 0:1 1:2 1:1    25:16 1:1 0:1      1:1  704:13 1:1  480:13 | 0x0
      0:1 1:4 0:1 0:2 1:1     0:16 1:1 0:1      1:1  704:13 1:1  480:13 | 0x0
      0:1 1:4 0:1 0:2 1:1    25:16 1:1 0:1      1:1    0:13 1:1  480:13 | 0x0
      0:1 1:4 0:1 0:2 1:1    25:16 1:1 0:1      1:1  704:13 1:1    0:13 | 0x0
      0:1 1:4 0:1 0:2 1:1    25:16 1:1 0:1      1:1  704:13             | 0x0)")) {
    const Bytes bytes(Layer("0:1 1:8 " + row[0]));
    Mpeg4Headers headers;
    EXPECT_TRUE(FindMpeg4Headers(bytes.View(), headers));
    EXPECT_EQ(Text(headers.size), row[1]) << row[0];
  }
}

// At every distance from the search's blocks, with look-alikes before it, in memory that ends with
// it.
TEST(StartCode, IsFoundWhereverItIs) {
  const std::string codes[] = {"\0\0\1"s, "\0\0\0\1"s, "\0\0\2"s, "\0\1"s, "\0\0"s};
  for (const std::string& filler : {"x"s, "\0"s, "\1"s, "\0\0\2"s, "\0\1"s}) {
    for (std::size_t before = 0; before < 140; ++before) {
      for (const std::size_t after : {0U, 1U, 62U, 63U, 64U, 65U}) {
        for (const std::string& code : codes) {
          std::string text;
          while (text.size() < before) text += filler;
          text = text.substr(0, before) + code + std::string(after, 'x');
          const Bytes bytes(text);
          const ByteView view = bytes.View();
          const std::size_t expected = std::min(text.find("\0\0\1"s), text.size());
          ASSERT_EQ(FindStartCode(view.begin(), view.end()) - view.begin(),
                    static_cast<std::ptrdiff_t>(expected));
        }
      }
    }
  }
}

}  // namespace
}  // namespace quicktime::test
