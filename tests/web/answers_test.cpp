// What web servers answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "base/input_limits.h"
#include "support/table.h"
#include "web/http_answer.h"
#include "web/login_answer.h"

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

// "@" stands for a good first line.
TEST(HttpAnswer, IsTheSameInOnePieceAndInMany) {
  const auto row = [](std::string text) {
    text = std::regex_replace(text, std::regex("@"), "HTTP/1.0 200 OK\r\n");
    const std::string body = Read(text, text.size() + 1);
    EXPECT_EQ(Read(text, 1), body) << text;
    EXPECT_EQ(Read(text, 7), body) << text;
    return body;
  };
  test::ExpectRows(row, R"(
<body> <= @Server: x\r\nContent-Length: 4\r\n\r\nbody & HTTP/1.1 200\r\n\r\nbody
<body> <= HTTP/1.1  200\r\n\r\nbody & @Content-Length:  18446744073709551615 \r\n\r\nbody
<body> <= @Content-Length: 5\r\n\r\nbody & @X-Content-Length: x\r\n\r\nbody   <> <= @\r\n
<line\r\n\r\nline\r\n\r\n> <= @A: b\r\n\r\nline\r\n\r\nline\r\n\r\n
<early\r\n\r\nlate> <= @A: b\n\r\nearly\r\n\r\nlate   <bo> <= @Content-Length: 2\r\n\r\nbody
Invalid Content-Length Value: <= @Content-Length: \r\n\r\n
Invalid Content-Length Value: x <= @Content-Length: x\r\n\r\n
Invalid Content-Length Value: -1 <= @Content-Length: -1\r\n\r\n
Invalid Content-Length Value: 1 2 <= @A: b\r\nContent-Length: 1 2\r\n\r\n
Invalid Content-Length Value: 18446744073709551616 <= @Content-Length: 18446744073709551616\r\n\r\n
<Content-Length: x\r\n\r\n> <= @\r\nContent-Length: x\r\n\r\n
Invalid response status code: 302. Expecting 200 <= HTTP/1.1 302 Found\r\nLocation: /\r\n\r\n
Invalid response status code: 404. Expecting 200 <= HTTP/1.1 404 Gone\r\nContent-Length: x
Invalid response status code: 204. Expecting 200 <= HTTP/1.1 204 None\r\n
Invalid Get response <= HTTP 200 OK\r\n\r\n & HTTP/1.0 99999999999 OK\r\n & HTTP/1.0 -200 OK\r\n
Invalid Get response <= HTTP/1.0 OK\r\n & HTTP/1.0\r\n & \r\n@\r\n & SSH-2.0 200 OK\r\n
Invalid Get response <= http/1.0 200 OK\r\n
Invalid response status code: 2000. Expecting 200 <= HTTP/1.0 2000 OK\r\n
cut off <=  & HTTP/1.0 200 OK\r & @ & @Server: x\r\n\r & HTTP/1.0 200 OK\nServer: x\n\nbody)");
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

// "?" not understood, "-" not listed, else the id, "=" and the id as written, "+" for a model.
std::string Scan(const std::string& answer, const std::string& serial = "A1") {
  const LoginAnswer found = ScanLoginAnswer(answer, serial);
  if (found.outcome == LoginAnswer::Outcome::NotUnderstood) return "?";
  if (found.outcome == LoginAnswer::Outcome::NotListed) return "-";
  return found.serverId + "=" + found.serverIdEscaped + (found.newerSearchFormat ? "+" : "");
}

// Two backslashes stand for one.
TEST(LoginAnswer, GivesTheIdOfTheObjectWithTheSerial) {
  const auto row = [](std::string answer) {
    answer = std::regex_replace(answer, std::regex("@"), R"(#[{~,"id":)");
    answer = std::regex_replace(answer, std::regex("#"), R"({"list":)");
    return Scan(std::regex_replace(answer, std::regex("~"), R"("serial":"A1")"));
  };
  test::ExpectRows(row, R"(
? <=  & {"version":3} & {list:[{~,"id":"7"}]} & #{~,"id":"7"}} & @"7"} & ]"list":[ & ["list"]
? <= #[{"serial":"B","id":"1"},{~}]} & @"7] & @"\\"] & @"\\]
- <= #[]} & #[{"serial":"A2","id":"7"}]} & #[{"serial":"a1","id":"7"}]}
- <= #[{"sub":{~,"id":"3"},"serial":"B","id":"7"}]} & #[{"serial":]
7=7 <= @"7"}]} & [{~,"id":"6"}],"list":[{~,"id":"7"}],[] & #[{"id":"7","model":"",~}]}
7=7 <= { "list" : [ { "serial" : "A1" ,\n"id":\n\r "7" } ] } & #[{"serial""A1","id"  "7"}]}
7=7 <= #[{"serial":"B","id":"1","model":"M"},{~,"id":"7"},{"serial":"C","id":"9","model":"M"}]}
7=7 <= @"7","cameras":[{"id":"3","model":"M"}]}]} & #[{"name":"id","kind":"serial",~,"id":"7"}]}
7=7 <= #[{"name":"}]{[",~,"id":"7"}]} & #[{"name":"\\"},{\\"",~,"id":"7"}]} & #["{",{~,"id":"7"}]}
7=7+ <= #[{"model":"M","id":"7",~}]}   8=8 <= @null},{~,"id":"8"},{~,"id":"9"}]}
a/"b\\=a\\/\\"b\\\\ <= #[{"serial":"\\u0041\\u0031","id":"a\\/\\"b\\\\"}]})");
  EXPECT_EQ(Scan(R"({"list":[{"serial":"","id":"7"},{"id":"8"}]})", ""), "-");
  // Half of a pair is no character, but what there is of it.
  using Row = std::pair<std::string, std::string>;
  for (const Row& text :
       {Row(R"(\ud83d)", "\xED\xA0\xBD"), Row(R"(\ud83dx\ude00)", "\xED\xA0\xBDx\xED\xB8\x80"),
        Row(R"(\ud83d\u0041)", "\xED\xA0\xBD\x41"), Row(R"(\udbff\udfff)", "\xF4\x8F\xBF\xBF"),
        Row(R"(\u007f\u0080\uffff)", "\x7F\xC2\x80\xEF\xBF\xBF"),
        Row(R"(\u00E9\ud83D\uDE00\u07ff\u0800)", "\xC3\xA9\xF0\x9F\x98\x80\xDF\xBF\xE0\xA0\x80"),
        Row(R"(\b\f\n\r\t\x)", "\b\f\n\r\tx"), Row(R"(\u12)", "u12")}) {
    EXPECT_EQ(Scan(R"({"list":[{"serial":"A1","id":")" + text.first + "\"}]}"),
              text.second + "=" + text.first);
  }
}

// A scan that starts again at every bracket, or goes down one call for each, would not come back.
TEST(LoginAnswer, TakesLinearTimeAndNoStackOnNestedAnswers) {
  for (const char* piece :
       {"{", "[", "\"", "\\\"", "{\"serial\":", "{\"serial\":\"A1\",", "\"list\""}) {
    std::string answer = "{\"list\":[";
    while (answer.size() < 1024 * 1024) answer += piece;
    answer += "]";
    EXPECT_NE(Scan(answer).find_first_of("?-"), std::string::npos) << piece;
  }
}

}  // namespace
}  // namespace tvx
