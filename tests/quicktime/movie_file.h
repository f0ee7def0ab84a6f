// Movies for tests: written in one call, and read as a strict player does.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "quicktime/four_character_code.h"

namespace quicktime::test {

struct CodedFrame {
  std::string payload;
  bool isKey = false;
};
using CodedFrames = std::vector<CodedFrame>;

// Writes the frames as a movie of so many seconds; headers are those known of the stream, if any.
void WriteMovie(const std::string& path, FourCharacterCode code, unsigned width, unsigned height,
                double seconds, const CodedFrames& frames, const std::string& headers = {});

struct MovieFile {
  std::map<std::string, std::string> atoms;  // contents by path, such as "moov/trak/tkhd"
  std::vector<std::string> sizes;            // of each: "16x9"
  std::string shownWidth;                    // of the track
  std::uint32_t movieDuration = 0;           // milliseconds
  std::string format;                        // of the first sample entry
  std::vector<std::string> descriptions;     // avcC or esds of each sample entry
  std::vector<std::uint32_t> syncSamples;    // empty when all are
  std::vector<std::string> samples;          // their bytes,
  std::vector<std::uint32_t> entries,
      shown;                             // sample entries from 1, places in the order of showing
  std::vector<std::string> brokenRules;  // what a strict player would refuse, one line each
};

// Parses the file and applies the rules that hold for every movie.
MovieFile ReadMovie(const std::string& path);

// Units of a sample of 'avc1'; a length that does not fit is one more broken rule.
std::vector<std::string> SampleUnits(const std::string& sample, std::vector<std::string>& broken);

}  // namespace quicktime::test
