// The answer of a web server, checked while it arrives.
//
// Standard: HTTP/1.0, RFC 1945: a status line, header lines, a blank line, and a body that lasts
//           until the server closes the connection. A stated length is checked for being a number
//           and does not cut the body.
// Owns:     the bytes of the answer, at most kHttpAnswerLimit.
// Threads:  one at a time.
// Errors:   std::runtime_error with the text that the administrator reads in the log.
// Cost:     linear in the length of the answer, however it is cut into pieces.
// Not here: sockets (http_get.h).
#pragma once

#include <cstddef>
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

  // What follows the header. Needs HasBody(); the answer is empty afterwards.
  std::string TakeBody();

 private:
  enum class Stage { StatusLine, Headers, Body };

  bool ReadStatusLine();
  void ReadHeaders();
  std::size_t FindFrom(std::string_view wanted, std::size_t start);

  std::string text_;
  std::size_t searched_ = 0;  // no end of the current stage begins before this offset
  std::size_t header_ = 0;    // offset of the first header line
  std::size_t body_ = 0;      // offset of the body
  Stage stage_ = Stage::StatusLine;
};

}  // namespace tvx
