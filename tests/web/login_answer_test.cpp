#include <gtest/gtest.h>

#include <string>

#include "web/login_answer.h"

namespace tvx {
namespace {

// "?" not understood, "-" not listed, else the id, "|" and the id as written, "+" for a model.
std::string Scan(const std::string& answer, const std::string& serial = "A1") {
  const LoginAnswer found = ScanLoginAnswer(answer, serial);
  if (found.outcome == LoginAnswer::Outcome::NotUnderstood) return "?";
  if (found.outcome == LoginAnswer::Outcome::NotListed) return "-";
  return found.serverId + "|" + found.serverIdEscaped + (found.newerSearchFormat ? "+" : "");
}

TEST(LoginAnswer, GivesTheIdOfTheObjectWithTheSerial) {
  const struct {
    std::string answer, expected;
  } rows[] = {
      {"", "?"},
      {"{\"version\":3}", "?"},
      {"{list:[{\"serial\":\"A1\",\"id\":\"7\"}]}", "?"},
      {"{\"list\":{\"serial\":\"A1\",\"id\":\"7\"}}", "?"},
      {"{\"list\":[{\"serial\":\"A1\",\"id\":\"7\"}", "?"},
      {"]\"list\":[", "?"},
      {"{\"list\":[]}", "-"},
      {"{\"list\":[{\"serial\":\"A2\",\"id\":\"7\"}]}", "-"},
      {"{\"list\":[{\"serial\":\"a1\",\"id\":\"7\"}]}", "-"},
      {"{\"list\":[{\"serial\":\"A1\",\"id\":\"7\"}]}", "7|7"},
      {"{\"list\":[{\"id\":\"7\",\"model\":\"\",\"serial\":\"A1\"}]}", "7|7"},
      {"{\"list\":[{\"model\":\"M\",\"id\":\"7\",\"serial\":\"A1\"}]}", "7|7+"},
      {"{ \"list\" : [ { \"serial\" : \"A1\" ,\n\t\"id\":\n\t \"7\" } ] }", "7|7"},
      {"{\"list\":[{\"serial\"\"A1\",\"id\"   \"7\"}]}", "7|7"},
      // Each object has its own id and model; another system's do not count.
      {"{\"list\":[{\"serial\":\"B\",\"id\":\"1\",\"model\":\"M\"},{\"serial\":\"A1\",\"id\":\"7\"}"
       ","
       "{\"serial\":\"C\",\"id\":\"9\",\"model\":\"M\"}]}",
       "7|7"},
      {"{\"list\":[{\"serial\":\"B\",\"id\":\"1\"},{\"serial\":\"A1\"}]}", "?"},
      {"{\"list\":[{\"serial\":\"A1\",\"id\":null},{\"serial\":\"A1\",\"id\":\"8\"}]}", "8|8"},
      {"{\"list\":[{\"serial\":\"A1\",\"id\":\"7\",\"cameras\":[{\"id\":\"3\",\"model\":\"M\"}]}]}",
       "7|7"},
      {"{\"list\":[{\"sub\":{\"serial\":\"A1\",\"id\":\"3\"},\"serial\":\"B\",\"id\":\"7\"}]}",
       "-"},
      // A value that reads like a key, and signs of structure inside values.
      {"{\"list\":[{\"name\":\"id\",\"kind\":\"serial\",\"serial\":\"A1\",\"id\":\"7\"}]}", "7|7"},
      {"{\"list\":[{\"name\":\"}]{[\",\"serial\":\"A1\",\"id\":\"7\"}]}", "7|7"},
      {"{\"list\":[{\"name\":\"\\\"},{\\\"\",\"serial\":\"A1\",\"id\":\"7\"}]}", "7|7"},
      {"{\"list\":[\"{\",{\"serial\":\"A1\",\"id\":\"7\"}]}", "7|7"},
      // Escapes are resolved in the text and kept in what goes back to the web client.
      {"{\"list\":[{\"serial\":\"\\u0041\\u0031\",\"id\":\"a\\/\\\"b\\\\\"}]}",
       "a/\"b\\|a\\/\\\"b\\\\"},
      {"{\"list\":[{\"serial\":\"A1\",\"id\":\"\\u00e9\\ud83d\\ude00\\uZZ\\n\"}]}",
       "\xC3\xA9\xF0\x9F\x98\x80uZZ\n|\\u00e9\\ud83d\\ude00\\uZZ\\n"},
      // Cut off, or without a partner: nothing is read beyond the end.
      {"{\"list\":[{\"serial\":\"A1\",\"id\":\"7]", "?"},
      {"{\"list\":[{\"serial\":\"A1\",\"id\":\"\\\"]", "?"},
      {"{\"list\":[{\"serial\":\"A1\",\"id\":\"\\]", "?"},
      {"{\"list\":[{\"serial\":]", "-"},
      {"{\"list\":[{\"serial\":\"A1\",\"id\":\"\\ud83d\"}]}", "\xED\xA0\xBD|\\ud83d"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.answer);
    EXPECT_EQ(Scan(row.answer), row.expected);
  }
}

TEST(LoginAnswer, AnEmptySerialMatchesNothing) {
  EXPECT_EQ(Scan("{\"list\":[{\"serial\":\"\",\"id\":\"7\"},{\"id\":\"8\"}]}", ""), "-");
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
