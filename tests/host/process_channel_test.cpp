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

using Lines = std::vector<std::string>;

// State, value, and whether it was abandoned.
std::string EndOf(ipc::client& program) {
  MutexLock lock(program.mutex);
  return std::to_string(static_cast<int>(program.state)) + ' ' + std::to_string(program.value) +
         (program.abandoned ? " abandoned" : "");
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
      return test::FakeHost::SendChunk(chunk, size) && !refuse_;
    });
  }
  ~ProcessChannelTest() override { EXPECT_TRUE(host_.Problems().empty()); }

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
    const std::string chunk = test::MakeReport(request, kind, word, payload);
    return channel_.Receive(chunk.data(), static_cast<std::uint32_t>(chunk.size()));
  }

  std::shared_ptr<ipc::client> Running(const Lines& arguments = {"./curl"}) {
    auto launched = Launch(arguments);
    EXPECT_TRUE(Report(host_.Chunks().back().request, 3, 4711));
    return launched.get();
  }

  test::FakeHost host_;
  ProcessChannel channel_;
  bool refuse_ = false;
};

TEST_F(ProcessChannelTest, LaunchesAndHearsOfItsPrograms) {
  const auto program = Running({"./curl", "", "-V"});
  const test::SentChunk launch = host_.Chunks().at(0);
  EXPECT_EQ(launch.kind * 10 + launch.word, 62u);
  EXPECT_EQ(launch.request, 0xC00001u);
  EXPECT_EQ(launch.payload, std::string("./curl\0\0-V", 10));
  const auto other = Running();
  EXPECT_TRUE(Report(launch.request, 1, 0, "first\r\n\nse"));
  EXPECT_TRUE(Report(launch.request, 2, 0, "an error"));
  EXPECT_TRUE(Report(launch.request, 1, 0, "cond\r\r\n\r\nlast\r"));
  EXPECT_TRUE(Report(launch.request, 5, 67));
  EXPECT_EQ(AllLines(*program, OutputStream::Output),
            (Lines{"first", "", "second\r", "", "last\r"}));
  EXPECT_EQ(AllLines(*program, OutputStream::Errors), (Lines{"an error"}));
  // Strangers, unknown kinds and torn reports are ignored.
  EXPECT_FALSE(Report(other->request + 1, 5) || Report(other->request, 6));
  EXPECT_FALSE(channel_.Receive(nullptr, 64));
  EXPECT_FALSE(channel_.Receive(test::MakeReport(other->request, 5, 0).data(), 15));
  EXPECT_EQ(EndOf(*other), "1 4711");
  EXPECT_EQ(EndOf(*program), "2 67");
}

TEST_F(ProcessChannelTest, EveryReportWakesAndMayEndTheProgram) {
  // Of kind 0, which is none, to 5.
  const char* const ends[] = {"1 4711", "1 4711", "1 4711", "1 9", "-1 9", "2 9"};
  for (std::uint32_t kind = 0; kind < 6; ++kind) {
    const auto program = Running();
    std::promise<void> waits;
    auto timedOut = std::async(std::launch::async, [&] {
      MutexLock lock(program->mutex);
      waits.set_value();
      const auto patience = boost::chrono::milliseconds(kind > 0 ? 20'000 : 20);
      return program->changed.WaitUntil(program->mutex,
                                        boost::chrono::steady_clock::now() + patience);
    });
    waits.get_future().wait();
    EXPECT_EQ(Report(program->request, kind, 9), kind > 0) << kind;  // without a payload
    EXPECT_EQ(timedOut.get(), kind == 0) << kind;
    EXPECT_EQ(EndOf(*program), ends[kind]);
    EXPECT_EQ(Report(program->request, 2), kind < 4) << kind;
  }
  auto failing = Launch();
  EXPECT_TRUE(Report(host_.Chunks().back().request, 4, 2));
  EXPECT_EQ(EndOf(*failing.get()), "-1 2");
}

TEST_F(ProcessChannelTest, LaunchesThatCannotBeSentFailAndNumbersWrap) {
  const auto end = [&](const Lines& arguments) { return EndOf(*channel_.RunProgram(arguments)); };
  const auto first = Running();
  refuse_ = true;
  EXPECT_EQ(end({std::string(65520, 'x')}), "-1 0");
  EXPECT_FALSE(Report(host_.Chunks().back().request, 3));  // not waited for
  const std::size_t sent = host_.Chunks().size();
  EXPECT_EQ(end({"./curl", std::string("a\0b", 3)}), "-1 0");
  EXPECT_EQ(end({std::string(65521, 'x')}), "-1 0");
  EXPECT_EQ(host_.Chunks().size(), sent);                     // refused before anything was sent
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xC00005u);  // each had its number
  channel_.Register(kModuleId, [](void* chunk, std::uint32_t) { return std::free(chunk), false; });
  std::uint32_t request = channel_.RunProgram({"p"})->request;
  while (request < 0xCFFFFE) request = channel_.RunProgram({"p"})->request;
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xCFFFFFu);
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xC00000u);
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xC00002u);  // 1 is still running
  channel_.Register(kModuleId, {});
  EXPECT_EQ(end({"./curl"}), "-1 0");
}

