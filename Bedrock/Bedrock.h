#pragma once

/// The chief header: everything that the library exports. Each class also has a header of its own.

#include <Bedrock/Export.h>
#include <Bedrock/Types.h>
#include <Bedrock/Version.h>

// Memory, strings and containers
#include <Bedrock/memory/Alloc.h>
