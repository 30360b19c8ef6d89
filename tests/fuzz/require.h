#pragma once

namespace Fuzzing {

// Ends the process, as a sanitizer does, when `condition` doesn't hold.
void require(bool condition, const char* what);

} // namespace Fuzzing
