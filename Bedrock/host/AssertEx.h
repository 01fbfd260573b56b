#pragma once

#include <Bedrock/host/Exception.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// A failed assertion on its way to the frame that it ends. Hidden: an application catches it as an `Exception` only.
class AssertEx : public Zem::Exception
{
public:
    AssertEx(const char* sourceFile, int sourceLine, const char* text) noexcept
        : Zem::Exception(sourceFile, sourceLine, text)
    {
    }
    AssertEx(const AssertEx&) noexcept = default;
    AssertEx& operator=(const AssertEx&) noexcept = default;

    const char* Class() const noexcept override { return "Assertion"; }
};

#pragma GCC diagnostic pop
