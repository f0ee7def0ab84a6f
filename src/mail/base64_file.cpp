#include "mail/base64_file.h"

#include <algorithm>
#include <string>
#include <vector>

#include "base/base64.h"

namespace tvx {
namespace {

constexpr std::size_t kBytesPerLine = 57;
// Whole lines at a time, so that neither reading nor writing is done in small pieces.
constexpr std::size_t kBlock = kBytesPerLine * 4096;

}  // namespace

void Base64EncodeFile(INotifyFile& source, INotifyFileStream& stream) {
  std::vector<unsigned char> block(kBlock);
  std::string text;
  text.reserve(kBlock / kBytesPerLine * 77);
  while (source.good()) {
    const std::size_t count = source.read(reinterpret_cast<char*>(block.data()), block.size());
    if (count == 0) return;
    text.clear();
    for (std::size_t at = 0; at < count; at += kBytesPerLine) {
      const std::size_t length = std::min(kBytesPerLine, count - at);
      AppendBase64(block.data() + at, length, text);
      if (length % 3 == 0) text.push_back('\n');
    }
    stream.write(text);
  }
}

}  // namespace tvx
