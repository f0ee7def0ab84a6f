#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/input_limits.h"
#include "support/table.h"
#include "web/http_answer.h"

namespace tvx {
namespace {

// The body in angle brackets, "cut off", or what was thrown.
std::string Read(std::string_view text, std::size_t pieceSize) {
  HttpAnswer answer;
  try {
    for (; !text.empty(); text.remove_prefix(std::min(pieceSize, text.size()))) {
      answer.Append(text.substr(0, pieceSize));
    }
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return answer.HasBody() ? "<" + answer.TakeBody() + ">" : "cut off";
}

TEST(HttpAnswer, IsTheSameInOnePieceAndInMany) {
  for (const auto& row : test::Rows(R"(
      HTTP/1.0 200 OK\r\nServer: x\r\nContent-Length: 4\r\n\r\nbody | <body>
      HTTP/1.1 200\r\n\r\nbody | <body>
      HTTP/1.1  200\r\n\r\nbody | <body>
      HTTP/1.0 200 OK\r\n\r\n | <>
      HTTP/1.0 200 OK\r\nA: b\r\n\r\nline\r\n\r\nline\r\n\r\n | <line\r\n\r\nline\r\n\r\n>
      HTTP/1.0 200 OK\r\nA: b\n\r\nearly\r\n\r\nlate | <early\r\n\r\nlate>
      HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nbody | <bo>
      HTTP/1.0 200 OK\r\nContent-Length:  18446744073709551615 \r\n\r\nbody | <body>
      HTTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nbody | <body> | closed early
      HTTP/1.0 200 OK\r\nX-Content-Length: x\r\n\r\nbody | <body>
      HTTP/1.0 200 OK\r\nContent-Length: x\r\n\r\n | Invalid Content-Length Value: x
      HTTP/1.0 200 OK\r\nContent-Length: -1\r\n\r\n | Invalid Content-Length Value: -1
      HTTP/1.0 200 OK\r\nA: b\r\nContent-Length: 1 2\r\n\r\n | Invalid Content-Length Value: 1 2
      HTTP/1.0 200 OK\r\nContent-Length: 18446744073709551616\r\n\r\n | Invalid Content-Length Value: 18446744073709551616
      HTTP/1.0 200 OK\r\n\r\nContent-Length: x\r\n\r\n | <Content-Length: x\r\n\r\n>
      HTTP/1.1 302 Found\r\nLocation: /\r\n\r\n | Invalid response status code: 302. Expecting 200
      HTTP/1.1 404 Gone\r\nContent-Length: x | Invalid response status code: 404. Expecting 200
      HTTP/1.1 204 None\r\n | Invalid response status code: 204. Expecting 200
      HTTP 200 OK\r\n\r\n | Invalid Get response
      HTTP/1.0 2000 OK\r\n | Invalid response status code: 2000. Expecting 200
      HTTP/1.0 99999999999 OK\r\n | Invalid Get response
      HTTP/1.0 -200 OK\r\n | Invalid Get response
      HTTP/1.0 OK\r\n | Invalid Get response
      HTTP/1.0\r\n | Invalid Get response
      \r\nHTTP/1.0 200 OK\r\n\r\n | Invalid Get response
      SSH-2.0 200 OK\r\n | Invalid Get response
      http/1.0 200 OK\r\n | Invalid Get response
       | cut off
      HTTP/1.0 200 OK\r | cut off
      HTTP/1.0 200 OK\r\n | cut off
      HTTP/1.0 200 OK\r\nServer: x\r\n\r | cut off
      HTTP/1.0 200 OK\nServer: x\n\nbody | cut off)")) {
    SCOPED_TRACE(row[0]);
    for (const std::size_t piece : {row[0].size() + 1, std::size_t{1}, std::size_t{7}}) {
      EXPECT_EQ(Read(row[0], piece), row[1]);
    }
  }
  EXPECT_EQ(Read("HTTP/1.0 200 OK\r\nContent-Length: \r\n\r\n", 1),
            "Invalid Content-Length Value: ");
}

TEST(HttpAnswer, HoldsOneMebibyteHeaderIncludedAndNoByteMore) {
  const std::string header = "HTTP/1.0 200 OK\r\n\r\n";
  const std::string body(kHttpAnswerLimit - header.size(), 'x');
  EXPECT_EQ(Read(header + body, 4096), "<" + body + ">");
  const std::string refusal = "The response is longer than 1048576 bytes";
  EXPECT_EQ(Read(header + body + "y", 4096), refusal);
  EXPECT_EQ(Read(std::string(kHttpAnswerLimit + 1, 'x'), 4096), refusal);
  EXPECT_EQ(Read("HTTP/1.0 200 OK\r\n" + std::string(kHttpAnswerLimit, 'x'), 4096), refusal);
}

}  // namespace
}  // namespace tvx
