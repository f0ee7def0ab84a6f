#include "simulated_host/transcript_printer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <system_error>
#include <variant>

#include "simulated_host/format.h"
#include "simulated_host/human_printer.h"
#include "text/printable.h"

namespace tvx::tool {
namespace {

constexpr std::uint64_t kOwnLines = 5;  // of frames of each stream, and of ticks
constexpr double kCountInterval = 60;   // seconds of the world
constexpr std::size_t kMaxPayload = 32 << 10;

constexpr const char* kHead =
    R"(# Transcript of notifypi host, begun at %s.
# Each line: seconds since the start by the plug-in's clock, which passes %g times as fast as the
# world's; the thread (T1, T2 and so on, in the order in which they first appear); what it is:
#   host     the host itself      call, return  an export and its end, by the call's number
#   request  a record of the plug-in, taken by the host and answered with 0, status 0
#   launch, input, ended          a program of the plug-in
#   tick, frame                   a Write of one; frame back: the plug-in has released one
#   FAULT    the contract was broken
# Lines that begin with "|" are the text of what is above them. Of the frames of each stream, and of
# the ticks, the first %llu have lines of their own; the others are counted once in %g seconds.
# Passwords, cookies and tokens are hidden, and so is all that a program reads on its standard
# input. Addresses, user names and the texts of e-mails are not: look before you send it.
)";

std::FILE* Create(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "we");
  if (file == nullptr) throw std::system_error(errno, std::generic_category(), path);
  return file;
}

std::string_view PayloadOf(const HostRequest& request) {
  return {static_cast<const char*>(request.payload), request.length};
}

unsigned long long Long(std::uint64_t number) {
  return number;
}

}  // namespace

TranscriptPrinter::TranscriptPrinter(const std::string& path, double speed)
    : out_(Create(path)), speed_(speed) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  char moment[64];
  std::strftime(moment, sizeof(moment), "%Y-%m-%d %H:%M:%S %z", localtime_r(&now, &local));
  std::fprintf(out_.get(), kHead, moment, speed, Long(kOwnLines), kCountInterval);
}

void TranscriptPrinter::Write(double seconds, const char* what, const std::string& text,
                              std::string_view payload) {
  if (!learned_) {
    // The plug-in reads this file by itself, and may tell of it before it publishes it.
    learned_ = true;
    std::ifstream file("notify.xml", std::ios::binary);
    if (file.is_open()) {
      std::ostringstream content;
      content << file.rdbuf();
      secrets_.Learn(content.str());
    }
  }
  const auto known = threads_.emplace(std::this_thread::get_id(), threads_.size() + 1);
  std::fprintf(out_.get(), "%10.3f  T%-3d %-10s  %s\n", seconds, known.first->second, what,
               Printable(secrets_.Hide(text)).c_str());
  if (!payload.empty()) WritePayload(secrets_.Hide(payload));
  std::fflush(out_.get());
}

void TranscriptPrinter::WritePayload(const std::string& text) {
  const std::size_t length = std::min(text.size(), kMaxPayload);
  for (std::size_t at = 0; at < length;) {
    const std::size_t end = std::min(text.find('\n', at), length);
    const std::size_t visible = end > at && text[end - 1] == '\r' ? end - 1 : end;
    std::fprintf(out_.get(), "|  %s\n", Printable(text.substr(at, visible - at)).c_str());
    at = end + 1;
  }
  if (text.size() > length) {
    std::fprintf(out_.get(), "|  ... and %zu bytes more\n", text.size() - length);
  }
}

void TranscriptPrinter::Print(double seconds, const Happening& happening) {
  // The rest comes from records, which are here themselves.
  const bool isOwn =
      std::holds_alternative<HostAction>(happening) ||
      std::holds_alternative<MailServerChange>(happening) ||
      std::holds_alternative<Launch>(happening) ||
      std::holds_alternative<LaunchFailure>(happening) ||
      std::holds_alternative<ProgramEnd>(happening) || std::holds_alternative<Fault>(happening) ||
      std::holds_alternative<FeedStart>(happening) || std::holds_alternative<FeedEnd>(happening) ||
      std::holds_alternative<FrameAccount>(happening);
  if (!isOwn) return;
  if (std::holds_alternative<FrameAccount>(happening)) WriteCounts(seconds);
  const HumanLine line = DescribeForPeople(happening);
  std::string text = line.text;
  if (const auto* launch = std::get_if<Launch>(&happening)) {
    text = Format("program 0x%x: ", launch->request) + text;
  } else if (const auto* end = std::get_if<ProgramEnd>(&happening)) {
    text = Format("program 0x%x: ", end->request) + text;
  }
  Write(seconds, line.label.c_str(), text);
}

void TranscriptPrinter::Observe(double seconds, const Crossing& crossing) {
  std::visit([this, seconds](const auto& it) { Take(seconds, it); }, crossing);
}

void TranscriptPrinter::Take(double seconds, const CallBegin& call) {
  if (call.name == "IOCTL 2") secrets_.Learn(call.payload);
  const std::string arguments = call.arguments.empty() ? "" : ": " + std::string(call.arguments);
  Write(seconds, "call", Format("%u  ", call.number) + std::string(call.name) + arguments,
        call.chunk == nullptr ? std::string(call.payload) : WholeLines(*call.chunk, call.payload));
}

