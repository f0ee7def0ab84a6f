#include "configuration_check/reading.h"

#include "config/notify_profile.h"
#include "config/xml_children.h"

namespace tvx::tool {

std::vector<const TiXmlNode*> Reading::Contents(const TiXmlElement& within,
                                                const char* name) const {
  std::vector<const TiXmlNode*> contents;
  for (const TiXmlElement& element : Children(within, name)) {
    const TiXmlNode* content = element.FirstChild();
    if (content != nullptr && IsContent(*content)) contents.push_back(content);
  }
  return contents;
}

const std::set<std::string>& Reading::Attributes(const TiXmlElement& element) const {
  static const std::set<std::string> none;
  const auto found = attributes_.find(&element);
  return found == attributes_.end() ? none : found->second;
}

void Reading::Enters(const TiXmlElement& element) {
  known_.insert(&element);
}

void Reading::TakesText(const TiXmlElement& element, const char* attribute) {
  attributes_[&element].insert(attribute);
}

void Reading::TakesNumber(const TiXmlElement& element, const char* attribute, std::int32_t number) {
  attributes_[&element].insert(attribute);
  numbers_.push_back({&element, attribute, number});
}

void Reading::TakesContent(const TiXmlNode& content) {
  contents_.insert(&content);
}

void Reading::Skips(const TiXmlElement& element, SkipReason reason, const char* name) {
  skipped_.insert(&element);
  skips_.push_back({&element, reason, name == nullptr ? "" : name});
}

void Reading::Keeps(const TiXmlElement& element, const SmtpServer&) {
  servers_.push_back(&element);
}

void Reading::Keeps(const TiXmlElement& element, const NotifyProfile& profile) {
  profiles_.push_back({&element, profile.ID});
  profileElements_[profile.ID] = &element;
}

}  // namespace tvx::tool
