// A movie file as a strict player sees it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quicktime::test {

struct Edit {
  std::uint32_t duration, mediaTime, rate;
};

struct MovieFile {
  std::vector<std::string> topLevel;  // types of the outermost atoms, in order
  std::string brand;
  std::uint32_t movieScale = 0, movieDuration = 0, trackDuration = 0;
  std::uint32_t width = 0, height = 0;  // of the track, in pixels
  std::uint32_t mediaScale = 0, mediaDuration = 0;
  std::vector<Edit> edits;
  std::vector<std::string> handlers;  // type and subtype, such as "mhlrvide"
  std::uint32_t vmhdFlags = 0, drefFlags = 0;
  std::string format;       // four-character code of the sample entry
  std::string description;  // content of its avcC or esds
  std::uint32_t timeEntries = 0, timedSamples = 0, sampleDuration = 0;
  bool hasSyncTable = false;
  std::vector<std::uint32_t> syncSamples;
  std::vector<std::string> samples;  // their bytes
  bool has64BitOffsets = false;
  std::string mediaData;  // content of mdat

  std::vector<std::string> brokenRules;  // what a strict player would refuse, one line each

  double Seconds() const { return static_cast<double>(mediaDuration) / mediaScale; }
};

// Parses the file and applies the rules that hold for every movie.
MovieFile ReadMovie(const std::string& path);

// Units of a sample of 'avc1'; a length that does not fit is one more broken rule.
std::vector<std::string> SampleUnits(const std::string& sample, std::vector<std::string>& broken);

// The parameter sets of an 'avcC', sequence sets first.
std::vector<std::string> HeldSets(const MovieFile& movie, std::vector<std::string>& broken);

// The rules of the file's format: no parameter sets, delimiters or filler in samples, a key picture
// first, and a description to decode with.
std::vector<std::string> BrokenFormatRules(const MovieFile& movie);

}  // namespace quicktime::test
