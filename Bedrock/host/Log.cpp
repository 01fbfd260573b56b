#include <Bedrock/host/Log.h>

#include <Bedrock/files/File.h>
#include <Bedrock/host/Debugger.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/host/Loss.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/platform/Lock.h>
#include <Bedrock/platform/Process.h>
#include <Bedrock/platform/Text.h>
#include <Bedrock/threads/Time.h>

#include <cmath>
#include <cstdio>
#include <cstring>

namespace Zem
{

constinit LogNumber<bool> LogClient::disabled{false};

namespace
{

constexpr std::int32_t levelCount = 5;
constexpr char levelSymbols[] = " !?+-";
constexpr char levelWords[levelCount][5] = {"None", "Err ", "Warn", "Diag", "Prog"};
constexpr const char* levelNames[levelCount] = {"None", "Err", "Warn", "Diag", "Prog"};

constexpr char banner[] = "Zem v???.?? Build 1.3.????? on Oct 17 2002 at 02:00:50.\r\n\r\n";

// -------------------------------------------------------------------------------------------------- the file
// `logFile` may be set and cleared by any thread; what it points at is used, and deleted, under `lock` alone.

constinit Platform::Lock lock;
constinit std::atomic<File*> logFile{nullptr};
constinit std::atomic<bool> flushLines{true}; // commit each line
constinit std::atomic<bool> initialised{false};

// ----------------------------------------------------------------------------------------------- the clients
// A client never goes: whoever holds one may come at any time, also after the library has ended. Guarded by `listLock`.

constexpr std::uint32_t bucketCount = 256;

constinit Platform::Lock listLock;
constinit LogClient* index[bucketCount] = {}; // all clients ever made, by name
constinit LogClient* firstClient = nullptr;   // those in use, in the order in which they were asked for
constinit LogClient* lastClient = nullptr;

std::uint32_t BucketOf(const char* name, std::size_t length) noexcept
{
    std::uint32_t hash = 2166136261u;
    for (std::size_t i = 0; i < length; ++i)
        hash = (hash ^ Platform::ToLowerAscii(static_cast<unsigned char>(name[i]))) * 16777619u;
    return (hash ^ (hash >> 16)) % bucketCount;
}

// Whether the slice is the word, which is in small letters but for its first.
bool IsWord(const char* text, std::size_t length, const char* word) noexcept
{
    if (std::strlen(word) != length)
        return false;
    for (std::size_t i = 0; i < length; ++i)
        if (Platform::ToLowerAscii(static_cast<unsigned char>(text[i])) !=
            Platform::ToLowerAscii(static_cast<unsigned char>(word[i])))
            return false;
    return true;
}

} // namespace

LogClient* Log::GetClient(const char* name, std::size_t length) noexcept
{
    const Platform::LockGuard guard(listLock);
    LogClient*& bucket = index[BucketOf(name, length)];
    LogClient* client = bucket;
    while (client && !IsWord(name, length, client->name ? client->name : ""))
        client = client->chain;
    if (client && client->listed)
        return client;
    if (!client)
    {
        client = new LogClient();
        if (!client)
            return nullptr;
        client->chain = bucket;
        bucket = client;
    }
    client->name = String(name, static_cast<unsigned>(length));
    client->listed = true;
    client->next = nullptr;
    client->prev = lastClient;
    (lastClient ? lastClient->next : firstClient) = client;
    lastClient = client;
    return client;
}

LogClient* Log::GetClient(const char* name) noexcept
{
    return name ? GetClient(name, std::strlen(name)) : GetClient("", 0);
}

// ---------------------------------------------------------------------------------------------------- the clock

namespace
{

// The nearest whole number, of two the even one. Numbers with no more than 22 bits before the point take the short way:
// with this one added none is left behind it.
int ToNearest(double number) noexcept
{
    constexpr double shift = 6755399441055744.0; // 1.5 times two to the 52nd
    if (number > -4194304 && number < 4194304)
        return static_cast<int>((number + shift) - shift);
    return static_cast<int>(std::nearbyint(number));
}

} // namespace

Log::Moment Log::Now() noexcept
{
    Moment now;
    now.time = static_cast<float>(Time::GetSeconds() - startTime);
    now.minutes = ToNearest(now.time * (1.0F / 60) - 0.5F);
    now.seconds = static_cast<float>(now.time - now.minutes * 60.0);
    return now;
}

float Log::CurLogTime() noexcept
{
    return Now().time;
}

float Log::CurLogSeconds() noexcept
{
    return Now().seconds;
}

// ------------------------------------------------------------------------------------------------------ a line

namespace
{

char* PutHex(char* to, std::uint32_t number) noexcept
{
    for (int shift = 28; shift >= 0; shift -= 4)
        *to++ = "0123456789ABCDEF"[number >> shift & 15];
    return to;
}

// As "%3d".
char* PutMinutes(char* to, int minutes) noexcept
{
    if (minutes < 0 || minutes > 999)
        return to + std::snprintf(to, 16, "%3d", minutes);
    *to++ = minutes < 100 ? ' ' : static_cast<char>('0' + minutes / 100);
    *to++ = minutes < 10 ? ' ' : static_cast<char>('0' + minutes / 10 % 10);
    *to++ = static_cast<char>('0' + minutes % 10);
    return to;
}

// As "%04.1f". Ten times a float is exact in a double, so it rounds as the exact number would.
char* PutSeconds(char* to, float seconds) noexcept
{
    if (!(seconds >= 0 && seconds < 99)) // also what is no number
        return to + std::snprintf(to, 16, "%04.1f", static_cast<double>(seconds));
    const int tenths = ToNearest(static_cast<double>(seconds) * 10);
    *to++ = static_cast<char>('0' + tenths / 100);
    *to++ = static_cast<char>('0' + tenths / 10 % 10);
    *to++ = '.';
    *to++ = static_cast<char>('0' + tenths % 10);
    return to;
}

char* PutText(char* to, const char* text, std::size_t length) noexcept
{
    std::memcpy(to, text, length);
    return to + length;
}

} // namespace

std::size_t Log::WritePrefix(char* const start, const LogClient& client, std::int32_t level) noexcept
{
    const Moment now = Now();
    if (level < 0 || level >= levelCount)
        level = level < 0 ? 0 : levelCount - 1;
    char* to = start;
    *to++ = levelSymbols[level];
    *to++ = ' ';
    to = PutHex(to, Platform::CurrentThreadId());
    *to++ = ' ';
    to = PutText(to, levelWords[level], 4);
    *to++ = ' ';
    to = PutMinutes(to, now.minutes);
    *to++ = ':';
    to = PutSeconds(to, now.seconds);
    *to++ = ' ';
    const unsigned length = client.name.Length() < 15 ? client.name.Length() : 15;
    to = PutText(to, client.name ? client.name : "", length);
    to = PutText(to, "               ", 15 - length);
    to = PutText(to, " : ", 3);
    return static_cast<std::size_t>(to - start);
}

// A line of usual length is built on the stack. The prefix is there before the message, which tells no more than how long
// it is if it does not fit.
void Log::Output(LogClient& client, std::int32_t level, const char* format, std::va_list args)
{
    const std::uint32_t outputs = client.outputs;
    const bool toFile = (outputs & LogClient::file) && logFile.load(std::memory_order_relaxed);
    if (!toFile && !(outputs & LogClient::mono))
        return;
    const std::uint32_t formats = client.format;
    const char* const end = formats & LogClient::newlines ? "\r\n" : "";

    char line[1024];
    const std::size_t prefix = formats & LogClient::displaymodulename ? WritePrefix(line, client, level) : 0;
    std::va_list again;
    va_copy(again, args);
    const int added = Platform::FormatBounded(line + prefix, sizeof line - prefix - 2, format, args);
    if (added >= 0)
    {
        va_end(again);
        std::size_t length = prefix + static_cast<std::size_t>(added);
        std::memcpy(line + length, end, std::strlen(end) + 1);
        length += std::strlen(end);
        Send(client, level, line, length);
        return;
    }
    String text(line, static_cast<unsigned>(prefix));
    text.Add(format, again);
    va_end(again);
    text += end;
    if (text)
        Send(client, level, text, text.Length());
}

void Log::Send(LogClient& client, std::int32_t level, const char* line, std::size_t length)
{
    if (length == 0)
        return;
    if ((client.outputs & LogClient::file) && logFile.load(std::memory_order_relaxed))
    {
        const Platform::LockGuard guard(lock);
        if (File* const file = logFile.load(std::memory_order_acquire))
        {
            // An abrupt end that found the lock taken leaves the object to its user.
            struct Abandoned
            {
                ~Abandoned()
                {
                    if (logFile.load(std::memory_order_acquire) != file)
                        Discard(file);
                }
                File* file;
            } const abandoned{file};
            file->Write(line, length, 1);
            if (flushLines.load(std::memory_order_relaxed))
                file->Commit();
            else if (level <= LogClient::Err)
                file->SeekCur(0); // off to the system, not to the device
        }
    }
    if (client.outputs & LogClient::mono)
        Debugger::Output(line);
}

void LogClient::OutputString(const char* text, ...)
{
    std::va_list args;
    va_start(args, text);
    try
    {
        Log::Output(*this, level, text, args);
    }
    catch (...)
    {
        va_end(args);
        throw;
    }
    va_end(args);
}

void LogClient::Write(std::int32_t messageLevel, const char* text, ...)
{
    std::va_list args;
    va_start(args, text);
    try
    {
        Log::Output(*this, messageLevel, text, args);
    }
    catch (...)
    {
        va_end(args);
        throw;
    }
    va_end(args);
}

// ------------------------------------------------------------------------------------------------- start and end

// The new log file with its first two lines; null if it does not open. Throws when it cannot be written.
File* Log::Open(Options& options, const char* greeting, bool mustOpen)
{
    String name;
    options.Get("LogFile", name, "ZemLog.txt");
    struct Owner
    {
        ~Owner() { Discard(file); } // nothing to do for a file that is closed
        File* file;
    } owner{new File};
    File* const file = owner.file;
    if (!file)
        return nullptr;
    if (!file->Open(name, File::ModeCreate | File::ModeWrite) && !mustOpen)
        return nullptr;
    file->Write(banner, sizeof banner - 1, 1);
    file->Write(greeting, std::strlen(greeting), 1);
    owner.file = nullptr;
    return file;
}

void Log::Init(Options* given)
{
    if (initialised.exchange(true))
        return;
    struct Undo
    {
        ~Undo()
        {
            if (armed)
                initialised = false;
        }
        bool armed = true;
    } undo;

    Options none;
    Options& options = given ? *given : none;
    bool flush = true;
    options.Get("LogFlush", flush, flushLines);
    flushLines = flush;
    if (options.Get("NoLog"))
    {
        LogClient::disabled = true;
        struct Owner
        {
            ~Owner() { Discard(file); }
            File* file;
        } const owner{Open(options, "Log Disabled.\r\n", true)};
        if (owner.file)
            owner.file->Close();
    }
    else if (File* const file = Open(options, "Begin:\r\n", false))
    {
        struct Owner
        {
            ~Owner() { Discard(file); }
            File* file;
        } owner{file};
        file->Commit();
        owner.file = nullptr;
        logFile.store(file, std::memory_order_release);
    }
    else
        LogClient::disabled = true;

    options.SetSeperators("Log", ",");
    String setting;
    while (options.GetNext("Log", setting))
        Apply(setting, setting.Length());
    undo.armed = false;
}

// One setting: a client's name, then fields behind ":". Several ":" count as one.
void Log::Apply(const char* setting, std::size_t length) noexcept
{
    const char* const end = setting + length;
    LogClient* client = nullptr;
    for (const char* at = setting; at < end;)
    {
        if (*at == ':')
        {
            ++at;
            continue;
        }
        const void* const colon = std::memchr(at, ':', static_cast<std::size_t>(end - at));
        const char* const fieldEnd = colon ? static_cast<const char*>(colon) : end;
        const auto fieldLength = static_cast<std::size_t>(fieldEnd - at);
        const char* const field = std::exchange(at, fieldEnd);
        if (!client)
        {
            client = GetClient(field, fieldLength);
            if (!client)
                return;
            continue;
        }
        bool isLevel = false;
        for (std::int32_t level = 0; level < levelCount; ++level)
            if (IsWord(field, fieldLength, levelNames[level]))
            {
                client->threshold = level;
                isLevel = true;
            }
        if (!isLevel)
            ApplySwitch(*client, field, fieldEnd);
    }
}

// An output or a format, and how it shall be: off only behind "=off".
void Log::ApplySwitch(LogClient& client, const char* field, const char* const fieldEnd) noexcept
{
    while (field < fieldEnd && *field == '=')
        ++field;
    const void* const equals = std::memchr(field, '=', static_cast<std::size_t>(fieldEnd - field));
    const char* const wordEnd = equals ? static_cast<const char*>(equals) : fieldEnd;
    const auto wordLength = static_cast<std::size_t>(wordEnd - field);
    const bool on = !IsWord(wordEnd, static_cast<std::size_t>(fieldEnd - wordEnd), "=off");
    const struct
    {
        const char* word;
        LogNumber<std::uint32_t>& flags;
        std::uint32_t flag;
    } switches[] = {
        {"file", client.outputs, LogClient::file},
        {"mono", client.outputs, LogClient::mono},
        {"window", client.outputs, LogClient::window},
        {"newlines", client.format, LogClient::newlines},
        {"displaymodulename", client.format, LogClient::displaymodulename},
    };
    for (const auto& row : switches)
        if (IsWord(field, wordLength, row.word))
            row.flags = on ? row.flags | row.flag : row.flags & ~row.flag;
}

// Closes without a word and without writing what is pending, and frees the object. Null: nothing.
void Log::Discard(File* closing) noexcept
{
    if (!closing)
        return;
    if (closing->IsOpen())
        closing->Abandon();
    delete closing;
}

// Ends the log file with `lastWord`. The pointer goes first: what fails on the way is not told to this file.
void Log::Close(const char* lastWord)
{
    const Platform::LockGuard guard(lock);
    File* const file = logFile.exchange(nullptr, std::memory_order_acq_rel);
    if (!file)
        return;
    struct Owner
    {
        ~Owner() { Discard(file); }
        File* file;
    } const owner{file};
    file->Write(lastWord, std::strlen(lastWord), 1);
    file->Close();
}

void Log::Shutdown(bool abrupt)
{
    if (!abrupt)
    {
        if (logFile.load(std::memory_order_relaxed))
            Close("Shutdown.\r\n");
        return;
    }
    File* const file = logFile.exchange(nullptr, std::memory_order_acq_rel);
    if (!file || !lock.TryEnter())
        return; // who holds the lock gives the object up when he is through, if ever
    Discard(file);
    lock.Leave();
}

void Log::Done()
{
    initialised = false;
    {
        // Out of the list, and as new for who asks for one again or has kept it.
        const Platform::LockGuard guard(listLock);
        while (LogClient* const client = firstClient)
        {
            firstClient = client->next;
            client->next = client->prev = nullptr;
            client->listed = false;
            client->threshold = LogClient::Warn;
            client->outputs = LogClient::file | LogClient::mono;
            client->format = LogClient::newlines | LogClient::displaymodulename;
        }
        lastClient = nullptr;
    }
    if (logFile.load(std::memory_order_relaxed))
        Close("End.\r\n");
}

void Log::ForgetClientsForTest() noexcept
{
    const Platform::LockGuard guard(listLock);
    for (LogClient*& bucket : index)
        for (LogClient** link = &bucket; *link;)
        {
            LogClient* const client = *link;
            if (client->listed)
            {
                link = &client->chain;
                continue;
            }
            *link = client->chain;
            delete client;
        }
}

// The end of the library. Nobody is there to be told of a failure.
void Log::End() noexcept
{
    try
    {
        Done();
    }
    catch (const Exception& failure)
    {
        PrintLoss(failure.Reason());
    }
}

// What could not be stored is told at level 1 by the client "File"; on standard error when there is no log to tell it.
void Log::TakeLoss(const char* text) noexcept
{
    LogClient* const client = GetClient("File");
    if (!client || !logFile.load(std::memory_order_relaxed))
        return PrintLoss(text);
    if (!LogClient::Wants(client, LogClient::Err))
        return;
    try
    {
        client->Write(LogClient::Err, "%s", text);
    }
    catch (const Exception&)
    {
        PrintLoss(text);
    }
}

} // namespace Zem
