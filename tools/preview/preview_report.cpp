#include <array>
#include <nlohmann/json.hpp>
#include <optional>

#include "preview/preview.h"
#include "text/printable.h"

namespace tvx::tool {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Preview, profile, description, from, to, cc, bcc, subject, body,
                                   notes, attached, faults, remarks)

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kIndent = "    ";

// How a token is shown. In the words, what stands between it and its value or its reason.
struct Look {
  const char* name;
  const char* mark;
  const char* words;
  std::optional<Colour> colour;
};

const Look& LookOf(Fate fate) {
  static const std::array<Look, 5> looks = {{{"text", "", "", std::nullopt},
                                             {"replaced", "+ ", " -> ", Colour::Green},
                                             {"left", "= ", " stays: ", Colour::Yellow},
                                             {"dropped", "- ", " is dropped: ", Colour::Red},
                                             {"invalid", "! ", " -> ", Colour::Red}}};
  return looks[static_cast<std::size_t>(fate)];
}

const char* TextOf(Reason why) {
  static constexpr const char* kTexts[] = {
      "",
      "no placeholder",
      "only the first is replaced",
      "only the body can have a link",
      "the event has no value for it",
      "inside of other braces",
      "its first \"{\" reaches to the next \"}\"",
      "read only in a text with {date}, {time} or {date format=...}",
      "its format gives no text, or too much of it, or cannot be read",
  };
  return kTexts[static_cast<std::size_t>(why)];
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

  void Write(const Pieces& pieces) {
    for (const Piece& piece : pieces) Write(piece.after, LookOf(piece.fate).colour);
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

// The header may differ from the text: it is one line, and may tell which part it is.
void WriteSubject(const Preview& preview, MessageWriter& message) {
  std::string text;
  for (const Piece& piece : preview.subjectPieces) text += piece.after;
  message.Write("Subject: ");
  if (preview.subject.compare(0, text.size(), text) == 0) {
    message.Write(preview.subjectPieces);
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
  message.Write(preview.bodyPieces);
  message.Write(preview.notes);
  message.FinishLine();
}

// Calls take(name of the text, token) for each token of the message.
template <typename Function>
void ForEachToken(const Preview& preview, const Function& take) {
  for (const Piece& piece : preview.subjectPieces) {
    if (piece.fate != Fate::Text) take("subject", piece);
  }
  for (const Piece& piece : preview.bodyPieces) {
    if (piece.fate != Fate::Text) take("body", piece);
  }
}

std::string TokenLine(const char* text, const Piece& piece, const Palette& palette) {
  const Look& look = LookOf(piece.fate);
  const std::string place =
      std::string(text) + " " + std::to_string(piece.line) + ":" + std::to_string(piece.column);
  const std::string token = look.mark + place + " " + Printable(piece.before);
  if (piece.why != Reason::None) {
    return token + palette.Paint(*look.colour, std::string(look.words) + TextOf(piece.why)) + "\n";
  }
  const std::string value = palette.Paint(*look.colour, Printable(piece.after));
  return token + look.words + (value.empty() ? "(nothing)" : value) + "\n";
}

}  // namespace

std::string PreviewText(const Preview& preview, const Palette& palette) {
  std::string out = palette.Paint(Colour::Bold, "profile " + std::to_string(preview.profile) +
                                                    " \"" + Printable(preview.description) + "\"") +
                    "\n\n";
  MessageWriter message(out, palette);
  WriteMessage(preview, message);
  std::string lines;
  ForEachToken(preview, [&](const char* text, const Piece& piece) {
    lines += TokenLine(text, piece, palette);
  });
  for (const std::string& fault : preview.faults) {
    lines += "! " + palette.Paint(Colour::Red, Printable(fault)) + "\n";
  }
  for (const std::string& remark : preview.remarks) lines += "# " + remark + "\n";
  if (!lines.empty()) out += "\n" + lines;
  return out;
}

std::string PreviewJson(const Preview& preview) {
  Json json = nlohmann::json(preview);
  json["bytes"] = preview.message.size();
  json["findings"] = preview.Findings();
  Json& tokens = json["tokens"] = Json::array();
  ForEachToken(preview, [&](const char* text, const Piece& piece) {
    tokens.push_back({{"text", text},
                      {"line", piece.line},
                      {"column", piece.column},
                      {"fate", LookOf(piece.fate).name},
                      {"token", piece.before},
                      {"value", piece.after}});
    if (piece.why != Reason::None) tokens.back()["why"] = TextOf(piece.why);
  });
  return json.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace tvx::tool
