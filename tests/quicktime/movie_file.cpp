#include "quicktime/movie_file.h"

#include <algorithm>
#include <map>
#include <set>

#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

class Reader {
 public:
  Reader(const std::string& bytes, std::vector<std::string>& broken)
      : bytes_(bytes), broken_(broken) {}

  std::uint64_t Number(std::size_t width) {
    std::uint64_t value = 0;
    for (const char c : Take(width)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
  }
  std::uint32_t U32() { return static_cast<std::uint32_t>(Number(4)); }
  std::string Take(std::size_t count) {
    if (count > Left()) {
      broken_.push_back("something ends too early");
      at_ = bytes_.size();
      return {};
    }
    at_ += count;
    return bytes_.substr(at_ - count, count);
  }
  std::size_t Left() const { return bytes_.size() - at_; }
  std::size_t At() const { return at_; }

 private:
  const std::string& bytes_;
  std::vector<std::string>& broken_;
  std::size_t at_ = 0;
};

struct Atom {
  std::string type;
  std::string content;
  std::size_t contentAt;  // in what holds it
};

std::vector<Atom> Atoms(const std::string& bytes, std::vector<std::string>& broken) {
  std::vector<Atom> atoms;
  Reader in(bytes, broken);
  while (in.Left() != 0) {
    std::uint64_t length = in.U32();
    const std::string type = in.Take(4);
    std::uint64_t header = 8;
    if (length == 1) {
      length = in.Number(8);
      header = 16;
    }
    if (length < header || length - header > in.Left()) {
      broken.push_back("length of " + type);
      break;
    }
    const std::size_t at = in.At();
    atoms.push_back({type, in.Take(static_cast<std::size_t>(length - header)), at});
  }
  return atoms;
}

// The atoms of a container by type; each type must come exactly once.
class Container {
 public:
  Container(const std::string& bytes, std::vector<std::string>& broken) : broken_(broken) {
    for (Atom& atom : Atoms(bytes, broken)) {
      if (!atoms_.emplace(atom.type, atom.content).second) broken.push_back("second " + atom.type);
    }
  }
  bool Has(const std::string& type) const { return atoms_.count(type) != 0; }
  const std::string& Of(const std::string& type) {
    if (!Has(type)) broken_.push_back("no " + type);
    return atoms_[type];
  }
  // Without version, which must be 0, and flags.
  std::string Full(const std::string& type, std::uint32_t* flags = nullptr) {
    Reader in(Of(type), broken_);
    if (in.Number(1) != 0) broken_.push_back("version of " + type);
    const auto found = static_cast<std::uint32_t>(in.Number(3));
    if (flags != nullptr) *flags = found;
    return in.Take(in.Left());
  }

