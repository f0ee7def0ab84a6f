#include "mail/transfer.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "mail/address.h"
#include "mail/mail_fixture.h"

namespace tvx {
namespace {

using Lines = std::vector<std::string>;

PendingMessage Message() {
  PendingMessage message;
  message.from = "f@x";
  message.recipients = {"t@x", "-u@x"};
  message.path = "./data/notify-mail-3-1-2-0";
  message.profileDescription = "Gate";
  return message;
}

class TransferTest : public test::MailTest {
 protected:
  const SmtpServer server_{"a", "host", 25, 0, "", ""};
  PendingMessage message_ = Message();
  SendResult Send(const std::vector<SmtpServer>& servers) {
    host_.ClearLog();
    message_.servers = servers;
    return SendMessage(message_, helper_);
  }
};

// The address is one word, whatever it holds.
TEST_F(TransferTest, TheCommandLineNamesAllButTheLogin) {
  for (const auto& row : test::Rows(test::Table(TABLES))) {
    SmtpServer server{"a", row[0], std::stoi(row[1]), std::stoi(row[2]), "user", "password"};
    const std::string tls = row[2] == "2" ? "--ssl-reqd | " : "";
    EXPECT_EQ(
        BuildCurlArguments(Message(), server),
        test::Rows("./curl | --mail-from | f@x | --mail-rcpt | t@x | --mail-rcpt | -u@x | " + tls +
                   "--insecure | --connect-timeout | 60 | --config | - | -T | "
                   "./data/notify-mail-3-1-2-0 | " +
                   row[3])[0]);
  }
}

TEST_F(TransferTest, TheLoginIsOneQuotedOptionOfTheInput) {
  SmtpServer server = server_;
  server.password = "alone";
  EXPECT_EQ(BuildCurlInput({}, server), "");
  server.username = "u\"ser";
  server.password = "p\\w\"\r\nurl = x";
  EXPECT_EQ(Send({server}), SendResult::Sent);
  EXPECT_EQ(host_.Chunks().back().payload, R"(user = "u\"ser:p\\w\"\r\nurl = x")");
  EXPECT_EQ(programs_.Launches().back(), BuildCurlArguments(Message(), server));
}

TEST_F(TransferTest, ServersAreTriedInOrderUntilOneAccepts) {
  exits_ = {7, kNotLaunched, 0, 0};
  output_ = "100%d of nothing\n\nlast";
  SmtpServer third = server_;
  third.port = 26;
  EXPECT_EQ(Send({server_, server_, third, server_}), SendResult::Sent);
  EXPECT_EQ(programs_.Launches().size(), 3U);
  EXPECT_EQ(programs_.Launches().back().back(), "smtp://host:26");
  ExpectLog(R"(
      50 | Profile Description: Gate. Notification attempt return code= 7
      25 | 100%d of nothing
      25 |
      25 | last
      75 | Failed to execute curl smtp operation using server a. (Profile Description: Gate)
      25 | Profile Description: Gate. Notification attempt return code= 0)");
}

// One failure that may pass makes the message worth keeping, whatever the other servers say.
TEST_F(TransferTest, ExitCodesTellWhetherLaterIsWorthATry) {
  std::vector<std::deque<int>> rows = {
      {}, {26, 67}, {kNotLaunched, 67}, {kNotLaunched, kNotLaunched}};
  for (int code = 1; code < 100; ++code) rows.insert(rows.end(), {{code}, {code, 67}, {67, code}});
  for (const std::deque<int>& exits : rows) {
    const bool mayPass = std::any_of(exits.begin(), exits.end(), [](int code) {
      return code != 67 && code != 26 && code != kNotLaunched;
    });
    exits_ = exits;
    EXPECT_EQ(Send({exits.size(), server_}), mayPass ? SendResult::Retry : SendResult::GiveUp);
    EXPECT_EQ(host_.Log().back().text.find("Failed to send notification using profile Gate.") == 0,
              !mayPass);
  }
}

// Nor do the other settings become more than a value, or an option where none is meant.
TEST_F(TransferTest, DeliverySettingsAreOptionsOfTheInputAndTheNameIsThePath) {
  message_.delivery = {true, true, "c\"a\nurl = x", 900, "nvr.x"};
  EXPECT_EQ(
      BuildCurlInput(message_.delivery, {"", "", 25, 0, "u", "p"}),
      "silent\nshow-error\nstderr = \"-\"\nwrite-out = \"SMTP reply %{response_code} after "
      "%{size_upload} bytes\\n\"\nmax-time = 900\ncacert = \"c\\\"a\\nurl = x\"\nuser = \"u:p\"");
  EXPECT_THAT(BuildCurlArguments(message_, server_),
              testing::AllOf(testing::Not(testing::Contains("--insecure")),
                             testing::Contains("smtp://host:25/nvr.x")));
  EXPECT_EQ(BuildCurlInput({false, false, "ca", 0, "nvr.x"}, server_), "");
  char machine[256] = {};
  ASSERT_EQ(::gethostname(machine, 255), 0);
  const std::string own =
      std::string(machine) + (std::strchr(machine, '.') == nullptr ? ".x.org" : "");
  const auto row = [&](const std::string& name) {
    const std::string used = HelloName(name, "f@x.org");
    return used == own ? "own" : used;
  };
  test::ExpectRows(row,
                   "a-1.B<=a-1.B   [::1]<=[::1]   [IPv6:f::1]<=[IPv6:f::1]   own<= & a & a b & a/b "
                   "& .a & a. & a..b & [a b] & a\\nb & \xC3\xA9x & [::1");
}

// Exit code, the server's last reply and the bytes sent, of 100; what follows, and what is said of it
// behind the attempt and the reply.
TEST_F(TransferTest, WithStandardDeliveryTheReplyTellsWhetherLaterIsWorthATry) {
  message_.delivery.Standard = true;
  message_.size = 100;
  for (const auto& row : test::Rows(test::Table(TABLES))) {
    SCOPED_TRACE(row[0] + " " + row[1] + " " + row[2]);
    exits_ = {std::stoi(row[0])};
    const std::string reply = "SMTP reply " + row[1] + " after " + row[2] + " bytes";
    output_ = row[1].empty() ? "" : "curl: (x) SMTP reply 999 after 9 bytes\n" + reply + "\n";
    const SendResult result = Send({server_});
    EXPECT_EQ(result, row[3] == "sent"    ? SendResult::Sent
                      : row[3] == "later" ? SendResult::Retry
                                          : SendResult::GiveUp);
    EXPECT_EQ(message_.servers.size(), row[3] == "never" ? 0U : 1U);
    EXPECT_EQ(host_.Logged(row[4]), row[4].empty() ? 0 : 1);
    const std::size_t replies = output_.empty() || row[3] == "sent" ? 0 : 2;
    EXPECT_EQ(host_.Log().size(), 1 + replies + !row[4].empty() + (row[3] == "never"));
  }
}

TEST_F(TransferTest, AServerThatCannotBeReachedIsAskedOnceARound) {
  message_.delivery.Standard = true;
  const auto launches = [this] {
    const std::size_t before = programs_.Launches().size();
    EXPECT_EQ(Send({server_}), SendResult::Retry);
    return programs_.Launches().size() - before;
  };
  for (const auto& [exit, sent, asked] :
       {std::tuple(7, 0, 0U), {6, 0, 0U}, {28, 0, 0U}, {28, 1, 1U}, {56, 0, 1U}}) {
    usualExit_ = exit;
    output_ = "SMTP reply 000 after " + std::to_string(sent) + " bytes";
    helper_.queue.clear();
    EXPECT_EQ(launches() + launches(), 2U);  // there is no round
    helper_.queue.emplace_back();
    now_ += 1000;
    helper_.nextRetry = helper_.Now();
    EXPECT_EQ(launches() + launches() + launches(), 1 + 2 * asked) << exit;
    EXPECT_EQ(host_.Log().size(), 1 + asked);
  }
}

TEST_F(TransferTest, ATransferThatRunsForLongIsToldOfOnce) {
  const std::string line =
      "The transfer to smtp://host:25 has been running for 10 minutes. All other mail waits for "
      "its end, for which MaxTransferSeconds can set a limit";
  helper_.patience = boost::chrono::milliseconds(1);
  programs_.OnRun([&](const test::Launch& launch) {
    programs_.AwaitInput(launch);
    EXPECT_TRUE(host_.WaitFor([&] { return host_.Logged(line) == 1; }));
    return test::ProgramEnd{0, "a\nb"};
  });
  EXPECT_EQ(Send({server_}), SendResult::Sent);
  ExpectLog("50|" + line + "\n25|Profile Description: Gate. Notification attempt return code= 0");
}

// Nobody must wait for a program that waits for its input, or for one that the host will not end.
TEST_F(TransferTest, WhatIsNeverToldIsNotWaitedFor) {
  programs_.OnRun([this](const test::Launch&) {
    host_.Answer(HostCommand::ChannelMessage, 1, 0);
    return test::ProgramEnd{0, "", false, true};
  });
  EXPECT_EQ(Send({server_}), SendResult::GiveUp);
  EXPECT_EQ(host_.Log().at(0).text,
            "Failed to execute curl smtp operation using server a. (Profile Description: Gate)");
  host_.Answer(HostCommand::ChannelMessage, 0, 0);
  std::thread closing;
  programs_.OnRun([&](const test::Launch&) {
    closing = std::thread([this] {
      host_.WaitFor([this] { return host_.Chunks().size() == 4; });
      channel_.Close();
    });
    return test::ProgramEnd{0, "", false, true};
  });
  EXPECT_EQ(Send({server_, server_}), SendResult::Unknown);
  closing.join();
  ExpectLog(
      "50 | The host stopped while a message was being sent using server a. Nobody knows whether "
      "it arrived. (Profile Description: Gate)");
}

// A normal exit gives its code, an end by signal 256 times the signal. Of much output there remain
// 4 MiB, each line cut to one of the log.
TEST_F(TransferTest, TheWaitStatusHasItsBytesExchangedAndLinesALimit) {
  std::string flood;
  for (int i = 0; i < 3000; ++i) flood += std::string(1023, 'x') + "\n";
  for (const auto& [raw, expected] : {std::pair(67U << 8, 67), {9U, 2304}, {0x1234ABCDU, 0xCDAB}}) {
    programs_.OnRun([&, status = raw](const test::Launch&) {
      return test::ProgramEnd{status, flood};
    });
    std::int32_t exitValue = -1;
    Lines lines;
    EXPECT_TRUE(helper_.RunTransfer({"./curl"}, "", exitValue, lines));
    EXPECT_EQ(exitValue, expected);
    EXPECT_EQ(lines, Lines(flood.size() < (4U << 20) ? 3000 : 4096, std::string(512, 'x')));
    flood += flood;
  }
}

}  // namespace
}  // namespace tvx
