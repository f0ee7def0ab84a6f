// What somebody may have meant who mistyped a name.
// Threads: any; nothing is shared.
#pragma once

#include <string>
#include <vector>

namespace tvx::tool {

// The name that is this word but for its letters' case and one or two slips (one in a word of up to
// four letters): a letter wrong, missing, too many, or two of them swapped. Empty when there is none,
// or the word is one of the names.
std::string NearestName(const std::string& word, const std::vector<std::string>& names);

}  // namespace tvx::tool