 private:
  std::vector<std::string>& broken_;
  std::map<std::string, std::string> atoms_;
};

std::vector<std::uint64_t> Table(const std::string& bytes, std::size_t skip, std::size_t width,
                                 std::vector<std::string>& broken) {
  Reader in(bytes, broken);
  in.Take(skip);
  const std::uint32_t count = in.U32();
  if (std::uint64_t{count} * width != in.Left()) broken.push_back("length of a table");
  std::vector<std::uint64_t> table;
  while (in.Left() >= width) table.push_back(in.Number(width));
  return table;
}

void ReadSampleEntry(const std::string& stsd, MovieFile& movie) {
  auto& broken = movie.brokenRules;
  Reader in(stsd, broken);
  if (in.U32() != 1) broken.push_back("entries of stsd");
  const std::string entries = in.Take(in.Left());
  const auto atoms = Atoms(entries, broken);
  if (atoms.size() != 1) return broken.push_back("entries of stsd");
  movie.format = atoms[0].type;
  constexpr std::size_t kVideoFields = 78;
  Reader entry(atoms[0].content, broken);
  entry.Take(24);
  if (entry.Number(2) != movie.width || entry.Number(2) != movie.height) {
    broken.push_back("size of stsd");
  }
  if (atoms[0].content.size() < kVideoFields) return broken.push_back("length of stsd");
  const std::string extensions = atoms[0].content.substr(kVideoFields);
  for (const Atom& atom : Atoms(extensions, broken)) movie.description = atom.content;
}

void ReadSamples(Container& stbl, const std::string& file, const Atom& mdat, MovieFile& movie) {
  auto& broken = movie.brokenRules;
  const auto sizes = Table(stbl.Full("stsz"), 4, 4, broken);
  movie.has64BitOffsets = stbl.Has("co64");
  const auto offsets = movie.has64BitOffsets ? Table(stbl.Full("co64"), 0, 8, broken)
                                             : Table(stbl.Full("stco"), 0, 4, broken);
  // First chunk, samples a chunk, description; three numbers of four bytes each.
  const std::string stsc = stbl.Full("stsc");
  Reader in(stsc, broken);
  std::vector<std::uint32_t> perChunk(offsets.size(), 0);
  for (std::uint32_t runs = in.U32(); runs > 0 && in.Left() >= 12; --runs) {
    const std::uint32_t first = in.U32();
    const std::uint32_t samples = in.U32();
    if (in.U32() != 1 || first == 0 || samples == 0) broken.push_back("entry of stsc");
    for (std::size_t chunk = first; chunk <= perChunk.size(); ++chunk)
      perChunk[chunk - 1] = samples;
  }
  std::uint64_t expected = mdat.contentAt;
  std::size_t sample = 0;
  for (std::size_t chunk = 0; chunk < offsets.size(); ++chunk) {
    if (offsets[chunk] != expected) broken.push_back("chunk is not behind the one before");
    for (std::uint32_t i = 0; i < perChunk[chunk] && sample < sizes.size(); ++i, ++sample) {
      if (expected + sizes[sample] > file.size()) return broken.push_back("sample beyond the file");
      movie.samples.push_back(
          file.substr(static_cast<std::size_t>(expected), static_cast<std::size_t>(sizes[sample])));
      if (sizes[sample] == 0) broken.push_back("empty sample");
      expected += sizes[sample];
    }
  }
  if (sample != sizes.size()) broken.push_back("samples of chunks and of stsz");
  if (expected != mdat.contentAt + mdat.content.size()) broken.push_back("stsz and length of mdat");
}

void CheckRules(const MovieFile& movie, std::vector<std::string>& broken) {
  const auto rule = [&broken](bool holds, const char* text) {
    if (!holds) broken.push_back(text);
  };
  rule(movie.topLevel == std::vector<std::string>{"ftyp", "moov", "free", "wide", "mdat"},
       "order of atoms");
  rule(movie.brand == "qt  ", "brand");
  rule(movie.movieDuration > 0 && movie.mediaDuration > 0, "duration is positive");
  rule(movie.mediaDuration < 0x80000000U && movie.mediaScale < 0x80000000U, "31 bits of time");
  rule(movie.edits.size() == 1 && movie.edits[0].duration == movie.movieDuration &&
           movie.edits[0].mediaTime == 0 && movie.edits[0].rate == 0x10000,
       "one identity edit");
  rule(movie.trackDuration == movie.movieDuration, "duration of tkhd and mvhd");
  rule(movie.handlers == std::vector<std::string>{"mhlrvide", "dhlrurl "}, "handlers");
  rule(movie.vmhdFlags == 1, "flags of vmhd");
  rule(movie.drefFlags == 1, "data in this file");
  rule(movie.timeEntries == 1 && movie.sampleDuration > 0, "one positive sample duration");
  rule(movie.timedSamples == movie.samples.size(), "samples of stts and stsz");
  rule(std::uint64_t{movie.timedSamples} * movie.sampleDuration == movie.mediaDuration,
       "sum of stts");
  rule(!movie.hasSyncTable ||
           (!movie.syncSamples.empty() && movie.syncSamples.size() < movie.samples.size() &&
            movie.syncSamples.front() == 1 && movie.syncSamples.back() <= movie.samples.size() &&
            std::is_sorted(movie.syncSamples.begin(), movie.syncSamples.end())),
       "sync samples");
}

}  // namespace

MovieFile ReadMovie(const std::string& path) {
  MovieFile movie;
  auto& broken = movie.brokenRules;
  const std::string file = tvx::test::ReadFile(path);
  const auto outer = Atoms(file, broken);
  std::map<std::string, const Atom*> byType;
  for (const Atom& atom : outer) {
    movie.topLevel.push_back(atom.type);
    byType[atom.type] = &atom;
  }
  if (byType.count("moov") == 0 || byType.count("mdat") == 0 || byType.count("ftyp") == 0) {
    broken.push_back("ftyp, moov or mdat is missing");
    return movie;
  }
  movie.brand = byType["ftyp"]->content.substr(0, 4);
  movie.mediaData = byType["mdat"]->content;

  Container moov(byType["moov"]->content, broken);
  const std::string mvhd = moov.Full("mvhd");
  Reader header(mvhd, broken);
  header.Take(8);
  movie.movieScale = header.U32();
  movie.movieDuration = header.U32();

  Container trak(moov.Of("trak"), broken);
  const std::string tkhd = trak.Full("tkhd");
  Reader track(tkhd, broken);
  track.Take(16);
  movie.trackDuration = track.U32();
  track.Take(52);
  movie.width = track.U32() >> 16;
  movie.height = track.U32() >> 16;

  Container edts(trak.Of("edts"), broken);
  const std::string elst = edts.Full("elst");
  Reader edits(elst, broken);
  for (std::uint32_t count = edits.U32(); count > 0; --count) {
    const std::uint32_t duration = edits.U32();
    const std::uint32_t mediaTime = edits.U32();
    movie.edits.push_back({duration, mediaTime, edits.U32()});
  }

  Container mdia(trak.Of("mdia"), broken);
  const std::string mdhd = mdia.Full("mdhd");
  Reader media(mdhd, broken);
  media.Take(8);
  movie.mediaScale = media.U32();
  movie.mediaDuration = media.U32();
  movie.handlers.push_back(mdia.Full("hdlr").substr(0, 8));

  Container minf(mdia.Of("minf"), broken);
  movie.handlers.push_back(minf.Full("hdlr").substr(0, 8));
  minf.Full("vmhd", &movie.vmhdFlags);
  Container dinf(minf.Of("dinf"), broken);
  Container dref(dinf.Full("dref").substr(4), broken);
  dref.Full("url ", &movie.drefFlags);

  Container stbl(minf.Of("stbl"), broken);
  ReadSampleEntry(stbl.Full("stsd"), movie);
  const std::string stts = stbl.Full("stts");
  Reader times(stts, broken);
  movie.timeEntries = times.U32();
  movie.timedSamples = times.U32();
  movie.sampleDuration = times.U32();
  movie.hasSyncTable = stbl.Has("stss");
  if (movie.hasSyncTable) {
    for (const std::uint64_t number : Table(stbl.Full("stss"), 0, 4, broken)) {
      movie.syncSamples.push_back(static_cast<std::uint32_t>(number));
    }
  }
  ReadSamples(stbl, file, *byType["mdat"], movie);
  CheckRules(movie, broken);
  return movie;
}