std::string TranscriptPrinter::WholeLines(const ChunkHeader& chunk, std::string_view payload) {
  constexpr std::uint32_t kOutput = 1;
  constexpr std::uint32_t kErrors = 2;
  if (chunk.kind != kOutput && chunk.kind != kErrors) {
    std::string rest = output_[chunk.request] + errors_[chunk.request];
    output_.erase(chunk.request);
    errors_.erase(chunk.request);
    return rest;
  }
  std::string& text = (chunk.kind == kOutput ? output_ : errors_)[chunk.request];
  text.append(payload);
  const std::size_t end = text.find_last_of("\r\n");
  if (end == std::string::npos && text.size() < kMaxPayload) return {};
  const std::size_t length = end == std::string::npos ? text.size() : end + 1;
  std::string lines = text.substr(0, length);
  text.erase(0, length);
  return lines;
}

void TranscriptPrinter::Take(double seconds, const CallEnd& call) {
  std::string text = Format("%u  ", call.number) + std::string(call.name) +
                     Format(" = %d after %.6f s", call.returned, call.seconds);
  text += call.breach.empty() ? ", result record as it must be" : ", " + std::string(call.breach);
  Write(seconds, "return", text);
}

void TranscriptPrinter::Take(double seconds, const TickWrite& tick) {
  if (tickLines_ < kOwnLines || tick.returned != 0) {
    ++tickLines_;
    Write(seconds, "tick", Format("= %d", tick.returned));
  } else {
    ++ticks_;
  }
}

void TranscriptPrinter::Take(double seconds, const FrameWrite& frame) {
  FrameCount& count = frames_[frame.stream];
  if (count.lines < kOwnLines) {
    ++count.lines;
    return Write(
        seconds, "frame",
        Format("stream %u, %zu bytes, %s, %s", frame.stream, frame.size,
               frame.key ? "key frame" : "no key frame", frame.taken ? "taken" : "refused"));
  }
  ++count.written;
  count.bytes += frame.size;
  if (frame.key) ++count.keys;
  if (frame.taken) ++count.taken;
}

void TranscriptPrinter::Take(double seconds, const FrameReturn& frame) {
  FrameCount& count = frames_[frame.stream];
  if (count.returnLines < kOwnLines) {
    ++count.returnLines;
    return Write(seconds, "frame back", Format("stream %u", frame.stream));
  }
  ++count.returned;
}

void TranscriptPrinter::Take(double seconds, const RequestTaken& taken) {
  const HostRequest& request = taken.request;
  if (!taken.wellFormed) {
    return Write(seconds, "request",
                 Format("malformed: command %u, payload kind 0x%x, length %u, level %u",
                        static_cast<unsigned>(request.command),
                        static_cast<unsigned>(request.payloadKind), request.length, request.level));
  }
  switch (request.command) {
    case HostCommand::Log:
      return Write(seconds, "request",
                   Format("log, level %u: ", request.level) +
                       std::string(PayloadOf(request).substr(0, request.length - 1)));
    case HostCommand::Watchdog:
      return Write(seconds, "request", "watchdog event");
    case HostCommand::StatusDocument:
      return Write(seconds, "request", Format("status document of %u bytes", request.length),
                   PayloadOf(request));
    case HostCommand::ConfigDocument:
      secrets_.Learn(PayloadOf(request));
      return Write(seconds, "request", Format("configuration document of %u bytes", request.length),
                   PayloadOf(request));
    case HostCommand::ChannelMessage:
      return TakeChunk(seconds, request);
    case HostCommand::ReleaseFrame:
      return;  // comes as FrameReturn
  }
}

void TranscriptPrinter::TakeChunk(double seconds, const HostRequest& request) {
  ChunkHeader header{};
  std::memcpy(&header, request.payload, sizeof(header));
  const std::string_view payload = PayloadOf(request).substr(sizeof(header));
  constexpr std::uint32_t kInput = 0;
  if (header.kind != kInput) {
    return Write(seconds, "request", Format("launch of program 0x%x", header.request));
  }
  Write(seconds, "input", Format("program 0x%x: %zu bytes", header.request, payload.size()),
        Secrets::HideInput(payload));
}

void TranscriptPrinter::Refresh(double seconds) {
  if (seconds - countedUntil_ >= kCountInterval * speed_) WriteCounts(seconds);
}

void TranscriptPrinter::Finish(double seconds) {
  WriteCounts(seconds);
}

void TranscriptPrinter::WriteCounts(double seconds) {
  countedUntil_ = seconds;
  if (ticks_ > 0) Write(seconds, "tick", Format("%llu more = 0", Long(ticks_)));
  ticks_ = 0;
  for (auto& [stream, count] : frames_) {
    if (count.written == 0 && count.returned == 0) continue;
    Write(seconds, "frame",
          Format("stream %u: %llu more, %llu bytes, %llu of them key frames, %llu taken; %llu more "
                 "back",
                 stream, Long(count.written), Long(count.bytes), Long(count.keys),
                 Long(count.taken), Long(count.returned)));
    count = {0, 0, 0, 0, 0, count.lines, count.returnLines};
  }
}

}  // namespace tvx::tool
