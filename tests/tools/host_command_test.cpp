// `notifypi host` as a program: what it prints, what it finds, how it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace tvx::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Outcome {
  int exitCode = -1;
  std::string output;

  // The texts of one kind of line, in order.
  std::vector<json> Lines(const std::string& kind) const {
    std::vector<json> lines;
    std::istringstream text(output);
    for (std::string line; std::getline(text, line);) {
      const json object = json::parse(line, nullptr, false);
      if (object.is_object() && object["kind"] == kind) lines.push_back(object);
    }
    return lines;
  }

  std::vector<std::string> Texts(const std::string& kind) const {
    std::vector<std::string> texts;
    for (const json& line : Lines(kind)) texts.push_back(line["text"]);
    return texts;
  }
};

Outcome RunShell(const std::string& command) {
  Outcome run;
  std::FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  std::array<char, 4096> bytes{};
  for (std::size_t length = 0; (length = std::fread(bytes.data(), 1, bytes.size(), pipe)) > 0;) {
    run.output.append(bytes.data(), length);
  }
  const int status = pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return run;
}

class HostCommand : public testing::Test {
 protected:
  HostCommand() {
    WriteFile("event.xml",
              "<tDVR><Notify ID=\"786432\"><Profiles><Profile ID=\"1\" Alarm=\"1\" Action=\"7\"/>"
              "</Profiles></Notify></tDVR>");
  }

  static void WriteProgram(const std::string& script) {
    WriteFile("program", "#!/bin/sh\n" + script + "\n");
    chmod("program", 0700);
  }

  static Outcome RunHost(const std::string& arguments, const std::string& before = {}) {
    return RunShell(before + " " NOTIFYPI_COMMAND " host --json --plugin " FAULTY_PLUGIN " " +
                    arguments);
  }

  TemporaryFolder folder_;
};

TEST_F(HostCommand, RunsAProgramThroughFullPipesInBothDirections) {
  // Everything comes back before and behind it, so that each side must wait for the other.
  WriteProgram("head -c 200000 /dev/zero; cat; echo \"$1|$2|$#\" >&2; exit 3");
  const Outcome run = RunHost("--event event.xml");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  EXPECT_THAT(run.Texts("fault"), IsEmpty());
  // 3 in the upper byte of a wait status.
  EXPECT_THAT(run.Texts("log"),
              ElementsAre("state 2, value 768, output 1200000, errors an argument||2"));
  ASSERT_EQ(run.Lines("launch").size(), 1u);
  EXPECT_EQ(run.Lines("launch")[0]["arguments"], (json{"./program", "an argument", ""}));
  ASSERT_EQ(run.Lines("ended").size(), 1u);
  EXPECT_EQ(run.Lines("ended")[0]["exit"], 3);
  ASSERT_EQ(run.Lines("status").size(), 1u);
  EXPECT_EQ(run.Lines("status")[0]["profile"], 1);
}

TEST_F(HostCommand, ReportsHowAProgramEnds) {
  const struct {
    const char* program;
    const char* reported;
  } cases[] = {
      {"kill -9 $$", "state 2, value 9, output 0, errors "},
      {"exit 67", "state 2, value 17152, output 0, errors "},
      // A program left behind keeps the pipes open; the end is reported all the same.
      {"sleep 20 & echo done", "state 2, value 0, output 4, errors "},
      {"exec <&-; sleep 0.2; echo done", "state 2, value 0, output 4, errors "},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.program);
    WriteProgram(one.program);
    const Outcome run = RunHost("--event event.xml");
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_THAT(run.Texts("log"), ElementsAre(one.reported));
  }
  std::remove("program");
  const Outcome run = RunHost("--event event.xml");
  EXPECT_THAT(run.Texts("log"), ElementsAre("state -1, value 2, output 0, errors "));
  EXPECT_EQ(run.Lines("launch-failed").size(), 1u);
}

