// What becomes of each unit of a stream: kept in its sample, moved to the description, or dropped.
// The streams are made by hand, so that they hold what encoders at hand do not send.
#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <map>

#include "quicktime/movie_fixture.h"
#include "quicktime/start_code.h"

namespace quicktime::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string kCode = "\0\0\1"s;

// Name, first byte and fields; "x" and "y" are neither picture nor set, "a" is a partition. Sets are
// of the Main profile, H0 of High, 1920 x 1080 cropped from macroblocks.
const std::map<std::string, std::string>& KnownUnits() {
  static std::map<std::string, std::string> units;
  if (!units.empty()) return units;
  const std::string size = "e0 e2 e1 0:1 e119 e67 1:1 1:1 1:1 e0 e0 e0 e4 0:1";
  for (const auto& row : tvx::test::Rows(R"(
      I 65 7:8 0:16 1:8 7:8 | s 41 154:8 | a 02 154:8 | E 06 5:8 | x 0E 154:8 | y 75 154:8
      D 09 16:8 | Q 0A 128:8 | T 0B 128:8 | F 0C 255:8 | S0 67 77:8 0:8 31:8 e0 size
      S1 67 77:8 0:8 31:8 e1 size | S32 67 77:8 0:8 31:8 e32 size
      H0 67 100:8 64:8 40:8 e0 e2 e1 e0 0:2 size | Z0 67 77:8 0:8 0:8 e0 size | cutS 67 77:8 0:8
      P0 68 e0 e0 0:2 | P0new 68 e0 e0 3:2 | P1 68 e1 e0 0:2 | P3 68 e3 e0 0:2
      P255 68 e255 e0 0:2 | P256 68 e256 e0 0:2 | P7of1 68 e7 e1 0:2 | P1of5 68 e1 e5 0:2
      P1of32 68 e1 e32 0:2 | cutP 68 0:32 | full 68 e1 e0 0:2 85:8*508
      over 68 e2 e0 0:2 85:8*509 | wide 68 e1 e0 0:2 85:8*253 | less 68 e2 e0 0:2 85:8*252
      big 68 e0 e0 0:2 85:8*600 | t0 67 77:8 0:8 31:8 e0 e0 e2 e1 0:1 e0 e0 1:1 1:1 0:1 0:1)")) {
    for (const std::string& cell : row) {
      if (cell.empty()) continue;
      const std::string fields = cell.substr(cell.find(' ') + 1);
      units[cell.substr(0, cell.find(' '))] =
          CodedUnit(boost::replace_all_copy(fields, "size", size));
    }
  }
  return units;
}

const std::string& Unit(const std::string& name) {
  return KnownUnits().at(name);
}

// Units apart by blanks, frames by "/"; "*" begins a key frame. Every other unit has a start code of
// three bytes, and zeros and an empty unit behind it; every other frame begins with other bytes.
CodedFrames Frames(const std::string& notation) {
  CodedFrames frames(1);
  bool isOther = true;
  std::istringstream tokens(notation);
  for (std::string token; tokens >> token;) {
    if (token == "/") frames.push_back({frames.size() % 2 != 0 ? "junk" : ""});
    if (token == "*") frames.back().isKey = true;
    if (token == "/" || token == "*") continue;
    isOther = !isOther;
    frames.back().payload +=
        isOther ? kCode + Unit(token) + "\0\0\0"s + kCode : "\0"s + kCode + Unit(token);
  }
  return frames;
}

// The record of a movie that holds these sets, each behind its length. Only that of a High profile
// ends in chroma format and depths.
std::string Record(const std::string& held) {
  std::string sets[] = {"\xE0", "\0"s};
  std::istringstream names(held);
  for (std::string name; names >> name;) {
    const std::string& set = Unit(name);
    std::string& list = sets[set[0] == '\x68'];
    ++list[0];
    list += {static_cast<char>(set.size() >> 8), static_cast<char>(set.size())};
    list += set;
  }
  return "\1" + sets[0].substr(4, 3) + "\xFF" + sets[0] + sets[1] +
         (held.find('H') != std::string::npos ? "\xFE\xF9\xF8\0"s : "");
}

