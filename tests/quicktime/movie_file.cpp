#include "quicktime/movie_file.h"

#include <algorithm>
#include <functional>
#include <set>
#include <stdexcept>

#include "quicktime/movie_writer.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

// What lies beyond the end reads as 0; that a table has the length it states is a rule of its own.
std::uint32_t U32(const std::string& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = at; i < at + 4; ++i) {
    value = value << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
  }
  return value;
}

// Gives the types of the outermost atoms.
std::string ReadAtoms(const std::string& bytes, const std::string& folder, MovieFile& movie) {
  static const std::set<std::string> kContainers = {"moov", "trak", "edts", "mdia",
                                                    "minf", "dinf", "stbl"};
  std::string types;
  for (std::size_t at = 0; at < bytes.size(); at += U32(bytes, at)) {
    const std::uint32_t length = U32(bytes, at);
    if (length < 8 || length > bytes.size() - at) return types + "?";
    const std::string type = bytes.substr(at + 4, 4);
    const std::string content = bytes.substr(at + 8, length - 8);
    if (!movie.atoms.emplace(folder + type, content).second) types += "!";
    if (kContainers.count(type) != 0) types += ReadAtoms(content, folder + type + "/", movie);
    types += type + " ";
  }
  return types;
}

}  // namespace

void WriteMovie(const std::string& path, FourCharacterCode code, unsigned width, unsigned height,
                double seconds, const CodedFrames& frames, const std::string& headers) {
  MovieWriter writer;
  if (writer.Open(path) != 0) throw std::runtime_error("no file");
  writer.AddVideoTrack(code, width, height, seconds, static_cast<std::uint32_t>(frames.size()),
                       NoTextOverlayStyle);
  const std::vector<std::uint8_t> known(headers.begin(), headers.end());
  writer.UseHeaders({known.data(), known.size()});
  for (const CodedFrame& frame : frames) {
    // In memory of its very size, so that sanitizers see a read past it; all flags but the one.
    const std::vector<char> bytes(frame.payload.begin(), frame.payload.end());
    writer.WriteSample(bytes.data(), bytes.size(), frame.isKey ? kKeyFrameSample : ~kKeyFrameSample,
                       0);
  }
  writer.Finish(0.0);
}

