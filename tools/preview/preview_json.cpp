#include "preview/preview_json.h"

#include <nlohmann/json.hpp>
#include <vector>

namespace tvx::tool {
namespace {

using Json = nlohmann::ordered_json;

const char* Name(Fate fate) {
  switch (fate) {
    case Fate::Text:
      return "text";
    case Fate::Replaced:
      return "replaced";
    case Fate::Left:
      return "left";
    case Fate::Dropped:
      return "dropped";
    case Fate::Invalid:
      return "invalid";
  }
  return "";
}

void AddTokens(const char* text, const std::vector<Piece>& pieces, Json& tokens) {
  for (const Piece& piece : pieces) {
    if (piece.fate == Fate::Text) continue;
    Json token = {{"text", text},           {"line", piece.line},
                  {"column", piece.column}, {"fate", Name(piece.fate)},
                  {"token", piece.before},  {"value", piece.after}};
    if (!piece.why.empty()) token["why"] = piece.why;
    tokens.push_back(std::move(token));
  }
}

}  // namespace

std::string PreviewJson(const Preview& preview) {
  Json json = {{"profile", preview.profileId},
               {"description", preview.description},
               {"from", preview.from},
               {"to", preview.to},
               {"cc", preview.cc},
               {"bcc", preview.bcc},
               {"subject", preview.subject},
               {"body", preview.body},
               {"notes", preview.notes},
               {"attached", preview.attached},
               {"bytes", preview.message.size()},
               {"tokens", Json::array()},
               {"faults", preview.faults},
               {"remarks", preview.remarks},
               {"findings", preview.Findings()}};
  if (preview.marks) {
    AddTokens("subject", preview.marks->subject, json["tokens"]);
    AddTokens("body", preview.marks->body, json["tokens"]);
  }
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace tvx::tool
