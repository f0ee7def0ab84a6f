// What every fuzz target has: an input taken apart, and what must hold for every input.
//
// Inputs are texts as far as possible, so that seeds and findings can be read.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace tvx::test {

// The targets, one for each entry of foreign bytes, by their names in script/fuzz. Each is given the
// whole input.
// clang-format off
#define FUZZ_TARGETS(X) \
  X(channel_chunk, FuzzChannelChunk) X(date_template, FuzzDateTemplate) \
  X(event_document, FuzzEventDocument) X(frame_record, FuzzFrameRecord) \
  X(h264_movie, FuzzH264Movie) X(http_answer, FuzzHttpAnswer) \
  X(login_answer, FuzzLoginAnswer) X(mpeg4_movie, FuzzMpeg4Movie) \
  X(notify_file, FuzzNotifyFile) X(system_document, FuzzSystemDocument) \
  X(update_document, FuzzUpdateDocument) X(web_server_address, FuzzWebServerAddress)
// clang-format on
#define FUZZ_DECLARE(name, function) void function(std::string_view input);
FUZZ_TARGETS(FUZZ_DECLARE)

inline std::string_view TakeBytes(std::string_view& input, std::size_t count) {
  const std::string_view bytes = input.substr(0, count);
  input.remove_prefix(bytes.size());
  return bytes;
}
// What stands before the first line feed, or all; the rest is left behind it.
inline std::string_view TakeLine(std::string_view& input) {
  const std::string_view line = TakeBytes(input, input.find('\n'));
  TakeBytes(input, 1);
  return line;
}

// What is missing at the end of the input is 0.
template <typename Number>
Number TakeNumber(std::string_view& input) {
  Number number = 0;
  const std::string_view bytes = TakeBytes(input, sizeof(number));
  std::memcpy(&number, bytes.data(), bytes.size());
  return number;
}
inline std::size_t TakeByte(std::string_view& input) {
  return TakeNumber<unsigned char>(input);
}

// Ends the run as a finding; unlike an assertion, in every build.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace tvx::test
