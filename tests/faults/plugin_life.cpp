#include "faults/plugin_life.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <new>
#include <utility>

#include "base/clock.h"
#include "faults/fault_points.h"
#include "support/temporary_folder.h"

extern "C" {
int Load(void* request, void* result);
int Open(void* request, void* result);
int Close(void* request, void* result);
int Read(void* request, void* result);
int Write(void* request, void* result);
int IOCTL(void* request, void* result);
int Unload(void* request, void* result);
}

namespace tvx::faults {
namespace {

using namespace std::string_literals;

constexpr std::uint32_t kInput = 0;  // kinds of chunks and reports
constexpr std::uint32_t kOutput = 1;
constexpr std::uint32_t kRunning = 3;
constexpr std::uint32_t kFinished = 5;
constexpr std::uint32_t kLaunch = 6;

constexpr std::uint32_t kCouldNotConnect = 7u << 8;  // wait statuses of curl
constexpr std::uint32_t kCouldNotRead = 26u << 8;

std::string Configuration(bool withVideo, const std::string& subject) {
  std::string profiles;
  for (const std::int32_t id : {kAlarm, kNext}) {
    profiles += "<smtp ID='" + std::to_string(id) + "' attach='" + (withVideo ? "1" : "0") +
                "' MaxVideoSeconds='2' description='A profile with a long description' " +
                "from='Sender &lt;from@mail.example&gt;' subject='" + subject +
                " {source}'><to>to@mail.example</to><cc>cc@mail.example</cc><body>{event type} "
                "{event state} at {system name}\nThe end</body></smtp>";
  }
  return "<tDVR Delta='1'><Notify ID='786432' MaxRetrySeconds='864000'><Servers>"
         "<smtp description='Main' address='mail.example' username='user' password='secret'/>"
         "</Servers><Profiles>" +
         profiles + "</Profiles></Notify></tDVR>";
}

std::string Camera(int number, const std::string& name, int standardOfVideo) {
  return "<Device Number='" + std::to_string(number) +
         "'><Context><Video><Input Number='1' Name='" + name +
         "'/></Video><Codec><Encoder><Channel Number='1' Width='64' Height='64' Standard='" +
         std::to_string(standardOfVideo) + "'/></Encoder></Codec></Context></Device>";
}

std::string NotifyingEvent(int id, int number) {
  return "<Event ID='" + std::to_string(id) +
         "' PreAlarm='5'><Devices ID='65536'><Device Number='" + std::to_string(number) +
         "'><Video><Input "
         "Number='1'/></Video></Device></Devices><Action><Notify/></Action></Event>";
}

// A stream of H.264 as an encoder writes it, of 64 by 64 black pixels.
std::string MoviePayload(bool isKey) {
  const std::string head = "\0\0\0\1\x67\x42\xC0\x0A\xDA\x10\x99\0\0\0\1\x68\xCE\x38\x80"s;
  return (isKey ? head + "\0\0\0\1\x65\x88"s : "\0\0\0\1\x41\x9A"s) + std::string(2000, 'x');
}

std::string PicturePayload() {
  return "\xFF\xD8\xFF" + std::string(9000, 'p') + "\xFF\xD9";
}

std::string Value(const std::string& text, const std::string& attribute) {
  const std::size_t at = text.find(" " + attribute + "=\"");
  if (at == std::string::npos) return {};
  const std::size_t from = at + attribute.size() + 3;
  return text.substr(from, text.find('"', from) - from);
}

}  // namespace

void Findings::Add(const std::string& text) {
  std::lock_guard<std::mutex> lock(mutex_);
  texts_.push_back(text);
}

std::vector<std::string> Findings::Take() {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(texts_, {});
}

PluginLife::PluginLife(bool withVideo, Findings& findings) : findings_(findings) {
  SetTickClock([this] { return 1'000'000 + milliseconds_; });
  SetWallClock([this] { return std::int64_t{1'500'000'000} + milliseconds_ / 1000; });
  host_.OnChunk([this](const test::SentChunk& chunk) { OnChunk(chunk); });
  test::WriteFile("notify.xml", Configuration(withVideo, "First subject"));
  LoadRequest load{};
  load.entry = &PluginLife::Entry;
  PluginCapabilities capabilities{};
  Call("Load", ::Load, load, capabilities);
  ReadRequest open{};
  OpenResult opened{};
  Call("Open", ::Open, open, opened);
  if (withVideo) SendSystemDocument("");
}

PluginLife::~PluginLife() {
  ReadRequest request{};
  PlainResult result{};
  if (!Call("Close", ::Close, request, result)) findings_.Add("memory exhaustion ended Close");
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
  }
  changed_.notify_all();
  for (std::thread* thread : {&worker_, &watchdog_}) {
    if (thread->joinable()) thread->join();
  }
  host_.OnChunk(nullptr);
  for (std::thread& program : programs_) program.join();
  if (!Call("Unload", ::Unload, request, result)) findings_.Add("memory exhaustion ended Unload");
  CheckFrames();
  if (!host_.MalformedRequests().empty()) findings_.Add("a request to the host was malformed");
}

template <typename Request, typename Result>
bool PluginLife::Call(const char* name, Export function, Request& request, Result& result) {
  try {
    const InPlugin inside;
    function(&request, &result);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::exception& error) {
    findings_.Add(name + " threw: "s + error.what());
    return true;
  }
}

int PluginLife::Entry(HostRequest* request, HostReply* reply) {
  const InHost outside;
  return test::FakeHost::Entry(request, reply);
}

bool PluginLife::SendEvent(std::int32_t profile) {
  const std::string document =
      "<tDVR><Servers><Server Serial='A-1001' Description='The main building of the site'/>"
      "</Servers><Notify ID='786432'><Profiles><Profile ID='" +
      std::to_string(profile) + "' Alarm='1' Action='7' Time='" +
      std::to_string(1'500'000'000 + profile) +
      "' Milliseconds='250'><EventSource ID='66049' Type='2'/><EventSource ID='66305' Type='2'/>"
      "</Profile></Profiles></Notify></tDVR>";
  WriteRequest request{};
  request.data = document.data();
  request.length = static_cast<std::uint32_t>(document.size());
  WriteResult result{};
  return Call("Write of an event", ::Write, request, result);
}

bool PluginLife::SendUpdate(const std::string& subject) {
  return Change(Configuration(false, subject));
}

bool PluginLife::SendSystemDocument(const std::string& prefix) {
  return Change("<tDVR Delta='0'><Devices ID='65536'>" + Camera(2, prefix + "Gate", 5) +
                Camera(3, prefix + "Yard", 0) + "</Devices><Events>" + NotifyingEvent(7, 2) +
                NotifyingEvent(8, 3) + "</Events></tDVR>");
}

bool PluginLife::Change(const std::string& document) {
  IoctlRequest request{};
  request.code = ControlCode::Update;
  request.payload = document.data();
  request.length = static_cast<std::uint32_t>(document.size());
  IoctlResult result{};
  return Call("IOCTL 2", ::IOCTL, request, result);
}

void PluginLife::SendFrame(std::uint32_t stream, bool isKey) {
  frames_.push_back(stream == kMovieStream ? MoviePayload(isKey) : PicturePayload());
  WriteRequest request{};
  request.kind = RecordKind::Frame;
  request.addressee = stream;
  request.frameType = isKey ? 1 : 0;
  request.data = frames_.back().data();
  request.length = static_cast<std::uint32_t>(frames_.back().size());
  WriteResult result{};
  Call("Write of a frame", ::Write, request, result);
  if (result.frameAccepted == 1) taken_.push_back(request.data);
}

void PluginLife::Tick() {
  WriteRequest request{};
  request.kind = RecordKind::Tick;
  request.addressee = kModuleId;
  WriteResult result{};
  Call("Write of a tick", ::Write, request, result);
}

void PluginLife::StartLoops() {
  worker_ = std::thread([this] {
    IoctlRequest request{};
    request.code = ControlCode::RunWorker;
    IoctlResult result{};
    if (!Call("IOCTL 1", ::IOCTL, request, result)) {
      findings_.Add("memory exhaustion ended the worker");
    }
  });
  watchdog_ = std::thread([this] {
    ReadRequest request{};
    request.runWatchdog = 1;
    ReadResult result{};
    if (!Call("Read", ::Read, request, result)) {
      findings_.Add("memory exhaustion ended the watchdog");
    }
  });
}

void PluginLife::Pass(std::uint32_t milliseconds) {
  milliseconds_ += milliseconds;
}

std::vector<std::string> PluginLife::Delivered(std::int32_t profile) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = delivered_.find(profile);
  return found == delivered_.end() ? std::vector<std::string>{} : found->second;
}

std::vector<int> PluginLife::Statuses(std::int32_t profile) const {
  std::vector<int> statuses;
  for (const test::SentDocument& document : host_.Documents()) {
    if (document.command != HostCommand::StatusDocument) continue;
    const std::string entry = document.text.substr(document.text.find("<Profile "));
    const int status = std::atoi(Value(entry, "Status").c_str());
    // A status of -1 tells of a change of the configuration.
    if (status >= 0 && Value(entry, "ID") == std::to_string(profile)) statuses.push_back(status);
  }
  return statuses;
}

bool PluginLife::HasLogged(std::uint32_t level, const std::string& text) const {
  const std::vector<test::LogLine> lines = host_.Log();
  return std::any_of(lines.begin(), lines.end(), [&](const test::LogLine& line) {
    return line.level >= level && line.text.find(text) != std::string::npos;
  });
}

void PluginLife::OnChunk(const test::SentChunk& chunk) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (chunk.kind == kInput) {
    fed_.insert(chunk.request);
    changed_.notify_all();
  } else if (chunk.kind == kLaunch) {
    std::vector<std::string> arguments(1);
    for (const char c : chunk.payload) {
      if (c == '\0') {
        arguments.emplace_back();
      } else {
        arguments.back().push_back(c);
      }
    }
    programs_.emplace_back(&PluginLife::RunProgram, this, chunk.request, arguments);
  }
}

// Plays curl: it says what it can do, or takes its input and transfers a file.
void PluginLife::RunProgram(std::uint32_t request, const std::vector<std::string>& arguments) {
  Report(request, kRunning, 1);
  if (arguments.back() == "-V") {
    Report(request, kOutput, 0, "Protocols: smtp smtps\n");
    Report(request, kFinished, 0);
    return;
  }
  if (!WaitForInput(request)) {
    findings_.Add("a program was left waiting for its input");
    return;
  }
  const auto file = std::find(arguments.begin(), arguments.end(), "-T");
  const std::uint32_t status = Transfer(file == arguments.end() ? "" : *(file + 1));
  if (status != 0) Report(request, kOutput, 0, "curl: the transfer failed, said at some length\n");
  Report(request, kFinished, status);
}

bool PluginLife::WaitForInput(std::uint32_t request) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [&] { return closed_ || fed_.count(request) != 0; });
  return fed_.count(request) != 0;
}

