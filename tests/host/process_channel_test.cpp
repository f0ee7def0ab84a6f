#include "host/process_channel.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "base/input_limits.h"
#include "host/host_entry.h"
#include "support/fake_host.h"

namespace tvx {
namespace {

using test::MakeReport;
using test::SentChunk;
using Lines = std::vector<std::string>;

struct End {
  ipc::State state;
  std::uint32_t value;
  bool abandoned;
  friend bool operator==(const End& a, const End& b) {
    return a.state == b.state && a.value == b.value && a.abandoned == b.abandoned;
  }
};

End EndOf(ipc::client& program) {
  MutexLock lock(program.mutex);
  return {program.state, program.value, program.abandoned};
}

Lines AllLines(ipc::client& program, OutputStream stream) {
  Lines lines;
  for (std::string line; ReadLine(program, stream, line);) lines.push_back(line);
  return lines;
}

class ProcessChannelTest : public testing::Test {
 protected:
  ProcessChannelTest() {
    channel_.Register(kModuleId, [this](void* chunk, std::uint32_t size) {
      HostRequest request = MakeHostRequest(HostCommand::ChannelMessage, PayloadKind::None);
      request.length = size;
      request.payload = chunk;
      HostReply reply = MakeHostReply();
      return test::FakeHost::Entry(&request, &reply) == 0 && !refuse_;
    });
  }

  // Launches a program on another thread and returns it once its launch was seen by the host.
  std::future<std::shared_ptr<ipc::client>> Launch(const Lines& arguments = {"./curl"}) {
    const std::size_t before = host_.Chunks().size();
    auto launched = std::async(std::launch::async,
                               [this, arguments] { return channel_.RunProgram(arguments); });
    EXPECT_TRUE(host_.WaitFor([&] { return host_.Chunks().size() > before; }));
    return launched;
  }

  bool Report(std::uint32_t request, std::uint32_t kind, std::uint32_t word = 0,
              const std::string& payload = {}) {
    const std::string chunk = MakeReport(request, kind, word, payload);
    return channel_.Receive(chunk.data(), static_cast<std::uint32_t>(chunk.size()));
  }

  std::shared_ptr<ipc::client> Running(const Lines& arguments = {"./curl"}) {
    auto launched = Launch(arguments);
    EXPECT_TRUE(Report(host_.Chunks().back().request, 3, 4711));
    return launched.get();
  }

  // Launches that the host refuses: nothing stays pending, and no thread is needed.
  End Refused(const Lines& arguments, int times = 1) {
    for (; times > 1; --times) channel_.RunProgram(arguments);
    return EndOf(*channel_.RunProgram(arguments));
  }

