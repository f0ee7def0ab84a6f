#include "base/base64.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <string>

namespace tvx {
namespace {

// The plain way, bit by bit, to hold the fast ones against.
std::string Reference(const std::string& bytes) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
    unsigned value = 0;
    for (std::size_t i = bit; i < bit + 6; ++i) {
      const unsigned byte = i / 8 < bytes.size() ? static_cast<unsigned char>(bytes[i / 8]) : 0u;
      value = value << 1 | ((byte >> (7 - i % 8)) & 1u);
    }
    encoded.push_back(alphabet[value]);
  }
  while (encoded.size() % 4 != 0) encoded.push_back('=');
  return encoded;
}

// Memory behind which nothing may be touched: whoever does ends the test.
class GuardedPages {
 public:
  GuardedPages() {
    void* pages =
        ::mmap(nullptr, 3 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    end_ = static_cast<unsigned char*>(pages) + 2 * kPage;
    EXPECT_EQ(::mprotect(end_, kPage, PROT_NONE), 0);
  }
  ~GuardedPages() { ::munmap(end_ - 2 * kPage, 3 * kPage); }
  GuardedPages(const GuardedPages&) = delete;
  GuardedPages& operator=(const GuardedPages&) = delete;

  unsigned char* Last(std::size_t count) const { return end_ - count; }

 private:
  const std::size_t kPage = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  unsigned char* end_ = nullptr;
};

// Every length up to some lines, so that the wide steps, the lines and each tail have their turn.
TEST(Base64, IsTheSameInAnyLengthAndForAnyBytes) {
  EXPECT_EQ(Base64Encode("fooba", 5), "Zm9vYmE=");
  const GuardedPages input, output;
  std::minstd_rand random(7);
  for (std::size_t length = 0; length < 300; ++length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() >> 8);
    EXPECT_EQ(Base64Encode(bytes.data(), bytes.size()), Reference(bytes)) << length;

    std::string expected;
    for (std::size_t at = 0; at < length; at += kBase64LineBytes) {
      expected += Reference(bytes.substr(at, kBase64LineBytes));
      if (expected.back() != '=') expected.push_back('\n');
    }
    unsigned char* const block = input.Last(length);
    std::memcpy(block, bytes.data(), length);
    const std::size_t room = (length + kBase64LineBytes - 1) / kBase64LineBytes * 77;
    char* const lines = reinterpret_cast<char*>(output.Last(room));
    const char* const end = EncodeBase64Lines(block, length, lines);
    EXPECT_EQ(std::string(lines, static_cast<std::size_t>(end - lines)), expected) << length;
  }
}

}  // namespace
}  // namespace tvx
