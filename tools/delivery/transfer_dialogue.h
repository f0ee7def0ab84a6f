// How far a transfer came, as curl tells it when it is verbose ("-v").
//
// Threads: its owner's.
// Limits:  it reads curl's own words (of 7.8x and 8.x). What it does not know changes nothing.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace tvx::tool {

// A step of a transfer, by the name that the table of causes has for it.
struct TransferStage {
  std::string name;
  bool passed = false;
  std::string reply;  // of the server, or what curl says of it; may be empty
};

class TransferDialogue {
 public:
  // The program's arguments, which tell whether there is to be TLS.
  explicit TransferDialogue(const std::vector<std::string>& arguments);

  // Takes output of one of the two pipes (0 and 1), which may end anywhere in a line. Returns what
  // the program would have written there without "-v", in whole lines.
  std::string Take(int pipe, std::string_view output);
  // The rest, behind the last output.
  std::string TakeRest(int pipe);

  // In order, as far as the transfer came. The last one may have failed.
  const std::vector<TransferStage>& Stages() const { return stages_; }
  // The dialogue line by line, "> " the client's and "< " the server's; logins are hidden.
  const std::vector<std::string>& Lines() const { return lines_; }
  // As "smtp://mail.example.com:25"
  const std::string& Server() const { return server_; }

 private:
  std::string TakeLine(std::string_view line);
  void TakeRemark(const std::string& text);
  void TakeCommand(const std::string& text);
  void TakeReply(const std::string& text);
  void Enter(const char* stage);
  void Pass(const std::string& reply);

  std::string server_;
  bool isTlsFirst_ = false;
  std::vector<TransferStage> stages_;
  std::vector<std::string> lines_;
  std::array<std::string, 2> unfinished_;
  bool isOver_ = false;  // the server has been told to quit
};

}  // namespace tvx::tool
