#include <Bedrock/host/Options.h>

#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/platform/Clock.h>
#include <Bedrock/platform/Process.h>
#include <Bedrock/platform/Text.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace Zem
{

// Where settings come from: one record for each source that set a key.
struct OptionSource
{
    ZEM_HEAP_OPERATORS
public:
    OptionSource* next;
    Options::Origin::Kind kind;
    String name;
};

// A setting that another source's took the place of. When that one was appended to it, its text is no copy but the first
// `length` bytes of the newer value: a key that many sources append to takes no more room than its value.
struct OptionSetting
{
    ZEM_HEAP_OPERATORS
public:
    OptionSetting* older;
    OptionSource* source;
    String value;         // unless isPrefix
    std::uint32_t length; // of the value
    bool isPrefix;
    bool appended;
};

// The hash beside the entry: the keys that only share a place are told apart without a look at them.
struct Options::Slot
{
    OptionEntry* entry; // null: free
    std::uint32_t hash;
};

// A slice of the text that is parsed.
struct Options::Piece
{
    const char* text;
    std::uint32_t length;
};

namespace
{

enum Class : std::uint8_t
{
    Blank = 1,
    Sign = 2,   // may open a key
    KeyEnd = 4, // the end of the text too
    Quote = 8,
};

struct ClassTable
{
    std::uint8_t of[256] = {};
    constexpr ClassTable()
    {
        for (const unsigned char blank : {' ', '\t', '\n', '\v', '\f', '\r'})
            of[blank] = Blank | KeyEnd;
        of[unsigned{'/'}] = Sign;
        of[unsigned{'-'}] = of[unsigned{'+'}] = Sign | KeyEnd;
        of[unsigned{'='}] = of[0] = KeyEnd;
        of[unsigned{'\''}] = of[unsigned{'"'}] = Quote;
    }
};
constexpr ClassTable classes;

bool Is(const char* at, unsigned wanted)
{
    return (classes.of[static_cast<unsigned char>(*at)] & wanted) != 0;
}

const char* SkipBlanks(const char* at)
{
    while (Is(at, Blank))
        ++at;
    return at;
}

// Where a value without quotes ends: at the first blank with a sign straight behind it.
const char* FindValueEnd(const char* at)
{
    for (;; ++at)
    {
        while (!Is(at, Blank) && *at)
            ++at;
        if (!*at || Is(at + 1, Sign))
            return at;
    }
}

constexpr std::uint32_t longest = 0xFFFFFF00u; // of a key or a value

// Eight bytes at once with A to Z folded.
std::uint64_t FoldWord(std::uint64_t word)
{
    constexpr std::uint64_t each = 0x0101010101010101;
    const std::uint64_t low = word & (0x7F * each);
    const std::uint64_t fromA = low + (0x80 - 'A') * each;
    const std::uint64_t behindZ = low + (0x7F - 'Z') * each;
    return word | (((fromA ^ behindZ) & ~word & (0x80 * each)) >> 2);
}

std::uint64_t LoadFolded(const char* at, std::size_t size)
{
    std::uint64_t word = 0;
    std::memcpy(&word, at, size);
    return FoldWord(word);
}

bool EqualFolded(const char* folded, const char* key, std::size_t length)
{
    for (; length >= 8; length -= 8, folded += 8, key += 8)
    {
        std::uint64_t word;
        std::memcpy(&word, folded, 8);
        if (word != LoadFolded(key, 8))
            return false;
    }
    for (; length > 0; --length, ++folded, ++key)
        if (static_cast<unsigned char>(*folded) != Platform::ToLowerAscii(static_cast<unsigned char>(*key)))
            return false;
    return true;
}

// Puts a text at the end of another, behind a comma. Room grows by doubling, so that many short ones cost no more than
// one long one. An exhausted heap leaves the value as it was.
void Append(String& value, const char* text, std::uint32_t length)
{
    const std::uint32_t old = value.Length();
    const std::uint64_t wanted = std::uint64_t{old} + 1 + length;
    if (wanted > longest)
        return;
    if (wanted >= value.AllocSize())
        value.SetLength(static_cast<unsigned>(wanted + old < longest ? wanted + old : wanted));
    if (char* const bytes = value.Fill(static_cast<unsigned>(wanted)))
    {
        bytes[old] = ',';
        std::memcpy(bytes + old + 1, text, length);
    }
}

} // namespace

Options::Options() noexcept
    : first(nullptr), last(nullptr), count(0), indexMask(0), index(nullptr),
      sources(nullptr), seed{static_cast<std::uint64_t>(Platform::Counter()) * 0x9E3779B97F4A7C15u,
                             (std::uint64_t{Platform::ProcessId()} << 40) ^ reinterpret_cast<std::uintptr_t>(this)},
      sourceName(""), sourceKind(Origin::Text), sourceIsNew(false)
{
}

Options::~Options()
{
    while (OptionEntry* const entry = first)
    {
        first = entry->next;
        while (OptionSetting* const setting = entry->older)
        {
            entry->older = setting->older;
            delete setting;
        }
        delete entry;
    }
    while (OptionSource* const source = sources)
    {
        sources = source->next;
        delete source;
    }
    Alloc::Delete(index);
}

// ------------------------------------------------------------------------------------------------------ the index

// SipHash-1-3 over the folded key: whoever writes the text does not know the seed, and cannot make all keys collide.
std::uint32_t Options::Hash(const char* key, std::uint32_t length) const noexcept
{
    std::uint64_t v0 = seed[0] ^ 0x736F6D6570736575;
    std::uint64_t v1 = seed[1] ^ 0x646F72616E646F6D;
    std::uint64_t v2 = seed[0] ^ 0x6C7967656E657261;
    std::uint64_t v3 = seed[1] ^ 0x7465646279746573;
    const auto round = [&]
    {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    };
    const auto mix = [&](std::uint64_t word)
    {
        v3 ^= word;
        round();
        v0 ^= word;
    };
    std::uint32_t rest = length;
    for (; rest >= 8; rest -= 8, key += 8)
        mix(LoadFolded(key, 8));
    mix(LoadFolded(key, rest) | std::uint64_t{length} << 56);
    v2 ^= 0xFF;
    round();
    round();
    round();
    const std::uint64_t hash = v0 ^ v1 ^ v2 ^ v3;
    return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}

OptionEntry* Options::Find(const char* key) const noexcept
{
    if (!key || !index)
        return nullptr;
    const std::size_t length = std::strlen(key);
    return length <= longest
               ? Find(key, static_cast<std::uint32_t>(length), Hash(key, static_cast<std::uint32_t>(length)))
               : nullptr;
}

OptionEntry* Options::Find(const char* key, std::uint32_t length, std::uint32_t hash) const noexcept
{
    if (!index)
        return nullptr;
    for (std::uint32_t at = hash & indexMask; OptionEntry* const entry = index[at].entry; at = (at + 1) & indexMask)
        if (index[at].hash == hash && entry->name.Length() == length && EqualFolded(entry->name, key, length))
            return entry;
    return nullptr;
}

void Options::Place(OptionEntry* entry, std::uint32_t hash) noexcept
{
    std::uint32_t at = hash & indexMask;
    while (index[at].entry)
        at = (at + 1) & indexMask;
    index[at] = {entry, hash};
}

// Twice as many slots.
bool Options::GrowIndex() noexcept
{
    const std::uint64_t slots = index ? 2 * (std::uint64_t{indexMask} + 1) : 64;
    const std::uint64_t bytes = slots * sizeof(Slot);
    auto* const grown = bytes <= SIZE_MAX && slots <= 0x80000000u
                            ? static_cast<Slot*>(Alloc::New(static_cast<std::size_t>(bytes)))
                            : nullptr;
    if (!grown)
        return false;
    std::memset(static_cast<void*>(grown), 0, static_cast<std::size_t>(bytes));
    Slot* const old = std::exchange(index, grown);
    const std::uint32_t oldMask = std::exchange(indexMask, static_cast<std::uint32_t>(slots - 1));
    for (std::uint64_t at = 0; old && at <= oldMask; ++at)
        if (old[at].entry)
            Place(old[at].entry, old[at].hash);
    Alloc::Delete(old);
    return true;
}

// A new entry at the tail, without a value; null when the heap is exhausted.
OptionEntry* Options::Make(const char* key, std::uint32_t length, std::uint32_t hash) noexcept
{
    if (count >= indexMask / 2 && !GrowIndex())
        return nullptr;
    auto* const entry = new OptionEntry;
    if (!entry)
        return nullptr;
    char* const name = entry->name.Fill(length);
    if (!name)
    {
        delete entry;
        return nullptr;
    }
    for (std::uint32_t i = 0; i < length; ++i)
        name[i] = static_cast<char>(Platform::ToLowerAscii(static_cast<unsigned char>(key[i])));
    Place(entry, hash);
    entry->prev = last;
    (last ? last->next : first) = entry;
    last = entry;
    ++count;
    return entry;
}

// ---------------------------------------------------------------------------------------------------- the parser

void Options::Parse(const char* at, Origin::Kind kind, const char* name)
{
    sourceKind = kind;
    sourceName = name ? name : "";
    sourceIsNew = true;
    while (at && *at)
    {
        at = SkipBlanks(at);
        bool append = false;
        if (Is(at, Sign))
            append = *at++ == '+';

        const char* const key = at;
        while (!Is(at, KeyEnd))
            ++at;
        const char* const keyEnd = at;

        const char* value = at;
        const char* valueEnd = at;
        at = SkipBlanks(at);
        if (*at == '=')
        {
            value = at = SkipBlanks(at + 1);
            if (Is(at, Quote))
            {
                value = ++at;
                while (*at && !Is(at, Quote))
                    ++at;
                valueEnd = at;
                if (*at)
                    ++at;
            }
            else
            {
                valueEnd = FindValueEnd(at);
                while (valueEnd > value && Is(valueEnd - 1, Blank | Sign))
                    --valueEnd;
                at = valueEnd; // what was cut off is read again, as tokens without a key
            }
        }
        else if (at == keyEnd && (*at == '-' || *at == '+'))
        {
            value = at++;
            valueEnd = at;
        }

        const auto keyLength = static_cast<std::uint64_t>(keyEnd - key);
        const auto valueLength = static_cast<std::uint64_t>(valueEnd - value);
        if (keyLength > 0 && keyLength <= longest && valueLength <= longest)
            Assign(key, static_cast<std::uint32_t>(keyLength), {value, static_cast<std::uint32_t>(valueLength)},
                   append);
    }
    sourceName = "";
}

// An exhausted heap leaves a key as it was.
void Options::Assign(const char* key, std::uint32_t keyLength, Piece value, bool append)
{
    if (sourceIsNew)
        NoteSource();
    const std::uint32_t hash = Hash(key, keyLength);
    OptionEntry* entry = Find(key, keyLength, hash);
    const bool same = entry && (entry->source == sources || IsCurrent(entry->source));
    append = append && entry && entry->value.Length() > 0;

    // A new text is made before anything is touched, unless the value has the room.
    const bool inPlace = same && !append && value.length < entry->value.AllocSize();
    String text;
    if (!append && !inPlace && value.length > 0)
    {
        text = String(value.text, value.length);
        if (!text)
            return;
    }
    if (!entry)
    {
        entry = Make(key, keyLength, hash);
        if (!entry)
            return;
        entry->source = sources;
    }
    else if (!same)
        Remember(*entry, append);
    else if (!append)
        Unshare(*entry);

    entry->cursor = nullptr; // it would point into the old text
    if (append)
        Append(entry->value, value.text, value.length);
    else if (inPlace && value.length > 0)
        std::memcpy(entry->value.Fill(value.length), value.text, value.length);
    else
        entry->value = std::move(text);
}

// The record of the source that is parsed, made with its first key. The same source again goes on with its record.
void Options::NoteSource() noexcept
{
    sourceIsNew = false;
    if (IsCurrent(sources))
        return;
    if (auto* const source = new OptionSource{sources, sourceKind, String(sourceName)})
        sources = source;
}

// Whether the record is that of the source that is parsed, or of an earlier reading of it.
bool Options::IsCurrent(const OptionSource* source) const noexcept
{
    return source && source->kind == sourceKind && source->name.Compare(sourceName) == 0;
}

// The next value comes from another source than the present one, which goes into the history. Without memory for that
// the history has a gap.
void Options::Remember(OptionEntry& entry, bool append) noexcept
{
    if (auto* const setting = new OptionSetting{})
    {
        setting->older = entry.older;
        setting->source = entry.source;
        setting->length = entry.value.Length();
        setting->isPrefix = append;
        setting->appended = entry.appended;
        if (!append)
            setting->value = std::move(entry.value); // a setting that is its front stays so
        entry.older = setting;
        entry.appended = append;
    }
    else if (!append)
        Unshare(entry);
    entry.source = sources;
}

// The value is about to go: an older one that is the front of it gets a text of its own.
void Options::Unshare(OptionEntry& entry) noexcept
{
    if (!entry.appended)
        return;
    entry.appended = false;
    entry.older->value = String(static_cast<const char*>(entry.value), entry.older->length);
    entry.older->isPrefix = false;
}

void Options::ProcessRaw(const char* text)
{
    Parse(text, Origin::Text, "");
}

// ---------------------------------------------------------------------------------------------------- the sources

void Options::ProcessEnv(const char* name)
{
    if (name)
        Parse(Platform::Environment(name), Origin::Environment, name);
}

void Options::ProcessCmdLine(int argc, char** argv)
{
    String line;
    std::uint64_t length = 0;
    for (int i = 0; i < argc; ++i)
        length += std::strlen(argv[i] ? argv[i] : "") + 1;
    char* to = length <= longest ? line.Fill(static_cast<unsigned>(length)) : nullptr;
    if (!to)
        return;
    for (int i = 0; i < argc; ++i)
    {
        const std::size_t part = std::strlen(argv[i] ? argv[i] : "");
        std::memcpy(to, argv[i] ? argv[i] : "", part);
        to[part] = ' ';
        to += part + 1;
    }
    Parse(line, Origin::CommandLine, "");
}

namespace
{

// A file that is read to its end, also where no length tells it.
struct WholeFile : File
{
    using File::ReadSome;
};

} // namespace

void Options::ProcessFile(const char* name)
{
    WholeFile file;
    if (!file.Open(name, File::ModeRead))
        return;
    struct Block
    {
        ~Block() { Alloc::Delete(text); }
        char* text = nullptr;
    } block;
    std::uint64_t room = file.IsCompressed() ? 4 * File::blockSize : file.Size();
    std::uint64_t length = 0;
    for (;;)
    {
        auto* const larger = static_cast<char*>(Alloc::New(static_cast<std::size_t>(room) + 1));
        if (!larger)
            throw FileEx("Options", __LINE__, "ProcessFile() No memory for the file");
        if (length > 0)
            std::memcpy(larger, block.text, static_cast<std::size_t>(length));
        Alloc::Delete(std::exchange(block.text, larger));
        if (!file.IsCompressed())
        {
            length = room > 0 ? file.Read(larger, static_cast<std::size_t>(room), 1) : 0;
            break;
        }
        std::uint32_t part = 0;
        while (length < room && (part = file.ReadSome(larger + length, static_cast<std::uint32_t>(room - length))) > 0)
            length += part;
        if (length < room)
            break;
        room *= 2;
        if (room > longest)
            throw FileEx("Options", __LINE__, "ProcessFile() The file is too long");
    }
    block.text[length] = '\0';
    file.Close();
    Parse(block.text, Origin::File, name);
}

void Options::Init(const char* prefix, int argc, char** argv)
{
    String name(prefix ? prefix : "");
    name += "Options";
    ProcessEnv("Options");
    ProcessEnv(name);

    name += ".txt";
    File::Path path(argc > 0 && argv ? argv[0] : "");
    path.DelName();
    const std::uint32_t folder = path.Length();
    path.Add(name);
    if (path.Length() > folder) // it fits
        ProcessFile(path);
    ProcessFile(name);
    ProcessCmdLine(argv ? argc : 0, argv);
}

void Options::Init(const char* prefix, const char* commandLine)
{
    String name(prefix ? prefix : "");
    name += "Options";
    ProcessEnv("Options");
    ProcessEnv(name);

    char program[256];
    Platform::ProgramPath(program, sizeof program);
    File::Path path(program);
    for (int i = 0; i < 2; ++i)
        if (std::strchr(path.GetFileName(), '.')) // a dot in a folder's name is none of an extension
            path.SetExt(nullptr);
    const std::uint32_t stem = path.Length();
    path.Add("Options.txt");
    if (path.Length() > stem)
        ProcessFile(path);

    File::Path here;
    here.GetCwd();
    here.ToLower();
    here.AddPath("");
    File::Path home(program);
    home.DelName();
    home.ToLower();
    home.AddPath("");
    name += ".txt";
    if (!here.IsMatch(home))
        ProcessFile(name);
    Parse(commandLine, Origin::CommandLine, "");
}

// ---------------------------------------------------------------------------------------------------- the getters

namespace
{

// The number that `atoi` sees, held to [low, high].
std::int64_t Number(const char* value, std::int64_t low, std::int64_t high)
{
    const long long number = value ? std::strtoll(value, nullptr, 10) : 0;
    return number < low ? low : number > high ? high : number;
}

const char* TextOf(const String& value)
{
    return value ? static_cast<const char*>(value) : "";
}

} // namespace

bool Options::Get(const char* key, String& out) const noexcept
{
    const OptionEntry* const entry = Find(key);
    if (entry)
        out = entry->value;
    return entry != nullptr;
}

bool Options::Get(const char* key, PString& out) const noexcept
{
    const OptionEntry* const entry = Find(key);
    if (entry)
        out = PString(static_cast<const char*>(entry->value));
    return entry != nullptr;
}

bool Options::Get(const char* key, String& out, const String& fallback) const noexcept
{
    const bool found = Get(key, out);
    if (!found)
        out = fallback;
    return found;
}

bool Options::Get(const char* key, PString& out, const PString& fallback) const noexcept
{
    const bool found = Get(key, out);
    if (!found)
        out = fallback;
    return found;
}

bool Options::Get(const char* key, bool& out, bool fallback) const noexcept
{
    const OptionEntry* const entry = Find(key);
    out = fallback;
    if (!entry)
        return false;
    const char* const value = TextOf(entry->value);
    const auto is = [value](const char* word) { return Platform::CompareIgnoreCaseAscii(value, word) == 0; };
    if (*value == '-' || is("false") || is("off"))
        out = false;
    else if (*value == '+' || is("true") || is("on"))
        out = true;
    else
        out = !fallback;
    return true;
}

bool Options::Get(const char* key, std::int32_t& out, std::int32_t fallback) const noexcept
{
    const OptionEntry* const entry = Find(key);
    out = entry ? static_cast<std::int32_t>(Number(entry->value, INT32_MIN, INT32_MAX)) : fallback;
    return entry != nullptr;
}

bool Options::Get(const char* key, std::uint32_t& out, std::uint32_t fallback) const noexcept
{
    const OptionEntry* const entry = Find(key);
    out = entry ? static_cast<std::uint32_t>(Number(entry->value, INT32_MIN, UINT32_MAX)) : fallback;
    return entry != nullptr;
}

bool Options::Get(const char* key, float& out, float fallback) const noexcept
{
    const OptionEntry* const entry = Find(key);
    out = entry ? entry->value.GetFloat() : fallback;
    return entry != nullptr;
}

bool Options::Get(const char* key, Range<float>& out) noexcept
{
    const OptionEntry* const entry = Find(key);
    const char* const colon = entry ? std::strchr(TextOf(entry->value), ':') : nullptr;
    if (!colon || !colon[1])
        return false;
    out.low = entry->value.GetFloat(); // it ends at the colon
    out.high = static_cast<float>(std::atof(colon + 1));
    return true;
}

bool Options::Get(const char* key, Range<int>& out) noexcept
{
    const OptionEntry* const entry = Find(key);
    const char* const colon = entry ? std::strchr(TextOf(entry->value), ':') : nullptr;
    if (!colon || !colon[1])
        return false;
    out.low = static_cast<int>(Number(entry->value, INT32_MIN, INT32_MAX));
    out.high = static_cast<int>(Number(colon + 1, INT32_MIN, INT32_MAX));
    return true;
}

void Options::SetSeperators(const char* key, const char* characters) noexcept
{
    OptionEntry* const entry = Find(key);
    if (!entry)
        return;
    entry->seperators = characters;
    entry->cursor = entry->value;
}

template <class Text>
bool Options::NextToken(const char* key, Text& out) const noexcept
{
    OptionEntry* const entry = Find(key);
    if (!entry || !entry->cursor)
        return false;
    const char* const start = entry->cursor;
    const char* const seperators = TextOf(entry->seperators);
    const auto between = [seperators](const char* at) { return Is(at, Blank) || std::strchr(seperators, *at); };
    const char* const end = start + std::strcspn(start, seperators);
    if (end == start)
        return false;
    const char* tokenEnd = end;
    while (tokenEnd > start && between(tokenEnd - 1))
        --tokenEnd;
    out = Text(start, static_cast<unsigned>(tokenEnd - start));
    entry->cursor = end;
    while (*entry->cursor && between(entry->cursor))
        ++entry->cursor;
    return true;
}

bool Options::GetNext(const char* key, String& out) const noexcept
{
    return NextToken(key, out);
}

bool Options::GetNext(const char* key, PString& out) const noexcept
{
    return NextToken(key, out);
}

bool Options::Get(const char* key, DynamicArray<String, 41>& out, const char* characters) noexcept
{
    SetSeperators(key, characters);
    String token;
    while (GetNext(key, token))
        if (!out.Add(std::move(token)))
            break;
    return !out.IsEmpty();
}

// The text of a setting that was appended to is the front of the next newer one that has a text.
bool Options::GetOrigin(const char* key, Origin& out, std::uint32_t back) const noexcept
{
    const OptionEntry* const entry = Find(key);
    if (!entry)
        return false;
    const String* text = &entry->value;
    std::uint32_t length = text->Length();
    const OptionSource* source = entry->source;
    bool appended = entry->appended;
    for (const OptionSetting* setting = entry->older; back > 0; --back, setting = setting->older)
    {
        if (!setting)
            return false;
        if (!setting->isPrefix)
            text = &setting->value;
        length = setting->length;
        source = setting->source;
        appended = setting->appended;
    }
    if (!source)
        return false;
    out.kind = source->kind;
    out.name = TextOf(source->name);
    out.appended = appended;
    out.value = String(static_cast<const char*>(*text), length);
    return true;
}

void Options::Dump()
{
    for (const OptionEntry* entry = first; entry; entry = entry->next)
        std::printf("[%s] = [%s]\n", TextOf(entry->name), TextOf(entry->value));
}

} // namespace Zem
