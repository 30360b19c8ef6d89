#pragma once

#include "schema/configurationfiles.h"

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

// What the service's own parsers make of a file that is written from the table of attributes.
namespace ServiceParser {

// An attribute of an element, by their names.
using Place = std::pair<std::string, std::string>;

// The text of an attribute in the file; without any, the attribute isn't there.
using Texts = std::map<Place, std::string>;

struct Reading
{
    bool success = false;
    std::map<std::string, std::string> members; // of all that came of the file, by name
    std::vector<Place> asked;                   // the attributes that the parser asked for, in this order

    // The attributes that it asked for of that element, in this order.
    [[nodiscard]] std::vector<std::string> askedOf(std::string_view element) const;
};

// Writes a file with one element of each kind and these attributes, and lets the service read it. A publication or
// subscription with DataType 10 has one member.
Reading read(const plcctl::schema::ConfigurationFile& file, const Texts& texts);

// Calls `visit` for the element and everything below it.
void forEachElement(const plcctl::schema::Element& top,
                    const std::function<void(const plcctl::schema::Element&)>& visit);

} // namespace ServiceParser
