#include "mail/composition.h"

#include <sys/resource.h>

#include <csignal>

#include "mail/address.h"
#include "mail/base64_file.h"
#include "mail/mail_fixture.h"

namespace tvx {
namespace {

using Names = std::vector<std::string>;

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

TEST_F(CompositionTest, AttachmentsAndNotesMakeItMultipart) {
  test::WriteFile("Gate.mov", std::string(57, '\0') + "ab");
  content_.cc.clear();
  const std::string written = Compose({{true, "./Gate.mov", "and"},
                                       {false, "./lost.mov", "no video of \"Yard\""},
                                       {true, "./gone.MOV", ""}},
                                      2, 3);
  EXPECT_EQ(pending_.path, "./data/notify-mail-3-1500000000-250-17-Part-2-of-3");
  const std::string expected =
      "From: rec@x.org\r\nTo: guard@x.org\r\nTo: b@x.org\r\nSubject: Motion - Part 2 of 3\r\n"
      "Content-Type: multipart/mixed; boundary=\"b1914efc629febb89915e8a6f83ba6eb\"\r\n\r\n"
      "--b1914efc629febb89915e8a6f83ba6eb\r\nContent-Type: text/plain\r\n\r\n"
      "Line 1\nLine 2\r\n.\n- and\n- no video of \"Yard\"\r\n"
      "--b1914efc629febb89915e8a6f83ba6eb\r\nContent-Type: video/quicktime\r\n"
      "Content-Transfer-Encoding: base64\r\n"
      "Content-Disposition: attachment; filename=\"Gate.mov\"\r\n\r\n" +
      std::string(76, 'A') +
      "\nYWI=\r\n--b1914efc629febb89915e8a6f83ba6eb\r\nContent-Type: image/jpeg\r\n"
      "Content-Transfer-Encoding: base64\r\n"
      "Content-Disposition: attachment; filename=\"gone.MOV\"\r\n\r\n\r\n"
      "--b1914efc629febb89915e8a6f83ba6eb--\r\n";
  EXPECT_EQ(written, expected);
  EXPECT_EQ(pending_.size, expected.size());
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

TEST_F(CompositionTest, Base64LinesEndWithALineFeedUnlessTheyArePadded) {
  for (const auto& [size, length, tail] : {std::tuple(0U, 0U, ""),
                                           {56U, 76U, "AA="},
                                           {57U, 77U, "AAA\n"},
                                           {58U, 81U, "\nAA=="},
                                           {60U, 82U, "\nAAAA\n"},
                                           {57 * 5000U, 77 * 5000U, "AAA\n"},
                                           {57 * 5000U + 3, 77 * 5000U + 5, "\nAAAA\n"}}) {
    test::WriteFile("source", std::string(size, '\0'));
    ASSERT_TRUE(disk_.open("encoded", std::ios::binary));
    CNotifyFileImpl source("source");
    Base64EncodeFile(source, "\n", disk_);
    disk_.close();
    const std::string encoded = test::ReadFile("encoded");
    EXPECT_EQ(encoded.size(), length);
    EXPECT_THAT(encoded, testing::EndsWith(tail)) << size;
  }
}

}  // namespace
}  // namespace tvx
