#include "preview/template_trace.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tvx::tool {
namespace {

Fate FateOf(TokenFate fate, const std::string& value) {
  if (fate == TokenFate::InvalidFormat) return Fate::Invalid;
  return fate == TokenFate::Dropped && value.empty() ? Fate::Dropped : Fate::Replaced;
}

const Placeholder* FindPlaceholder(const std::string& token) {
  const auto found = std::find_if(kPlaceholders.begin(), kPlaceholders.end(),
                                  [&](const Placeholder& it) { return token == it.token; });
  return found == kPlaceholders.end() ? nullptr : &*found;
}

// Whether it has the form of one; not whether it is read as one.
bool IsDateOrTime(const std::string& token) {
  const std::size_t begin = token.find_first_not_of(' ', 1);
  if (begin == std::string::npos) return false;
  const std::string name = token.substr(begin, token.find_first_of(" }", begin) - begin);
  return name == "date" || name == "time";
}

Reason WhyNotReplaced(const Piece& piece, bool isBody) {
  const std::string& token = piece.before;
  const bool isDropped = piece.fate == Fate::Dropped;
  if (isDropped &&
      std::count(token.begin(), token.end(), '{') > std::count(token.begin(), token.end(), '}')) {
    return Reason::StrayBrace;
  }
  if (IsDateOrTime(token)) return isDropped ? Reason::NoDateText : Reason::NoDateInText;
  const Placeholder* placeholder = FindPlaceholder(token);
  if (placeholder == nullptr) return ContainsPlaceholder(token) ? Reason::Nested : Reason::Unknown;
  return placeholder->isBodyOnly && !isBody ? Reason::BodyOnly : Reason::NoValue;
}

// Counts lines and characters.
void Advance(const std::string& text, std::size_t& line, std::size_t& column) {
  for (const char c : text) {
    const bool continuesCharacter = (static_cast<unsigned char>(c) & 0xC0u) == 0x80u;
    if (c == '\n') {
      ++line;
      column = 1;
    } else if (!continuesCharacter) {
      ++column;
    }
  }
}

}  // namespace

TemplateTrace::TemplateTrace(const std::string& text, bool isBody)
    : text_(text),
      isBody_(isBody),
      stretches_{{0, text.size(), Fate::Text, {}}},
      next_(stretches_.begin()) {}

// Ends a stretch of mere text at this place of the text. next_ is then the one that begins there, or
// that holds the place within its value. Empty ones at the place are behind the end of a step, and
// before the begin of one.
void TemplateTrace::MoveTo(std::size_t at, bool isEnd) {
  if (at < nextAt_) {
    next_ = stretches_.begin();
    nextAt_ = 0;
  }
  while (next_ != stretches_.end() && nextAt_ + next_->Size() <= at && !(isEnd && nextAt_ == at)) {
    nextAt_ += next_++->Size();
  }
  if (nextAt_ == at || next_->fate != Fate::Text) return;
  const std::size_t cut = next_->begin + (at - nextAt_);
  stretches_.insert(std::next(next_), {cut, next_->end, Fate::Text, {}});
  next_++->end = cut;
  nextAt_ = at;
}

void TemplateTrace::Take(const Replacement& step) {
  MoveTo(step.at, false);
  const auto first = next_;
  const std::size_t firstAt = nextAt_;
  MoveTo(step.at + step.length, true);
  if (nextAt_ < step.at + step.length) ++next_;
  std::string value;
  for (auto at = first; at != next_; ++at) {
    value += at->fate == Fate::Text ? text_.substr(at->begin, at->end - at->begin) : at->value;
  }
  const std::string token = value.substr(step.at - firstAt, step.length);
  if (step.fate == TokenFate::Replaced && FindPlaceholder(token) != nullptr) {
    replaced_.emplace(token, first->begin);
  }
  value.replace(step.at - firstAt, step.length, step.value);
  first->fate = FateOf(step.fate, value);
  first->end = std::prev(next_)->end;
  first->value = std::move(value);
  stretches_.erase(std::next(first), next_);
  nextAt_ = firstAt + first->value.size();
}

// Text, cut before each "{" and behind each "}".
void TemplateTrace::AddText(std::string_view text, Pieces& pieces) {
  while (!text.empty()) {
    const std::size_t brace = text[0] == '}' ? 0 : text.find_first_of("{}", 1);
    const bool isEnd = brace < text.size() && text[brace] == '}';
    const std::string part(text.substr(0, isEnd ? brace + 1 : brace));
    pieces.push_back({isEnd && text[0] == '{' ? Fate::Left : Fate::Text, Reason::None, part, part});
    text.remove_prefix(part.size());
  }
}

Pieces TemplateTrace::Result() const {
  Pieces pieces;
  for (const Stretch& stretch : stretches_) {
    const std::string_view before =
        std::string_view(text_).substr(stretch.begin, stretch.end - stretch.begin);
    if (stretch.fate == Fate::Text) {
      AddText(before, pieces);
    } else {
      pieces.push_back({stretch.fate, Reason::None, std::string(before), stretch.value});
    }
  }
  std::size_t begin = 0;
  std::size_t line = 1;
  std::size_t column = 1;
  for (Piece& piece : pieces) {
    piece.line = line;
    piece.column = column;
    Advance(piece.before, line, column);
    if (piece.fate == Fate::Left || piece.fate == Fate::Dropped) {
      const auto replaced = replaced_.find(piece.before);
      piece.why = WhyNotReplaced(piece, isBody_);
      if (piece.why == Reason::NoValue && replaced != replaced_.end()) {
        piece.why = replaced->second == begin ? Reason::Nested : Reason::Repeated;
      }
    }
    begin += piece.before.size();
  }
  return pieces;
}

}  // namespace tvx::tool