class StreamConversion : public MovieTest {
 protected:
  // In the notation of the frames.
  std::string Samples() {
    const auto& sync = movie_.syncSamples;
    std::string text;
    for (std::uint32_t i = 1; i <= movie_.samples.size(); ++i) {
      const bool isSync = sync.empty() || std::count(sync.begin(), sync.end(), i) != 0;
      const std::uint32_t entry = movie_.entries[i - 1];
      const std::string& size = movie_.sizes[entry - 1];
      if (i != 1) text += " / ";
      if (i != 1 && entry != movie_.entries[i - 2]) {
        text += "#" + std::to_string(entry) + (size == movie_.sizes[0] ? "" : ":" + size) + " ";
      }
      text += isSync ? "* " : "";
      for (const std::string& unit : SampleUnits(movie_.samples[i - 1], movie_.brokenRules)) {
        const auto known = std::find_if(KnownUnits().begin(), KnownUnits().end(),
                                        [&](const auto& each) { return each.second == unit; });
        text += (known != KnownUnits().end() ? known->first : "?") + " ";
      }
      text.pop_back();
    }
    return text;
  }
  // The chroma fields of the record, if any, and the size. A picture set names the sequence's number.
  std::string Sequence(const std::string& fields, const std::string& id) {
    const std::string set = CodedUnit("67 " + fields), pictureSet = CodedUnit("68 e0 e" + id);
    Convert(kH264Video, {{kCode + set + kCode + pictureSet + kCode + Unit("I"), true}}, 1, 0, 0);
    if (movie_.format != "avc1") return "none";
    const std::string chroma =
        Words(movie_.descriptions.at(0).substr(11 + set.size() + pictureSet.size()));
    return chroma + (chroma.empty() ? "" : " ") + Size();
  }
  // In pixels, and their shape unless it is square, in hexadecimal, and how wide it is shown.
  std::string Size() {
    const std::string shape = Words(movie_.atoms["1/pasp"]);
    return movie_.sizes.at(0) + (shape.empty() ? "" : " " + shape + " " + movie_.shownWidth);
  }
  void TearDown() override { EXPECT_THAT(movie_.brokenRules, testing::IsEmpty()); }
};

// Delimiters, end marks, filler and sets leave their samples, all else stays. Sets with new numbers
// are held, up to 512 bytes of those that come later; from the first changed one on all stay, since
// a decoder that has seen another set keeps it. A set that makes no sense stays. Frames without a
// picture go to the next one, the last ones to the one before.
TEST_F(StreamConversion, H264UnitsGoWhereTheyBelong) {
  for (const auto& row : tvx::test::Rows(R"(
      * D S0 P0 E I I F x Q / D s a T / * S0 P0 I | * E I I x / s a / * I | S0 P0
      * S0 P0 I / * S1 P7of1 I / S0 P0 S1 P7of1 P255 s | * I / * I / s          | S0 S1 P0 P7of1 P255
      * S0 P0 I / * S0 P0new I / * S0 P0 P1 I          | * I / #2 * I / #3 * I | S0 P0 & S0 P0new & S0 P0 P1
      * S0 P0 I / * H0 P0 I / s / * S0 P0 I            | * I / #2:1920x1084 * I / s / #1 * I | S0 P0 & H0 P0
      * S0 P0 P1 I P0new / s / P1 S0 P0 / s            | * I / #2 s / #1 s | S0 P0 P1 & S0 P0new P1
      * S0 P0 I / * t0 P0 I / * S0 big I / * S0 P0 I | * I / #2:16x16 * I / #1 * big I / * S0 P0 I | S0 P0 & t0 P0
      * P0 S0 I / * P0 H0 I                            | * I / #2:1920x1084 * I | S0 P0 & H0 P0
      * E I / * S0 P0 I                                | * E I / * I  | S0 P0   | P0 E S0 s P1
      * S0 / * P0 / * I                                | * I          | S0 P0   | S0 P0new
      * S0 P1 I                                        | * I          | S0 P1   | H0 P0
      * S0 P0 I / * over full P3 I / full P3 s         | * I / * over P3 I / P3 s | S0 P0 full
      * S0 P0 I / * wide less I                        | * I / * less I         | S0 P0 wide
      * S0 P0 full over I                              | * I                    | S0 P0 full over
      * S0 P0 cutS S32 P256 P1of5 P1of32 cutP I | * cutS S32 P256 P1of5 P1of32 cutP I | S0 P0
      * Z0 P0 I                                        | * I                    | Z0 P0
      / * H0 P0 I / s                                  | * I / s                | H0 P0
      * S0 P0 / E / I / D / y / s /  / * E / I / E   | * E I / y s / * E I E  | S0 P0
      S0 P0 s / s / * I                                | * s / s / * I          | S0 P0)")) {
    SCOPED_TRACE(row[0]);
    Convert(kH264Video, Frames(row[0]), 1, 320, 240, Frames(row[3])[0].payload);
    EXPECT_EQ(movie_.format, "avc1");
    EXPECT_EQ(Samples(), row[1]);
    std::vector<std::string> records;
    std::istringstream held(row[2]);
    for (std::string sets; std::getline(held, sets, '&');) records.push_back(Record(sets));
    EXPECT_EQ(movie_.descriptions, records);
  }
}

