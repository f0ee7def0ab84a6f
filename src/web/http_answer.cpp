#include "web/http_answer.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "base/input_limits.h"

namespace tvx {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kHeaderEnd = "\r\n\r\n";

void DropBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

// Version word, status code, and a message that nobody reads.
void CheckStatusLine(std::string_view line) {
  DropBlanks(line);
  const std::size_t versionEnd = std::min(line.find_first_of(" \t"), line.size());
  const std::string_view version = line.substr(0, versionEnd);
  line.remove_prefix(versionEnd);
  DropBlanks(line);
  std::uint32_t status = 0;
  const auto parsed = std::from_chars(line.data(), line.data() + line.size(), status);
  if (parsed.ec != std::errc() || version.substr(0, 5) != "HTTP/") {
    throw std::runtime_error("Invalid Get response");
  }
  if (status != 200) {
    throw std::runtime_error("Invalid response status code: " + std::to_string(status) +
                             ". Expecting 200");
  }
}

}  // namespace

// The line comes without its line feed.
void HttpAnswer::ReadHeaderLine(std::string_view line) {
  constexpr std::string_view kLength = "Content-Length: ";
  if (line.substr(0, kLength.size()) != kLength) return;
  std::string_view value = line.substr(kLength.size());
  if (!value.empty() && value.back() == '\r') value.remove_suffix(1);
  // Blanks around a value are no part of it.
  DropBlanks(value);
  value = value.substr(0, value.find_last_not_of(" \t") + 1);
  const char* const end = value.data() + value.size();
  const auto parsed = std::from_chars(value.data(), end, length_);
  if (parsed.ec != std::errc() || parsed.ptr != end) {
    throw std::runtime_error("Invalid Content-Length Value: " + std::string(value));
  }
}

void HttpAnswer::Append(std::string_view bytes) {
  if (bytes.size() > kHttpAnswerLimit - text_.size()) {
    throw std::runtime_error("The response is longer than " + std::to_string(kHttpAnswerLimit) +
                             " bytes");
  }
  text_.append(bytes);
  if (stage_ == Stage::StatusLine && !ReadStatusLine()) return;
  if (stage_ == Stage::Headers) ReadHeaders();
}

std::string HttpAnswer::TakeBody() {
  std::string body = std::exchange(text_, {});
  body.erase(0, std::exchange(body_, 0));
  if (body.size() > length_) body.resize(static_cast<std::size_t>(length_));
  return body;
}

// A search that came to nothing is taken up where an end could still begin.
std::size_t HttpAnswer::FindFrom(std::string_view wanted, std::size_t start) {
  const std::size_t found = text_.find(wanted, std::max(searched_, start));
  if (found == std::string::npos) {
    searched_ = text_.size() - std::min(text_.size(), wanted.size() - 1);
  }
  return found;
}

bool HttpAnswer::ReadStatusLine() {
  const std::size_t end = FindFrom(kLineEnd, 0);
  if (end == std::string::npos) return false;
  CheckStatusLine(std::string_view(text_).substr(0, end));
  header_ = end + kLineEnd.size();
  searched_ = 0;
  stage_ = Stage::Headers;
  return true;
}

void HttpAnswer::ReadHeaders() {
  // From the end of the status line, so that a header without any line is found as well.
  const std::size_t found = FindFrom(kHeaderEnd, header_ - kLineEnd.size());
  if (found == std::string::npos) return;
  // Lines end in a line feed. The blank line is met at the found place at the latest; a server that
  // mixes its line ends may have put it earlier.
  std::size_t at = header_;
  for (;;) {
    const std::size_t lineEnd = text_.find('\n', at);
    const std::string_view line = std::string_view(text_).substr(at, lineEnd - at);
    at = lineEnd + 1;
    if (line == "\r") break;
    ReadHeaderLine(line);
  }
  body_ = at;
  stage_ = Stage::Body;
}

}  // namespace tvx
