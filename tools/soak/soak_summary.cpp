#include "soak/soak_summary.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace tvx::soak {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kMib = 1048576;

Json Describe(const Means& means) {
  return {{"from_second", means.from},
          {"to_second", means.to},
          {"resident_mib", means.residentBytes / kMib},
          {"heap_besides_frames_mib", means.otherBytes / kMib},
          {"frames_held", means.framesHeld},
          {"least_descriptors", means.descriptors},
          {"least_threads", means.threads},
          {"least_children", means.children}};
}

Json Describe(const MailCounts& mail) {
  return {{"events", mail.events},
          {"mentions", mail.mentions},
          {"unknown", mail.unknown},
          {"not_due", mail.notDue},
          {"throttled", mail.throttled},
          {"accepted", mail.accepted},
          {"mailed", mail.mailed},
          {"mailed_late", mail.mailedLate},
          {"discarded",
           {{"refused", mail.refused},
            {"too_old", mail.tooOld},
            {"pushed_out", mail.pushedOut},
            {"cleared", mail.cleared}}},
          {"queued", mail.queued},
          {"attempts", mail.attempts},
          {"failed_attempts", mail.failedAttempts},
          {"retries", mail.retries},
          {"clips", mail.clips}};
}

Json DescribeMost(const Sample& most) {
  return {{"resident_mib", static_cast<double>(most.process.residentBytes) / kMib},
          {"descriptors", most.process.descriptors},
          {"threads", most.process.threads},
          {"children", most.process.children},
          {"frames_held", most.framesHeld},
          {"spool_files", most.spoolFiles},
          {"unprocessed", most.mail.unprocessed},
          {"waiting", most.mail.waiting}};
}

__attribute__((format(printf, 2, 3))) void Append(std::string& text, const char* format, ...) {
  char line[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof(line), format, arguments);
  va_end(arguments);
  text += line;
}

}  // namespace

nlohmann::ordered_json SummaryJson(const SoakReport& report) {
  const Flatness& flat = report.flatness;
  return {{"seconds", report.seconds},
          {"drain_seconds", report.drainSeconds},
          {"mail", Describe(report.mail)},
          {"received", {{"messages", report.delivery.received}, {"twice", report.delivery.twice}}},
          {"frames",
           {{"offered", report.host.framesOffered},
            {"taken", report.host.framesTaken},
            {"given_back", report.host.framesGivenBack}}},
          {"warm", Describe(flat.warm)},
          {"end", Describe(flat.end)},
          {"growth_percent",
           {{"resident", flat.ResidentGrowth() * 100},
            {"heap_besides_frames", flat.OtherGrowth() * 100},
            {"frames_held", flat.FramesGrowth() * 100}}},
          {"quiet",
           {{"descriptors", flat.quiet.process.descriptors},
            {"children", flat.quiet.process.children},
            {"spool_files", flat.quiet.spoolFiles}}},
          {"most", DescribeMost(flat.most)},
          {"faults", report.faults},
          {"verdict", report.faults.empty() ? "flat and balanced" : "failed"}};
}

std::string SummaryText(const SoakReport& report) {
  const MailCounts& mail = report.mail;
  const HostFindings& host = report.host;
  const Flatness& flat = report.flatness;
  const Sample& most = flat.most;
  std::string text;
  Append(text, "%.0f s of load, %.1f s more until all was quiet\n", report.seconds,
         report.drainSeconds);
  Append(text,
         "events    %" PRIu64 " (%.1f a second), naming a profile %" PRIu64 " times: %" PRIu64
         " accepted, %" PRIu64 " throttled, %" PRIu64 " not due, %" PRIu64 " unknown\n",
         mail.events, static_cast<double>(mail.events) / report.seconds, mail.mentions,
         mail.accepted, mail.throttled, mail.notDue, mail.unknown);
  Append(text,
         "mail      %" PRIu64 " mailed at once, %" PRIu64 " by a retry (%.1f a second), %" PRIu64
         " clips\n",
         mail.mailed, mail.mailedLate,
         static_cast<double>(mail.mailed + mail.mailedLate) / report.seconds, mail.clips);
  Append(text,
         "discarded %" PRIu64 " refused, %" PRIu64 " too old, %" PRIu64 " pushed out, %" PRIu64
         " by a change of the configuration\n",
         mail.refused, mail.tooOld, mail.pushedOut, mail.cleared);
  Append(text,
         "attempts  %" PRIu64 ", of them failed %" PRIu64 ", retries %" PRIu64
         "; queued for a retry %" PRIu64 "\n",
         mail.attempts, mail.failedAttempts, mail.retries, mail.queued);
  Append(text, "received  %" PRIu64 " messages by the server, of them %" PRIu64 " again\n",
         report.delivery.received, report.delivery.twice);
  Append(text, "frames    %" PRIu64 " offered, %" PRIu64 " taken, %" PRIu64 " given back\n",
         host.framesOffered, host.framesTaken, host.framesGivenBack);
  Append(text, "means     %36s %13s\n", "warmed up", "at the end");
  Append(text, "  resident memory, MiB    %20.2f %13.2f %+7.2f %%\n",
         flat.warm.residentBytes / kMib, flat.end.residentBytes / kMib,
         flat.ResidentGrowth() * 100);
  Append(text, "  heap besides frames, MiB%20.3f %13.3f %+7.2f %%\n", flat.warm.otherBytes / kMib,
         flat.end.otherBytes / kMib, flat.OtherGrowth() * 100);
  Append(text, "  frames held             %20.0f %13.0f %+7.2f %%\n", flat.warm.framesHeld,
         flat.end.framesHeld, flat.FramesGrowth() * 100);
  Append(text,
         "least, and in the end: descriptors %d and %d, threads %d and %d, children %d and "
         "%d\n",
         flat.warm.descriptors, flat.quiet.process.descriptors, flat.warm.threads, flat.end.threads,
         flat.warm.children, flat.quiet.process.children);
  Append(text,
         "most      %.2f MiB resident, %d descriptors, %d threads, %d children, %" PRId64
         " frames held, %d files in data/,\n          %" PRIu64 " notifications under way, %" PRIu64
         " in the retry queue\n",
         static_cast<double>(most.process.residentBytes) / kMib, most.process.descriptors,
         most.process.threads, most.process.children, most.framesHeld, most.spoolFiles,
         most.mail.unprocessed, most.mail.waiting);
  for (const std::string& fault : report.faults) text += "FAULT     " + fault + "\n";
  text +=
      report.faults.empty() ? "verdict   flat, and everything balances\n" : "verdict   failed\n";
  return text;
}

}  // namespace tvx::soak
