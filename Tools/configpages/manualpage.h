#pragma once

#include "schema/configurationfiles.h"

#include <string>
#include <string_view>

namespace ConfigPages {

// The manual page of section 5 of the file; `example` is a whole file that it shows.
std::string manualPage(const plcctl::schema::ConfigurationFile& file, std::string_view example);

} // namespace ConfigPages
