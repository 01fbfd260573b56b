#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/DynamicArray.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/memory/Range.h>
#include <Bedrock/memory/String.h>

#include <cstdint>
#include <type_traits>

namespace Zem
{

struct OptionSetting;
struct OptionSource;

/// One key of an `Options` and its value. The list of them is walked by `next`; only `Options` changes one.
struct ZEM_API OptionEntry
{
    ZEM_HEAP_OPERATORS
    OptionEntry* next = nullptr;
    OptionEntry* prev = nullptr;
    String name;       // the key, in small letters
    String value;      // no buffer when the key was given without one
    String seperators; // as set by SetSeperators
    const char* cursor =
        nullptr; // where the next GetNext starts in `value`; null before SetSeperators and after a change

    // For Options alone: the history of the value.
    OptionSource* source = nullptr;
    OptionSetting* older = nullptr; // what the value replaced or was appended to
    bool appended = false;          // the value was appended to that of `older`
};

/// The settings of a process: keys with values, filled from the environment, from option files and from the command
/// line, in this order, so that what stands nearer to the user wins. Keys ignore case (of A to Z).
///
/// One free-form syntax serves all sources. Line ends are blanks like any other; a blank is one of the six of C.
///
///     -Width=800 -Title=Hello World -Fast+ /Quiet +Log=Window:Diag
///     |     |                       |      |      |
///     key   value                   |      |      "+" appends behind a comma to what is there, all others replace
///                                   |      a key without value
///                                   "+" or "-" straight behind a key is its value: on or off
///
/// A key ends at a blank, "=", "-" or "+". Blanks around "=" do not count. A value ends at a blank with "/", "-" or "+"
/// straight behind it, so it may hold blanks and line ends, and it loses blanks and those three signs at its end. A value
/// that opens with ' or " is all there is up to the next of either, without escapes. What has no key is passed over.
/// Every text is accepted; parsing takes time in proportion to its length, also with a hundred thousand keys.
///
/// Where a getter does not find its key, it gives the default and answers false. Null as a key or a text is an empty one.
/// Threads: one object belongs to one thread at a time.
///
///     Options options;
///     options.Init("Viewer", argc, argv); // $Options, $ViewerOptions, ViewerOptions.txt here and there, arguments
///     int width;
///     options.Get("Width", width, 640);
///     bool fullscreen;
///     options.Get("Fullscreen", fullscreen, false); // -Fullscreen alone means the opposite of the default
class ZEM_API Options
{
    ZEM_HEAP_OPERATORS
public:
    Options() noexcept;
    ~Options();
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;

    // ------------------------------------------------------------------------------------------------- filling

    /// Fills from all sources, each after those before it: the variable "Options", the variable `prefix` + "Options", the
    /// file `prefix` + "Options.txt" in the folder of the program `argv[0]`, the same in the working folder, the
    /// arguments. Throws: as `ProcessFile`.
    void Init(const char* prefix, int argc, char** argv);

    /// The same for a program with one command line. The first file is named after the program's own: run.exe reads
    /// runOptions.txt beside it. The second is read when the working folder is another one than the program's.
    void Init(const char* prefix, const char* commandLine);

    /// Takes all strings, also the program's name, with a blank behind each.
    void ProcessCmdLine(int argc, char** argv);

    /// Takes a file, plain or compressed, up to its first zero byte; none if it does not open.
    /// Throws: FileEx when it opens and cannot be read; nothing of it has been taken then.
    void ProcessFile(const char* name);

    /// Takes a variable of the environment, if it is set. A process with raised privileges has none: whoever started it
    /// is not trusted with its settings.
    void ProcessEnv(const char* name);

    /// Takes a text.
    void ProcessRaw(const char* text);

    // ------------------------------------------------------------------------------------------------- reading

    /// True if the key is there.
    bool Get(const char* key) const noexcept { return Find(key) != nullptr; }

    /// Its value as text. True if the key is there, else `out` stays or is set to `fallback`.
    bool Get(const char* key, String& out) const noexcept;
    bool Get(const char* key, PString& out) const noexcept;
    bool Get(const char* key, String& out, const String& fallback) const noexcept;
    bool Get(const char* key, PString& out, const PString& fallback) const noexcept;

