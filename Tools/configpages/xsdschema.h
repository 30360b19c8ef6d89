#pragma once

#include "schema/configurationfiles.h"

#include <string>

namespace ConfigPages {

// An XML Schema (XSD 1.0) of the file, with the table's texts as documentation of every element and attribute.
std::string xsdSchema(const plcctl::schema::ConfigurationFile& file);

} // namespace ConfigPages
