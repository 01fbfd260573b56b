#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/String.h>

#include <atomic>
#include <cstdint>

namespace Zem
{

/// A number that one thread may set while others read it. It orders nothing else, and costs what a plain number costs.
template <class T>
class LogNumber
{
public:
    constexpr LogNumber(T start) noexcept : number(start) {}
    LogNumber(const LogNumber&) = delete;
    T operator=(T value) noexcept
    {
        number.store(value, std::memory_order_relaxed);
        return value;
    }
    operator T() const noexcept { return number.load(std::memory_order_relaxed); }

private:
    std::atomic<T> number;
};

/// A named writer on the log. `Log::GetClient` makes it; its threshold and its outputs are the user's, by the option
/// "Log". A client lives until the process ends, so a pointer to it may be kept for ever.
///
/// A line is the prefix, the message and a line end:
///
///     ! 000004D2 Err    1:12.5 ExceptionHandle : the message
///     | thread   level  |      client, 15 bytes
///     level             minutes and seconds since the library was loaded
///
/// Threads: all of it may be used by any thread at any time, `Write` also at different levels at once.
///
///     static LogClient* client = Log::GetClient("Loader");
///     if (LogClient::Wants(client, LogClient::Diag))
///         client->Write(LogClient::Diag, "%u textures", count);
class ZEM_API LogClient
{
    ZEM_HEAP_OPERATORS
public:
    enum Level : std::int32_t
    {
        None, // as a threshold: nothing is written
        Err,
        Warn,
        Diag,
        Prog,
    };

    enum Outputs : std::uint32_t
    {
        file = 1,   // the log file
        mono = 2,   // the debugger, see Debugger::Output
        window = 8, // kept for applications
    };

    enum Formats : std::uint32_t
    {
        newlines = 1,          // "\r\n" ends each message
        displaymodulename = 2, // the prefix stands before it
    };

    /// The writer's test, which comes first: true if a message of `level` should be written. A null client wants none.
    static bool Wants(const LogClient* client, std::int32_t level) noexcept
    {
        return client && client->threshold >= level && client->outputs != 0 && !disabled;
    }

    /// Writes one message at `level`, with no test.
    /// Throws: FileEx when the file cannot take it; the debugger does not get it then.
    void Write(std::int32_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));

    /// The same at the level that the caller has stored in `level`. Two threads that share a client and write at
    /// different levels call `Write`. A message has up to 8,192 characters; of a longer one only the prefix is written.
    void OutputString(const char* format, ...) __attribute__((format(printf, 2, 3)));

    const char* Name() const noexcept { return name; }

    /// True when logging is off for the process.
    static LogNumber<bool> disabled;

private:
    friend class Log;

    LogClient() noexcept = default;
    LogClient(const LogClient&) = delete;
    LogClient& operator=(const LogClient&) = delete;

    LogClient* next = nullptr;
    LogClient* prev = nullptr;
    String name;

public:
    LogNumber<std::int32_t> threshold = Warn; // highest level that is written
    LogNumber<std::int32_t> level = None;     // of the message that OutputString writes
    LogNumber<std::uint32_t> outputs = file | mono;
    LogNumber<std::uint32_t> format = newlines | displaymodulename;

private:
    LogClient* chain = nullptr; // of the index by name
    bool listed = false;
};

} // namespace Zem