TEST_F(HostCommand, FindsEachBreachOfTheContract) {
  const struct {
    const char* fault;
    const char* found;
  } cases[] = {
      {"size", "log line: size is 0xb4 instead of 0xb8"},
      {"version", "log line: version is 0x0 instead of 0x1"},
      {"module", "log line: module is 0x0 instead of 0xc0000"},
      {"reserved word", "log line: the reserved word at 36 is 0x1"},
      {"last word", "log line: the reserved word at 180 is 0x7"},
      {"log length", "the length of a log line counts"},
      {"log level", "the level of a log line"},
      {"payload kind", "payload kind is 0x1000010 instead of 0x1000002"},
      {"frame", "a frame was given back that the plug-in never took"},
      {"status document", "a status document is no XML document"},
      {"capability", "Load: the result record holds byte 0x00 at offset 12, where 0x6c belongs"},
      {"unused capability",
       "Load: the result record holds byte 0x00 at offset 44, where the host's"},
      {"request", "Open changed its request record"},
      {"missing word", "Open: the result record holds byte 0xa5 at offset 12, where 0x00 belongs"},
      {"return value", "Seek returned 1 instead of 0"},
      {"early worker", "the worker's thread came back before Close"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.fault);
    const Outcome run =
        RunHost("--settle 0.5 --event event.xml", "PLUGIN_FAULT='" + std::string(one.fault) + "'");
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_THAT(run.Texts("fault"), ElementsAre(HasSubstr(one.found)));
  }
  const Outcome frameWord = RunHost("--settle 0.5 --event event.xml", "PLUGIN_FAULT='frame word'");
  EXPECT_THAT(frameWord.Texts("fault"),
              ElementsAre(HasSubstr("Write of an event: the result record holds byte 0x00")));
  const Outcome command = RunHost("--settle 0.5 --event event.xml", "PLUGIN_FAULT='command'");
  EXPECT_THAT(command.output, HasSubstr("the command is unknown"));
}

TEST_F(HostCommand, ATimeOutIsAFaultAndLeavesNoProgramBehind) {
  WriteProgram("echo $$ > pid; exec sleep 60");
  const Outcome run = RunHost("--event event.xml --timeout 1");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.Texts("fault"), ElementsAre("not done after 1 s; still running: ./program"));
  EXPECT_EQ(RunShell("kill -0 $(cat pid)").exitCode, 1);
}

TEST_F(HostCommand, StopsCleanlyOnASignal) {
  for (const char* signal : {"INT", "TERM"}) {
    const Outcome run = RunHost("", "timeout --preserve-status -s " + std::string(signal) + " 1");
    EXPECT_EQ(run.exitCode, 0) << run.output;
    ASSERT_FALSE(run.Texts("host").empty());
    EXPECT_EQ(run.Texts("host").back(), "unloaded");
  }
}

TEST_F(HostCommand, RepeatsTheWholeLifeOfThePlugin) {
  WriteProgram("cat");
  const Outcome run = RunHost("--event event.xml --repeat 3");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  EXPECT_EQ(run.Lines("status").size(), 3u);
  const Outcome stopped = RunHost("--repeat 3", "timeout --preserve-status -s INT 1");
  EXPECT_EQ(stopped.exitCode, 0) << stopped.output;
  EXPECT_EQ(stopped.Texts("host").back(), "unloaded");
}

TEST_F(HostCommand, FollowsAScript) {
  WriteProgram("exit 0");
  mkdir("steps", 0700);
  WriteFile("steps/script",
            "# two events, one after the other\n"
            "\n"
            "  event ../event.xml\r\n"
            "wait delivered 1\n"
            "tick\n"
            "wait 0.1\n"
            "event ../event.xml\n"
            "wait idle\n");
  const Outcome run = RunHost("--script steps/script");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  EXPECT_EQ(run.Lines("status").size(), 2u);
}

TEST_F(HostCommand, TakesItsMailServerAwayAndBringsItBack) {
  WriteFile("script", "mail-server down\nmail-server down\nmail-server up\nmail-server up\n");
  // The second process is one that the server's end alone would leave behind.
  const Outcome run = RunHost(
      "--script script --mail-server 'sleep 60 & echo $$ >> pids; echo $! >> pids; echo up; wait'");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  std::vector<std::string> told;
  for (const std::string& text : run.Texts("host")) {
    if (text.find("mail server") != std::string::npos) told.push_back(text);
  }
  EXPECT_THAT(told, ElementsAre("starting the mail server", "mail server up", "mail server down",
                                "starting the mail server", "mail server up", "mail server down"));
  EXPECT_EQ(RunShell("wc -l < pids").output, "4\n");
  // An orphan is there until its new parent has taken note of its end.
  const std::string anyAlive = "for pid in $(cat pids); do kill -0 $pid && exit 0; done; exit 1";
  for (int tries = 0; tries < 50 && RunShell(anyAlive).exitCode == 0; ++tries) {
    RunShell("sleep 0.1");
  }
  EXPECT_EQ(RunShell(anyAlive).exitCode, 1);

  const Outcome failed = RunHost("--script script --mail-server 'echo no port >&2; exit 3'");
  EXPECT_EQ(failed.exitCode, 1);
  EXPECT_THAT(failed.Texts("fault"), ElementsAre("the mail server did not come up: no port"));
}