// As many as the counts of the record can say, and as long; the others stay in the sample.
TEST_F(StreamConversion, HoldsAsManySetsAsTheRecordCounts) {
  std::string payload;
  for (int id = 0; id < 32 + 256; ++id) {
    payload += kCode + CodedUnit(id < 32 ? "67 77:8 0:8 31:8 e" + std::to_string(id)
                                         : "68 e" + std::to_string(id - 32) + " e0");
  }
  Convert(kH264Video, {{payload + kCode + Unit("I"), true}});
  EXPECT_EQ(SampleUnits(movie_.samples[0], movie_.brokenRules).size(), 3U);
  EXPECT_EQ(movie_.descriptions.at(0).at(5), '\xFF');
  for (const std::size_t size : {0xFFFFU, 0x10000U}) {
    std::string set = Unit("P1");
    set.resize(size, 'U');
    Convert(kH264Video, {{Frames("S0 P0")[0].payload + kCode + set + kCode + Unit("I"), true}});
    EXPECT_EQ(SampleUnits(movie_.samples[0], movie_.brokenRules).size(), size - 0xFFFE);
  }
}

// "main" and "high" are profiles with their level. "middle" is frame number bits, picture order,
// reference frames and gaps. "whole" is 120 x 68 macroblocks of frames, and "cut" the same with 1,
// 2, 3 and 4 cropped away on the left, right, top and bottom.
TEST_F(StreamConversion, H264SequencesAreReadBehindAllThatMayStandBeforeTheFields) {
  const char* const names[][2] = {{"main", "77:8 0:8 31:8"},
                                  {"high", "100:8 0:8 31:8"},
                                  {"middle", "e4 e0 e5 e3 1:1"},
                                  {"whole", "e119 e67 1:1 0:1 0:1 0:1"},
                                  {"cut", "e119 e67 1:1 1:1 1:1 e1 e2 e3 e4 0:1"},
                                  {"seen", "e119 e67 1:1 0:1 0:1 1:1 1:1"}};
  for (auto row : tvx::test::Rows(R"(
      main e0 middle whole | 0 | 1920x1088
      main e31 middle cut | 31 | 1914x1074
      main e32 middle whole | 0 | none
      main e0 e7 e1610612735 e3 1:1 cut | 0 | 1914x1074 | 00 00 03 00 03
      main e1 e0 e1 0:1 s-3 s4 e3 s1 s-2 s70000 e3 0:1 whole | 1 | 1920x1088 | order 1
      main e1 e0 e2 e3 0:1 whole | 1 | 1920x1088 | and 2
      main e0 middle e44 e17 0:1 1:1 0:1 1:1 e0 e1 e1 e1 0:1 | 0 | 718x568 | fields
      high e0 e0 e0 e0 0:1 0:1 middle cut | 0 | FCF8F800 1917x1081 | cropped in chroma samples
      high e0 e1 e2 e6 1:1 0:1 middle cut | 0 | FDFAFE00 1914x1074
      high e0 e2 e6 e1 0:1 0:1 middle cut | 0 | FEFEF900 1914x1081
      high e0 e3 0:1 e0 e0 0:1 0:1 middle cut | 0 | FFF8F800 1917x1081
      high e0 e3 1:1 e0 e0 0:1 0:1 middle cut | 0 | FFF8F800 1917x1081
      high e0 e4 e0 e0 0:1 0:1 middle whole | 0 | none
      high e0 e1 e7 e0 0:1 0:1 middle whole | 0 | none
      high e0 e1 e0 e7 0:1 0:1 middle whole | 0 | none
      high e0 e1 e0 e0 0:1 1:1 0:1*8 middle whole | 0 | FDF8F800 1920x1088 | scaling lists left out,
      high e0 e3 0:1 e0 e0 0:1 1:1 0:1*11 1:1 s3*64 middle whole | 0 | FFF8F800 1920x1088 | in full,
      high e0 e1 e0 e0 0:1 1:1 1:1 s1*16 1:1 s-8 1:1 s2 s-10 0:1*2 1:1 s-9 s1 1:1 s5*64 1:1 s2*12 s-32 middle whole | 0 | FDF8F800 1920x1088 | ended by a scale of 0
      main e0 middle e119 e67 1:1 1:1 1:1 e959 e0 e0 e0 0:1 | 0 | 2x1088 | nonsense:
      main e0 middle e119 e67 1:1 1:1 1:1 e959 e1 e0 e0 0:1 | 0 | 0x0
      main e0 middle e119 e67 1:1 1:1 1:1 e0 e0 e500 e44 0:1 | 0 | 0x0
      main e0 middle e4094 e4094 1:1 1:1 0:1 0:1 | 0 | 65520x65520
      main e0 middle e4095 e67 1:1 1:1 0:1 0:1 | 0 | 0x0
      main e0 middle e119 e4095 1:1 1:1 1:1 e0 e0 e0 e1 0:1 | 0 | 1920x65534
      main e0 middle e119 | 0 | 0x0 | cut off
      main e0 middle seen 4:8 | 0 | 1920x1088 10 B 2792 | shapes of pixels
      main e0 middle seen 16:8 | 0 | 1920x1088 2 1 3840
      main e0 middle seen 17:8 | 0 | 1920x1088
      main e0 middle seen 255:8 160:16 99:16 | 0 | 1920x1088 A0 63 3103
      main e0 middle seen 255:8 0:16 99:16 | 0 | 1920x1088
      main e0 middle seen 255:8 1:16 16:16 | 0 | 1920x1088
      main e0 middle seen 255:8 16:16 | 0 | 1920x1088
      main 0:32 1:1 0:31 | 0 | none | more zeros than a number has)")) {
    for (const auto& [name, fields] : names) boost::replace_all(row[0], name, fields);
    SCOPED_TRACE(row[0]);
    EXPECT_EQ(Sequence(row[0], row[1]), row[2]);
  }
  std::string withChroma;
  for (int profile = 1; profile < 256; ++profile) {
    const std::string id = std::to_string(profile), fields = id + ":8 0:8 31:8 e0 e2 e2 e0 0:1*50";
    if (Sequence(fields, "0").substr(0, 8) == "FEFAF800") withChroma += id + " ";
  }
  EXPECT_EQ(withChroma, "44 83 86 100 110 118 122 128 134 135 138 139 144 244 ");
}

