// `notifypi host` as a program: what it finds, how it treats the plug-in's programs, how it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/temporary_folder.h"

namespace tvx::test {
namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

struct Outcome {
  int exitCode;
  std::string output;

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
  const int status = std::system(("{ " + command + "\n} >output 2>&1").c_str());
  std::ostringstream text;
  text << std::ifstream("output").rdbuf();
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), text.str()};
}

class HostCommand : public testing::Test {
 protected:
  HostCommand() {
    WriteFile("event.xml",
              "<tDVR><Notify ID='786432'><Profiles><Profile ID='1' Alarm='1' Action='7'/>"
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

TEST_F(HostCommand, RunsPrograms) {
  const std::pair<std::string, const char*> cases[] = {
      // Everything comes back before and behind it, so that each side must wait for the other. A
      // wait status has 3 in its upper byte.
      {"head -c 200000 /dev/zero; cat; echo \"$1|$2|$#\" >&2; exit 3",
       "state 2, value 768, output 1200000, errors an argument||2"},
      {"kill -9 $$", "state 2, value 9, output 0, errors "},
      // One that it leaves behind keeps the pipes open; the end is reported all the same.
      {"sleep 20 & echo done", "state 2, value 0, output 4, errors "},
      {"exec <&-; sleep 0.2; echo done", "state 2, value 0, output 4, errors "},
      {"", "state -1, value 2, output 0, errors "},
  };
  for (const auto& [program, reported] : cases) {
    std::remove("program");
    if (!program.empty()) WriteProgram(program);
    const Outcome run = RunHost("--event event.xml");
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_THAT(run.Texts("log"), ElementsAre(reported));
  }
}

TEST_F(HostCommand, FindsEachBreachOfTheContract) {
  const std::string event = "--settle 0.5 --event event.xml";
  const std::string camera = "--pace 20 --before 0.4 --camera '66049 jpeg'";
  const struct {
    const std::string& arguments;
    const char* fault;
    const char* found;  // null: it is none
  } cases[] = {
      {event, "size", "log line: size is 0xb4 instead of 0xb8"},
      {event, "version", "log line: version is 0x0 instead of 0x1"},
      {event, "module", "log line: module is 0x0 instead of 0xc0000"},
      {event, "reserved word", "log line: the reserved word at 36 is 0x1"},
      {event, "last word", "log line: the reserved word at 180 is 0x7"},
      {event, "log length", "the length of a log line counts"},
      {event, "log level", "the level of a log line"},
      {event, "payload kind", "payload kind is 0x1000010 instead of 0x1000002"},
      {event, "command", "the command is unknown"},
      {event, "frame", "a frame was given back that the plug-in never took"},
      {event, "status document", "a status document is no XML document"},
      {event, "capability", "Load: the result record holds byte 0x00 at offset 12, where 0x6c"},
      {event, "unused capability",
       "Load: the result record holds byte 0x00 at offset 44, where the"},
      {event, "request", "Open changed its request record"},
      {event, "missing word", "Open: the result record holds byte 0xa5 at offset 12, where 0x00"},
      {event, "return value", "Seek returned 1 instead of 0"},
      {event, "early worker", "the worker's thread came back before Close"},
      {event, "frame word", "Write of an event: the result record holds byte 0x00"},
      {camera, "frame at once", nullptr},  // its release may overtake the answer
      {camera, "frame lost", "1 frame of stream 66049 had not come back when Unload returned"},
      {camera, "frame twice", "a frame of stream 66049 was given back twice"},
      {camera, "frame refused", "was given back that Write had answered with 0"},
      {camera, "frame at once, refused", "was given back, but Write answered 0"},
      {camera, "frame answer", "Write of a frame: the result record holds byte 0x02"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.fault);
    const Outcome run = RunHost(one.arguments, "PLUGIN_FAULT='" + std::string(one.fault) + "'");
    EXPECT_EQ(run.exitCode, one.found == nullptr ? 0 : 1) << run.output;
    if (one.found == nullptr) {
      EXPECT_THAT(run.Texts("fault"), IsEmpty());
    } else {
      EXPECT_THAT(run.Texts("fault"), Contains(HasSubstr(one.found)));
    }
  }
}

TEST_F(HostCommand, TimeOutIsAFaultAndLeavesNoProgramBehind) {
  WriteProgram("echo $$ > pid; exec sleep 60");
  const Outcome run = RunHost("--event event.xml --timeout 1");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.Texts("fault"), ElementsAre("not done after 1 s; still running: ./program"));
  EXPECT_EQ(RunShell("kill -0 $(cat pid)").exitCode, 1);
}

TEST_F(HostCommand, StopsCleanlyOnASignalAndRunsAgain) {
  for (const std::string signal : {"INT", "HUP", "QUIT"}) {
    const Outcome run = RunHost("--mail-server 'echo up; exec sleep 60'",
                                "timeout --preserve-status -s " + signal + " 1");
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_THAT(run.Texts("host"), Contains("mail server down"));
    EXPECT_EQ(run.Texts("host").back(), "unloaded");
  }
  EXPECT_EQ(RunHost("--event event.xml --repeat 3").Lines("status").size(), 3u);
}

TEST_F(HostCommand, ReportsAMailServerThatDoesNotComeUp) {
  const Outcome run = RunHost("--event event.xml --mail-server 'echo no port >&2; exit 3'");
  EXPECT_THAT(run.Texts("fault"), ElementsAre("the mail server did not come up: no port"));
}

// The host makes the system document that goes with the cameras: the plug-in takes what notifies,
// and of a camera with pictures only those.
TEST_F(HostCommand, FeedsEachPacketOfAFile) {
  RunShell(
      "for codec in libx264 mpeg4 mjpeg; do ffmpeg -v error -f lavfi -i "
      "testsrc2=size=64x48:rate=10:duration=2 -c:v $codec -g 10 $codec.mp4; done");
  const Outcome run = RunShell(
      NOTIFYPI_COMMAND " host --json --plugin " NOTIFYPI_PLUGIN
                       " --settle 0.2 --pace 10 --before 1 --event event.xml"
                       " --camera '66049 h264 libx264.mp4' --camera '66305 mpeg4 mpeg4.mp4'"
                       " --camera '66305/1 jpeg mjpeg.mp4' --camera '66561 h264 mpeg4.mp4'");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  const int packets =
      std::stoi(RunShell("ffprobe -v error -show_packets -of compact libx264.mp4 | wc -l").output);
  std::map<std::uint32_t, int> taken;
  for (const json& account : run.Lines("frames")) {
    EXPECT_EQ(account["offered"], packets);
    EXPECT_EQ(account["given_back"], account["taken"]);
    taken[account["stream"]] = account["taken"];
  }
  EXPECT_THAT(taken, ElementsAre(Pair(66049, packets), Pair(66305, 0), Pair(66561, packets),
                                 Pair(66305 | 1u << 28, packets)));
}

TEST_F(HostCommand, UsageErrors) {
  const std::pair<std::string, const char*> cases[] = {
      {"--camera '66049/16 h264'", "\"66049/16\" is no stream"},
      {"--camera '66049 h264 event.xml'", "ffprobe finds no video in "},
      {"--script event.xml --event event.xml", "--script excludes --event"},
      {"--speed 2 --event event.xml --plugin " FAULTY_PLUGIN, "cannot be driven"},
      {"--plugin event.xml --event event.xml", "cannot load the plug-in"},
      {"--timeout -1", "--timeout: \"-1\" is no number from 0 up"},
  };
  for (const auto& [arguments, told] : cases) {
    const Outcome run = RunShell(NOTIFYPI_COMMAND " host " + arguments);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.output, HasSubstr(told));
  }
}

}  // namespace
}  // namespace tvx::test
