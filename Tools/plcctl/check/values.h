#pragma once

#include "check/document.h"
#include "check/finding.h"
#include "schema/configurationfiles.h"

namespace plcctl::check {

// Whether the text is what the attribute takes: a number where one is wanted, and in its range.
void checkValue(const schema::Attribute& known, const Attribute& attribute, int file, Findings& findings);

// True when the value fits its range; for forms other than numbers always.
bool isInRange(const schema::Attribute& known, const QString& value);

} // namespace plcctl::check