TEST_F(ProcessChannelTest, SplitsInputAt65520Bytes) {
  const auto program = Running();
  std::string bytes(65521, 'i');
  bytes.back() = '>';
  for (const std::size_t length : {0, 65520, 65521}) {
    EXPECT_TRUE(channel_.WriteInput(*program, ProgramInput(bytes.substr(0, length))));
  }
  refuse_ = true;
  EXPECT_FALSE(channel_.WriteInput(*program, ProgramInput(bytes)));  // the rest is not tried
  Lines payloads;
  for (const test::SentChunk& chunk : host_.Chunks()) {
    if (chunk.kind != 0) continue;
    EXPECT_TRUE(chunk.word == 1 && chunk.request == program->request);
    payloads.push_back(chunk.payload);
  }
  const std::string full = bytes.substr(0, 65520);
  EXPECT_EQ(payloads, (Lines{"", full, full, ">", full}));
}

TEST_F(ProcessChannelTest, CloseEndsEveryWait) {
  const auto running = Running();
  EXPECT_TRUE(Report(running->request, 1, 0, "line\nbuffered"));
  auto lines =
      std::async(std::launch::async, [&] { return AllLines(*running, OutputStream::Output); });
  auto launching = Launch({"./slow"});
  channel_.Close();
  EXPECT_EQ(lines.get(), (Lines{"line", "buffered"}));
  EXPECT_EQ(EndOf(*running), "2 0 abandoned");
  EXPECT_EQ(EndOf(*launching.get()), "-1 0");
  EXPECT_FALSE(Report(running->request, 5));
  EXPECT_EQ(EndOf(*channel_.RunProgram({"./curl"})), "-1 0");
}

// The limit is on what is not read yet; a line may come in any pieces.
TEST(LineBuffer, CutsAnEndlessTalkerThatNobodyReads) {
  ipc::LineBuffer buffer;
  std::string text;
  for (int i = 0; i < 3; ++i) {
    text = std::string(kMaxUnreadOutput / 4, 'r') + '\n' + std::string(kMaxUnreadOutput / 2, 'x');
    buffer.Append(text.data(), text.size());
    ASSERT_TRUE(buffer.TakeLine(text));  // what is read counts no more
    ASSERT_FALSE(buffer.TakeLine(text));
    text.assign(kMaxUnreadOutput / 2 - 1, 'x');
    buffer.Append(text.data(), text.size());
    buffer.Append("\nno room", 8);
    ASSERT_TRUE(buffer.TakeLine(text));
    ASSERT_EQ(text.size(), kMaxUnreadOutput - 1);
  }
  EXPECT_FALSE(buffer.TakeRest(text));
}

TEST(HostEntry, HandsBackTheAnswersAndMayBeMissing) {
  test::FakeHost host;
  host.Answer(HostCommand::StatusDocument, 1, 7);
  const char* const document = "<a/>";
  EXPECT_EQ(SendHostDocument(&test::FakeHost::Entry, HostCommand::StatusDocument, document), 7u);
  EXPECT_EQ(SendHostDocument(nullptr, HostCommand::StatusDocument, document), 0u);  // before Load
  ReleaseHostFrame(nullptr, &host);
  SendWatchdogEvent(nullptr);
}

}  // namespace
}  // namespace tvx
