#include "host/process_channel.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>
#include <vector>

#include "base/input_limits.h"
#include "host/host_entry.h"
#include "support/fake_host.h"

namespace tvx {
namespace {

using test::MakeReport;
using test::SentChunk;

class ProcessChannelTest : public testing::Test {
 protected:
  ProcessChannelTest() {
    channel_.Register(kModuleId, [this](void* chunk, std::uint32_t size) {
      HostRequest request = MakeHostRequest(HostCommand::ChannelMessage, PayloadKind::None);
      request.length = size;
      request.payload = chunk;
      HostReply reply = MakeHostReply();
      return test::FakeHost::Entry(&request, &reply) == 0 && reply.status == 0 && !refuse_;
    });
  }

  // Launches a program on another thread and returns it once its launch was seen by the host.
  std::future<std::shared_ptr<ipc::client>> Launch(const std::vector<std::string>& arguments) {
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

  std::shared_ptr<ipc::client> Running(const std::vector<std::string>& arguments = {"./curl"}) {
    auto launched = Launch(arguments);
    EXPECT_TRUE(Report(host_.Chunks().back().request, 3, 4711));
    return launched.get();
  }

  static ipc::State StateOf(ipc::client& program) {
    MutexLock lock(program.mutex);
    return program.state;
  }

  static std::vector<std::string> AllLines(ipc::client& program, OutputStream stream) {
    std::vector<std::string> lines;
    for (std::string line; ReadLine(program, stream, line);) lines.push_back(line);
    return lines;
  }

  test::FakeHost host_;
  ProcessChannel channel_;
  bool refuse_ = false;
};

TEST_F(ProcessChannelTest, LaunchesWithArgumentsSeparatedByNulAndReadsLinesUntilTheEnd) {
  const auto program = Running({"./curl", "-V"});
  const SentChunk launch = host_.Chunks().at(0);
  EXPECT_EQ(launch.kind, 6u);
  EXPECT_EQ(launch.word, 2u);
  EXPECT_EQ(launch.request, 0xC00001u);
  EXPECT_EQ(launch.payload, std::string("./curl\0-V", 9));

  EXPECT_TRUE(Report(launch.request, 1, 0, "first\r\nsec"));
  EXPECT_TRUE(Report(launch.request, 2, 0, "an error\n"));
  EXPECT_TRUE(Report(launch.request, 1, 0, "ond\n\nlast, no line end"));
  EXPECT_TRUE(Report(launch.request, 5, 67));
  EXPECT_EQ(AllLines(*program, OutputStream::Output),
            (std::vector<std::string>{"first", "second", "", "last, no line end"}));
  EXPECT_EQ(AllLines(*program, OutputStream::Errors), (std::vector<std::string>{"an error"}));
  EXPECT_EQ(StateOf(*program), ipc::State::Finished);
  EXPECT_FALSE(Report(launch.request, 1, 0, "too late"));
}

TEST_F(ProcessChannelTest, FailedLaunchesEndInStateFailed) {
  auto failing = Launch({"./missing"});
  EXPECT_TRUE(Report(host_.Chunks().back().request, 4, 2));
  EXPECT_EQ(StateOf(*failing.get()), ipc::State::Failed);

  refuse_ = true;
  EXPECT_EQ(StateOf(*channel_.RunProgram({"./curl"})), ipc::State::Failed);
  refuse_ = false;

  const std::size_t sent = host_.Chunks().size();
  EXPECT_EQ(StateOf(*channel_.RunProgram({"./curl", std::string("a\0b", 3)})), ipc::State::Failed);
  EXPECT_EQ(StateOf(*channel_.RunProgram({std::string(65521, 'x')})), ipc::State::Failed);
  EXPECT_EQ(host_.Chunks().size(), sent);  // refused before anything was sent

  ProcessChannel unregistered;
  EXPECT_EQ(StateOf(*unregistered.RunProgram({"./curl"})), ipc::State::Failed);
}

TEST_F(ProcessChannelTest, SplitsInputAt65520Bytes) {
  const auto program = Running();
  for (const std::size_t length : {std::size_t{0}, std::size_t{65520}, std::size_t{65521}}) {
    const std::string input(length, 'i');
    EXPECT_TRUE(channel_.WriteInput(*program, ProgramInput(input)));
  }
  std::vector<std::size_t> sizes;
  for (const SentChunk& chunk : host_.Chunks()) {
    if (chunk.kind != 0) continue;
    EXPECT_EQ(chunk.word, 1u);
    EXPECT_EQ(chunk.request, program->request);
    sizes.push_back(chunk.payload.size());
  }
  EXPECT_EQ(sizes, (std::vector<std::size_t>{0, 65520, 65520, 1}));
  refuse_ = true;
  EXPECT_FALSE(channel_.WriteInput(*program, ProgramInput("x")));
}

TEST_F(ProcessChannelTest, RequestIdentifiersWrapAndSkipPendingOnes) {
  const auto first = Running();
  for (int i = 0; i < 0xFFFFD; ++i) {
    // The rest of the 20-bit round, refused so that nothing stays pending and no thread is needed.
    if (i == 0)
      channel_.Register(kModuleId, [](void* chunk, std::uint32_t) {
        std::free(chunk);
        return false;
      });
    channel_.RunProgram({"p"});
  }
  EXPECT_EQ(first->request, 0xC00001u);
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xCFFFFFu);
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xC00000u);
  EXPECT_EQ(channel_.RunProgram({"p"})->request, 0xC00002u);  // 1 is still running
}

TEST_F(ProcessChannelTest, MalformedAndForeignReportsAreIgnored) {
  const auto program = Running();
  EXPECT_FALSE(Report(program->request + 1, 5));
  EXPECT_FALSE(Report(program->request, 0));
  EXPECT_FALSE(Report(program->request, 6));
  EXPECT_FALSE(channel_.Receive(nullptr, 64));
  EXPECT_FALSE(channel_.Receive("short", 5));
  EXPECT_TRUE(Report(program->request, 1));  // no payload, still a report
  EXPECT_EQ(StateOf(*program), ipc::State::Running);
}

TEST_F(ProcessChannelTest, CloseEndsEveryWait) {
  const auto running = Running();
  EXPECT_TRUE(Report(running->request, 1, 0, "buffered"));
  auto lines =
      std::async(std::launch::async, [&] { return AllLines(*running, OutputStream::Output); });
  auto launching = Launch({"./slow"});
  channel_.Close();
  EXPECT_EQ(lines.get(), (std::vector<std::string>{"buffered"}));
  EXPECT_EQ(StateOf(*running), ipc::State::Finished);
  EXPECT_EQ(StateOf(*launching.get()), ipc::State::Failed);
  EXPECT_EQ(StateOf(*channel_.RunProgram({"./curl"})), ipc::State::Failed);
}

TEST_F(ProcessChannelTest, AnEndlesslyTalkingProgramIsCutNotKept) {
  const auto program = Running();
  const std::string flood(60000, 'x');
  for (int i = 0; i < 200; ++i) Report(program->request, 1, 0, flood);
  Report(program->request, 5);
  const auto lines = AllLines(*program, OutputStream::Output);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].size(), kMaxUnreadOutput);
}

}  // namespace
}  // namespace tvx
