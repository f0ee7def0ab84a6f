// Input: the size of the pieces in which the answer arrives (one byte), then the answer.
#include <algorithm>
#include <stdexcept>
#include <string>

#include "fuzz/input.h"
#include "web/http_answer.h"

namespace {

// What became of an answer: its body, the error text, or nothing while it is incomplete.
std::string Outcome(std::string_view bytes, std::size_t pieceSize) {
  tvx::HttpAnswer answer;
  try {
    while (!bytes.empty()) {
      const std::size_t size = std::min(pieceSize, bytes.size());
      answer.Append(bytes.substr(0, size));
      bytes.remove_prefix(size);
    }
  } catch (const std::runtime_error& error) {
    return std::string("error ") + error.what();
  }
  return answer.HasBody() ? "body " + answer.TakeBody() : "cut off";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes = tvx::test::AsText(data, size);
  const std::size_t pieceSize = tvx::test::TakeByte(bytes) + 1;
  tvx::test::Require(Outcome(bytes, pieceSize) == Outcome(bytes, bytes.size()),
                     "an answer means the same in one piece and in many");
  return 0;
}
