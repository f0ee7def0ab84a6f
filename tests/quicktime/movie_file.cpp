#include "quicktime/movie_file.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "quicktime/movie_writer.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

// What lies beyond the end reads as 0; that a table has the length it states is a rule of its own.
std::uint32_t U32(const std::string& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = at; i < at + 4; ++i) {
    value = value << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
  }
  return value;
}

class MovieReader {
 public:
  explicit MovieReader(const std::string& file) : file_(file) {
    ReadAtoms(file, "");
    Rule(movie_.topLevel == std::vector<std::string>{"ftyp", "moov", "free", "wide", "mdat"},
         "order of atoms");
    ReadTimes();
    ReadFormat();
    ReadSyncSamples();
    ReadSamples();
  }
  const MovieFile& Movie() const { return movie_; }

 private:
  void Rule(bool holds, const std::string& text) {
    if (!holds) movie_.brokenRules.push_back(text);
  }

  void ReadAtoms(const std::string& bytes, const std::string& folder) {
    static const std::set<std::string> kContainers = {"moov", "trak", "edts", "mdia",
                                                      "minf", "dinf", "stbl"};
    for (std::size_t at = 0; at < bytes.size();) {
      const std::uint32_t length = U32(bytes, at);
      const std::string type = bytes.substr(at + 4, 4);
      if (length < 8 || length > bytes.size() - at) return Rule(false, "length of " + type);
      const std::string content = bytes.substr(at + 8, length - 8);
      Rule(movie_.atoms.emplace(folder + type, content).second, "a second " + type);
      if (folder.empty()) movie_.topLevel.push_back(type);
      if (kContainers.count(type) != 0) ReadAtoms(content, folder + type + "/");
      at += length;
    }
  }

  const std::string& Atom(const std::string& path) {
    Rule(movie_.atoms.count(path) != 0, "no " + path);
    return movie_.atoms[path];
  }

  // An atom of the sample table that begins with version and flags, and then states how many
  // entries of so many bytes follow.
  std::string Table(const char* type, std::size_t skip, std::size_t width) {
    const std::string content = Atom(kTables + type);
    const std::uint64_t count = U32(content, skip);
    Rule(content.size() == skip + 4 + count * width, "length of "s + type);
    return content.substr(std::min(content.size(), skip + 4));
  }

  void ReadTimes() {
    const std::string& mvhd = Atom("moov/mvhd");
    const std::string& tkhd = Atom("moov/trak/tkhd");
    const std::string& mdhd = Atom("moov/trak/mdia/mdhd");
    movie_.movieDuration = U32(mvhd, 16);
    movie_.width = U32(tkhd, 76) >> 16;
    movie_.height = U32(tkhd, 80) >> 16;
    movie_.mediaScale = U32(mdhd, 12);
    movie_.mediaDuration = U32(mdhd, 16);
    Rule(movie_.movieDuration > 0 && movie_.mediaDuration > 0 && movie_.mediaScale > 0 &&
             (movie_.mediaDuration | movie_.mediaScale) < 0x80000000U,
         "31 bits of time");
  }

  void ReadFormat() {
    constexpr std::size_t kFields = 4 + 4 + 8 + 78;  // of the table, and of its one video entry
    const std::string& stsd = Atom(kTables + "stsd");
    if (stsd.size() < kFields) return Rule(false, "fields of stsd");
    Rule(U32(stsd, 4) == 1 && U32(stsd, 8) == stsd.size() - 8, "the one entry of stsd");
    Rule(U32(stsd, 40) == (movie_.width << 16 | movie_.height), "size of stsd");
    movie_.format = stsd.substr(12, 4);
    if (stsd.size() == kFields) return;
    Rule(U32(stsd, kFields) == stsd.size() - kFields, "length of the description");
    movie_.description = stsd.substr(kFields + 8);
  }

