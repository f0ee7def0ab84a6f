#include "mail/composition.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "mail/address.h"
#include "mail/base64_file.h"
#include "support/fake_host.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

constexpr const char* kB = "b1914efc629febb89915e8a6f83ba6eb";

class CompositionTest : public testing::Test {
 protected:
  CompositionTest() : stream_(&test::FakeHost::Entry) {
    ::mkdir("data", 0700);
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

  bool Compose(const std::vector<AttachmentEntry>& attachments = {}, std::int32_t part = 0,
               std::int32_t partCount = 1) {
    pending_ = {};
    const bool composed =
        ComposeMessage(content_, attachments, part, partCount, 17, stream_, pending_);
    stream_.close();
    return composed;
  }

  std::string Written() const { return test::ReadFile(pending_.path); }

  test::FakeHost host_;
  test::TemporaryFolder folder_;
  NotifyFileStreamImpl stream_;
  MessageContent content_;
  PendingMessage pending_;
};

TEST_F(CompositionTest, APlainMessageIsHeadersAndBodyOnly) {
  ASSERT_TRUE(Compose());
  EXPECT_EQ(pending_.path, "./data/notify-mail-3-1500000000-250-17");
  EXPECT_EQ(Written(),
            "From: rec@x.org\r\nTo: guard@x.org\r\nTo: b@x.org\r\nCc: c@x.org\r\n"
            "Subject: Motion\r\n\r\nLine 1\nLine 2\r\n.");
  EXPECT_EQ(pending_.from, "rec@x.org");
  EXPECT_EQ(pending_.recipients,
            (std::vector<std::string>{"guard@x.org", "b@x.org", "c@x.org", "hidden@x.org"}));
  EXPECT_EQ(pending_.size, Written().size());
}

TEST_F(CompositionTest, AttachmentsAndNotesMakeItMultipart) {
  test::WriteFile("Gate.mov", std::string(57, '\0') + "ab");
  test::WriteFile("Gate.jpg", "abc");
  content_.cc.clear();
  ASSERT_TRUE(Compose({{true, "./Gate.mov", ""},
                       {false, "./lost.mov", "no video of \"Yard\""},
                       {true, "./Gate.jpg", ""},
                       {true, "./gone.jpg", ""}},
                      2, 3));
  EXPECT_EQ(pending_.path, "./data/notify-mail-3-1500000000-250-17-Part-2-of-3");
  const std::string b = kB;
  EXPECT_EQ(Written(),
            "From: rec@x.org\r\nTo: guard@x.org\r\nTo: b@x.org\r\n"
            "Subject: Motion - Part 2 of 3\r\n"
            "Content-Type: multipart/mixed; boundary=\"" +
                b +
                "\"\r\n\r\n"
                "--" +
                b +
                "\r\nContent-Type: text/plain\r\n\r\n"
                "Line 1\nLine 2\r\n.\n- no video of \"Yard\""
                "\r\n--" +
                b +
                "\r\nContent-Type: video/quicktime\r\n"
                "Content-Transfer-Encoding: base64\r\n"
                "Content-Disposition: attachment; filename=\"Gate.mov\"\r\n\r\n" +
                std::string(76, 'A') +
                "\nYWI="
                "\r\n--" +
                b +
                "\r\nContent-Type: image/jpeg\r\n"
                "Content-Transfer-Encoding: base64\r\n"
                "Content-Disposition: attachment; filename=\"Gate.jpg\"\r\n\r\nYWJj\n"
                "\r\n--" +
                b +
                "\r\nContent-Type: image/jpeg\r\n"
                "Content-Transfer-Encoding: base64\r\n"
                "Content-Disposition: attachment; filename=\"gone.jpg\"\r\n\r\n"
                "\r\n--" +
                b + "--\r\n");
}

TEST_F(CompositionTest, TextFromOutsideAddsNoHeaderLine) {
  content_.subject = "Gate\r\nBcc: thief@x.org\n\rX: y\r";
  content_.to = {"a@x.org\r\nBcc: thief@x.org"};
  content_.from = "f@x.org\nX: y";
  ASSERT_TRUE(Compose());
  EXPECT_EQ(Written().substr(0, Written().find("\r\n\r\n")),
            "From: f@x.org\r\nTo: a@x.org\r\nCc: c@x.org\r\n"
            "Subject: Gate Bcc: thief@x.org X: y ");
}

TEST_F(CompositionTest, AnyBadAddressRejectsTheMessage) {
  for (std::vector<std::string>* list : {&content_.to, &content_.cc, &content_.bcc}) {
    list->push_back("nobody");
    EXPECT_FALSE(Compose());
    list->pop_back();
  }
  content_.from = "@x.org";
  EXPECT_FALSE(Compose());
  content_.from = "f@x.org";
  EXPECT_TRUE(Compose());
}

TEST_F(CompositionTest, ADiskThatRefusesIsNoMessage) {
  NotifyFileStreamImpl full(&test::FakeHost::Entry);
  content_.body = std::string(1 << 20, 'x');
  ASSERT_EQ(::symlink("/dev/full", "data/notify-mail-3-1500000000-250-17"), 0);
  EXPECT_FALSE(ComposeMessage(content_, {}, 0, 1, 17, full, pending_));
  ASSERT_EQ(::rename("data", "moved"), 0);
  EXPECT_FALSE(Compose());
}

TEST(ValidateAddress, FindsTheAddressInTheText) {
  struct Case {
    const char* text;
    const char* address;  // null when there is none
  };
  for (const Case& c : {Case{"a@b", "a@b"}, Case{"\"A, B\" <a.b+c@d-e.org> x", "a.b+c@d-e.org"},
                        Case{"a b@c d@e", "b@c"}, Case{"nobody", nullptr}, Case{"a@", nullptr},
                        Case{"@b", nullptr}, Case{"", nullptr}, Case{"a @ b", nullptr}}) {
    std::string text = c.text;
    EXPECT_EQ(ValidateAddress(text), c.address != nullptr) << c.text;
    EXPECT_EQ(text, c.address != nullptr ? c.address : c.text);
  }
  std::string hostile(100000, 'a');
  EXPECT_FALSE(ValidateAddress(hostile));  // answered, not searched for ever
}

TEST(Base64File, EndsLinesWithALineFeedUnlessTheyArePadded) {
  const test::TemporaryFolder folder;
  struct Case {
    std::size_t size;
    std::size_t encoded;
    const char* tail;
  };
  for (const Case& c :
       {Case{0, 0, ""}, Case{56, 76, "AA="}, Case{57, 77, "AAA\n"}, Case{58, 81, "\nAA=="},
        Case{57 * 5000, 77 * 5000, "AAA\n"}, Case{57 * 5000 + 3, 77 * 5000 + 5, "\nAAAA\n"}}) {
    test::WriteFile("source", std::string(c.size, '\0'));
    NotifyFileStreamImpl stream(nullptr);
    ASSERT_TRUE(stream.open("encoded", std::ios::binary));
    CNotifyFileImpl source("source");
    Base64EncodeFile(source, stream);
    stream.close();
    const std::string encoded = test::ReadFile("encoded");
    EXPECT_EQ(encoded.size(), c.encoded) << c.size;
    const std::string tail = c.tail;
    EXPECT_EQ(encoded.substr(encoded.size() - tail.size()), tail) << c.size;
  }
}

}  // namespace
}  // namespace tvx