// Behind the first fields of each slice: number of the frame in four bits, whether it is a field and
// a bottom one where there are fields, number of the IDR picture, and what the type of order needs.
// "65" is an IDR picture, "01" one that nothing refers to. Sets: the order; whether frames only, and
// whether slices have deltas of the bottom field.
TEST_F(StreamConversion, H264PicturesAreShownInTheirOwnOrder) {
  for (const auto& row : tvx::test::Rows(R"(
      e0 e0 e0 | 1 0 | 65 0:4 e0 0:4 / 41 1:4 4:4 / 01 2:4 2:4 / 41 2:4 8:4 / 01 3:4 6:4 | 0, 2, 1, 4, 3 | low bits
      e0 e0 e0 | 1 0 | 65 0:4 e0 0:4 / 41 1:4 6:4 / 41 2:4 14:4 / 01 3:4 10:4 / 41 3:4 6:4 / 41 4:4 14:4 / 01 5:4 10:4 | 0, 1, 3, 2, 4, 6, 5 | that go round, by half of them
      e0 e0 e0 | 1 0 | 65 0:4 e0 6:4 / 41 1:4 0:4 / 41 2:4 15:4 / 41 3:4 8:4 / 41 4:4 14:4 | 4, 3, 2, 0, 1 | back, too
      e0 e0 e1 | 1 0 | 65 0:4 e0 0:5 / 41 1:4 8:5 / 01 2:4 4:5 / 65 0:4 e1 0:5 / 41 1:4 8:5 / 01 2:4 4:5 | 0, 2, 1, 3, 5, 4 | from the start
      e0 e0 e0 | 1 1 | 65 0:4 e0 0:4 s5 / 41 1:4 6:4 s-4 / 01 2:4 3:4 s0 | 0, 1, 2 | the earlier field counts
      e0 e0 e0 | 1 1 | 65 0:4 e0 0:4 s1 / 41 1:4 6:4 s-2 / 01 2:4 3:4 s0 | 0, 2, 1
      e0 e0 e0 | 0 1 | 65 0:4 1:1 0:1 e0 0:4 / 41 0:4 1:1 1:1 1:4 / 41 1:4 1:1 1:1 9:4 / 41 1:4 1:1 0:1 8:4 / 01 2:4 1:1 0:1 4:4 / 01 2:4 1:1 1:1 5:4 / 01 2:4 1:1 0:1 6:4 / 01 2:4 1:1 1:1 7:4 / 41 2:4 0:1 12:4 s0 | 0, 3, 1, 2, 4 | two fields are a sample
      e0 e0 e0 | 0 0 | 65 0:4 1:1 0:1 e0 0:4 / 41 1:4 1:1 1:1 1:4 / 01 1:4 1:1 0:1 2:4 / 01 1:4 1:1 0:1 3:4 / 65 0:4 1:1 1:1 e1 1:4 | 0, 1, 2, 3, 4 | of one frame, kind and parity each
      e0 e1 0:1 s-3 s1 e2 s2 s6 | 1 1 | 65 0:4 e0 s0 s0 / 41 1:4 s4 s4 / 01 2:4 s0 s0 / 41 2:4 s0 s0 / 01 3:4 s0 s0 | 1, 3, 0, 4, 2 | a cycle
      e0 e1 1:1 s-1 s0 e1 s2 | 1 0 | 65 0:4 e0 / 41 15:4 / 01 0:4 / 41 0:4 / 01 1:4 | 0, 2, 1, 4, 3 | that goes round
      e0 e1 1:1 s-1 s0 e0 | 1 0 | 65 0:4 e0 / 01 1:4 / 41 2:4 | 1, 0, 2 | none
      e0 e1 1:1 s-1 s32768 e0 | 1 0 | 65 0:4 e0 / 01 1:4 / 41 2:4 | 0, 1, 2 | nonsense
      e0 e1 1:1 s-1 s0 e256 s0*256 | 1 0 | 65 0:4 e0 / 01 1:4 / 41 2:4 | 0, 1, 2
      e0 e2 | 1 0 | 65 0:4 e0 / 41 1:4 / 01 2:4 / 41 2:4 | 0, 1, 2, 3 | as they are coded
      e0 e0 e0 | 1 0 | 65 0:4 e0 4:4 / 41 1:4 2:4 / 41 | 0, 1, 2 | one is cut off)")) {
    SCOPED_TRACE(row[2]);
    const std::string fields = row[1][0] == '1' ? " 1:1" : " 0:1 0:1";
    CodedFrames frames;
    std::istringstream slices(row[2]);
    for (std::string slice; std::getline(slices >> std::ws, slice, '/');) {
      frames.push_back({kCode + CodedUnit(slice.insert(2, " e0 e7 e0 "))});
    }
    const std::string set = "67 77:8 0:8 31:8 e0 " + row[0] + " e1 0:1 e9 e9" + fields;
    Convert(kH264Video, frames, 1, 0, 0,
            kCode + CodedUnit(set + " 1:1 0:1 0:1") + kCode +
                CodedUnit("68 e0 e0 0:1 "s + row[1][2] + ":1"));
    EXPECT_THAT(testing::PrintToString(movie_.shown), HasSubstr("{ " + row[3] + " }")) << row[4];
  }
}

