#include "base/base64.h"

#include <array>
#include <cstring>

namespace tvx {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two characters of each 12-bit value: attachments are megabytes long, and this makes two
// look-ups for three bytes where single characters take four.
constexpr std::array<char, 2 * 4096> MakePairs() {
  std::array<char, 2 * 4096> pairs{};
  for (std::size_t value = 0; value < 4096; ++value) {
    pairs[2 * value] = kAlphabet[value >> 6];
    pairs[2 * value + 1] = kAlphabet[value & 63];
  }
  return pairs;
}
constexpr std::array<char, 2 * 4096> kPairs = MakePairs();

}  // namespace

void AppendBase64(const unsigned char* bytes, std::size_t count, std::string& out) {
  const std::size_t before = out.size();
  out.resize(before + count / 3 * 4 + (count % 3 == 0 ? 0 : 4));
  char* to = out.data() + before;
  const unsigned char* const wholeEnd = bytes + count / 3 * 3;
  for (; bytes != wholeEnd; bytes += 3, to += 4) {
    const std::size_t high = (std::size_t{bytes[0]} << 4) | (bytes[1] >> 4);
    const std::size_t low = (std::size_t{bytes[1]} & 15) << 8 | bytes[2];
    std::memcpy(to, &kPairs[2 * high], 2);
    std::memcpy(to + 2, &kPairs[2 * low], 2);
  }
  if (count % 3 == 0) return;
  const std::size_t second = count % 3 == 2 ? bytes[1] : 0;
  std::memcpy(to, &kPairs[2 * ((std::size_t{bytes[0]} << 4) | (second >> 4))], 2);
  to[2] = count % 3 == 2 ? kAlphabet[(second & 15) << 2] : '=';
  to[3] = '=';
}

std::string Base64Encode(const void* bytes, std::size_t count) {
  std::string text;
  AppendBase64(static_cast<const unsigned char*>(bytes), count, text);
  return text;
}

}  // namespace tvx
