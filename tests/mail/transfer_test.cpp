#include "mail/transfer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mail/scripted_helper.h"
#include "support/fake_host.h"
#include "support/fake_programs.h"

namespace tvx {
namespace {

constexpr const char* kGivenUp =
    "Failed to send notification using profile Gate.  This message will NOT be retried due to "
    "failure return codes 67 or 26 or due to failures to prepare or initiate email operation";

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

TEST(CurlArguments, NameSenderRecipientsFileAndServer) {
  EXPECT_EQ(BuildCurlArguments(Message(), Server("a", 587, use_ssl::kStartTls)),
            (std::vector<std::string>{"./curl", "--mail-from", "f@x", "--mail-rcpt", "t@x",
                                      "--mail-rcpt", "-u@x", "--ssl-reqd", "--insecure",
                                      "--connect-timeout", "60", "--config", "-", "-T",
                                      "./data/notify-mail-3-1-2-0", "smtp://mail%20host:587"}));
  EXPECT_EQ(BuildCurlArguments(Message(), Server("a", 465, use_ssl::kSmtps)).back(),
            "smtps://mail%20host:465");
  EXPECT_EQ(BuildCurlArguments(Message(), Server("a", 25, 7))[7], "--insecure");
}

TEST(CurlInput, QuotesCredentialsSoThatTheyStayOneOption) {
  SmtpServer server = Server("a");
  server.password = "alone";
  EXPECT_EQ(BuildCurlInput(server), "");
  server.username = "u\"ser";
  server.password = "p\\w\"\r\nurl = x";
  EXPECT_EQ(BuildCurlInput(server), "user = \"u\\\"ser:p\\\\w\\\"\\r\\nurl = x\"");
}

TEST(SendMessage, TriesServersInOrderUntilOneAccepts) {
  test::FakeHost host;
  test::ScriptedHelper helper;
  helper.exits = {7, 0};
  helper.output = {"100% of nothing"};
  EXPECT_EQ(SendMessage(Message(), {Server("a"), Server("b"), Server("c")}, helper),
            SendResult::Sent);
  EXPECT_EQ(helper.transfers.size(), 2u);
  EXPECT_EQ(host.Log(),
            (std::vector<test::LogLine>{
                {50, "Profile Description: Gate. Notification attempt return code= 7"},
                {25, "100% of nothing"},
                {25, "Profile Description: Gate. Notification attempt return code= 0"}}));
}

TEST(SendMessage, OneTemporaryFailureMakesItWorthRetrying) {
  struct Case {
    std::deque<std::int32_t> exits;
    SendResult result;
  };
  constexpr auto kNotLaunched = test::ScriptedHelper::kNotLaunched;
  for (const Case& c : {Case{{7, 67}, SendResult::Retry}, Case{{67, 7}, SendResult::Retry},
                        Case{{67, 26}, SendResult::GiveUp}, Case{{2304, 67}, SendResult::Retry},
                        Case{{kNotLaunched, 67}, SendResult::GiveUp},
                        Case{{kNotLaunched, kNotLaunched}, SendResult::GiveUp},
                        Case{{kNotLaunched, 56}, SendResult::Retry}}) {
    test::FakeHost host;
    test::ScriptedHelper helper;
    helper.exits = c.exits;
    EXPECT_EQ(SendMessage(Message(), {Server("a"), Server("b")}, helper), c.result);
    EXPECT_EQ(host.Logged(kGivenUp), c.result == SendResult::GiveUp ? 1 : 0);
  }
}

TEST(SendMessage, WithoutServersOrLaunchesThereIsNothingToRetry) {
  test::FakeHost host;
  test::ScriptedHelper helper;
  EXPECT_EQ(SendMessage(Message(), {}, helper), SendResult::GiveUp);
  helper.exits = {test::ScriptedHelper::kNotLaunched};
  EXPECT_EQ(SendMessage(Message(), {Server("Main")}, helper), SendResult::GiveUp);
  EXPECT_EQ(host.Log(),
            (std::vector<test::LogLine>{{75, kGivenUp},
                                        {75,
                                         "Failed to execute curl smtp operation using server "
                                         "Main. (Profile Description: Gate)"},
                                        {75, kGivenUp}}));
}

// The real operation, with a host that plays the program.
class RunTransferTest : public testing::Test {
 protected:
  RunTransferTest() {
    channel_.Register(kModuleId, [](void* chunk, std::uint32_t size) {
      HostRequest request{
          kHostRequestSize,  1, size, chunk, kModuleId, 0, HostCommand::ChannelMessage,
          PayloadKind::None, 0, 0,    0,     {}};
      HostReply reply{12, 1, 0};
      return test::FakeHost::Entry(&request, &reply) == 0;
    });
  }

  bool Run(const test::ProgramEnd& end) {
    programs_.OnRun([end](const test::Arguments&) { return end; });
    lines_.clear();
    return helper_.RunTransfer({"./curl"}, "user = \"u:p\"", exitValue_, lines_);
  }

  test::FakeHost host_;
  ProcessChannel channel_;
  test::FakePrograms programs_{host_, [this](const std::string& chunk) {
                                 channel_.Receive(chunk.data(),
                                                  static_cast<std::uint32_t>(chunk.size()));
                               }};
  test::IgnoredStatus owner_;
  NotifyHelper helper_{owner_, channel_, &test::FakeHost::Entry};
  std::int32_t exitValue_ = -1;
  std::vector<std::string> lines_;
};

TEST_F(RunTransferTest, ReportsTheWaitStatusWithItsBytesExchanged) {
  struct Case {
    std::uint32_t raw;
    std::int32_t exitValue;
  };
  for (const Case& c : {Case{67 << 8, 67}, Case{9, 2304}, Case{0, 0}}) {
    EXPECT_TRUE(Run({c.raw, "one\ntwo"}));
    EXPECT_EQ(exitValue_, c.exitValue);
    EXPECT_EQ(lines_, (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(host_.Chunks().back().payload, "user = \"u:p\"");
  }
  channel_.Close();
  EXPECT_FALSE(Run({}));
}

// Whole, these lines would be as much as the channel keeps of a program, again and again.
TEST_F(RunTransferTest, OfATalkativeProgramThereRemainsWhatTheLogTakes) {
  std::string output;
  for (int i = 0; i < 1500; ++i) output += std::string(2000, 'x') + "\r\n";
  EXPECT_TRUE(Run({7 << 8, output}));
  EXPECT_EQ(lines_, std::vector<std::string>(1000, std::string(512, 'x')));
}

}  // namespace
}  // namespace tvx
