#include "preview/preview_text.h"

#include <optional>
#include <vector>

#include "text/printable.h"

namespace tvx::tool {
namespace {

constexpr const char* kIndent = "    ";

std::optional<Colour> ColourOf(Fate fate) {
  switch (fate) {
    case Fate::Text:
      break;
    case Fate::Replaced:
      return Colour::Green;
    case Fate::Left:
      return Colour::Yellow;
    case Fate::Dropped:
    case Fate::Invalid:
      return Colour::Red;
  }
  return std::nullopt;
}

// Writes text of a message, each line indented and in the colours of its pieces.
class MessageWriter {
 public:
  MessageWriter(std::string& out, const Palette& palette) : out_(out), palette_(palette) {}

  void Write(const std::string& text, std::optional<Colour> colour = std::nullopt) {
    std::size_t from = 0;
    for (;;) {
      const std::size_t end = text.find('\n', from);
      const bool isCrlf = end != std::string::npos && end > from && text[end - 1] == '\r';
      const std::string line = Printable(text.substr(from, end - from - (isCrlf ? 1 : 0)));
      if (!line.empty() && atLineBegin_) out_ += kIndent;
      if (!line.empty()) atLineBegin_ = false;
      out_ += colour ? palette_.Paint(*colour, line) : line;
      if (end == std::string::npos) return;
      EndLine();
      from = end + 1;
    }
  }

  void Write(const std::vector<Piece>& pieces) {
    for (const Piece& piece : pieces) Write(piece.after, ColourOf(piece.fate));
  }

  void EndLine() {
    out_ += '\n';
    atLineBegin_ = true;
  }

  void FinishLine() {
    if (!atLineBegin_) EndLine();
  }

 private:
  std::string& out_;
  const Palette& palette_;
  bool atLineBegin_ = true;
};

std::string Joined(const std::vector<Piece>& pieces) {
  std::string text;
  for (const Piece& piece : pieces) text += piece.after;
  return text;
}

// The header may differ from the text: it is one line, and may tell which part it is.
void WriteSubject(const Preview& preview, MessageWriter& message) {
  message.Write("Subject: ");
  const std::string text = preview.marks ? Joined(preview.marks->subject) : std::string();
  if (preview.marks && preview.subject.compare(0, text.size(), text) == 0) {
    message.Write(preview.marks->subject);
    message.Write(preview.subject.substr(text.size()));
  } else {
    message.Write(preview.subject);
  }
  message.EndLine();
}

void WriteMessage(const Preview& preview, MessageWriter& message) {
  const auto header = [&](const char* name, const std::string& value) {
    message.Write(name + value);
    message.EndLine();
  };
  header("From: ", preview.from);
  for (const std::string& address : preview.to) header("To: ", address);
  for (const std::string& address : preview.cc) header("Cc: ", address);
  for (const std::string& address : preview.bcc) header("Bcc: ", address);
  WriteSubject(preview, message);
  for (const std::string& name : preview.attached) header("Attached: ", name);
  message.EndLine();
  if (preview.marks) {
    message.Write(preview.marks->body);
  } else {
    message.Write(preview.body);
  }
  message.Write(preview.notes);
  message.FinishLine();
}

std::string Fact(const char* text, const Piece& piece, const Palette& palette) {
  const std::string place =
      std::string(text) + " " + std::to_string(piece.line) + ":" + std::to_string(piece.column);
  const std::string token = " " + Printable(piece.before);
  const auto painted = [&](const std::string& words) {
    return palette.Paint(*ColourOf(piece.fate), words);
  };
  switch (piece.fate) {
    case Fate::Text:
      return {};
    case Fate::Replaced:
      return "+ " + place + token + " -> " +
             (piece.after.empty() ? "(nothing)" : painted(Printable(piece.after))) + "\n";
    case Fate::Left:
      return "= " + place + token + painted(" stays: " + piece.why) + "\n";
    case Fate::Dropped:
      return "- " + place + token + painted(" is dropped: " + piece.why) + "\n";
    case Fate::Invalid:
      return "! " + place + token + " -> " + painted(piece.after) + "\n";
  }
  return {};
}

}  // namespace

std::string PreviewText(const Preview& preview, const Palette& palette) {
  std::string out = palette.Paint(Colour::Bold, "profile " + std::to_string(preview.profileId) +
                                                    " \"" + Printable(preview.description) + "\"") +
                    "\n\n";
  MessageWriter message(out, palette);
  WriteMessage(preview, message);
  std::string facts;
  if (preview.marks) {
    for (const Piece& piece : preview.marks->subject) facts += Fact("subject", piece, palette);
    for (const Piece& piece : preview.marks->body) facts += Fact("body", piece, palette);
  }
  for (const std::string& fault : preview.faults) {
    facts += "! " + palette.Paint(Colour::Red, Printable(fault)) + "\n";
  }
  for (const std::string& remark : preview.remarks) facts += "# " + remark + "\n";
  if (!facts.empty()) out += "\n" + facts;
  return out;
}

}  // namespace tvx::tool
