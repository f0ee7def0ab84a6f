// How the simulated host runs the plug-in's programs.
#include "simulated_host/program.h"

#include <gtest/gtest.h>

#include <boost/asio/post.hpp>
#include <cerrno>
#include <csignal>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

namespace tvx::tool {
namespace {

TEST(Program, IsFedReadAndReaped) {
  std::signal(SIGPIPE, SIG_IGN);  // as on the event loop's thread
  const std::tuple<const char*, int, std::size_t, const char*> cases[] = {
      // Much comes back before the first byte is read, and all of it behind, so that each side must
      // wait for the other. A wait status has the exit code in its upper byte.
      {"head -c 200000 /dev/zero; cat; echo \"$0|$1|$#\" >&2; exit 3", 3 << 8, 1200000, "a b||1\n"},
      {"kill -9 $$", 9, 0, ""},
      // One that it leaves behind keeps the pipes open; the end is reported all the same.
      {"sleep 20 & echo done", 0, 5, ""},
      {"exec <&-; sleep 0.2; echo done", 0, 5, ""},
  };
  for (const auto& [script, waitStatus, length, written] : cases) {
    SCOPED_TRACE(script);
    boost::asio::io_context loop;
    std::size_t output = 0;
    std::string errors;
    int ended = -1;
    bool holding = true;
    std::shared_ptr<Program> program;
    const auto take = [&](const ProgramOutput& it) {
      if (it.header.kind == chunk_kind::kOutput) output += it.Text().size();
      if (it.header.kind == chunk_kind::kErrors) errors += it.Text();
      // The first chunk fills the plug-in's channel for a while.
      if (std::exchange(holding, false)) {
        boost::asio::post(loop, [&] { program->ReadOn(); });
        return false;
      }
      return true;
    };
    program = std::make_shared<Program>(
        loop, 7, Program::Reports{take, [&](int status, double) { ended = status; }});
    ASSERT_EQ(program->Start({"/bin/sh", "-c", script, "a b", ""}), 0);
    program->Feed(std::string(1000000, 'x'), true);
    program->Run();
    loop.run();
    EXPECT_EQ(ended, waitStatus);
    EXPECT_EQ(output, length);
    EXPECT_EQ(errors, written);
  }
  boost::asio::io_context loop;
  EXPECT_EQ(std::make_shared<Program>(loop, 7, Program::Reports{})->Start({"./missing"}), ENOENT);
}

}  // namespace
}  // namespace tvx::tool
