#include "mail/transfer.h"

#include <algorithm>
#include <thread>

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
  for (const auto& row : test::Rows(R"(
      mail host       | 587 | 2 | smtp://mail%20host:587
      mail            | -7  | 0 | smtp://mail:-7
      [::1            | 25  | 1 | smtps://%5b%3a%3a1:25
      \n-o "$(x)@/?# | 25  | 3 | smtp://%0a-o%20%22%24%28x%29%40%2f%3f%23:25
                      | 25  | 0 | smtp://:25)")) {
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