  test::FakeHost host_;
  ProcessChannel channel_;
  bool refuse_ = false;
};

constexpr End kFailed{ipc::State::Failed, 0, false};

TEST_F(ProcessChannelTest, LaunchesAndHearsOfItsPrograms) {
  const auto program = Running({"./curl", "", "-V"});
  const SentChunk launch = host_.Chunks().at(0);
  EXPECT_EQ(launch.kind, 6u);
  EXPECT_EQ(launch.word, 2u);
  EXPECT_EQ(launch.request, 0xC00001u);
  EXPECT_EQ(launch.payload, std::string("./curl\0\0-V", 10));
  EXPECT_EQ(EndOf(*program), (End{ipc::State::Running, 4711, false}));

  const auto other = Running();
  EXPECT_TRUE(Report(launch.request, 1, 0, "first\r\nsec"));
  EXPECT_TRUE(Report(launch.request, 2, 0, "an error\n\r\r\n"));
  EXPECT_TRUE(Report(launch.request, 1, 0, "ond\n\n\rlast, no line end\r"));
  EXPECT_TRUE(Report(launch.request, 5, 67));
  EXPECT_EQ(AllLines(*program, OutputStream::Output),
            (Lines{"first", "second", "", "\rlast, no line end\r"}));
  EXPECT_EQ(AllLines(*program, OutputStream::Errors), (Lines{"an error", "\r"}));
  EXPECT_EQ(EndOf(*program), (End{ipc::State::Finished, 67, false}));
  EXPECT_EQ(EndOf(*other), (End{ipc::State::Running, 4711, false}));

  // Strangers, unknown kinds and torn reports are ignored.
  EXPECT_FALSE(Report(launch.request, 1));
  EXPECT_FALSE(Report(other->request + 1, 5));
  EXPECT_FALSE(Report(other->request, 6));
  EXPECT_FALSE(channel_.Receive(nullptr, 64));
  EXPECT_FALSE(channel_.Receive(MakeReport(other->request, 5, 0).data(), 15));
  EXPECT_EQ(EndOf(*other), (End{ipc::State::Running, 4711, false}));
}

TEST_F(ProcessChannelTest, EveryReportWakesAndMayEndTheProgram) {
  const struct {
    std::uint32_t kind;
    bool wakes;
    End end;
    bool isKnownAfterwards;
  } kCases[] = {
      {0, false, {ipc::State::Running, 4711, false}, true},
      {1, true, {ipc::State::Running, 4711, false}, true},  // no payload, still a report
      {2, true, {ipc::State::Running, 4711, false}, true},
      {3, true, {ipc::State::Running, 9, false}, true},
      {4, true, {ipc::State::Failed, 9, false}, false},  // failed after it had begun
      {5, true, {ipc::State::Finished, 9, false}, false},
  };
  for (const auto& each : kCases) {
    const auto program = Running();
    std::promise<void> waits;
    auto timedOut = std::async(std::launch::async, [&] {
      using boost::chrono::steady_clock;
      MutexLock lock(program->mutex);
      waits.set_value();
      const auto patience = boost::chrono::milliseconds(each.wakes ? 20'000 : 20);
      return program->changed.WaitUntil(program->mutex, steady_clock::now() + patience);
    });
    waits.get_future().wait();
    EXPECT_EQ(Report(program->request, each.kind, 9), each.wakes) << each.kind;
    EXPECT_EQ(timedOut.get(), !each.wakes) << each.kind;
    EXPECT_EQ(EndOf(*program), each.end) << each.kind;
    EXPECT_EQ(Report(program->request, 2), each.isKnownAfterwards) << each.kind;
  }
  auto failing = Launch();
  EXPECT_TRUE(Report(host_.Chunks().back().request, 4, 2));
  EXPECT_EQ(EndOf(*failing.get()), (End{ipc::State::Failed, 2, false}));
  auto quick = Launch();
  EXPECT_TRUE(Report(host_.Chunks().back().request, 5, 3));
  EXPECT_EQ(EndOf(*quick.get()), (End{ipc::State::Finished, 3, false}));
}

TEST_F(ProcessChannelTest, LaunchesThatCannotBeSentFail) {
  refuse_ = true;
  EXPECT_EQ(Refused({"./curl"}), kFailed);
  EXPECT_EQ(Refused({std::string(65520, 'x')}), kFailed);
  EXPECT_EQ(host_.Chunks().back().payload.size(), 65520u);
  EXPECT_FALSE(Report(host_.Chunks().back().request, 3));  // not waited for
  const std::size_t sent = host_.Chunks().size();
  EXPECT_EQ(Refused({"./curl", std::string("a\0b", 3)}), kFailed);
  EXPECT_EQ(Refused({std::string(65521, 'x')}), kFailed);
  EXPECT_EQ(host_.Chunks().size(), sent);  // refused before anything was sent
  ProcessChannel unregistered;
  EXPECT_EQ(EndOf(*unregistered.RunProgram({"./curl"})), kFailed);
}

TEST_F(ProcessChannelTest, RequestIdentifiersWrapAndSkipPendingOnes) {
  const auto first = Running();
  channel_.Register(kModuleId, [](void* chunk, std::uint32_t) {
    std::free(chunk);
    return false;
  });
  Refused({"p"}, 0xFFFFD);
  EXPECT_EQ(first->request, 0xC00001u);
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xCFFFFFu);
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xC00000u);
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xC00002u);  // 1 is still running
}

TEST_F(ProcessChannelTest, SplitsInputAt65520Bytes) {
  const auto program = Running();
  std::string bytes(65521, 'i');
  bytes.front() = '<';
  bytes.back() = '>';
  for (const std::size_t length : {0, 65520, 65521}) {
    EXPECT_TRUE(channel_.WriteInput(*program, ProgramInput(bytes.substr(0, length))));
  }
  Lines payloads;
  for (const SentChunk& chunk : host_.Chunks()) {
    if (chunk.kind != 0) continue;
    EXPECT_EQ(chunk.word, 1u);
    EXPECT_EQ(chunk.request, program->request);
    payloads.push_back(chunk.payload);
  }
  EXPECT_EQ(payloads, (Lines{"", bytes.substr(0, 65520), bytes.substr(0, 65520), ">"}));
  EXPECT_TRUE(host_.Problems().empty());  // chunks say their own size
  refuse_ = true;
  const std::size_t sent = host_.Chunks().size();
  EXPECT_FALSE(channel_.WriteInput(*program, ProgramInput(bytes)));
  EXPECT_EQ(host_.Chunks().size(), sent + 1);  // the rest is not tried
}

