// Input: reports of the host on a program that was just launched (request 0xC00001), each behind
// its size in one byte.
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "fuzz/input.h"
#include "host/host_records.h"
#include "host/ipc_client.h"
#include "host/process_channel.h"

namespace {

// Reads a stream of a program that has ended to its end.
std::size_t ReadAll(tvx::ipc::client& program, tvx::OutputStream stream) {
  std::size_t read = 0;
  for (std::string line; tvx::ReadLine(program, stream, line); read += line.size()) {
    tvx::test::Require(line.find('\n') == std::string::npos, "a line holds no line feed");
  }
  return read;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tvx::ProcessChannel channel;
  std::mutex mutex;
  std::condition_variable changed;
  bool launched = false;
  channel.Register(tvx::kModuleId, [&](void* chunk, std::uint32_t) {
    std::free(chunk);
    const std::lock_guard<std::mutex> lock(mutex);
    launched = true;
    changed.notify_one();
    return true;
  });
  // A launch waits for the host, which is this thread.
  std::shared_ptr<tvx::ipc::client> program;
  std::thread launch([&] { program = channel.RunProgram({"./curl", "-V"}); });
  {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return launched; });
  }

  std::string_view input = tvx::test::AsText(data, size);
  while (!input.empty()) {
    const std::size_t length = tvx::test::TakeByte(input);
    // A block of exactly this size, so that reading beyond it is noticed.
    const std::string_view report = input.substr(0, length);
    const std::vector<char> chunk(report.begin(), report.end());
    channel.Receive(chunk.data(), static_cast<std::uint32_t>(chunk.size()));
    input.remove_prefix(report.size());
  }

  channel.Close();
  launch.join();
  const std::size_t read =
      ReadAll(*program, tvx::OutputStream::Output) + ReadAll(*program, tvx::OutputStream::Errors);
  tvx::test::Require(read <= size, "no more comes out than went in");
  return 0;
}
