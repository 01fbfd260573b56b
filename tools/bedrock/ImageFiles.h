#pragma once

// Images in and out, for every command that works on them.

#include "Mounts.h"

#include <Bedrock/bitmap/Bitmap.h>

#include <optional>
#include <string>

namespace Tool
{

/// The image that an argument names; without a value when it cannot be loaded, which `messages` has then told.
std::optional<Zem::Bitmap> LoadImage(Mounts& mounts, const std::string& name, Messages& messages);

/// Throws a `Failure` unless `name` ends as an image that can be written.
void CheckImageOutput(const std::string& name);

/// Writes an image under a name that `CheckImageOutput` let pass: to disk in one step, or into a mounted archive. The
/// image may change its format.
void SaveImage(Mounts& mounts, Zem::Bitmap& image, const std::string& name, bool force, Messages& messages);

/// The same pixels in the format that has an alpha channel.
Zem::Bitmap WithAlpha(const Zem::Bitmap& image);

} // namespace Tool