const std::string kVop = "\0\0\1\xB6picture"s;
const std::string kFields = "0:1 1:4 0:1 0:2 1:1 25:16 1:1 0:1 1:1 704:13 1:1 480:13";

// So long at least.
std::string Layer(const std::string& fields, std::size_t size = 0, char code = '\x20') {
  const std::string layer = kCode + code + CodedBits("0:1 1:8 " + fields);
  return layer + std::string(std::max(size, layer.size()) - layer.size(), 'u');
}

std::string Number(std::size_t value, int width) {
  std::string bytes;
  while (width-- > 0) bytes += static_cast<char>(value >> 8 * width);
  return bytes;
}

// Its length takes four bytes.
std::string Descriptor(char tag, const std::string& content) {
  std::string bytes(1, tag);
  for (const int shift : {21, 14, 7, 0}) {
    bytes += static_cast<char>((content.size() >> shift & 0x7F) | (shift != 0 ? 0x80 : 0));
  }
  return bytes + content;
}

// They reach from the first start code to the picture, and are described, too.
TEST_F(StreamConversion, Mpeg4HeadersAreInTheDescriptionToo) {
  const std::string plain = Layer(kFields), user = kCode + "\xB2user";
  const std::string rows[][3] = {
      {"junk", "\0\0\1\xB0\1\0\0\1\xB5\x09"s + plain, kVop},
      {"", plain + user, kCode + "\xB3group" + kVop},
      {"", plain + Layer("0:1 1:4 0:1 0:2 1:1 25:16 1:1 0:1 1:1 16:13 1:1 16:13"), kVop},
      {"", Layer(kFields, 0, '\x2F'), kVop},
      {"", Layer(kFields, 100), kVop},
      {"", Layer(kFields, 200), kVop},
      {"", Layer(kFields, 20000), kVop},
      {"", Layer(kFields, 0xFFFF), kVop}};
  for (const auto& [before, headers, behind] : rows) {
    SCOPED_TRACE(headers.substr(0, 100));
    const std::string first = before + headers + behind;
    Convert(kMpeg4Video, {{first, true}, {kCode}, {user}, {kVop}, {kVop, true}}, 2, 0, 0);
    EXPECT_THAT(movie_.samples, ElementsAre(first, kCode + user + kVop, kVop));
    EXPECT_THAT(movie_.syncSamples, ElementsAre(1, 3));
    EXPECT_EQ(movie_.format + Size(), "mp4v704x480");
    // Three samples of two thirds of a second each.
    const std::size_t bytes = first.size() + 3 + user.size() + 2 * kVop.size();
    const std::string config = "\x20\x11"s + Number(first.size(), 3) +
                               Number(first.size() * 12, 4) + Number(bytes * 4, 4) +
                               Descriptor(5, headers);
    EXPECT_EQ(
        movie_.descriptions.at(0),
        Number(0, 4) + Descriptor(3, Number(0, 3) + Descriptor(4, config) + Descriptor(6, "\2")));
  }
}