std::vector<std::string> SampleUnits(const std::string& sample, std::vector<std::string>& broken) {
  std::vector<std::string> units;
  Reader in(sample, broken);
  while (in.Left() != 0) {
    units.push_back(in.Take(in.U32()));
    if (units.back().empty()) broken.push_back("empty unit");
  }
  return units;
}

std::vector<std::string> HeldSets(const MovieFile& movie, std::vector<std::string>& broken) {
  std::vector<std::string> sets;
  Reader in(movie.description, broken);
  const std::string start = in.Take(5);
  const std::uint64_t sequenceSets = in.Number(1);
  if ((sequenceSets & 0xE0) != 0xE0) broken.push_back("reserved bits of avcC");
  for (std::uint64_t i = 0; i < (sequenceSets & 0x1F); ++i) {
    sets.push_back(in.Take(static_cast<std::size_t>(in.Number(2))));
    if (((sets.back() + ' ')[0] & 0x1F) != 7) broken.push_back("sequence set of avcC");
  }
  const std::size_t firstPictureSet = sets.size();
  for (std::uint64_t i = in.Number(1); i > 0; --i) {
    sets.push_back(in.Take(static_cast<std::size_t>(in.Number(2))));
    if (((sets.back() + ' ')[0] & 0x1F) != 8) broken.push_back("picture set of avcC");
  }
  if (firstPictureSet == 0 || sets.size() == firstPictureSet) {
    broken.push_back("sets of avcC");
  } else {
    // Profile, compatibility and level, without the byte that keeps zeros from being a start code.
    std::string head = sets[0].substr(1, 4);
    if (head.compare(0, 3, "\0\0\3"s) == 0) head.erase(2, 1);
    if (start != '\x01' + head.substr(0, 3) + '\xFF') broken.push_back("start of avcC");
  }
  static const std::set<int> kWithChroma = {100, 110, 122, 144, 244, 44,  83,
                                            86,  118, 128, 134, 135, 138, 139};
  const int profile = start.size() == 5 ? static_cast<unsigned char>(start[1]) : 0;
  if (in.Left() != (kWithChroma.count(profile) != 0 ? 4U : 0U)) broken.push_back("end of avcC");
  return sets;
}

std::vector<std::string> BrokenFormatRules(const MovieFile& movie) {
  std::vector<std::string> broken;
  if (movie.format == "avc1") {
    HeldSets(movie, broken);
    for (std::size_t i = 0; i < movie.samples.size(); ++i) {
      int keyPictures = 0;
      for (const std::string& unit : SampleUnits(movie.samples[i], broken)) {
        const int type = unit.empty() ? 0 : unit[0] & 0x1F;
        if (type == 5) ++keyPictures;
        if (type >= 7 && type <= 12) broken.push_back("unit that belongs in no sample");
      }
      const bool isSync = !movie.hasSyncTable ||
                          std::find(movie.syncSamples.begin(), movie.syncSamples.end(), i + 1) !=
                              movie.syncSamples.end();
      if (isSync != (keyPictures != 0)) broken.push_back("sync sample and key picture");
    }
  } else if (movie.format == "mp4v") {
    // Version and flags, then descriptors inside each other, each with four bytes of length.
    Reader in(movie.description, broken);
    in.Take(4);
    const auto descriptor = [&](std::uint64_t tag) {
      if (in.Number(1) != tag) broken.push_back("tag of esds");
      std::size_t length = 0;
      for (int i = 0; i < 4; ++i) length = length << 7 | (in.Number(1) & 0x7F);
      return length;
    };
    if (descriptor(3) != in.Left()) broken.push_back("length of esds");
    in.Take(3);
    descriptor(4);
    if (in.Take(2) != "\x20\x11") broken.push_back("kind of esds");
    in.Take(11);
    const std::string headers = in.Take(descriptor(5));
    if (headers.empty() || movie.samples[0].find(headers) == std::string::npos) {
      broken.push_back("headers of esds");
    }
    if (in.Take(in.Left()) != "\x06\x80\x80\x80\x01\x02"s) {
      broken.push_back("end of esds");
    }
  } else {
    broken.push_back("format " + movie.format);
  }
  return broken;
}

}  // namespace quicktime::test
