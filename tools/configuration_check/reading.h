// The record of one reading of a "Notify" block: all that the reader told about it.
//
// Nothing here knows which elements and attributes there are: what the reader did not look at is
// what it ignores.
// Threads: its owner's. Elements and texts are the document's, which must outlive it.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "config/notify_profile.h"
#include "config/notify_read_observer.h"
#include "config/xml_children.h"

namespace tvx::tool {

class Reading : public NotifyReadObserver {
 public:
  struct Number {
    const TiXmlElement* element;
    std::string attribute;
    std::int32_t used;
  };
  struct Skip {
    const TiXmlElement* element;
    SkipReason reason;
    std::string name;  // of the attribute or child; may be empty
  };
  struct Kept {
    const TiXmlElement* element;
    std::int32_t id;
  };

  const std::vector<Number>& Numbers() const { return numbers_; }
  const std::vector<Skip>& Skipped() const { return skips_; }
  const std::vector<const TiXmlElement*>& Servers() const { return servers_; }
  // All that were kept when they were read, later replaced ones included.
  const std::vector<Kept>& Profiles() const { return profiles_; }
  // The element that a profile came from. REQUIRES: it is in the configuration.
  const TiXmlElement& ProfileElement(std::int32_t id) const { return *profileElements_.at(id); }

  bool Knows(const TiXmlElement& element) const { return known_.count(&element) != 0; }
  // Whether the node was taken as a text element's content.
  bool IsContent(const TiXmlNode& node) const { return contents_.count(&node) != 0; }
  // The attributes that were looked for, whether or not they are there.
  const std::set<std::string>& Attributes(const TiXmlElement& element) const {
    static const std::set<std::string> none;
    const auto found = attributes_.find(&element);
    return found == attributes_.end() ? none : found->second;
  }
  bool IsSkipped(const TiXmlElement& element) const { return skipped_.count(&element) != 0; }

  // What the elements of this name within another hold, in order.
  std::vector<const TiXmlNode*> Contents(const TiXmlElement& within, const char* name) const {
    std::vector<const TiXmlNode*> contents;
    for (const TiXmlElement& element : Children(within, name)) {
      const TiXmlNode* content = element.FirstChild();
      if (content != nullptr && IsContent(*content)) contents.push_back(content);
    }
    return contents;
  }

  void Enters(const TiXmlElement& element) override { known_.insert(&element); }
  void TakesText(const TiXmlElement& element, const char* attribute) override {
    attributes_[&element].insert(attribute);
  }
  void TakesNumber(const TiXmlElement& element, const char* attribute,
                   std::int32_t number) override {
    TakesText(element, attribute);
    numbers_.push_back({&element, attribute, number});
  }
  void TakesContent(const TiXmlNode& content) override { contents_.insert(&content); }
  void Skips(const TiXmlElement& element, SkipReason reason, const char* name) override {
    skipped_.insert(&element);
    skips_.push_back({&element, reason, name == nullptr ? "" : name});
  }
  void Keeps(const TiXmlElement& element, const SmtpServer&) override {
    servers_.push_back(&element);
  }
  void Keeps(const TiXmlElement& element, const NotifyProfile& profile) override {
    profiles_.push_back({&element, profile.ID});
    profileElements_[profile.ID] = &element;
  }

 private:
  std::set<const TiXmlElement*> known_;
  std::set<const TiXmlNode*> contents_;
  std::map<const TiXmlElement*, std::set<std::string>> attributes_;
  std::set<const TiXmlElement*> skipped_;
  std::vector<Number> numbers_;
  std::vector<Skip> skips_;
  std::vector<const TiXmlElement*> servers_;
  std::vector<Kept> profiles_;
  std::map<std::int32_t, const TiXmlElement*> profileElements_;
};

}  // namespace tvx::tool
