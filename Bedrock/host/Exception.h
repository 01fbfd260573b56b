#pragma once

#include <Bedrock/Export.h>

#include <cstdarg>
#include <cstdint>

namespace Zem
{

// Failures are flat values without a destructor; the virtual operations answer questions and never destroy.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// A failure of the programmer or of the disk: thrown by value, caught by reference.
///
/// It carries a reason of one line (up to 255 characters), a description of many (up to 4,095), the source's name and
/// a line. All of it lies in the object: building, copying and reading one uses no heap and makes no system call, so it
/// also works in a process that has just faulted. Texts are always terminated; an output that doesn't fit is cut.
///
/// Copying copies the fields and not the class: a `FileEx` that is copied into an `Exception` is an `Exception`.
/// Threads: an object belongs to the thread that holds it.
///
///     try { file.Read(buffer, 1, 100); }
///     catch (Exception& e) { std::printf("%s: %s (%s, %d)\n", e.Class(), e.Reason(), e.File(), e.Line()); }
///
///     FileEx failure("Loader", __LINE__);
///     failure.SetReasonf("Load() %s has no header", name);
///     throw failure;
class ZEM_API Exception
{
public:
    /// Both texts empty, line 0, no file.
    Exception() noexcept;

    /// A failure at `line` of `file`, a text that outlives the object: only the pointer is kept, a literal in all uses.
    /// The description is "No call stack available\r\n".
    Exception(const char* file, int line) noexcept;
    Exception(const char* file, int line, const char* reason) noexcept;

    Exception(const Exception&) noexcept = default;
    Exception& operator=(const Exception&) noexcept = default;

    /// Makes the fields those of a default-built object; the class stays.
    void InitMembers() noexcept;

    /// One word for the family: "Unknown", "File", "Hardware", "Assertion".
    virtual const char* Class() const noexcept;
    /// What `SetHardwareException` said, false at first.
    virtual bool IsHardwareException() const noexcept;
    virtual const char* Description() const noexcept;
    virtual const char* Reason() const noexcept;

    /// Replaces the reason. An argument may be the reason itself.
    void VSetReasonf(const char* format, std::va_list args) noexcept ZEM_PRINTF(2, 0);
    void SetReasonf(const char* format, ...) noexcept ZEM_PRINTF(2, 3);

    /// Appends "  -  " and then the text.
    void AddReasonf(const char* format, ...) noexcept ZEM_PRINTF(2, 3);

    /// Replaces the description. An argument may be the description itself.
    void VSetDescriptionf(const char* format, std::va_list args) noexcept ZEM_PRINTF(2, 0);
    void SetDescriptionf(const char* format, ...) noexcept ZEM_PRINTF(2, 3);

    bool HardwareException() const noexcept { return hardware; }
    void SetHardwareException(bool flag) noexcept { hardware = flag; }

    /// Source line, 0 where there is none.
    int Line() const noexcept { return line; }
    /// Source name, null where there is none.
    const char* File() const noexcept { return file; }

    /// For a class that reports itself when it is caught; this one does nothing.
    void Log(int) noexcept {}

protected:
    static constexpr std::uint32_t DescriptionSize = 4096; // with the terminator
    static constexpr std::uint32_t ReasonSize = 256;

    char description[DescriptionSize];
    char reason[ReasonSize];
    bool hardware;
    std::int32_t line;
    const char* file;
};

/// A failure of the file layer.
class ZEM_API FileEx : public Exception
{
public:
    FileEx(const char* file, int line) noexcept;
    FileEx(const char* file, int line, const char* reason) noexcept;
    FileEx(const FileEx&) noexcept = default;
    FileEx& operator=(const FileEx&) noexcept = default;

    const char* Class() const noexcept override;
};

#pragma GCC diagnostic pop

} // namespace Zem
