#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace ConfigPages {

// The page with the text between each pair of markers written anew:
//   <!-- table FILE ELEMENT -->  the element's attributes, and what their values mean
//   <!-- example FILE -->        the whole file that `exampleOf` gives
// each up to <!-- end -->. Throws std::runtime_error when a marker names nothing or has no end.
std::string withGeneratedParts(std::string_view page, const std::function<std::string(std::string_view)>& exampleOf);

} // namespace ConfigPages
