// The programs that run for the plug-in, and the host's half of the process channel.
//
// Owns:    the programs.
// Threads: Take from any thread (it returns at once: the plug-in holds locks while it sends);
//          everything else on the event loop, which is where reports go out from.
// Transfers of mails get one more argument, "-v", so that curl tells what the server said. What it
// says because of that goes to the timeline only: the plug-in gets what it would have got without.
// Errors:  a chunk that fits no program is recorded as a fault.
#pragma once

#include <boost/asio/io_context.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "delivery/transfer_dialogue.h"
#include "simulated_host/progress.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

class Program;

class ProgramRunner {
 public:
  // Hands one chunk to the plug-in.
  using Sender = std::function<void(const void* chunk, std::uint32_t size)>;

  // All references must outlive this object.
  ProgramRunner(boost::asio::io_context& loop, Timeline& timeline, Progress& progress, Sender send);
  ~ProgramRunner();
  ProgramRunner(const ProgramRunner&) = delete;
  ProgramRunner& operator=(const ProgramRunner&) = delete;

  // Takes one well-formed chunk of the plug-in, which stays the caller's.
  void Take(const void* chunk);

  void KillAll();

  // The paths of the programs that have not ended.
  std::vector<std::string> Names() const;

 private:
  void Launch(std::uint32_t request, std::vector<std::string> arguments);
  void Feed(std::uint32_t request, std::string bytes, bool last);
  void Ended(std::uint32_t request, int waitStatus, double seconds);
  void Deliver(std::uint32_t request, std::uint32_t kind, std::string_view text);
  void Report(std::uint32_t request, std::uint32_t kind, std::uint32_t word);

  struct Entry {
    std::string name;
    std::shared_ptr<Program> program;
    std::shared_ptr<TransferDialogue> dialogue;  // null: it is no transfer
  };

  boost::asio::io_context& loop_;
  Timeline& timeline_;
  Progress& progress_;
  const Sender send_;
  std::map<std::uint32_t, Entry> programs_;  // by request identifier
};

}  // namespace tvx::tool