void PluginLife::Report(std::uint32_t request, std::uint32_t kind, std::uint32_t word,
                        const std::string& payload) {
  const std::string chunk = test::MakeReport(request, kind, word, payload);
  IoctlRequest report{};
  report.code = ControlCode::ChannelMessage;
  report.payload = chunk.data();
  report.length = static_cast<std::uint32_t>(chunk.size());
  IoctlResult result{};
  Call("IOCTL 4", ::IOCTL, report, result);
}

std::uint32_t PluginLife::Transfer(const std::string& path) {
  if (!test::FileExists(path)) return kCouldNotRead;
  if (failures_ > 0) {
    --failures_;
    return kCouldNotConnect;
  }
  const std::size_t id = path.find("notify-mail-") + std::string("notify-mail-").size();
  std::string message = test::ReadFile(path);
  std::lock_guard<std::mutex> lock(mutex_);
  delivered_[std::atoi(path.c_str() + id)].push_back(std::move(message));
  return 0;
}

void PluginLife::CheckFrames() {
  std::vector<const void*> released = host_.ReleasedFrames();
  std::sort(released.begin(), released.end());
  std::sort(taken_.begin(), taken_.end());
  if (released == taken_) return;
  findings_.Add(std::to_string(taken_.size()) + " frames were taken and " +
                std::to_string(released.size()) + " given back, not the same ones");
}

}  // namespace tvx::faults