    /// On or off: "-", "false" and "off" are off, "+", "true" and "on" are on (by the first character, or as a word in any
    /// case). Every other value, and none, is the opposite of `fallback`.
    bool Get(const char* key, bool& out, bool fallback) const noexcept;

    /// The decimal number at the start of the value, behind blanks; 0 when there is none. A number that does not fit
    /// becomes the nearest that does; a negative one read as unsigned wraps round.
    bool Get(const char* key, std::int32_t& out, std::int32_t fallback) const noexcept;
    bool Get(const char* key, std::uint32_t& out, std::uint32_t fallback) const noexcept;
    bool Get(const char* key, float& out, float fallback) const noexcept;
    template <class T>
    requires(std::is_arithmetic_v<T> && sizeof(T) > 4) bool Get(const char*, T&, T) const = delete; // 32 bits are read

    /// The numbers before and behind the first ":". False, and `out` unchanged, without a ":" or with nothing behind it.
    bool Get(const char* key, Range<float>& out) noexcept;
    bool Get(const char* key, Range<int>& out) noexcept;

    /// Starts to cut the value into tokens: `characters` stand between them.
    void SetSeperators(const char* key, const char* characters) noexcept;

    /// The next token, without separators and blanks at its end; those behind it are passed over. False at the end, for a
    /// value that begins with a separator, and when the value has changed since `SetSeperators`.
    bool GetNext(const char* key, String& out) const noexcept;
    bool GetNext(const char* key, PString& out) const noexcept;

    /// Appends all tokens of the value to `out`. True if `out` holds elements afterwards.
    bool Get(const char* key, DynamicArray<String, 41>& out, const char* characters) noexcept;

    // ------------------------------------------------------------------------------------------------- looking

    /// Where a value came from.
    struct Origin
    {
        enum Kind
        {
            Environment, // `name` is the variable
            File,        // `name` is the file
            CommandLine,
            Text, // a `ProcessRaw` of the application
        };
        Kind kind;
        const char* name; // empty for the other kinds; lives as long as the Options
        bool appended;    // it was appended to what was there
        String value;     // the whole value as it was then
    };

    /// Tells which source set the value of `key` last (`back` 0), or what that replaced or was appended to (`back` 1, and
    /// so on). Within one source only its last word is kept. False when there is no such key, or nothing so far back.
    bool GetOrigin(const char* key, Origin& out, std::uint32_t back = 0) const noexcept;

    /// Keys in order of their first appearance: `for (auto* entry = options.First(); entry; entry = entry->next)`.
    const OptionEntry* First() const noexcept { return first; }
    std::uint32_t Count() const noexcept { return count; }

    /// Prints each key to standard output: "[name] = [value]" and a line feed.
    void Dump();

private:
    struct Piece;
    struct Slot;

    OptionEntry* Find(const char* key) const noexcept;
    void Parse(const char* text, Origin::Kind kind, const char* sourceName);
    void Assign(const char* key, std::uint32_t keyLength, Piece value, bool append);
    OptionEntry* Find(const char* key, std::uint32_t keyLength, std::uint32_t hash) const noexcept;
    OptionEntry* Make(const char* key, std::uint32_t keyLength, std::uint32_t hash) noexcept;
    void NoteSource() noexcept;
    bool IsCurrent(const OptionSource* source) const noexcept;
    static void Unshare(OptionEntry& entry) noexcept;
    void Remember(OptionEntry& entry, bool append) noexcept;
    void Place(OptionEntry* entry, std::uint32_t hash) noexcept;
    bool GrowIndex() noexcept;
    std::uint32_t Hash(const char* key, std::uint32_t keyLength) const noexcept;
    template <class Text>
    bool NextToken(const char* key, Text& out) const noexcept;

    OptionEntry* first;
    OptionEntry* last;
    std::uint32_t count;
    std::uint32_t indexMask; // slots of `index` - 1, a power of two less 1; at most half of them are taken
    Slot* index; // null until the first key; a key stands at the low bits of its hash, or at the next free slot
    OptionSource* sources; // the newest first
    std::uint64_t seed[2]; // of the hash: nobody outside can choose keys that collide
    // While a text is parsed: where it comes from. Its record is made with its first key.
    const char* sourceName;
    Origin::Kind sourceKind;
    bool sourceIsNew;
};

} // namespace Zem
