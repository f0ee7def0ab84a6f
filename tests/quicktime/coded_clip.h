// Coded video for tests: made by a real encoder, cut into frames as a host delivers them.
#pragma once

#include <string>
#include <vector>

#include "quicktime/four_character_code.h"

namespace quicktime::test {

struct CodedFrame {
  std::string payload;
  bool isKey = false;
};
using CodedFrames = std::vector<CodedFrame>;

// Runs a command of the shell; its standard output and error, and the status behind them when the
// command failed.
std::string RunShell(const std::string& command);

// Whether ffmpeg and ffprobe can be run.
bool HasEncoder();

// Whether mediainfo, another demuxer, can be run.
bool HasSecondOpinion();

// Encodes a moving test picture into the file, as a bare stream of the named muxer.
void Encode(const std::string& options, const std::string& muxer, const std::string& size,
            int frames, const std::string& path);

// A stream of H.264 (Annex B) or MPEG-4 part 2, cut into one coded picture a frame.
CodedFrames SplitH264(const std::string& stream);
CodedFrames SplitMpeg4(const std::string& stream);

// Every start code of four bytes becomes one of three.
std::string WithShortStartCodes(const std::string& stream);

// Writes the frames as a movie of so many seconds.
void WriteMovie(const std::string& path, FourCharacterCode code, unsigned width, unsigned height,
                double seconds, const CodedFrames& frames);

// A hash of every decoded picture of a file.
std::vector<std::string> DecodedPictures(const std::string& path);

}  // namespace quicktime::test
