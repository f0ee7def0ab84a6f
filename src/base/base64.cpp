#include "base/base64.h"

#include <tmmintrin.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace tvx {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two characters of each 12-bit value: two look-ups for three bytes, where single characters
// take four.
constexpr std::array<char, 2 * 4096> MakePairs() {
  std::array<char, 2 * 4096> pairs{};
  for (std::size_t value = 0; value < 4096; ++value) {
    pairs[2 * value] = kAlphabet[value >> 6];
    pairs[2 * value + 1] = kAlphabet[value & 63];
  }
  return pairs;
}
constexpr std::array<char, 2 * 4096> kPairs = MakePairs();

// Encodes 12 bytes into 16 characters at once. Reads 16 bytes.
[[gnu::target("ssse3"), gnu::always_inline]] inline void EncodeTwelve(const unsigned char* bytes,
                                                                      char* to) {
  // Each 32-bit lane gets three bytes, in the order 1 0 2 1, so that multiplications move its four
  // 6-bit groups to the bottom of its four bytes.
  const __m128i spread = _mm_set_epi8(10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1);
  // What is added to a 6-bit value to make its character, by the value's class: 'a'-'z' is 0,
  // '0'-'9' are 1 to 10, '+' is 11, '/' is 12, 'A'-'Z' is 13.
  const __m128i offsets =
      _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                    '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
  const __m128i loaded = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
  const __m128i lanes = _mm_shuffle_epi8(loaded, spread);
  const __m128i evens =
      _mm_mulhi_epu16(_mm_and_si128(lanes, _mm_set1_epi32(0x0FC0FC00)), _mm_set1_epi32(0x04000040));
  const __m128i odds =
      _mm_mullo_epi16(_mm_and_si128(lanes, _mm_set1_epi32(0x003F03F0)), _mm_set1_epi32(0x01000010));
  const __m128i values = _mm_or_si128(evens, odds);
  const __m128i isUpper = _mm_cmpgt_epi8(_mm_set1_epi8(26), values);
  const __m128i classes = _mm_or_si128(_mm_subs_epu8(values, _mm_set1_epi8(51)),
                                       _mm_and_si128(isUpper, _mm_set1_epi8(13)));
  const __m128i characters = _mm_add_epi8(_mm_shuffle_epi8(offsets, classes), values);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), characters);
}

// Encodes whole lines while a little more than a line may be read and written: five steps reach
// beyond it on both sides, and the next line overwrites what they left there. Returns the lines.
template <std::size_t lineEndSize>
[[gnu::target("ssse3")]] std::size_t EncodeLinesSsse3(const unsigned char* bytes, std::size_t count,
                                                      const char* lineEnd, char* to) {
  constexpr std::size_t kReach = 64;
  std::size_t lines = 0;
  for (; count >= kReach; count -= kBase64LineBytes, bytes += kBase64LineBytes, ++lines) {
    for (int step = 0; step < 5; ++step) EncodeTwelve(bytes + 12 * step, to + 16 * step);
    std::memcpy(to + 76, lineEnd, lineEndSize);
    to += 76 + lineEndSize;
  }
  return lines;
}

bool HasSsse3() {
  static const bool has = __builtin_cpu_supports("ssse3") != 0;
  return has;
}

}  // namespace

char* EncodeBase64(const unsigned char* bytes, std::size_t count, char* to) {
  for (; count >= 3; bytes += 3, count -= 3, to += 4) {
    const std::size_t high = (std::size_t{bytes[0]} << 4) | (bytes[1] >> 4);
    const std::size_t low = (std::size_t{bytes[1]} & 15) << 8 | bytes[2];
    std::memcpy(to, &kPairs[2 * high], 2);
    std::memcpy(to + 2, &kPairs[2 * low], 2);
  }
  if (count == 0) return to;
  const std::size_t second = count == 2 ? bytes[1] : 0;
  std::memcpy(to, &kPairs[2 * ((std::size_t{bytes[0]} << 4) | (second >> 4))], 2);
  to[2] = count == 2 ? kAlphabet[(second & 15) << 2] : '=';
  to[3] = '=';
  return to + 4;
}

char* EncodeBase64Lines(const unsigned char* bytes, std::size_t count, const char* lineEnd,
                        char* to) {
  const std::size_t lineEndSize = std::strlen(lineEnd);
  if (HasSsse3()) {
    const auto encode = lineEndSize == 1 ? EncodeLinesSsse3<1> : EncodeLinesSsse3<2>;
    const std::size_t lines = encode(bytes, count, lineEnd, to);
    bytes += lines * kBase64LineBytes;
    count -= lines * kBase64LineBytes;
    to += lines * (76 + lineEndSize);
  }
  while (count > 0) {
    const std::size_t length = std::min(kBase64LineBytes, count);
    to = EncodeBase64(bytes, length, to);
    if (length % 3 == 0) to = std::copy_n(lineEnd, lineEndSize, to);
    bytes += length;
    count -= length;
  }
  return to;
}

std::string Base64Encode(const void* bytes, std::size_t count) {
  std::string text(Base64Length(count), '\0');
  EncodeBase64(static_cast<const unsigned char*>(bytes), count, text.data());
  return text;
}

}  // namespace tvx
