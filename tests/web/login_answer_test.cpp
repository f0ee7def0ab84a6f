#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/table.h"
#include "web/login_answer.h"

namespace tvx {
namespace {

// "?" not understood, "-" not listed, else the id, "=" and the id as written, "+" for a model.
std::string Scan(const std::string& answer, const std::string& serial = "A1") {
  const LoginAnswer found = ScanLoginAnswer(answer, serial);
  if (found.outcome == LoginAnswer::Outcome::NotUnderstood) return "?";
  if (found.outcome == LoginAnswer::Outcome::NotListed) return "-";
  return found.serverId + "=" + found.serverIdEscaped + (found.newerSearchFormat ? "+" : "");
}

// Two backslashes stand for one.
TEST(LoginAnswer, GivesTheIdOfTheObjectWithTheSerial) {
  for (const auto& row : test::Rows(R"(
       | ?
      {"version":3} | ?
      {list:[{"serial":"A1","id":"7"}]} | ?
      {"list":{"serial":"A1","id":"7"}} | ?
      {"list":[{"serial":"A1","id":"7"} | ?
      ]"list":[ | ?
      ["list"] | ?
      {"list":[]} | -
      {"list":[{"serial":"A2","id":"7"}]} | -
      {"list":[{"serial":"a1","id":"7"}]} | -
      {"list":[{"serial":"A1","id":"7"}]} | 7=7
      [{"serial":"A1","id":"6"}],"list":[{"serial":"A1","id":"7"}],[] | 7=7
      {"list":[{"id":"7","model":"","serial":"A1"}]} | 7=7
      {"list":[{"model":"M","id":"7","serial":"A1"}]} | 7=7+
      { "list" : [ { "serial" : "A1" ,\n"id":\n\r "7" } ] } | 7=7
      {"list":[{"serial""A1","id"   "7"}]} | 7=7
      {"list":[{"serial":"B","id":"1","model":"M"},{"serial":"A1","id":"7"},{"serial":"C","id":"9","model":"M"}]} | 7=7
      {"list":[{"serial":"B","id":"1"},{"serial":"A1"}]} | ?
      {"list":[{"serial":"A1","id":null},{"serial":"A1","id":"8"},{"serial":"A1","id":"9"}]} | 8=8
      {"list":[{"serial":"A1","id":"7","cameras":[{"id":"3","model":"M"}]}]} | 7=7
      {"list":[{"sub":{"serial":"A1","id":"3"},"serial":"B","id":"7"}]} | -
      {"list":[{"name":"id","kind":"serial","serial":"A1","id":"7"}]} | 7=7 | values like keys
      {"list":[{"name":"}]{[","serial":"A1","id":"7"}]} | 7=7 | and like structure
      {"list":[{"name":"\\"},{\\"","serial":"A1","id":"7"}]} | 7=7
      {"list":["{",{"serial":"A1","id":"7"}]} | 7=7
      {"list":[{"serial":"\\u0041\\u0031","id":"a\\/\\"b\\\\"}]} | a/"b\\=a\\/\\"b\\\\
      {"list":[{"serial":"A1","id":"7] | ? | cut off: nothing is read beyond the end
      {"list":[{"serial":"A1","id":"\\"] | ?
      {"list":[{"serial":"A1","id":"\\] | ?
      {"list":[{"serial":] | -)")) {
    EXPECT_EQ(Scan(row[0]), row[1]) << row[0];
  }
  EXPECT_EQ(Scan(R"({"list":[{"serial":"","id":"7"},{"id":"8"}]})", ""), "-");
  // Half of a pair is no character, but what there is of it.
  using Row = std::pair<std::string, std::string>;
  for (const Row& row :
       {Row(R"(\ud83d)", "\xED\xA0\xBD"), Row(R"(\ud83dx\ude00)", "\xED\xA0\xBDx\xED\xB8\x80"),
        Row(R"(\ud83d\u0041)", "\xED\xA0\xBD\x41"), Row(R"(\udbff\udfff)", "\xF4\x8F\xBF\xBF"),
        Row(R"(\u007f\u0080\uffff)", "\x7F\xC2\x80\xEF\xBF\xBF"),
        Row(R"(\u00E9\ud83D\uDE00\u07ff\u0800)", "\xC3\xA9\xF0\x9F\x98\x80\xDF\xBF\xE0\xA0\x80"),
        Row(R"(\b\f\n\r\t\x)", "\b\f\n\r\tx"), Row(R"(\u12)", "u12")}) {
    EXPECT_EQ(Scan(R"({"list":[{"serial":"A1","id":")" + row.first + "\"}]}"),
              row.second + "=" + row.first);
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
