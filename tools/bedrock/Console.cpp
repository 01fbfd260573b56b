#include "Console.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace Tool
{

void Fail(Exit exit, std::string_view subject, std::string_view reason)
{
    throw Failure{exit, Shown(subject) + ": " + std::string(reason)};
}

void FailSystem(std::string_view subject, std::string_view what, int error)
{
    Fail(Exit::Disk, subject, std::string(what) + ": " + std::strerror(error));
}

std::string Shown(std::string_view name)
{
    if (name.empty())
        return "\"\"";
    std::string out;
    for (const char c : name)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 32 && byte != 127)
        {
            out += c;
            continue;
        }
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
        out += escaped;
    }
    return out;
}

std::string Count(std::uint64_t n, std::string_view singular, std::string_view plural)
{
    std::string out = std::to_string(n) + ' ';
    if (n == 1)
        return out.append(singular);
    return plural.empty() ? out.append(singular) + 's' : out.append(plural);
}

std::string Bytes(std::uint64_t n)
{
    if (n < 1024)
        return std::to_string(n) + " bytes";
    const char* const units[] = {"KiB", "MiB", "GiB"};
    double value = static_cast<double>(n) / 1024;
    std::size_t unit = 0;
    while (value >= 1024 && unit < 2)
    {
        value /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

void Messages::Complain(Exit exit, std::string_view subject, std::string_view text)
{
    worst = std::max(worst, exit);
    Note(subject, text);
}

void Messages::Note(std::string_view subject, std::string_view text)
{
    Progress::Clear();
    std::fflush(stdout);
    std::fprintf(stderr, "bedrock: %s: %s: %.*s\n", command.c_str(), Shown(subject).c_str(),
                 static_cast<int>(text.size()), text.data());
}

// ------------------------------------------------------------------------------------------------------- progress

bool Progress::visible = false;

namespace
{

std::int64_t Now()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

constexpr std::int64_t firstDraw = 300; // milliseconds: what is done sooner needs no bar
constexpr std::int64_t redraw = 80;

volatile std::sig_atomic_t interrupted = 0;

void OnInterrupt(int)
{
    interrupted = 1;
}

} // namespace

Progress::Progress(std::uint64_t totalWork) : total(totalWork)
{
    static const bool terminal = isatty(STDERR_FILENO) != 0;
    nextDraw = terminal && total ? Now() + firstDraw : INT64_MAX;
}

Progress::~Progress()
{
    Clear();
}

void Progress::Clear()
{
    if (!visible)
        return;
    std::fputs("\r\x1B[K", stderr);
    std::fflush(stderr);
    visible = false;
}

void Progress::Advance(std::uint64_t amount, std::string_view what)
{
    done = std::min(total, done + amount);
    if (nextDraw == INT64_MAX)
        return;
    const std::int64_t now = Now();
    if (now < nextDraw)
        return;
    nextDraw = now + redraw;

    constexpr int width = 24;
    const int filled = static_cast<int>(done * width / total);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.resize(width, '.');
    std::string name = Shown(what);
    if (name.size() > 40)
        name = "..." + name.substr(name.size() - 37);
    std::fprintf(stderr, "\r\x1B[K[%s] %3d %%  %s", bar.c_str(), static_cast<int>(done * 100 / total), name.c_str());
    std::fflush(stderr);
    visible = true;
}

// ------------------------------------------------------------------------------------------------------ interrupts

void CatchInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = OnInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
}

void CheckInterrupt()
{
    if (interrupted)
        throw Failure{Exit::Disk, "interrupted"};
}

// ------------------------------------------------------------------------------------------------------------ JSON

Json::~Json()
{
    if (out.empty())
        return;
    out += '\n';
    std::fwrite(out.data(), 1, out.size(), stdout);
}

void Json::Begin(std::string_view key)
{
    if (!levels.empty())
    {
        if (!levels.back().empty)
            out += ',';
        levels.back().empty = false;
        out += '\n';
        out.append(2 * levels.size(), ' ');
    }
    if (!key.empty())
    {
        Quote(key, out);
        out += ": ";
    }
}

void Json::Open(std::string_view key, char open, char close)
{
    Begin(key);
    out += open;
    levels.push_back({close, true});
}

Json& Json::Object(std::string_view key)
{
    Open(key, '{', '}');
    return *this;
}

Json& Json::Array(std::string_view key)
{
    Open(key, '[', ']');
    return *this;
}

Json& Json::End()
{
    const Level level = levels.back();
    levels.pop_back();
    if (!level.empty)
    {
        out += '\n';
        out.append(2 * levels.size(), ' ');
    }
    out += level.close;
    return *this;
}

Json& Json::Text(std::string_view key, std::string_view value)
{
    Begin(key);
    Quote(value, out);
    return *this;
}

Json& Json::Number(std::string_view key, std::uint64_t value)
{
    Begin(key);
    out += std::to_string(value);
    return *this;
}

Json& Json::Bool(std::string_view key, bool value)
{
    Begin(key);
    out += value ? "true" : "false";
    return *this;
}

namespace
{

// Bytes of the well-formed UTF-8 sequence at `at`, 0 if there is none.
std::size_t SequenceLength(std::string_view text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const unsigned first = byte(0);
    const std::size_t n = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : 0;
    if (n == 0 || at + n > text.size())
        return 0;
    for (std::size_t i = 1; i < n; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    if (n > 2) // overlong forms, surrogates and what lies behind U+10FFFF
    {
        const unsigned second = byte(1);
        if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) || (first == 0xF0 && second < 0x90) ||
            (first == 0xF4 && second > 0x8F))
            return 0;
    }
    return n;
}

} // namespace

void Json::Quote(std::string_view text, std::string& out)
{
    out += '"';
    for (std::size_t at = 0; at < text.size();)
    {
        const auto byte = static_cast<unsigned char>(text[at]);
        const std::size_t n = SequenceLength(text, at);
        char escaped[8];
        if (byte == '"' || byte == '\\')
        {
            out += '\\';
            out += text[at];
        }
        else if (n == 0 || byte < 32 || byte == 127)
        {
            std::snprintf(escaped, sizeof escaped, "\\u%04x", n == 0 ? 0xDC00u + byte : byte);
            out += escaped;
        }
        else
            out.append(text, at, n);
        at += n ? n : 1;
    }
    out += '"';
}

} // namespace Tool
