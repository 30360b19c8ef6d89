#pragma once

#include "schema/configurationfiles.h"

#include <string>
#include <vector>

// How the table of attributes is told to people; the same in schemas, manual pages and documents.
namespace ConfigPages {

using namespace plcctl::schema;

// What stands in the file: "0 to 65535, in s", "text of up to 127 characters".
std::string valueOf(const Attribute& attribute);

// "yes", "at level 4", "at levels 2, 4 and 5", "no".
std::string neededOf(const Attribute& attribute);

// What the service goes on with: "0", "empty".
std::string missingOf(const Attribute& attribute);

// "name: meaning", or the meaning alone.
std::string textOf(const Choice& choice);

// The attribute's choices are worth a list of their own: more than yes, no or none.
bool hasListedChoices(const Attribute& attribute);

// The choice is a text, whose length stands behind its number.
bool isTextType(const Choice& choice);

// The number of characters that a text's field in the configuration record holds.
int longestText(const Attribute& attribute);

// "0, 1 and 2" with `last` "and".
std::string listed(const std::vector<std::string>& words, std::string_view last);

} // namespace ConfigPages
