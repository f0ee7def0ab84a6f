#include "soak/soak_printer.h"

#include <cerrno>
#include <system_error>
#include <variant>

namespace tvx::soak {
namespace {

constexpr std::size_t kFaultsKept = 20;

class SoakPrinter : public tool::TimelinePrinter {
 public:
  SoakPrinter(Ledger& ledger, HostFindingsBook& findings, const std::string& log)
      : ledger_(ledger), findings_(findings), log_(std::fopen(log.c_str(), "we")) {
    if (log_ == nullptr) throw std::system_error(errno, std::generic_category(), log);
  }

  void Print(double seconds, const tool::HostEvent& event) override {
    std::visit([this, seconds](const auto& it) { Take(seconds, it); }, event);
  }

 private:
  struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  void Write(double seconds, const char* what, const std::string& text) {
    std::fprintf(log_.get(), "%10.3f %-8s %s\n", seconds, what, text.c_str());
  }

  void Take(double seconds, const tool::LogLine& line) {
    Write(seconds, "log", line.text);
    ledger_.Take(line);
  }
  void Take(double seconds, const tool::Launch& launch) {
    std::string text = std::to_string(launch.request);
    for (const std::string& argument : launch.arguments) text += " " + argument;
    Write(seconds, "launch", text);
    ledger_.Take(launch);
  }
  void Take(double seconds, const tool::ProgramEnd& end) {
    Write(seconds, "end", std::to_string(end.request) + " " + std::to_string(end.waitStatus));
    ledger_.Take(end);
  }
  void Take(double seconds, const tool::ProfileReport& status) {
    Write(seconds, "status", std::to_string(status.profile) + " " + std::to_string(status.status));
    ledger_.Take(status);
  }
  void Take(double seconds, const tool::HostAction& action) { Write(seconds, "host", action.text); }
  void Take(double seconds, const tool::LaunchFailure& failure) {
    TakeFault(seconds, failure.program + " could not be started: " +
                           std::generic_category().message(failure.error));
  }
  void Take(double seconds, const tool::Fault& fault) { TakeFault(seconds, fault.text); }
  void Take(double, const tool::FrameAccount& account) { findings_.Add(account); }
  template <typename Other>
  void Take(double, const Other&) {}

  void TakeFault(double seconds, const std::string& text) {
    Write(seconds, "fault", text);
    findings_.AddFault(text);
  }

  Ledger& ledger_;
  HostFindingsBook& findings_;
  const std::unique_ptr<std::FILE, FileCloser> log_;
};

}  // namespace

void HostFindingsBook::AddFault(const std::string& text) {
  MutexLock lock(mutex_);
  if (findings_.faults.size() < kFaultsKept) findings_.faults.push_back(text);
}

void HostFindingsBook::Add(const tool::FrameAccount& account) {
  MutexLock lock(mutex_);
  findings_.framesOffered += account.offered;
  findings_.framesTaken += account.taken;
  findings_.framesGivenBack += account.givenBack;
}

HostFindings HostFindingsBook::Get() const {
  MutexLock lock(mutex_);
  return findings_;
}

std::unique_ptr<tool::TimelinePrinter> MakeSoakPrinter(Ledger& ledger, HostFindingsBook& findings,
                                                       const std::string& log) {
  return std::make_unique<SoakPrinter>(ledger, findings, log);
}

}  // namespace tvx::soak
