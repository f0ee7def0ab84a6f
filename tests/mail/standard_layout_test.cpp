// The standard layout, read by the standards: what is written comes back whole.
#include <stdlib.h>

#include <algorithm>
#include <random>
#include <regex>

#include "base/base64.h"
#include "base/utf8.h"
#include "mail/composition.h"
#include "mail/mail_fixture.h"

namespace tvx {
namespace {

std::string Replaced(const std::string& text, const char* pattern, const char* by) {
  return std::regex_replace(text, std::regex(pattern), by);
}

// Of quoted-printable and encoded words ("="), or of percent signs.
std::string Decoded(const std::string& text, char sign) {
  std::string decoded;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != sign) {
      decoded += text[at];
    } else if (text.compare(at, 3, "=\r\n") != 0) {
      decoded += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
    }
    if (text[at] == sign) at += 2;
  }
  return decoded;
}

// The text behind what begins so, up to the end.
std::string Between(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t at = text.find(begin);
  if (at == std::string::npos) return "none";
  return text.substr(at + begin.size(), text.find(end, at + begin.size()) - at - begin.size());
}

// An unfolded header text, its encoded words decoded.
std::string Words(const std::string& text) {
  const std::string begin = "=?UTF-8?Q?";
  if (text.compare(0, begin.size(), begin) != 0) return text;
  const std::string one = Replaced(text, "\\?= =\\?UTF-8\\?Q\\?", "");
  return Decoded(Replaced(Between(one, begin, "?="), "_", "=20"), '=');
}

class StandardLayoutTest : public test::MailTest {
 protected:
  StandardLayoutTest() {
    content_.profileId = 3;
    content_.from = "Recorder <rec@x.org>";
    content_.to = {"Guard <guard@x.org>", "b@x.org"};
    content_.cc = {"c@x.org"};
    content_.bcc = {"hidden@x.org"};
    content_.eventSeconds = 1500000000;
    content_.delivery.Standard = true;
    content_.delivery.HelloName = "nvr.x.org";
  }

  std::string Compose(const std::vector<AttachmentEntry>& attachments = {}, std::int32_t part = 0) {
    PendingMessage pending;
    EXPECT_TRUE(ComposeMessage(content_, attachments, part, 3, 17, disk_, pending));
    disk_.close();
    EXPECT_EQ(pending.recipients.back(), "hidden@x.org");
    const std::string message = test::ReadFile(pending.path);
    EXPECT_EQ(pending.size, message.size());
    for (std::size_t at = 0, end = 0; at < message.size(); at = end + 2) {
      end = message.find("\r\n", at);
      const std::string line = message.substr(at, end - at);
      EXPECT_LE(line.size(), 998U) << "or not ended";
      if (end == std::string::npos) break;
      EXPECT_TRUE(std::all_of(line.begin(), line.end(), [](char c) {
        return (c >= ' ' && c < 0x7F) || c == '\t';
      })) << line;
    }
    return message;
  }

  MessageContent content_;
};

TEST_F(StandardLayoutTest, AMessageIsAsTheStandardsWantIt) {
  ::setenv("TZ", "XST+3:30", 1);
  ::tzset();
  SetWallClock([] { return 1500000000; });
  content_.subject = "Motion";
  content_.body = "Line 1\n.\r\n";
  test::WriteFile("Gate.mov", std::string(58, '\0'));
  const std::string message = Compose({{true, "./Gate.mov", "and"}, {false, "", "no \"Yard\""}}, 2);
  SetWallClock({});
  EXPECT_EQ(
      Replaced(message, "[0-9a-f]{16}", "*"),
      "Date: Thu, 13 Jul 2017 23:10:00 -0330\r\n"
      "Message-ID: <notify-mail-3-1500000000-0-17-Part-2-of-3.*@nvr.x.org>\r\n"
      "From: \"Recorder\" <rec@x.org>\r\nTo: guard@x.org,\r\n b@x.org\r\nCc: c@x.org\r\n"
      "Subject: Motion - Part 2 of 3\r\nAuto-Submitted: auto-generated\r\nMIME-Version: 1.0\r\n"
      "Content-Type: multipart/mixed; boundary=\"=_*\"\r\n\r\n"
      "--=_*\r\nContent-Type: text/plain; charset=UTF-8\r\nContent-Transfer-Encoding: 7bit\r\n\r\n"
      "Line 1\r\n.\r\n\r\n- and\r\n- no \"Yard\"\r\n"
      "--=_*\r\nContent-Type: video/quicktime\r\nContent-Transfer-Encoding: base64\r\n"
      "Content-Disposition: attachment;\r\n filename=\"Gate.mov\"\r\n\r\n" +
          std::string(76, 'A') + "\r\nAA==\r\n--=_*--\r\n");
  EXPECT_NE(Between(Compose(), "Message-ID: ", "\r\n"), Between(Compose(), "Message-ID: ", "\r\n"));
}

