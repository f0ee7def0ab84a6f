// Walks the children of one name of an element, in document order, in a range-based for loop.
//
// Owns nothing: the document must outlive the range. Linear in the number of children.
// Threads: any, while the document does not change.
#pragma once

#include <tinyxml.h>

namespace tvx {

class Children {
 public:
  class Iterator {
   public:
    Iterator(const TiXmlElement* at, const char* name) : at_(at), name_(name) {}
    const TiXmlElement& operator*() const { return *at_; }
    Iterator& operator++() {
      at_ = name_ == nullptr ? at_->NextSiblingElement() : at_->NextSiblingElement(name_);
      return *this;
    }
    bool operator!=(const Iterator& other) const { return at_ != other.at_; }

   private:
    const TiXmlElement* at_;
    const char* name_;
  };

  // All child elements, whatever their name.
  explicit Children(const TiXmlElement& parent)
      : first_(parent.FirstChildElement()), name_(nullptr) {}

  // The name is not copied.
  Children(const TiXmlElement& parent, const char* name)
      : first_(parent.FirstChildElement(name)), name_(name) {}

  Iterator begin() const { return {first_, name_}; }
  Iterator end() const { return {nullptr, name_}; }

 private:
  const TiXmlElement* first_;
  const char* name_;
};

}  // namespace tvx