TEST_F(ProcessChannelTest, CloseEndsEveryWait) {
  const auto running = Running();
  EXPECT_TRUE(Report(running->request, 1, 0, "line\nbuffered"));
  auto lines =
      std::async(std::launch::async, [&] { return AllLines(*running, OutputStream::Output); });
  auto launching = Launch({"./slow"});
  channel_.Close();
  EXPECT_EQ(lines.get(), (Lines{"line", "buffered"}));
  EXPECT_EQ(EndOf(*running), (End{ipc::State::Finished, 0, true}));
  EXPECT_EQ(EndOf(*launching.get()), kFailed);
  EXPECT_FALSE(Report(running->request, 5));
  EXPECT_EQ(Refused({"./curl"}), kFailed);
}

TEST(LineBuffer, GivesLinesWhateverPiecesTheyComeIn) {
  ipc::LineBuffer buffer;
  std::string text = "before";
  Lines lines;
  for (const std::string piece : {"a", "b\n", "\r", "\nc\r\r\nd", "\n\ne\r"}) {
    buffer.Append(piece.data(), piece.size());
    while (buffer.TakeLine(text)) lines.push_back(text);
  }
  EXPECT_EQ(lines, (Lines{"ab", "", "c\r", "d", ""}));
  EXPECT_TRUE(buffer.TakeRest(text));
  EXPECT_EQ(text, "e\r");
  EXPECT_FALSE(buffer.TakeRest(text));
}

// The limit is on what is not read yet.
TEST(LineBuffer, CutsAnEndlessTalkerThatNobodyReads) {
  ipc::LineBuffer buffer;
  const std::string line = std::string(59999, 'x') + '\n';
  std::string text;
  for (int i = 0; i < 160; ++i) buffer.Append(line.data(), i < 80 ? line.size() : 59999);
  for (int i = 0; i < 69; ++i) ASSERT_TRUE(buffer.TakeLine(text));
  ASSERT_TRUE(buffer.TakeRest(text));
  EXPECT_EQ(text.size(), kMaxUnreadOutput - 69 * 60000);
  for (int i = 0; i < 80; ++i) {
    buffer.Append("y", 1);
    buffer.Append(line.data(), line.size());
    ASSERT_TRUE(buffer.TakeLine(text));
    ASSERT_EQ(text.size(), 60000u);
  }
}

TEST(HostEntry, SendsTheRecordsAndHandsBackTheAnswers) {
  test::FakeHost host;
  const auto entry = &test::FakeHost::Entry;
  host.Answer(HostCommand::StatusDocument, 1, 7);
  host.Answer(HostCommand::Watchdog, 3, 4);
  EXPECT_EQ(SendHostDocument(entry, HostCommand::StatusDocument, "<a/>"), 7u);
  EXPECT_EQ(SendHostDocument(entry, HostCommand::ConfigDocument, "<b/>"), 0u);
  ASSERT_EQ(host.Documents().size(), 2u);
  EXPECT_EQ(host.Documents()[0].text, "<a/>");
  EXPECT_EQ(host.Documents()[1].command, HostCommand::ConfigDocument);
  ReleaseHostFrame(entry, &host);
  EXPECT_EQ(host.ReleasedFrames(), std::vector<const void*>{&host});
  const WatchdogOutcome outcome = SendWatchdogEvent(entry);
  EXPECT_EQ(outcome.returned, 3);
  EXPECT_EQ(outcome.status, 4u);
  EXPECT_EQ(host.WatchdogEvents(), 1);
  EXPECT_TRUE(host.Problems().empty());

  // Before Load there is nobody to tell.
  EXPECT_EQ(SendHostDocument(nullptr, HostCommand::StatusDocument, "<a/>"), 0u);
  ReleaseHostFrame(nullptr, &host);
  SendWatchdogEvent(nullptr);
  EXPECT_EQ(host.Documents().size(), 2u);
}

}  // namespace
}  // namespace tvx