// Subject, sender and body, which for Windows-1252 are not valid UTF-8.
TEST_F(StandardLayoutTest, TextsAreEncodedAsTheyNeed) {
  const auto row = [&](const std::string& text) {
    content_.subject = content_.body = Decoded(text, '%');
    content_.from = content_.subject + " <rec@x.org>";
    const std::string message = Compose();
    return Between(message, "From: ", " <rec@x.org>") + ", " +
           Between(message, "Subject: ", "\r\nAuto") + ", " +
           message.substr(message.find("\r\n\r\n") + 4);
  };
  test::ExpectRows(row, test::Table(TABLES));
}

TEST_F(StandardLayoutTest, EveryTextNameAndSizeComesBackWhole) {
  const std::string pieces[] = {"a",  " ",    ".",    "=", "=?UTF-8?Q?", "\"",
                                "\\", "--=_", "é",    "€", "😀",          "1234567890123456",
                                "\t", "\n",   "\r\n", "\r"};
  std::mt19937 random(1);
  const auto upTo = [&](std::size_t limit) { return random() % (limit + 1); };
  const auto text = [&](std::size_t most, bool hasBreaks) {
    std::string made;
    for (std::size_t count = upTo(most); count > 0; --count) {
      const std::string& piece = pieces[upTo(hasBreaks ? 15 : 11)];
      for (std::size_t times = upTo(40) == 0 ? 60 : 1; times > 0; --times) made += piece;
    }
    return made;
  };
  for (std::size_t i = 0; i < 400; ++i) {
    content_.subject = text(i % 60, false);
    content_.body = text(i % 200, true) + ".";
    std::string name = text(6, false);
    name = "f" + name.substr(0, Utf8Prefix(name, 200)) + ".mov";
    std::string bytes(upTo(3) * 57 * 2048 + upTo(60), '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    test::WriteFile(name, bytes);
    const std::string message = Compose({{true, "./" + name, ""}});
    std::remove(name.c_str());
    const std::string header =
        Replaced(message.substr(0, message.find("\r\n\r\n") + 2), "\r\n ", " ");
    EXPECT_EQ(Words(Between(header, "\r\nSubject: ", "\r\n")), content_.subject);
    const std::string boundary = "\r\n--" + Between(header, "boundary=\"", "\"");
    const std::string first = Between(message, boundary + "\r\n", boundary + "\r\n");
    const std::string lines = first.substr(first.find("\r\n\r\n") + 4) + "\r\n";
    const bool isPlain = first.find("Encoding: 7bit\r\n") != std::string::npos;
    EXPECT_EQ(isPlain ? lines : Decoded(lines, '='),
              Replaced(content_.body + "\n", "\r\n|\r|\n", "\r\n"));
    const std::string second = Between(message, "base64\r\n", boundary + "--\r\n");
    const std::string code = second.substr(second.find("\r\n\r\n") + 4);
    EXPECT_EQ(Replaced(code, "\r\n", ""), Base64Encode(bytes.data(), bytes.size()));
    EXPECT_EQ(std::min(code.find("\r\n"), code.size()),
              std::min<std::size_t>(76, Base64Length(bytes.size())));
    const std::string exact = Between(second, "filename*=UTF-8''", "\r\n");
    EXPECT_EQ(exact == "none" ? Between(second, "filename=\"", "\"\r\n") : Decoded(exact, '%'),
              name);
  }
}

}  // namespace
}  // namespace tvx
