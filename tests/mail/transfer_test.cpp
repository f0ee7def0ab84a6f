#include "mail/transfer.h"

#include <string>
#include <thread>
#include <vector>

#include "mail/mail_fixture.h"

namespace tvx {
namespace {

using test::LogLine;
using Lines = std::vector<std::string>;

const LogLine kGivenUp{
    75,
    "Failed to send notification using profile Gate.  This message will NOT be retried due to "
    "failure return codes 67 or 26 or due to failures to prepare or initiate email operation"};

PendingMessage Message() {
  PendingMessage message;
  message.from = "f@x";
  message.recipients = {"t@x", "-u@x"};
  message.path = "./data/notify-mail-3-1-2-0";
  message.profileDescription = "Gate";
  return message;
}

SmtpServer Server(const std::string& description, std::int32_t port = 25, std::int32_t ssl = 0) {
  return {description, "mail host", port, ssl, "", ""};
}

class TransferTest : public test::MailTest {
 protected:
  SendResult Send(const std::vector<SmtpServer>& servers) {
    host_.ClearLog();
    return SendMessage(Message(), servers, helper_);
  }
};

TEST_F(TransferTest, TheCommandLineNamesAllButTheLogin) {
  Lines expected = {"./curl",
                    "--mail-from",
                    "f@x",
                    "--mail-rcpt",
                    "t@x",
                    "--mail-rcpt",
                    "-u@x",
                    "--ssl-reqd",
                    "--insecure",
                    "--connect-timeout",
                    "60",
                    "--config",
                    "-",
                    "-T",
                    "./data/notify-mail-3-1-2-0",
                    "smtp://mail%20host:587"};
  SmtpServer server = Server("a", 587, use_ssl::kStartTls);
  server.username = "user";
  EXPECT_EQ(BuildCurlArguments(Message(), server), expected);
  expected.erase(expected.begin() + 7);
  for (const auto& [ssl, url] : {std::pair(0, "smtp://mail%20host:-7"),
                                 {use_ssl::kSmtps, "smtps://mail%20host:-7"},
                                 {3, "smtp://mail%20host:-7"}}) {
    expected.back() = url;
    EXPECT_EQ(BuildCurlArguments(Message(), Server("a", -7, ssl)), expected);
  }
}

TEST_F(TransferTest, TheLoginIsOneQuotedOptionOfTheInput) {
  SmtpServer server = Server("a");
  server.password = "alone";
  EXPECT_EQ(BuildCurlInput(server), "");
  server.username = "u\"ser";
  server.password = "p\\w\"\r\nurl = x";
  EXPECT_EQ(BuildCurlInput(server), R"(user = "u\"ser:p\\w\"\r\nurl = x")");
  EXPECT_EQ(Send({server}), SendResult::Sent);
  EXPECT_EQ(host_.Chunks().back().payload, BuildCurlInput(server));
  EXPECT_EQ(programs_.Launches().back(), BuildCurlArguments(Message(), server));
}

TEST_F(TransferTest, ServersAreTriedInOrderUntilOneAccepts) {
  exits_ = {7, kNotLaunched, 0, 0};
  output_ = "100%d of nothing\n\nlast";
  EXPECT_EQ(Send({Server("a"), Server("b"), Server("c", 26), Server("d")}), SendResult::Sent);
  EXPECT_EQ(programs_.Launches().size(), 3U);
  EXPECT_EQ(programs_.Launches().back().back(), "smtp://mail%20host:26");
  EXPECT_EQ(
      host_.Log(),
      (std::vector<LogLine>{
          {50, "Profile Description: Gate. Notification attempt return code= 7"},
          {25, "100%d of nothing"},
          {25, ""},
          {25, "last"},
          {75, "Failed to execute curl smtp operation using server b. (Profile Description: Gate)"},
          {25, "Profile Description: Gate. Notification attempt return code= 0"}}));
}

// One failure that may pass makes the message worth keeping, whatever the other servers say.
TEST_F(TransferTest, ExitCodesTellWhetherLaterIsWorthATry) {
  constexpr int kKilled = 9 << 8 >> 8;
  std::vector<std::pair<std::deque<int>, SendResult>> rows = {
      {{}, SendResult::GiveUp},
      {{7, 67}, SendResult::Retry},
      {{67, 7}, SendResult::Retry},
      {{26, 67}, SendResult::GiveUp},
      {{kNotLaunched, 67}, SendResult::GiveUp},
      {{kNotLaunched, kNotLaunched}, SendResult::GiveUp},
      {{kNotLaunched, kKilled}, SendResult::Retry}};
  for (int code = 1; code < 100; ++code) {
    rows.push_back({{code}, code == 67 || code == 26 ? SendResult::GiveUp : SendResult::Retry});
  }
  for (const auto& [exits, result] : rows) {
    exits_ = exits;
    EXPECT_EQ(Send(std::vector<SmtpServer>(exits.size(), Server("a"))), result)
        << (exits.empty() ? 0 : exits[0]);
    EXPECT_EQ(host_.Logged(kGivenUp.text), result == SendResult::GiveUp ? 1 : 0);
    if (result == SendResult::GiveUp) {
      EXPECT_EQ(host_.Log().back(), kGivenUp);
    }
  }
}

// Nobody must wait for a program that waits for its input, or for one that the host will not end.
TEST_F(TransferTest, WhatIsNeverToldIsNotWaitedFor) {
  programs_.OnRun([this](const test::Launch&) {
    host_.Answer(HostCommand::ChannelMessage, 1, 0);
    return test::ProgramEnd{0, "", false, true};
  });
  EXPECT_EQ(Send({Server("a")}), SendResult::GiveUp);
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
  EXPECT_EQ(Send({Server("a"), Server("b")}), SendResult::Unknown);
  closing.join();
  EXPECT_EQ(host_.Log(),
            (std::vector<LogLine>{{50,
                                   "The host stopped while a message was being sent using server "
                                   "a. Nobody knows whether it arrived. (Profile Description: "
                                   "Gate)"}}));
}

// A normal exit gives its code, an end by signal 256 times the signal.
TEST_F(TransferTest, TheWaitStatusHasItsBytesExchanged) {
  for (const auto& [raw, expected] : {std::pair(67U << 8, 67), {9U, 2304}, {0x1234ABCDU, 0xCDAB}}) {
    programs_.OnRun([status = raw](const test::Launch&) {
      return test::ProgramEnd{status, "a\nb"};
    });
    std::int32_t exitValue = -1;
    Lines lines;
    EXPECT_TRUE(helper_.RunTransfer({"./curl"}, "", exitValue, lines));
    EXPECT_EQ(exitValue, expected);
    EXPECT_EQ(lines, (Lines{"a", "b"}));
  }
}

// Up to 4 MiB of it, each line cut to one of the log.
TEST_F(TransferTest, OfATalkativeProgramThereRemainsWhatTheLogTakes) {
  for (int i = 0; i < 3000; ++i) output_ += std::string(1023, 'x') + "\n";
  std::int32_t exitValue = 0;
  Lines lines;
  for (const std::size_t expected : {3000U, 4096U}) {
    lines.clear();
    EXPECT_TRUE(helper_.RunTransfer({"./curl"}, "", exitValue, lines));
    EXPECT_EQ(lines, Lines(expected, std::string(512, 'x')));
    output_ += output_;
  }
}

}  // namespace
}  // namespace tvx
