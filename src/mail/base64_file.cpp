#include "mail/base64_file.h"

#include <string>
#include <vector>

#include "base/base64.h"

namespace tvx {
namespace {

// Whole lines at a time, so that neither reading nor writing is done in small pieces; few enough
// that the block and its text stay in the processor's cache.
constexpr std::size_t kLines = 2048;
constexpr std::size_t kLineCharacters = Base64Length(kBase64LineBytes) + 2;  // and its line end

}  // namespace

void Base64EncodeFile(INotifyFile& source, const char* lineEnd, INotifyFileStream& stream) {
  std::vector<unsigned char> block(kLines * kBase64LineBytes);
  std::string text;
  while (source.good()) {
    const std::size_t count = source.read(reinterpret_cast<char*>(block.data()), block.size());
    if (count == 0) return;
    text.resize(kLines * kLineCharacters);
    const char* const end = EncodeBase64Lines(block.data(), count, lineEnd, text.data());
    text.resize(static_cast<std::size_t>(end - text.data()));
    stream.write(text);
  }
}

}  // namespace tvx
