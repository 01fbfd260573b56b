#pragma once

// What every command shares on its way to the user: exit codes, messages, the progress bar, JSON.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace Tool
{

/// Exit codes of the command.
enum class Exit : int
{
    Done = 0,
    Bad = 1,   // something is wrong with what was looked at, or it is not there
    Usage = 2, // wrong arguments
    Disk = 3,  // reading or writing failed
};

/// Ends a command: `main` prints "bedrock: <command>: <text>" and exits with `exit`.
struct Failure
{
    Exit exit;
    std::string text;
};

/// Throws a `Failure` "<subject>: <reason>"; the subject is a name and is made printable.
[[noreturn]] void Fail(Exit exit, std::string_view subject, std::string_view reason);

/// The same with the system's text for `error`, as in "pics.arc: cannot create: Permission denied".
[[noreturn]] void FailSystem(std::string_view subject, std::string_view what, int error);

/// A name as it can be shown: control characters, which could drive a terminal, become \xNN, and no name at all "".
std::string Shown(std::string_view name);

/// "1 member", "2 members".
std::string Count(std::uint64_t n, std::string_view singular, std::string_view plural = {});

/// "12.3 KiB"; below 1024 the plain number of bytes.
std::string Bytes(std::uint64_t n);

/// Messages of a command that goes on after something bad; the worst of them becomes its exit code.
class Messages
{
public:
    explicit Messages(std::string commandName) : command(std::move(commandName)) {}
    /// "bedrock: <command>: <subject>: <text>" on the error stream.
    void Complain(Exit exit, std::string_view subject, std::string_view text);
    /// The same, for what is worth saying and no failure.
    void Note(std::string_view subject, std::string_view text);

    Exit Worst() const { return worst; }

private:
    std::string command;
    Exit worst = Exit::Done;
};

/// A bar on the error stream while work takes longer than a blink; only on a terminal, and gone when the work is done.
class Progress
{
public:
    explicit Progress(std::uint64_t totalWork);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Advance(std::uint64_t amount, std::string_view what);
    /// Takes the bar off the line, so that a message can stand there; the next `Advance` draws it again.
    static void Clear();

private:
    std::uint64_t total;
    std::uint64_t done = 0;
    std::int64_t nextDraw = 0; // milliseconds
    static bool visible;
};

/// Lets an interrupt or a termination request end the command in order: from now on `CheckInterrupt` throws once one
/// came, and everything half made is removed on the way out. A second one ends the process at once.
void CatchInterrupts();
void CheckInterrupt();

/// Writes JSON to standard output, indented, members in call order. Bytes that are no UTF-8 come out as the lone
/// surrogates U+DC80 to U+DCFF, which is how Python reads and writes such names too.
class Json
{
public:
    ~Json();
    Json& Object(std::string_view key = {});
    Json& Array(std::string_view key = {});
    Json& End();
    Json& Text(std::string_view key, std::string_view value);
    Json& Number(std::string_view key, std::uint64_t value);
    Json& Bool(std::string_view key, bool value);

private:
    struct Level
    {
        char close;
        bool empty;
    };
    void Begin(std::string_view key);
    void Open(std::string_view key, char open, char close);
    static void Quote(std::string_view text, std::string& out);

    std::vector<Level> levels;
    std::string out;
};

} // namespace Tool