// Version, aspect, control and buffer, shape, clock; no rectangle, no clock, no size, cut off.
TEST_F(StreamConversion, Mpeg4SizesAreReadBehindAllThatMayStandBeforeThem) {
  for (const auto& row : tvx::test::Rows(R"(
      1:1 1:4 1:3 15:4 12:8 11:8 1:1 1:3 1:1 0:79 0:2 1:1 40000:16 1:1 1:1 1001:16 1:1 720:13 1:1 576:13 | 720x576 C B 785
      0:1 5:4 1:1 1:2 0:1 0:1 0:2 1:1 1:16 1:1 1:1 0:1 1:1 352:13 1:1 288:13 | 352x288 28 21 426
      0:1 6:4 1:1 1:2 0:1 0:1 0:2 1:1 1:16 1:1 1:1 0:1 1:1 352:13 1:1 288:13 | 352x288
      0:1 1:4 0:1 0:2 1:1     2:16 1:1 1:1  1:1 1:1  352:13 1:1  288:13 | 352x288
      0:1 1:4 0:1 0:2 1:1     3:16 1:1 1:1  1:2 1:1  352:13 1:1  288:13 | 352x288
      0:1 1:4 0:1 0:2 1:1 65535:16 1:1 1:1 1:16 1:1 8191:13 1:1 8190:13 | 8191x8190
      0:1 1:4 0:1 1:2 1:1    25:16 1:1 0:1      1:1  704:13 1:1  480:13 | 0x0
      0:1 1:4 0:1 0:2 1:1     0:16 1:1 0:1      1:1  704:13 1:1  480:13 | 0x0
      0:1 1:4 0:1 0:2 1:1    25:16 1:1 0:1      1:1    0:13 1:1  480:13 | 0x0
      0:1 1:4 0:1 0:2 1:1    25:16 1:1 0:1      1:1  704:13 1:1    0:13 | 0x0
      0:1 1:4 0:1 0:2 1:1    25:16 1:1 0:1      1:1  704:13             | 0x0)")) {
    Convert(kMpeg4Video, {{Layer(row[0]) + kVop, true}}, 1, 0, 0);
    EXPECT_EQ(movie_.format + Size(), "mp4v" + row[1]) << row[0];
  }
}

