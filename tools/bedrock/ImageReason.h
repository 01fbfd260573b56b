#pragma once

#include <string>

namespace Tool
{

/// Why the library does not load the image file `name` (anything that `Zem::File` opens), in words for its owner: "does
/// not exist or cannot be opened", "run-length packed TGA", ... For a file whose header is fine the pixels behind it
/// are not: they end too early, or a decoder gave up.
std::string WhyNotLoaded(const std::string& name);

} // namespace Tool
