#include "preview/placeholder_marks.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "config/date_template.h"
#include "config/templates.h"

namespace tvx::tool {
namespace {

// A mark is its number between these.
constexpr char kMarkBegin = '\x01';
constexpr char kMarkEnd = '\x02';

struct MarkedTemplate {
  std::string text;
  std::vector<std::string> pieces;  // piece n ends at mark n, the last one at the end of the text
};

MarkedTemplate WithMarks(const std::string& text) {
  MarkedTemplate marked;
  std::string piece;
  const auto mark = [&] {
    marked.text += kMarkBegin + std::to_string(marked.pieces.size()) + kMarkEnd;
    marked.pieces.push_back(std::exchange(piece, {}));
  };
  for (const char c : text) {
    if (c == '{') mark();
    marked.text += c;
    piece += c;
    if (c == '}') mark();
  }
  marked.pieces.push_back(std::move(piece));
  return marked;
}

// What stands before each mark that is left in the expanded text. The end of the text counts as the
// mark behind all others.
std::map<std::size_t, std::string> BetweenMarks(const std::string& expanded, std::size_t marks) {
  std::map<std::size_t, std::string> between;
  std::size_t from = 0;
  for (;;) {
    const std::size_t begin = expanded.find(kMarkBegin, from);
    const std::size_t end = expanded.find(kMarkEnd, begin);
    if (end == std::string::npos) break;
    const std::size_t number = std::stoul(expanded.substr(begin + 1, end - begin - 1));
    between[number] = expanded.substr(from, begin - from);
    from = end + 1;
  }
  between[marks] = expanded.substr(from);
  return between;
}

std::string Joined(const std::map<std::size_t, std::string>& between) {
  std::string text;
  for (const auto& [mark, piece] : between) text += piece;
  return text;
}

// Asked of the expansion itself.
const std::string& InvalidFormatText() {
  static const std::string text = [] {
    std::string token = "{date format=\"%\"}";
    ExpandDates(0, token);
    return token;
  }();
  return text;
}

bool IsToken(const std::string& piece) {
  return !piece.empty() && piece.front() == '{' && piece.back() == '}';
}

// Whether not every brace in it has an end of its own.
bool HoldsStrayBrace(const std::string& token) {
  return std::count(token.begin(), token.end(), '{') > std::count(token.begin(), token.end(), '}');
}

// Whether it has the form of one; not whether it is read as one.
bool IsDateOrTime(const std::string& token) {
  const std::size_t begin = token.find_first_not_of(' ', 1);
  if (begin == std::string::npos) return false;
  const std::string name = token.substr(begin, token.find_first_of(" }", begin) - begin);
  return name == "date" || name == "time";
}

// The pieces of one text, from its template and its expansions with and without empty values.
class PieceMaker {
 public:
  std::vector<Piece> Make(const std::vector<std::string>& templatePieces,
                          const std::map<std::size_t, std::string>& expanded,
                          const std::map<std::size_t, std::string>& withValues) {
    std::vector<Piece> pieces;
    std::size_t next = 0;
    Piece piece;
    bool hasValue = false;
    int open = 0;  // braces of the piece that wait for their end
    for (const auto& [mark, after] : expanded) {
      for (; next <= mark; ++next) {
        const std::string& part = templatePieces[next];
        piece.before += part;
        // A brace whose mark is gone was no more than text within a token.
        if (part.empty()) continue;
        if (part.front() == '{' && expanded.count(next - 1) != 0) ++open;
        if (part.back() == '}' && expanded.count(next) != 0) --open;
      }
      piece.after += after;
      const auto filled = withValues.find(mark);
      hasValue = hasValue || (filled != withValues.end() && !filled->second.empty());
      // Marks may be left within a token whose format holds braces; it goes on to its own end.
      if (piece.before != piece.after && open > 0) continue;
      Finish(piece, hasValue, pieces);
      piece = Piece();
      hasValue = false;
      open = 0;
    }
    Finish(piece, hasValue, pieces);
    return pieces;
  }

 private:
  void Finish(Piece& piece, bool hasValue, std::vector<Piece>& pieces) {
    if (piece.before.empty()) return;
    piece.line = line_;
    piece.column = column_;
    Judge(piece, hasValue);
    Advance(piece.before);
    pieces.push_back(std::move(piece));
  }

  void Judge(Piece& piece, bool hasValue) {
    if (piece.before == piece.after) {
      if (!IsToken(piece.before)) return;
      piece.fate = Fate::Left;
      piece.why = IsDateOrTime(piece.before)
                      ? "read only in a text with {date}, {time} or {date format=...}"
                      : WhyNotReplaced(piece.before);
    } else if (piece.after.empty() && !hasValue) {
      piece.fate = Fate::Dropped;
      piece.why = WhyDropped(piece.before);
    } else if (piece.after == InvalidFormatText()) {
      piece.fate = Fate::Invalid;
    } else {
      piece.fate = Fate::Replaced;
      replaced_.insert(piece.before);
    }
  }

  const char* WhyDropped(const std::string& token) const {
    if (HoldsStrayBrace(token)) return kStrayBrace;
    if (IsDateOrTime(token))
      return "its format gives no text, or too much of it, or cannot be read";
    return WhyNotReplaced(token);
  }

  const char* WhyNotReplaced(const std::string& token) const {
    if (!ContainsPlaceholder(token)) return "no placeholder";
    if (replaced_.count(token) != 0) return "only the first is replaced";
    if (token == "{weblink}") return "only the body can have a link";
    if (token == "{event type}") return "the event has no type";
    return "inside of other braces";
  }

  void Advance(const std::string& text) {
    for (const char c : text) {
      const bool continuesCharacter = (static_cast<unsigned char>(c) & 0xC0u) == 0x80u;
      if (c == '\n') {
        ++line_;
        column_ = 1;
      } else if (!continuesCharacter) {
        ++column_;
      }
    }
  }

  std::set<std::string> replaced_;
  std::size_t line_ = 1;
  std::size_t column_ = 1;
};

bool HoldsMarks(const std::string& text) {
  return text.find(kMarkBegin) != std::string::npos || text.find(kMarkEnd) != std::string::npos;
}

}  // namespace

std::optional<MarkedTexts> MarkPlaceholders(const std::string& subject, const std::string& body,
                                            const TextExpander& expand) {
  std::string plainSubject = subject;
  std::string plainBody = body;
  expand(plainSubject, plainBody, false);
  if (HoldsMarks(subject + body + plainSubject + plainBody)) return std::nullopt;

  const MarkedTemplate subjectMarks = WithMarks(subject);
  const MarkedTemplate bodyMarks = WithMarks(body);
  const auto between = [&](bool withValues) {
    std::string markedSubject = subjectMarks.text;
    std::string markedBody = bodyMarks.text;
    expand(markedSubject, markedBody, withValues);
    return std::pair(BetweenMarks(markedSubject, subjectMarks.pieces.size() - 1),
                     BetweenMarks(markedBody, bodyMarks.pieces.size() - 1));
  };
  const auto expanded = between(false);
  if (Joined(expanded.first) != plainSubject || Joined(expanded.second) != plainBody) {
    return std::nullopt;
  }
  const auto filled = between(true);
  MarkedTexts marked;
  marked.subject = PieceMaker().Make(subjectMarks.pieces, expanded.first, filled.first);
  marked.body = PieceMaker().Make(bodyMarks.pieces, expanded.second, filled.second);
  return marked;
}

}  // namespace tvx::tool
