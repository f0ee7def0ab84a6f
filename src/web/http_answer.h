// The answer of a web server, checked while it arrives.
//
// Standard: HTTP/1.0, RFC 1945: a status line, header lines, a blank line, and a body of the stated
//           length; without one, or when the server says more than it has, until the connection is
//           closed.
// Owns:     the bytes of the answer, at most kHttpAnswerLimit.
// Threads:  one at a time.
// Errors:   std::runtime_error with the text that the administrator reads in the log.
// Cost:     linear in the length of the answer, however it is cut into pieces.
// Not here: sockets (http_get.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace tvx {

class HttpAnswer {
 public:
  // Takes the next bytes. Throws as soon as what has arrived makes the answer useless: "Invalid Get
  // response", a status other than 200, an "Invalid Content-Length Value: ", or too many bytes. An
  // answer that has thrown is of no further use.
  void Append(std::string_view bytes);

  // True once the status line and all header lines have arrived; an answer that ends earlier was
  // cut off.
  bool HasBody() const { return stage_ == Stage::Body; }

  // True once the body has all of the stated length: a server that keeps the connection open need not
  // be waited for.
  bool IsComplete() const { return HasBody() && text_.size() - body_ >= length_; }

  // The body, as far as it has arrived. Needs HasBody(); the answer is empty afterwards.
  std::string TakeBody();

 private:
  enum class Stage { StatusLine, Headers, Body };

  bool ReadStatusLine();
  void ReadHeaders();
  void ReadHeaderLine(std::string_view line);
  std::size_t FindFrom(std::string_view wanted, std::size_t start);

  std::string text_;
  std::size_t searched_ = 0;  // no end of the current stage begins before this offset
  std::size_t header_ = 0;    // offset of the first header line
  std::size_t body_ = 0;      // offset of the body
  std::uint64_t length_ = std::numeric_limits<std::uint64_t>::max();  // of the body, when stated
  Stage stage_ = Stage::StatusLine;
};

}  // namespace tvx
