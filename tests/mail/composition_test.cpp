#include "mail/composition.h"

#include <stdlib.h>
#include <sys/resource.h>

#include <algorithm>
#include <boost/regex.hpp>
#include <csignal>
#include <random>

#include "base/base64.h"
#include "base/utf8.h"
#include "mail/address.h"
#include "mail/mail_fixture.h"

namespace tvx {
namespace {

using Names = std::vector<std::string>;

std::string Replaced(const std::string& text, const char* pattern, const char* by) {
  return boost::regex_replace(text, boost::regex(pattern), by);
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

// The lines of the test's table, as a message has them.
std::string Golden() {
  const std::string lines = Replaced(test::Table(TABLES), "\n", "\r\n");
  return lines.substr(0, lines.size() - 2);  // a blank line parts tables
}

class CompositionTest : public test::MailTest {
 protected:
  CompositionTest() {
    content_.profileId = 3;
    content_.from = "Recorder <rec@x.org>";
    content_.to = {"Guard <guard@x.org>", "b@x.org"};
    content_.cc = {"c@x.org"};
    content_.bcc = {"hidden@x.org"};
    content_.subject = "Motion";
    content_.body = "Line 1\nLine 2\r\n.";
    content_.eventSeconds = 1500000000;
    content_.eventMilliseconds = 250;
  }

  // Gives what the file holds; nothing when the message is rejected.
  std::string Compose(const std::vector<AttachmentEntry>& attachments = {}, std::int32_t part = 0,
                      std::int32_t partCount = 1) {
    pending_ = {};
    const bool composed =
        ComposeMessage(content_, attachments, part, partCount, 17, disk_, pending_);
    disk_.close();
    return composed ? test::ReadFile(pending_.path) : "";
  }

  MessageContent content_;
  PendingMessage pending_;
};

TEST_F(CompositionTest, APlainMessageIsHeadersAndBodyOnly) {
  const std::string written = Compose();
  EXPECT_EQ(pending_.path, "./data/notify-mail-3-1500000000-250-17");
  EXPECT_EQ(written,
            "From: rec@x.org\r\nTo: guard@x.org\r\nTo: b@x.org\r\nCc: c@x.org\r\n"
            "Subject: Motion\r\n\r\nLine 1\nLine 2\r\n.");
  EXPECT_EQ(pending_.from, "rec@x.org");
  EXPECT_EQ(pending_.recipients, (Names{"guard@x.org", "b@x.org", "c@x.org", "hidden@x.org"}));
  EXPECT_EQ(pending_.size, written.size());
  content_.profileId = -2147483647;
  content_.eventSeconds = -1;
  content_.eventMilliseconds = 65535;
  EXPECT_EQ(MessagePath(content_, 1, 2, 0),
            "./data/notify-mail--2147483647--1-65535-0-Part-1-of-2");
  EXPECT_EQ(MessagePath(content_, 0, 1, 0xFFFFFFFF),
            "./data/notify-mail--2147483647--1-65535-4294967295");
}

// A carriage return stands before each line feed but those marked with "~".
TEST_F(CompositionTest, AttachmentsAndNotesMakeItMultipart) {
  test::WriteFile("Gate.mov", std::string(57, '\0') + "ab");
  content_.cc.clear();
  const std::string written = Compose({{true, "./Gate.mov", "and"},
                                       {false, "./lost.mov", "no video of \"Yard\""},
                                       {true, "./gone.MOV", ""}},
                                      2, 3);
  EXPECT_EQ(pending_.path, "./data/notify-mail-3-1500000000-250-17-Part-2-of-3");
  EXPECT_EQ(written, Replaced(Golden(), "~\r\n", "\n"));
}

// Nor a part: names are in file names and notes, and in the body by way of placeholders.
TEST_F(CompositionTest, TextFromOutsideAddsNoHeaderLine) {
  content_.subject = "Gate\r\nBcc: thief@x.org\n\rX: y\r";
  content_.to = {"a@x.org\r\nBcc: thief@x.org"};
  content_.from = "f@x.org\nX: y";
  EXPECT_THAT(Compose(),
              testing::StartsWith("From: f@x.org\r\nTo: a@x.org\r\nCc: c@x.org\r\nSubject: Gate "
                                  "Bcc: thief@x.org X: y \r\n\r\n"));
  const std::string boundary = "--b1914efc629febb89915e8a6f83ba6eb\r\nX: y";
  content_.body = boundary;
  EXPECT_THAT(
      Compose({{false, "", "lost\r\n.\n" + boundary}, {true, "a\nb" + boundary, ""}}),
      testing::AllOf(
          testing::HasSubstr("\r\n\r\n-- b1914efc629febb89915e8a6f83ba6eb\r\nX: y\n"
                             "- lost  . -- b1914efc629febb89915e8a6f83ba6eb  X: y\r\n"),
          testing::HasSubstr("filename=\"a b--b1914efc629febb89915e8a6f83ba6eb  X: y\"\r\n")));
}

// The stream is closed whatever happens, or its descriptor would be the host's loss.
TEST_F(CompositionTest, MemoryExhaustionLeavesTheFileClosed) {
  struct Stream : NotifyFileStreamImpl {
    using NotifyFileStreamImpl::NotifyFileStreamImpl;
    INotifyFileStream& write(const std::string& text) override {
      if (text == "Motion") throw std::bad_alloc();
      return NotifyFileStreamImpl::write(text);
    }
    void close() override { (++closed, NotifyFileStreamImpl::close()); }
    int closed = 0;
  } stream(nullptr);
  EXPECT_THROW(ComposeMessage(content_, {}, 0, 1, 17, stream, pending_), std::bad_alloc);
  EXPECT_EQ(stream.closed, 2);  // by opening, too
}

TEST_F(CompositionTest, ABadAddressOrDiskRejectsTheMessage) {
  for (Names* list : {&content_.to, &content_.cc, &content_.bcc}) {
    list->push_back("nobody");
    EXPECT_EQ(Compose(), "");
    list->pop_back();
  }
  EXPECT_NE(Compose(), "");
  content_.from = "@x.org";
  EXPECT_EQ(Compose(), "");
  content_.from = "f@x.org";
  content_.body = std::string(1 << 20, 'x');
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{1000, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  EXPECT_EQ(Compose(), "");
  content_.body = std::string(2000, 'x');  // which is written at the end only
  EXPECT_NE(Compose(), "");
  EXPECT_TRUE(disk_.fail());
  ::setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  ASSERT_EQ(::rename("data", "moved"), 0);
  EXPECT_EQ(Compose(), "");
}

TEST(ValidateAddress, FindsTheAddressInTheText) {
  const auto row = [](std::string text) { return ValidateAddress(text) ? text : "none"; };
  test::ExpectRows(row, test::Table(TABLES));
  EXPECT_EQ(row(std::string(100000, 'a')), "none");  // answered, not searched for ever
}

// The standard layout, read by the standards: what is written comes back whole.
class StandardLayoutTest : public CompositionTest {
 protected:
  StandardLayoutTest() {
    content_.delivery.Standard = true;
    content_.delivery.HelloName = "nvr.x.org";
  }

  std::string Compose(const std::vector<AttachmentEntry>& attachments = {}, std::int32_t part = 0) {
    const std::string message = CompositionTest::Compose(attachments, part, 3);
    EXPECT_EQ(pending_.size, message.size());
    EXPECT_EQ(pending_.recipients.back(), "hidden@x.org");
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
};

TEST_F(StandardLayoutTest, AMessageIsAsTheStandardsWantIt) {
  ::setenv("TZ", "XST+3:30", 1);
  ::tzset();
  SetWallClock([] { return 1500000000; });
  test::WriteFile("Gate.mov", std::string(58, '\0'));
  const std::string message = Compose({{true, "./Gate.mov", "and"}, {false, "", "no \"Yard\""}}, 2);
  SetWallClock({});
  EXPECT_EQ(Replaced(message, "[0-9a-f]{16}", "*"), Golden());
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
