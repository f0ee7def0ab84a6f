// Names and places of a document's elements and attributes, for people.
// Threads: any, while the document does not change. The document's positions must be tracked.
#pragma once

#include <tinyxml.h>

#include <string>

#include "configuration_check/finding.h"

namespace tvx::tool {

Place PlaceOf(const TiXmlBase& node);

// Of what a path within the element names: "attribute", "child/" or "child/attribute". When there is
// no such attribute, or no such child, it is the place of what holds it.
Place PlaceOf(const TiXmlElement& element, const std::string& path);

bool IsServer(const TiXmlElement& element);
bool IsProfile(const TiXmlElement& element);

// As 'server "Backup"', 'profile 3 "Gate"', 'element "to" of profile 3 "Gate"' or 'element "Web"'.
std::string NameOf(const TiXmlElement& element);

std::string Quoted(const std::string& text);

}  // namespace tvx::tool
