#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/host/LogClient.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace Zem
{

class File;
class Options;

/// The log of the process: one file, which any number of clients write to. Its clock starts when the library is loaded.
///
/// Until `Init` opens the file, and after it was closed, messages reach the debugger alone. Each line is on the device
/// before the call that wrote it returns, unless the option "LogFlush" turns that off: then lines wait in a buffer of
/// 16 KiB, and an error sends it off to the system, so that it outlives a crash of the process. Lines of different
/// threads never mix.
///
/// Options: "LogFile" (the name, ZemLog.txt by default), "LogFlush" (-LogFlush turns committing off), "NoLog" (no log),
/// and "Log", a list of settings parted by commas: a client's name, then fields behind ":": a level (None, Err, Warn,
/// Diag, Prog: the highest to be written), or one of file, mono, window, newlines, displaymodulename, with "=off" behind
/// it or not.
///
///     -LogFlush +Log=Loader:Prog:mono=off,Window:None
///
/// Threads: all members may be called by any thread.
///
///     Log::Init(&options);
///     LogClient* client = Log::GetClient("Loader");
///     if (LogClient::Wants(client, LogClient::Err))
///         client->Write(LogClient::Err, "%s: %s", name, result.Text());
class ZEM_API Log
{
public:
    /// The client of that name, in any case; made at the first call. Null when the heap is exhausted.
    static LogClient* GetClient(const char* name) noexcept;

    /// Opens the file and applies the options; null: none. A second call does nothing.
    ///
    /// A file that cannot be opened turns logging off for the process, silently. With "NoLog" the file only says so.
    /// Throws: FileEx when the new file cannot be written, and with "NoLog" also when it cannot be opened.
    static void Init(Options* options);

    /// Closes the file with "End.", forgets all clients' settings, and lets `Init` open the log anew. A client pointer
    /// stays good. Throws: FileEx when the end cannot be stored; the file is closed all the same.
    static void Done();

    /// Closes the file before its time, with "Shutdown.", and leaves the clients as they are; it is not opened again.
    ///
    /// `abrupt` is for a process in trouble: nothing more is written, not even what is buffered, nothing is waited for,
    /// and nothing is thrown. Otherwise throws as `Done` does.
    static void Shutdown(bool abrupt);

    /// Seconds since the library was loaded.
    static float CurLogTime() noexcept;
    /// The seconds of the time as a line shows it; the minutes are the rest.
    static float CurLogSeconds() noexcept;
    static float GetBedrockBuildVersion() noexcept { return 1.3F; }

    /// Frees the clients that `Done` has put aside: a test may ask for more names than a process ever does.
    static void ForgetClientsForTest() noexcept;

private:
    friend class LogClient;
    friend struct Attachment; // ends the log with the library

    struct Moment
    {
        float time;    // seconds since the start
        int minutes;   // as a line shows it
        float seconds; // likewise
    };

    static Moment Now() noexcept;
    static std::size_t WritePrefix(char* to, const LogClient& client, std::int32_t level) noexcept;
    static void Output(LogClient& client, std::int32_t level, const char* format, std::va_list args);
    static void Send(LogClient& client, std::int32_t level, const char* line, std::size_t length);
    static void Close(const char* lastWord);
    static void End() noexcept;
    static void Discard(File* closing) noexcept;
    static File* Open(Options& options, const char* greeting, bool mustOpen);
    static void Apply(const char* setting, std::size_t length) noexcept;
    static void ApplySwitch(LogClient& client, const char* field, const char* fieldEnd) noexcept;
    static LogClient* GetClient(const char* name, std::size_t length) noexcept;
    static void TakeLoss(const char* text) noexcept;

    static const double startTime;
};

} // namespace Zem