  void ReadSyncSamples() {
    if (movie_.atoms.count(kTables + "stss") == 0) return;
    const std::string stss = Table("stss", 4, 4);
    for (std::size_t at = 0; at < stss.size(); at += 4) movie_.syncSamples.push_back(U32(stss, at));
    const auto& sync = movie_.syncSamples;
    Rule(!sync.empty() && sync.front() == 1 &&
             std::adjacent_find(sync.begin(), sync.end(), std::greater_equal<>()) == sync.end(),
         "sync samples");
  }

  void ReadSamples() {
    const std::string sizes = Table("stsz", 8, 4);
    const std::string runs = Table("stsc", 4, 12);
    const std::string offsets = Table("stco", 4, 4);
    std::uint64_t expected = file_.size() - Atom("mdat").size();
    std::size_t run = 0;
    std::size_t sample = 0;
    for (std::size_t chunk = 0; chunk < offsets.size() / 4; ++chunk) {
      if (run + 1 < runs.size() / 12 && U32(runs, 12 * (run + 1)) == chunk + 1) ++run;
      Rule(U32(offsets, 4 * chunk) == expected, "a chunk is behind the one before");
      Rule(U32(runs, 12 * run) <= chunk + 1 && U32(runs, 12 * run + 8) == 1, "entry of stsc");
      for (std::uint32_t i = 0; i < U32(runs, 12 * run + 4) && sample < sizes.size() / 4; ++i) {
        const std::uint32_t size = U32(sizes, 4 * sample++);
        if (size == 0 || expected + size > file_.size()) return Rule(false, "size of a sample");
        movie_.samples.push_back(file_.substr(static_cast<std::size_t>(expected), size));
        expected += size;
      }
    }
    const std::size_t count = movie_.samples.size();
    Rule(run + 1 == runs.size() / 12 && count == sizes.size() / 4, "samples of stsc and stsz");
    Rule(expected == file_.size(), "the last sample ends the file");
    Rule(movie_.syncSamples.empty() ||
             (movie_.syncSamples.size() < count && movie_.syncSamples.back() <= count),
         "fewer sync samples than samples");
    const std::string stts = Table("stts", 4, 8);
    Rule(stts.size() == 8 && U32(stts, 0) == count, "samples of stts and stsz");
    Rule(U32(stts, 4) > 0 && std::uint64_t{U32(stts, 4)} * count == movie_.mediaDuration,
         "sum of stts");
  }

  const std::string kTables = "moov/trak/mdia/minf/stbl/";
  const std::string& file_;
  MovieFile movie_;
};

}  // namespace

void WriteMovie(const std::string& path, FourCharacterCode code, unsigned width, unsigned height,
                double seconds, const CodedFrames& frames) {
  MovieWriter writer;
  const int error = writer.Open(path);
  if (error != 0) throw std::runtime_error("Open answered " + std::to_string(error));
  writer.AddVideoTrack(code, width, height, seconds, static_cast<std::uint32_t>(frames.size()),
                       NoTextOverlayStyle);
  for (const CodedFrame& frame : frames) {
    // In memory of its very size, so that sanitizers see a read past it; all flags but the one.
    const std::vector<char> bytes(frame.payload.begin(), frame.payload.end());
    writer.WriteSample(bytes.data(), bytes.size(), frame.isKey ? kKeyFrameSample : ~kKeyFrameSample,
                       0);
  }
  writer.Finish(0.0);
}

MovieFile ReadMovie(const std::string& path) {
  const std::string file = tvx::test::ReadFile(path);
  return MovieReader(file).Movie();
}

std::vector<std::string> SampleUnits(const std::string& sample, std::vector<std::string>& broken) {
  std::vector<std::string> units;
  for (std::size_t at = 0; at < sample.size(); at += 4 + units.back().size()) {
    units.push_back(sample.substr(std::min(sample.size(), at + 4), U32(sample, at)));
    if (units.back().empty() || units.back().size() != U32(sample, at)) {
      broken.emplace_back("length of a unit");
    }
  }
  return units;
}

}  // namespace quicktime::test
