// Everything that crosses the border, as text for bug reports.
//
// Calls, records, programs and the host's own steps, one line each, with documents and output
// below. An hour stays small: of the frames of each stream and of the ticks the first few have
// lines of their own, and all the others are counted in one line a minute; long texts are cut.
// Secrets are hidden (secrets.h), and what programs read as standard input always is.
//
// Owns:    the file.
// Threads: under the timeline's lock, as every printer; lines tell threads apart.
// Errors:  a file that cannot be created is a std::system_error. Later ones lose text only.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "simulated_host/secrets.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

class TranscriptPrinter : public TimelinePrinter {
 public:
  // A file of that name is replaced. Time passes for the plug-in at so many times the world's pace.
  TranscriptPrinter(const std::string& path, double speed);

  void Print(double seconds, const Happening& happening) override;
  void Observe(double seconds, const Crossing& crossing) override;
  void Refresh(double seconds) override;
  void Finish(double seconds) override;

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  // What came since the last line that counts it.
  struct FrameCount {
    std::uint64_t written = 0;
    std::uint64_t keys = 0;
    std::uint64_t taken = 0;
    std::uint64_t bytes = 0;
    std::uint64_t returned = 0;
    // Since the start.
    std::uint64_t lines = 0;
    std::uint64_t returnLines = 0;
  };

  void Write(double seconds, const char* what, const std::string& text,
             std::string_view payload = {});
  void WritePayload(const std::string& text);
  void WriteCounts(double seconds);

  void Take(double seconds, const CallBegin& call);
  void Take(double seconds, const CallEnd& call);
  void Take(double seconds, const TickWrite& tick);
  void Take(double seconds, const FrameWrite& frame);
  void Take(double seconds, const FrameReturn& frame);
  void Take(double seconds, const RequestTaken& request);
  void Take(double /*seconds*/, const NotificationsAsked& /*asked*/) {}
  void TakeChunk(double seconds, const HostRequest& request);
  // Output is shown in whole lines, in which secrets are whole, too. Takes those that are complete
  // with this chunk, or all that is left at the end of the program.
  std::string WholeLines(const ChunkHeader& chunk, std::string_view payload);

  const std::unique_ptr<std::FILE, Closer> out_;
  const double speed_;
  Secrets secrets_;
  bool learned_ = false;  // from the configuration in the working folder
  std::map<std::thread::id, int> threads_;
  std::map<std::uint32_t, std::string> output_;  // of programs, lines without an end
  std::map<std::uint32_t, std::string> errors_;
  std::map<std::uint32_t, FrameCount> frames_;  // by stream
  std::uint64_t ticks_ = 0;                     // since the last line that counts them
  std::uint64_t tickLines_ = 0;
  double countedUntil_ = 0;
};

}  // namespace tvx::tool