MovieFile ReadMovie(const std::string& path) {
  MovieFile movie;
  const std::string file = tvx::test::ReadFile(path);
  const std::string types = ReadAtoms(file, "", movie);
  auto& atoms = movie.atoms;
  const std::string stbl = "moov/trak/mdia/minf/stbl/";
  const std::string &stsd = atoms[stbl + "stsd"], &stts = atoms[stbl + "stts"],
                    &stss = atoms[stbl + "stss"], &stsc = atoms[stbl + "stsc"],
                    &stsz = atoms[stbl + "stsz"], &stco = atoms[stbl + "stco"],
                    &ctts = atoms[stbl + "ctts"], &tkhd = atoms["moov/trak/tkhd"],
                    &mdhd = atoms["moov/trak/mdia/mdhd"];
  const std::uint32_t count = U32(stsz, 8), duration = U32(stts, 12);
  const auto rule = [&movie](const char* text, bool holds) {
    if (!holds) movie.brokenRules.emplace_back(text);
  };
  constexpr std::size_t kEntryFields = 86;
  for (std::size_t at = 8, length = 0; at < stsd.size(); at += length) {
    length = U32(stsd, at);
    rule("length of a sample entry", length >= kEntryFields && length <= stsd.size() - at);
    if (!movie.brokenRules.empty()) return movie;
    movie.sizes.push_back(std::to_string(U32(stsd, at + 32) >> 16) + "x" +
                          std::to_string(U32(stsd, at + 32) & 0xFFFF));
    const std::string folder = std::to_string(movie.sizes.size()) + "/";
    ReadAtoms(stsd.substr(at + kEntryFields, length - kEntryFields), folder, movie);
    movie.descriptions.push_back(atoms[folder + "avcC"] + atoms[folder + "esds"]);
  }
  movie.movieDuration = U32(atoms["moov/mvhd"], 16);
  movie.format = stsd.substr(std::min<std::size_t>(12, stsd.size()), 4);
  movie.shownWidth = std::to_string(U32(tkhd, 76) >> 16);
  auto& sync = movie.syncSamples;
  for (std::size_t at = 8; at < stss.size(); at += 4) sync.push_back(U32(stss, at));
  std::size_t expected = file.size() - atoms["mdat"].size();
  std::uint32_t run = 8;
  for (std::uint32_t chunk = 1; chunk <= U32(stco, 4); ++chunk) {
    if (run + 12 < stsc.size() && U32(stsc, run + 12) == chunk) run += 12;
    rule("place of a chunk", U32(stco, 4 + 4 * chunk) == expected && U32(stsc, run) <= chunk);
    rule("sample entry of a chunk", U32(stsc, run + 8) - 1 < movie.descriptions.size());
    for (std::uint32_t i = 0; i < U32(stsc, run + 4) && movie.samples.size() < count; ++i) {
      const std::uint32_t size = U32(stsz, 12 + 4 * movie.samples.size());
      rule("size of a sample", size != 0 && size <= file.size() - std::min(expected, file.size()));
      movie.entries.push_back(U32(stsc, run + 8));
      movie.samples.push_back(file.substr(std::min(expected, file.size()), size));
      expected += size;
    }
  }
  // Shown are places from the edit's begin on, each once.
  const std::uint32_t begin = U32(atoms["moov/trak/edts/elst"], 12);
  for (std::size_t at = 8; at < ctts.size() && duration != 0; at += 8) {
    for (std::uint32_t i = U32(ctts, at); i > 0 && movie.shown.size() < count; --i) {
      movie.shown.push_back(static_cast<std::uint32_t>(movie.shown.size()) +
                            U32(ctts, at + 4) / duration - begin / duration);
      rule("offset of a sample", U32(ctts, at + 4) % duration == 0);
    }
  }
  for (std::uint32_t place = 0; ctts.empty() && place < count; ++place)
    movie.shown.push_back(place);
  const std::set<std::uint32_t> places(movie.shown.begin(), movie.shown.end());
  const std::pair<const char*, bool> rules[] = {
      {"the atoms", types == "ftyp mvhd tkhd elst edts mdhd hdlr vmhd hdlr dref dinf stsd stts " +
                                 std::string(stss.empty() ? "" : "stss ") +
                                 (ctts.empty() ? "" : "ctts ") +
                                 "stsc stsz stco stbl minf mdia trak moov free wide mdat "},
      {"sample entries", U32(stsd, 4) == movie.sizes.size() && stsd.size() > kEntryFields},
      {"size of the track", atoms.count("1/pasp") != 0
                                ? U32(tkhd, 76) != 0 && U32(tkhd, 80) != 0
                                : U32(tkhd, 76) == (U32(stsd, 40) & 0xFFFF0000U) &&
                                      U32(tkhd, 80) == U32(stsd, 40) << 16},
      {"lengths of tables", stsz.size() == 12 + 4 * count && stco.size() == 8 + 4 * U32(stco, 4) &&
                                stsc.size() == 8 + 12 * U32(stsc, 4) && stts.size() == 16},
      {"times of the samples", U32(stts, 8) == count && duration > 0 &&
                                   std::uint64_t{count} * duration == U32(mdhd, 16) &&
                                   (U32(mdhd, 12) | U32(mdhd, 16)) < 0x80000000U},
      {"sync samples", stss.empty() || (sync.size() == U32(stss, 4) && sync.at(0) == 1 &&
                                        sync.size() < count && sync.back() <= count &&
                                        std::adjacent_find(sync.begin(), sync.end(),
                                                           std::greater_equal<>()) == sync.end())},
      {"samples of stsc, stsz and mdat",
       run + 12 == stsc.size() && movie.samples.size() == count && expected == file.size()},
      {"the order of showing",
       places.size() == count && *places.rbegin() == count - 1 &&
           (ctts.empty() ? begin == 0 : ctts.size() == 8 + 8 * U32(ctts, 4))}};
  for (const auto& [text, holds] : rules) rule(text, holds);
  return movie;
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
