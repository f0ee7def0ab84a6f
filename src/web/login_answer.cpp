#include "web/login_answer.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace tvx {
namespace {

void AppendUtf8(std::uint32_t code, std::string& text) {
  const auto tail = [&](int shift) {
    text.push_back(static_cast<char>(0x80 | ((code >> shift) & 0x3F)));
  };
  if (code < 0x80) {
    text.push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    text.push_back(static_cast<char>(0xC0 | (code >> 6)));
    tail(0);
  } else if (code < 0x10000) {
    text.push_back(static_cast<char>(0xE0 | (code >> 12)));
    tail(6);
    tail(0);
  } else {
    text.push_back(static_cast<char>(0xF0 | (code >> 18)));
    tail(12);
    tail(6);
    tail(0);
  }
}

// The four figures after a "\u".
std::optional<std::uint32_t> ReadHex(std::string_view text, std::size_t at) {
  if (at > text.size() || text.size() - at < 4) return std::nullopt;
  std::uint32_t code = 0;
  const char* const begin = text.data() + at;
  const auto parsed = std::from_chars(begin, begin + 4, code, 16);
  if (parsed.ec != std::errc() || parsed.ptr != begin + 4) return std::nullopt;
  return code;
}

// Resolves the escapes of a JSON string; what is none stays as it is.
std::string Unescape(std::string_view escaped) {
  std::string text;
  text.reserve(escaped.size());
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    if (escaped[i] != '\\' || i + 1 == escaped.size()) {
      text.push_back(escaped[i]);
      continue;
    }
    const char kind = escaped[++i];
    constexpr std::string_view kKinds = "bfnrt";
    constexpr std::string_view kMeanings = "\b\f\n\r\t";
    const std::size_t known = kKinds.find(kind);
    const std::optional<std::uint32_t> first = kind == 'u' ? ReadHex(escaped, i + 1) : std::nullopt;
    if (known != std::string_view::npos) {
      text.push_back(kMeanings[known]);
    } else if (first) {
      i += 4;
      std::uint32_t code = *first;
      if (code >= 0xD800 && code < 0xDC00 && escaped.substr(i + 1, 2) == "\\u") {
        const std::optional<std::uint32_t> second = ReadHex(escaped, i + 3);
        if (second && *second >= 0xDC00 && *second < 0xE000) {
          code = 0x10000 + ((code - 0xD800) << 10) + (*second - 0xDC00);
          i += 6;
        }
      }
      AppendUtf8(code, text);
    } else {
      text.push_back(kind);
    }
  }
  return text;
}

// The strings that a system's object holds, as written.
struct SystemObject {
  std::optional<std::string_view> serial;
  std::string_view id;
  std::string_view model;

  void Set(std::string_view key, std::string_view value) {
    if (key == "serial") serial = value;
    if (key == "id") id = value;
    if (key == "model") model = value;
  }
};

class ListScanner {
 public:
  explicit ListScanner(std::string_view list) : rest_(list) {}

  // The next object's strings; nothing once the list is used up.
  std::optional<SystemObject> Next() {
    if (!SkipTo('{')) return std::nullopt;
    SystemObject object;
    int depth = 1;
    while (depth > 0 && !rest_.empty()) {
      const char c = rest_.front();
      if (c == '"') {
        ReadPair(depth == 1 ? &object : nullptr);
        continue;
      }
      rest_.remove_prefix(1);
      if (c == '{' || c == '[') ++depth;
      if (c == '}' || c == ']') --depth;
    }
    return object;
  }

 private:
  // Moves behind the character, which is not looked for inside strings.
  bool SkipTo(char wanted) {
    while (!rest_.empty()) {
      if (rest_.front() == '"') {
        ReadString();
        continue;
      }
      const bool found = rest_.front() == wanted;
      rest_.remove_prefix(1);
      if (found) return true;
    }
    return false;
  }

  // Takes the string at the current place with its double-quote characters and returns what is
  // between them. A string without an end takes all that is left and is empty.
  std::string_view ReadString() {
    rest_.remove_prefix(1);
    std::size_t at = 0;
    for (;;) {
      at = rest_.find_first_of("\"\\", at);
      if (at == std::string_view::npos) {
        rest_ = {};
        return {};
      }
      if (rest_[at] == '"') break;
      at += 2;
    }
    const std::string_view text = rest_.substr(0, at);
    rest_.remove_prefix(at + 1);
    return text;
  }

  // Takes a key and, when it is a string, its value, so that a value is never taken for a key.
  void ReadPair(SystemObject* object) {
    const std::string_view key = ReadString();
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" :\t\r\n"), rest_.size()));
    if (rest_.empty() || rest_.front() != '"') return;
    const std::string_view value = ReadString();
    if (object != nullptr) object->Set(key, value);
  }

  std::string_view rest_;
};

std::optional<std::string_view> FindList(std::string_view answer) {
  const std::size_t key = answer.find("\"list\"");
  if (key == std::string_view::npos) return std::nullopt;
  const std::size_t begin = answer.find('[', key);
  const std::size_t end = answer.rfind(']');
  if (begin == std::string_view::npos || end == std::string_view::npos || end < begin) {
    return std::nullopt;
  }
  return answer.substr(begin + 1, end - begin - 1);
}

}  // namespace

LoginAnswer ScanLoginAnswer(std::string_view answer, std::string_view serial) {
  LoginAnswer result;
  const std::optional<std::string_view> list = FindList(answer);
  if (!list) return result;

  result.outcome = LoginAnswer::Outcome::NotListed;
  if (serial.empty()) return result;
  ListScanner scanner(*list);
  while (const std::optional<SystemObject> object = scanner.Next()) {
    if (!object->serial || Unescape(*object->serial) != serial) continue;
    if (object->id.empty()) {
      result.outcome = LoginAnswer::Outcome::NotUnderstood;
      continue;
    }
    result.outcome = LoginAnswer::Outcome::Listed;
    result.serverId = Unescape(object->id);
    result.serverIdEscaped = object->id;
    result.newerSearchFormat = !object->model.empty();
    return result;
  }
  return result;
}

}  // namespace tvx
