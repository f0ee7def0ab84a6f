#include "delivery/transfer_dialogue.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace tvx::tool {
namespace {

constexpr const char* kLogin = "login";
// A server that never ends its reply, or a program its line, must not fill the memory.
constexpr std::size_t kMostLines = 1000;
constexpr std::size_t kLongestLine = 64 << 10;

bool BeginsWith(std::string_view text, std::string_view begin) {
  return text.substr(0, begin.size()) == begin;
}

// What follows the word, or nothing when it is not there.
std::string Behind(const std::string& text, const std::string& word) {
  const std::size_t at = text.find(word);
  return at == std::string::npos ? std::string() : text.substr(at + word.size());
}

// Where a line's mark ("* ", "> ", "< ", "{ ", "} ") stands; the figures of curl's progress may stand
// before it. npos: it is no line of the dialogue.
std::size_t FindMark(std::string_view line) {
  const std::size_t at = line.find_first_not_of("0123456789 .:-kMGTP\r");
  const bool isMark = at + 1 < line.size() && line[at + 1] == ' ' &&
                      std::string_view("*<>{}").find(line[at]) != std::string_view::npos;
  return isMark ? at : std::string_view::npos;
}

}  // namespace

TransferDialogue::TransferDialogue(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    if (BeginsWith(argument, "smtp://") || BeginsWith(argument, "smtps://")) server_ = argument;
  }
  isTlsFirst_ = BeginsWith(server_, "smtps");
  // A path is the name that the server is greeted with.
  const std::size_t host = server_.find("://") + 3;
  if (!server_.empty()) server_ = server_.substr(0, server_.find('/', host));
}

std::string TransferDialogue::Take(int pipe, std::string_view output) {
  std::string& text = unfinished_[static_cast<std::size_t>(pipe)];
  text.append(output);
  std::string other;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    other += TakeLine(std::string_view(text).substr(begin, end + 1 - begin));
  }
  text.erase(0, begin);
  if (text.size() > kLongestLine) other += TakeRest(pipe);
  return other;
}

std::string TransferDialogue::TakeRest(int pipe) {
  return TakeLine(std::exchange(unfinished_[static_cast<std::size_t>(pipe)], {}));
}

std::string TransferDialogue::TakeLine(std::string_view line) {
  const std::size_t at = FindMark(line);
  if (at == std::string_view::npos) return std::string(line);
  const char mark = line[at];
  std::string text(line.substr(at + 2));
  text.erase(text.find_last_not_of("\r\n") + 1);
  if (mark == '*') TakeRemark(text);
  if (mark == '<') TakeReply(text);
  if (mark == '>') {
    const bool isLogin = !stages_.empty() && stages_.back().name == kLogin;
    TakeCommand(text);
    if (BeginsWith(text, "AUTH ")) {
      text.erase(std::min(text.find(' ', 5), text.size()));
    } else if (isLogin && stages_.back().name == kLogin) {
      text = "[hidden]";
    }
  }
  if (mark != '{' && mark != '}' && lines_.size() < kMostLines) {
    lines_.push_back(std::string(1, mark) + " " + text);
  }
  return std::string(line.substr(0, at));
}

void TransferDialogue::TakeRemark(const std::string& text) {
  if (BeginsWith(text, "  Trying ")) {
    // Several addresses may be tried one after the other, or two at a time.
    if (stages_.empty()) {
      Enter("name look-up");
      Pass(text.substr(9, text.find_last_not_of('.') - 8));
    }
    Enter("connection");
  } else if (BeginsWith(text, "Could not resolve host") || BeginsWith(text, "Couldn't resolve")) {
    Enter("name look-up");
  } else if (!stages_.empty() && stages_.back().name == "connection") {
    if (BeginsWith(text, "Connected to ")) {
      Pass({});
      Enter(isTlsFirst_ ? "TLS" : "greeting");
    } else if (BeginsWith(text, "connect to ") || BeginsWith(text, "Immediate connect fail ")) {
      stages_.back().reply = Behind(text, text[0] == 'c' ? "failed: " : ": ");
    }
  } else if (BeginsWith(text, "SSL connection using ")) {
    Enter("TLS");
    Pass(Behind(text, "using "));
    if (isTlsFirst_) Enter("greeting");
  } else if (BeginsWith(text, "STARTTLS not supported")) {
    Enter("TLS");
  } else if (!stages_.empty() && text.find("error:") != std::string::npos) {
    stages_.back().reply = text.substr(text.find("error:"));
  }
  if (!stages_.empty() && text.find("timed out") != std::string::npos) stages_.back().reply = text;
}

void TransferDialogue::TakeCommand(const std::string& text) {
  constexpr std::pair<const char*, const char*> kStages[] = {{"STARTTLS", "TLS"},
                                                             {"AUTH", kLogin},
                                                             {"MAIL", "sender"},
                                                             {"RCPT", "recipients"},
                                                             {"DATA", "message"}};
  for (const auto& [command, stage] : kStages) {
    if (BeginsWith(text, command)) Enter(stage);
  }
  if (text == "QUIT") isOver_ = true;
}

void TransferDialogue::TakeReply(const std::string& text) {
  if (stages_.empty() || isOver_) return;
  TransferStage& stage = stages_.back();
  const bool goesOn = text.size() > 3 && text[3] == '-';
  const char kind = text.empty() ? '\0' : text[0];
  if (stage.name == "TLS") {
    if (kind == '2') return;  // the handshake follows, or has been
    stage.passed = false;
    stage.reply = text;
  } else if (kind != '3' && !goesOn) {
    if (kind == '2') {
      // The replies to EHLO are no news.
      if (!stage.passed) Pass(text);
    } else {
      stage.passed = false;
      stage.reply = text;
    }
  }
}

// Stages that come again (each recipient, TLS by STARTTLS) are one.
void TransferDialogue::Enter(const char* name) {
  if (!stages_.empty() && stages_.back().name == name) {
    if (stages_.back().passed && stages_.back().name != "TLS") stages_.back().passed = false;
    return;
  }
  stages_.push_back({name, false, {}});
}

void TransferDialogue::Pass(const std::string& reply) {
  stages_.back().passed = true;
  stages_.back().reply = reply;
}

}  // namespace tvx::tool
