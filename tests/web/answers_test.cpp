// What web servers answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/regex.hpp>
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
    text = boost::regex_replace(text, boost::regex("@"), "HTTP/1.0 200 OK\r\n");
    const std::string body = Read(text, text.size() + 1);
    EXPECT_EQ(Read(text, 1), body) << text;
    EXPECT_EQ(Read(text, 7), body) << text;
    return body;
  };
  test::ExpectRows(row, test::Table(TABLES));
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
    answer = boost::regex_replace(answer, boost::regex("@"), R"(#[{~,"id":)");
    answer = boost::regex_replace(answer, boost::regex("#"), R"({"list":)");
    return Scan(boost::regex_replace(answer, boost::regex("~"), R"("serial":"A1")"));
  };
  test::ExpectRows(row, test::Table(TABLES));
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