// A B-VOP is shown before the picture that was coded before it; too long a wait is none.
TEST_F(StreamConversion, Mpeg4PicturesAreShownInTheirOwnOrder) {
  for (const auto& [kinds, shown] : {std::pair("IPBBPB"s, "0, 3, 1, 2, 5, 4"s),
                                     {"IBBPS", "2, 0, 1, 3, 4"},
                                     {"IIP", "0, 1, 2"},
                                     {"PBBBP", "3, 0, 1, 2, 4"},
                                     {"P" + std::string(32, 'B'), "32, 0"},
                                     {"P" + std::string(33, 'B'), "0, 1"}}) {
    CodedFrames frames;
    for (const char kind : kinds) {
      const auto type = std::string("IPBS").find(kind);
      frames.push_back(
          {kCode + "\xB6" + static_cast<char>(type << 6 | 1) + "picture", kind == 'I'});
    }
    Convert(kMpeg4Video, frames, 1, 0, 0, Layer(kFields));
    EXPECT_THAT(movie_.format + testing::PrintToString(movie_.shown), HasSubstr("mp4v{ " + shown));
  }
}

TEST_F(StreamConversion, StoresVideoWithoutHeadersAsItComes) {
  const std::string sets = Frames("S0 P0")[0].payload;
  const std::tuple<FourCharacterCode, std::string, std::string> rows[] = {
      {kH264Video, "H264", Frames("E I")[0].payload},
      {kH264Video, "H264", Frames("S0 I P0")[0].payload},
      {kH264Video, "H264", std::string(5000, '\0')},
      {kMpeg4Video, "DIVX", Layer(kFields, 0, '\x1F') + kVop},
      {kMpeg4Video, "DIVX", Layer(kFields, 0, '\x30') + kVop},
      {kMpeg4Video, "DIVX", kCode + "\xB2user" + kVop + Layer(kFields)},
      {kMpeg4Video, "DIVX", Layer(kFields, 0x10000) + kVop},
      {MakeFourCharacterCode("WXYZ"), "WXYZ", sets + kVop}};
  for (const auto& [code, format, first] : rows) {
    Convert(code, {{first, true}, {"anything", false}, {sets, false}});
    EXPECT_EQ(movie_.format + movie_.descriptions.at(0), format);
    EXPECT_THAT(movie_.samples, ElementsAre(first, "anything", sets));
  }
}

TEST_F(StreamConversion, TheSizeIsTheGivenOneOrElseThatOfTheHeaders) {
  for (const auto& [width, height] : {std::pair(320U, 0U), {0U, 240U}, {0x10140U, 0x100F0U}}) {
    Convert(kH264Video, Frames("* S0 P0 I"), 1, width, height);
    EXPECT_EQ(Size(), width > 320 ? "320x240" : "1920x1080");
  }
}

// At every distance from the search's blocks, behind look-alikes, in memory that ends with it.
TEST(StartCode, IsFoundWhereverItIs) {
  for (const std::string& filler : {"x"s, "\0"s, "\1"s, "\0\0\2"s, "\0\1"s}) {
    std::string before;
    for (std::size_t at = 0; at < 140; before += filler[at++ % filler.size()]) {
      for (const std::size_t after : {0U, 1U, 62U, 63U, 64U, 65U}) {
        for (const auto& code : {"\0\0\1"s, "\0\0\0\1"s, "\0\0\2"s, "\0\1"s, "\0\0"s}) {
          const std::string text = before + code + std::string(after, 'x');
          const std::vector<char> exact(text.begin(), text.end());
          const auto* const bytes = reinterpret_cast<const std::uint8_t*>(exact.data());
          ASSERT_EQ(FindStartCode(bytes, bytes + exact.size()) - bytes,
                    static_cast<std::ptrdiff_t>(std::min(text.find("\0\0\1"s), text.size())));
        }
      }
    }
  }
}

}  // namespace
}  // namespace quicktime::test
