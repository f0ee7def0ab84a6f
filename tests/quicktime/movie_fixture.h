// The notation in which tests write the headers of coded video, and the fixture that makes movies.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bitset>
#include <cstdio>
#include <sstream>
#include <string>

#include "quicktime/movie_file.h"
#include "support/table.h"
#include "support/temporary_folder.h"

namespace quicktime::test {

using namespace std::string_literals;

constexpr FourCharacterCode kRaw = MakeFourCharacterCode("RAW1");

// What the command prints, errors too.
inline std::string RunShell(const std::string& command) {
  std::string text;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  ::pclose(pipe);
  return text;
}

class MovieTest : public testing::Test {
 protected:
  // Writes the frames and reads the movie.
  void Convert(FourCharacterCode code, const CodedFrames& frames, double seconds = 1.5,
               unsigned width = 320, unsigned height = 240, const std::string& headers = {}) {
    WriteMovie("clip.mov", code, width, height, seconds, frames, headers);
    ExpectMovie("clip.mov", code == kRaw ? frames : CodedFrames());
  }
  // Nothing in it that a strict player would refuse, and these samples as they are, if any.
  void ExpectMovie(const std::string& path, const CodedFrames& frames) {
    movie_ = ReadMovie(path);
    EXPECT_THAT(movie_.brokenRules, testing::IsEmpty());
    EXPECT_GE(movie_.samples.size(), frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
      EXPECT_TRUE(movie_.samples.at(i) == frames[i].payload) << i;
    }
  }

  tvx::test::TemporaryFolder folder_;
  MovieFile movie_;
};

// Hexadecimal, four bytes a word.
inline std::string Words(const std::string& bytes) {
  std::ostringstream words;
  for (std::size_t at = 0, word = 0; at < bytes.size(); word = at % 4 == 0 ? 0 : word) {
    word = word << 8 | static_cast<unsigned char>(bytes[at]);
    if (++at % 4 != 0 && at < bytes.size()) continue;
    words << (at > 4 ? " " : "") << std::hex << std::uppercase << word;
  }
  return words.str();
}

// Fields apart by blanks, most significant bit first: "5:8" is 5 in eight bits, "e5" and "s-5" are
// unsigned and signed Exp-Golomb codes, "e5*3" is three of them. A stop bit and zeros end them.
inline std::string CodedBits(const std::string& fields) {
  std::string bits, bytes;
  std::istringstream tokens(fields);
  for (std::string token; tokens >> token;) {
    const bool isCode = token[0] == 'e' || token[0] == 's';
    long long value = std::stoll(token.substr(isCode ? 1 : 0));
    if (token[0] == 's') value = value > 0 ? 2 * value - 1 : -2 * value;
    int width = isCode ? 1 : std::stoi(token.substr(token.find(':') + 1));
    for (value += isCode ? 1 : 0; isCode && value >> (width / 2 + 1) != 0;) width += 2;
    const std::string field =
        std::bitset<80>(static_cast<unsigned long long>(value)).to_string().substr(80 - width);
    const std::size_t star = token.find('*');
    for (int i = star == std::string::npos ? 1 : std::stoi(token.substr(star + 1)); i > 0; --i)
      bits += field;
  }
  bits += '1';
  while (bits.size() % 8 != 0) bits += '0';
  for (std::size_t i = 0; i < bits.size(); i += 8) {
    bytes += static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
  }
  return bytes;
}

// A unit of H.264: its first byte in hexadecimal and the fields, without anything that looks like a
// start code.
inline std::string CodedUnit(const std::string& text) {
  const std::size_t end = text.find(' ');
  std::string unit(1, static_cast<char>(std::stoi(text.substr(0, end), nullptr, 16)));
  unit += CodedBits(text.substr(end));
  for (std::size_t at = 0; (at = unit.find("\0\0"s, at)) != std::string::npos;) {
    at += 2;
    if (at < unit.size() && (unit[at] & ~3) == 0) unit.insert(at, 1, '\3');
  }
  return unit;
}

}  // namespace quicktime::test