TEST_F(HostCommand, KeepsTheBooksOfFrames) {
  const struct {
    const char* fault;
    std::vector<std::string> found;
  } cases[] = {
      {"none", {}},
      // Its release may overtake the answer.
      {"frame at once", {}},
      {"frame lost", {"1 frame of stream 66049 had not come back when Unload returned"}},
      {"frame twice", {"a frame of stream 66049 was given back twice"}},
      {"frame refused", {"a frame of stream 66049 was given back that Write had answered with 0"}},
      {"frame at once, refused", {"a frame of stream 66049 was given back, but Write answered 0"}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.fault);
    const Outcome run = RunHost("--pace 20 --before 0.4 --camera '66049 jpeg'",
                                "PLUGIN_FAULT='" + std::string(one.fault) + "'");
    EXPECT_EQ(run.exitCode, one.found.empty() ? 0 : 1) << run.output;
    EXPECT_EQ(run.Texts("fault"), one.found);
    ASSERT_EQ(run.Lines("frames").size(), 1u);
    EXPECT_GT(run.Lines("frames")[0]["taken"], 10);
  }
  const Outcome answer =
      RunHost("--before 0.2 --camera '66049 jpeg'", "PLUGIN_FAULT='frame answer'");
  EXPECT_THAT(answer.output, HasSubstr("Write of a frame: the result record holds byte 0x02"));
}

TEST_F(HostCommand, FeedsThePluginWhatItsSystemDocumentPromises) {
  // Without a document, the host makes one: the plug-in takes what notifies, and of a camera with
  // pictures only those.
  const Outcome run = RunShell(
      NOTIFYPI_COMMAND " host --json --plugin " NOTIFYPI_PLUGIN
                       " --settle 0.2 --pace 4 --before 1 --event event.xml --camera '66049 h264'"
                       " --camera '66305 mpeg4' --camera '66305/1 jpeg'");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  std::map<std::uint32_t, json> accounts;
  for (const json& account : run.Lines("frames")) accounts[account["stream"]] = account;
  ASSERT_EQ(accounts.size(), 3u);
  for (const std::uint32_t taken : {66049u, 66305u | 1u << 28}) {
    SCOPED_TRACE(taken);
    EXPECT_GT(accounts[taken]["offered"], 5);
    EXPECT_EQ(accounts[taken]["taken"], accounts[taken]["offered"]);
    EXPECT_EQ(accounts[taken]["given_back"], accounts[taken]["offered"]);
  }
  EXPECT_GT(accounts[66305]["offered"], 5);
  EXPECT_EQ(accounts[66305]["taken"], 0);
}

TEST_F(HostCommand, FeedsAFilePictureByPicture) {
  RunShell("ffmpeg -v error -f lavfi -i testsrc2=size=64x48:rate=10:duration=2 -g 10 film.mp4");
  WriteFile("script", "camera 66049 h264 film.mp4\nwait 3\n");
  const Outcome run = RunHost("--script script --pace 1");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  ASSERT_EQ(run.Lines("feed-end").size(), 1u);
  EXPECT_EQ(run.Lines("feed-end")[0]["frames"], 20);
  EXPECT_NEAR(run.Lines("feed-end")[0]["seconds"], 1.9, 0.5);
}

TEST_F(HostCommand, TellsWhatIsWrongWithItsUse) {
  WriteFile("bad-step", "tick\n\nsend event.xml\n");
  WriteFile("bad-wait", "wait soon\n");
  WriteFile("bad-count", "wait delivered 1x\n");
  WriteFile("missing", "event nowhere.xml\n");
  WriteFile("server", "mail-server down\n");
  WriteFile("bad-server", "mail-server away\n");
  WriteFile("bad-camera", "camera 66049\n");
  const struct {
    const char* arguments;
    const char* told;
  } cases[] = {
      {"--script bad-camera", "bad-camera:1: a camera's codec is h264, mpeg4 or jpeg, not \"\""},
      {"--camera '0 h264'", "\"0\" is no stream"},
      {"--camera '66049/16 h264'", "\"66049/16\" is no stream"},
      {"--camera '66049 h264 event.xml'", "ffprobe finds no video in "},
      {"--script bad-step", "bad-step:3: unknown step \"send\""},
      {"--script bad-wait", "bad-wait:1: \"wait\" is followed by"},
      {"--script bad-count", "bad-count:1: \"wait delivered\" is followed by"},
      {"--script missing", "missing:1: cannot read nowhere.xml"},
      {"--script server", "--mail-server is missing"},
      {"--script bad-server", "bad-server:1: \"mail-server\" is followed by"},
      {"--script bad-wait --event event.xml", "--script excludes --event"},
      {"--speed 2 --event event.xml --plugin " FAULTY_PLUGIN, "cannot be driven"},
      {"--event nowhere.xml", "nowhere.xml"},
      {"--plugin event.xml --event event.xml", "cannot load the plug-in"},
      {"--timeout -1", "--timeout"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.arguments);
    const Outcome run = RunShell(NOTIFYPI_COMMAND " host " + std::string(one.arguments));
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.output, HasSubstr(one.told));
  }
}

}  // namespace
}  // namespace tvx::test
