// A message with a 10 MiB attachment, from the file on disk to the closed message file, beside what
// the disk alone would take. All write into the same folder, to a file that was not there before;
// nothing waits for the disk itself.
//
//   compose           ComposeMessage and the close
//   compose_standard  the same in the standard layout
//   copy              the file read and 4/3 of its size written, in pieces of 1 MiB (fread, fwrite)
//   coreutils_base64  base64 -w 76, started as a program of its own
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "mail/composition.h"
#include "mail/notify_file_stream.h"
#include "support/fake_host.h"
#include "support/run.h"

namespace tvx::bench {
namespace {

constexpr std::size_t kMib = 1048576;
constexpr std::size_t kAttachmentBytes = 10 * kMib;
constexpr const char* kAttachment = "clip.mov";
constexpr const char* kOutput = "output";

void MakeFiles() {
  if (std::filesystem::exists(kAttachment)) return;
  std::filesystem::create_directory("data");
  std::vector<char> bytes(kAttachmentBytes);
  std::minstd_rand random(1);
  for (char& byte : bytes) byte = static_cast<char>(random() >> 8);
  std::ofstream(kAttachment, std::ios::binary).write(bytes.data(), kAttachmentBytes);
}

void Compose(benchmark::State& state, bool isStandard) {
  MakeFiles();
  MessageContent content;
  content.profileId = 1;
  content.delivery.Standard = isStandard;
  content.from = "nvr@example.com";
  content.to = {"guard@example.com"};
  content.subject = "Video Motion at Gate";
  content.body = "Video Motion at Gate.\r\n";
  const AttachmentEntry attachment{true, kAttachment, "Gate: 15.000 seconds"};
  NotifyFileStreamImpl stream(&test::FakeHost::Entry);
  for (auto _ : state) {
    stream.remove(MessagePath(content, 0, 1, 0));
    PendingMessage pending;
    bool composed = false;
    TimeOnce(state, [&] {
      composed = ComposeMessage(content, {attachment}, 0, 1, 0, stream, pending);
      stream.close();
    });
    if (!composed || stream.fail()) state.SkipWithError("the message was not written");
  }
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

void Copy(benchmark::State& state) {
  MakeFiles();
  std::vector<char> block(kMib / 3 * 4);
  for (auto _ : state) {
    std::filesystem::remove(kOutput);
    TimeOnce(state, [&] {
      const File from(std::fopen(kAttachment, "rb"), &std::fclose);
      const File to(std::fopen(kOutput, "wb"), &std::fclose);
      while (const std::size_t count = std::fread(block.data(), 1, kMib, from.get())) {
        std::fwrite(block.data(), 1, count / 3 * 4, to.get());
      }
    });
  }
}

void CoreutilsBase64(benchmark::State& state) {
  MakeFiles();
  const std::string command = std::string("exec base64 -w 76 ") + kAttachment + " >" + kOutput;
  for (auto _ : state) {
    std::filesystem::remove(kOutput);
    int status = 0;
    TimeOnce(state, [&] { status = std::system(command.c_str()); });
    if (status != 0) state.SkipWithError("base64 failed");
  }
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  using tvx::bench::Compose;
  benchmark::RegisterBenchmark("compose", Compose, false)->UseManualTime();
  benchmark::RegisterBenchmark("compose_standard", Compose, true)->UseManualTime();
  benchmark::RegisterBenchmark("copy", tvx::bench::Copy)->UseManualTime();
  benchmark::RegisterBenchmark("coreutils_base64", tvx::bench::CoreutilsBase64)->UseManualTime();
  return tvx::bench::RunCases(argc, argv);
}
