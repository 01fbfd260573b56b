// The reader of text blocks.

#include <Bedrock/files/BlockReader.h>

#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

namespace Zem
{

namespace
{

bool IsSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsHexDigit(char c)
{
    const char lower = static_cast<char>(c | 0x20);
    return (c >= '0' && c <= '9') || (lower >= 'a' && lower <= 'f');
}

// What is looked for in a line; its bytes are compared sixteen at a time, in the compiler's own vectors.
struct Braces
{
    bool opens = false;
    bool closes = false;
    bool ends = false; // a zero byte
};

using Bytes = unsigned char __attribute__((vector_size(16)));

bool Any(Bytes bytes)
{
    std::uint64_t halves[2];
    std::memcpy(halves, &bytes, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

// `text` lies in a block of a multiple of 16 bytes, so that a vector that begins in it ends in the block.
Braces FindBraces(const char* text, std::size_t length)
{
    constexpr Bytes places = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    Bytes open = {}, close = {}, zero = {};
    for (std::size_t i = 0; i < length; i += sizeof(Bytes))
    {
        Bytes bytes;
        std::memcpy(&bytes, text + i, sizeof bytes);
        const std::size_t left = length - i < sizeof(Bytes) ? length - i : sizeof(Bytes);
        const Bytes inside = places < static_cast<unsigned char>(left);
        open |= (bytes == '{') & inside;
        close |= (bytes == '}') & inside;
        zero |= (bytes == 0) & inside;
    }
    return {Any(open), Any(close), Any(zero)};
}

// A number too large or too small for a float: whether it is the latter.
bool IsSmall(const char* at, const char* end, bool hex)
{
    std::int64_t digits = 0; // in front of the point; below 0, zeros behind it
    while (at != end && *at == '0')
        ++at;
    for (; at != end && (hex ? IsHexDigit(*at) : *at >= '0' && *at <= '9'); ++at)
        ++digits;
    if (at != end && *at == '.')
    {
        ++at;
        if (digits == 0)
            for (; at != end && *at == '0'; ++at)
                --digits;
    }
    while (at != end && (*at | 0x20) != (hex ? 'p' : 'e'))
        ++at;
    std::int64_t exponent = 0;
    const bool negative = end - at > 1 && at[1] == '-';
    for (; at != end; ++at)
        if (*at >= '0' && *at <= '9' && exponent < 1000000)
            exponent = exponent * 10 + (*at - '0');
    return (hex ? 4 * digits : digits) + (negative ? -exponent : exponent) < 0;
}

// The number at the start of a text as `strtof` reads it in the "C" locale, but for white space in front. False: none.
bool ParseFloat(const char* at, const char* end, float& value)
{
    const bool negative = at != end && *at == '-';
    if (at != end && (*at == '-' || *at == '+'))
        ++at;
    if (at == end || *at == '-')
        return false;
    bool hex = false;
    float magnitude = 0;
    std::from_chars_result result = std::from_chars(at, end, magnitude);
    if (result.ec == std::errc::invalid_argument)
        return false;
    if (result.ptr - at == 1 && *at == '0' && end - at > 2 && (at[1] | 0x20) == 'x')
    {
        // "0x" with no digit behind it is a 0.
        const char* const digits = at + 2;
        if (IsHexDigit(*digits) || (*digits == '.' && end - digits > 1 && IsHexDigit(digits[1])))
        {
            result = std::from_chars(digits, end, magnitude, std::chars_format::hex);
            at = digits;
            hex = true;
        }
    }
    if (result.ec == std::errc::result_out_of_range)
        magnitude = IsSmall(at, result.ptr, hex) ? 0 : std::numeric_limits<float>::infinity();
    value = negative ? -magnitude : magnitude;
    return true;
}

// Where a key is remembered: from its first and its last bytes.
unsigned Slot(const char* at, std::size_t length)
{
    std::uint32_t first, last;
    if (length < 4)
        first = last = static_cast<unsigned char>(at[0]) | static_cast<unsigned char>(at[length - 1]) << 8;
    else
    {
        std::memcpy(&first, at, 4);
        std::memcpy(&last, at + length - 4, 4);
    }
    return ((first ^ (last << 5 | last >> 27)) + static_cast<std::uint32_t>(length)) * 0x9E3779B1u >> 26;
}

} // namespace

BlockReader::BlockReader()
    : line(static_cast<char*>(Alloc::New(lineBytes))), token(static_cast<char*>(Alloc::New(lineBytes))),
      recent(static_cast<PString*>(Alloc::New(recentKeys * sizeof(PString))))
{
    static_assert(lineBytes % sizeof(Bytes) == 0 && recentKeys == 1u << (32 - 26));
    if (recent)
        std::uninitialized_default_construct_n(recent, recentKeys);
}

BlockReader::BlockReader(File& stream) : BlockReader()
{
    file = &stream;
}

BlockReader::BlockReader(BlockReader* reader)
    : file(reader->file), line(reader->line), token(reader->token), recent(reader->recent), lineSize(reader->lineSize),
      parent(reader)
{
}

// Innermost first, so that no depth of nesting is a depth of calls.
BlockReader::~BlockReader()
{
    BlockReader* innermost = this;
    while (innermost->child)
        innermost = innermost->child;
    while (innermost != this)
    {
        BlockReader* outer = innermost->parent;
        outer->child = nullptr;
        delete innermost;
        innermost = outer;
    }
    if (!parent)
    {
        Alloc::Delete(line);
        Alloc::Delete(token);
        if (recent)
            std::destroy_n(recent, recentKeys);
        Alloc::Delete(recent);
    }
}

// ------------------------------------------------------------------------------------------------------------ characters

bool BlockReader::IsEol(const char* p)
{
    return *p == '\n' || (*p == '\r' && p[1] == '\n');
}

bool BlockReader::IsComment(const char* p)
{
    return p[0] == '/' && p[1] == '/';
}

bool BlockReader::SkipWhiteSpace(const char*& p)
{
    while (*p == ' ' || *p == '\t')
        ++p;
    return true;
}

bool BlockReader::SkipToToken(const char*& p)
{
    SkipWhiteSpace(p);
    return !IsEol(p) && !IsComment(p);
}

bool BlockReader::SkipNonWhiteSpace(const char*& p)
{
    while (*p && *p != ' ' && *p != '\t')
        ++p;
    return true;
}

// --------------------------------------------------------------------------------------------------------------- lines

bool BlockReader::ReadLine()
{
    cursor = nullptr;
    if (!line || !token)
        return false;
    const std::uint32_t length = file->ReadLine(line, lineSize);
    if (length == 0)
        return false;
    const Braces braces = FindBraces(line, length);
    cursor = line;
    lineEnd = line + length;
    lineOpens = braces.opens;
    lineCloses = braces.closes;
    if (braces.ends) [[unlikely]] // the line is a terminated text
    {
        lineEnd = line + std::strlen(line);
        lineOpens = std::strchr(line, '{') != nullptr;
        lineCloses = std::strchr(line, '}') != nullptr;
    }
    return true;
}

// The word at the cursor, which moves behind it.
bool BlockReader::FindWord(Text& word)
{
    const char* p = cursor;
    while (IsSpace(*p))
        ++p;
    word.at = p;
    while (*p && !IsSpace(*p))
        ++p;
    word.length = static_cast<std::size_t>(p - word.at);
    if (word.length == 0)
        return false;
    cursor = p;
    return true;
}

bool BlockReader::FindValue(Text& value)
{
    if (*cursor != '"')
        return FindWord(value);
    const char* const start = cursor + 1;
    const void* const end = std::memchr(start, '"', static_cast<std::size_t>(lineEnd - start));
    if (!end)
        return false;
    value = {start, static_cast<std::size_t>(static_cast<const char*>(end) - start)};
    cursor = static_cast<const char*>(end) + 1;
    return true;
}

bool BlockReader::ParseEntry()
{
    Text word;
    if (!FindWord(word))
        return false;
    std::memcpy(token, word.at, word.length);
    token[word.length] = '\0';
    return true;
}

bool BlockReader::ParseString()
{
    Text value;
    if (!FindValue(value))
        return false;
    std::memcpy(token, value.at, value.length);
    token[value.length] = '\0';
    return true;
}

// Interns a key, or finds it among those met before without asking the cache of all texts.
void BlockReader::Deliver(const Text& word, PString& key) const
{
    const auto length = static_cast<unsigned>(word.length);
    PString* known = nullptr;
    if (recent)
    {
        known = recent + Slot(word.at, word.length);
        if (known->Length() == length && std::memcmp(*known, word.at, length) == 0)
        {
            key = *known;
            return;
        }
    }
    key = PString(word.at, length);
    if (known)
        *known = key;
}

bool BlockReader::Next(PString& nextKey)
{
    if (!file || child || blockEnded)
        return false;
    if (blockPending)
    {
        Begin();
        End();
        blockPending = false;
    }
    Text word;
    for (;;)
    {
        if (!ReadLine())
            return false;
        if (!SkipToToken(cursor) || !FindWord(word))
            continue;
        if (*word.at != '{')
            break;
        // A block without a key, or one that was not entered.
        blockPending = true;
        Begin();
        End();
    }
    if (lineCloses)
    {
        blockEnded = true;
        return false;
    }
    blockPending = lineOpens;
    Deliver(word, nextKey);
    return true;
}

bool BlockReader::IsBlockStart()
{
    if (!file)
        return false;
    if (blockPending)
        return true;
    std::uint32_t lineStart = file->Tell();
    while (ReadLine())
    {
        if (SkipToToken(cursor) && *cursor)
        {
            if (*cursor == '{')
                return true;
            break;
        }
        lineStart = file->Tell();
    }
    // The line is another entry's: it is read again by the next `Next`.
    cursor = nullptr;
    file->SeekSet(static_cast<std::int32_t>(lineStart));
    return false;
}

BlockReader* BlockReader::Begin()
{
    if (child || blockEnded || !IsBlockStart())
        return nullptr;
    cursor = nullptr;
    return child = new BlockReader(this);
}

void BlockReader::End()
{
    // The innermost block is read to its end first, then the one around it.
    BlockReader* innermost = this;
    while (innermost->child)
        innermost = innermost->child;
    while (innermost != this)
    {
        BlockReader* outer = innermost->parent;
        innermost->SkipBlock();
        outer->child = nullptr;
        outer->blockPending = false;
        delete innermost;
        innermost = outer;
    }
}

bool BlockReader::SkipBlock()
{
    if (blockEnded)
        return true;
    if (!file || child)
        return false;
    if (!parent)
    {
        file->SeekEnd(0);
        blockPending = false;
        return true;
    }
    unsigned depth = blockPending ? 2 : 1;
    blockPending = false;
    while (ReadLine())
    {
        if (lineOpens)
            ++depth;
        else if (lineCloses && --depth == 0)
        {
            blockEnded = true;
            return true;
        }
    }
    return false;
}

// -------------------------------------------------------------------------------------------------------------- values

bool BlockReader::AtValue()
{
    return cursor && SkipToToken(cursor) && *cursor;
}

bool BlockReader::ReadString(char* dst, int size)
{
    Text value;
    if (!dst || size < 1 || !AtValue() || !FindValue(value))
        return false;
    const auto room = static_cast<std::size_t>(size) - 1;
    const std::size_t length = value.length < room ? value.length : room;
    std::memcpy(dst, value.at, length);
    dst[length] = '\0';
    return true;
}

bool BlockReader::ReadString(PString& value)
{
    Text text;
    if (!AtValue() || !FindValue(text))
        return false;
    PString made(text.at, static_cast<unsigned>(text.length));
    if (made.IsNull())
        return false;
    value = std::move(made);
    return true;
}

bool BlockReader::ReadInt(int& value)
{
    if (!AtValue())
        return false;
    const char* p = cursor;
    while (IsSpace(*p))
        ++p;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    if (*p < '0' || *p > '9')
        return false;
    constexpr std::int64_t enough = std::int64_t{INT_MAX} + 1;
    std::int64_t number = 0;
    for (; *p >= '0' && *p <= '9'; ++p)
        if (number <= enough)
            number = number * 10 + (*p - '0');
    number = negative ? -number : number;
    value = number < INT_MIN ? INT_MIN : number > INT_MAX ? INT_MAX : static_cast<int>(number);
    cursor = p;
    SkipNonWhiteSpace(cursor);
    return true;
}

bool BlockReader::ReadFloat(float& value)
{
    if (!AtValue())
        return false;
    const char* p = cursor;
    while (IsSpace(*p))
        ++p;
    if (!ParseFloat(p, lineEnd, value))
        return false;
    cursor = p;
    SkipNonWhiteSpace(cursor);
    return true;
}

bool BlockReader::ReadBool(bool& value)
{
    int number;
    if (!ReadInt(number))
        return false;
    value = number != 0;
    return true;
}

int BlockReader::ReadStringv(PString* values, int n)
{
    int count = 0;
    while (count < n && ReadString(values[count]))
        ++count;
    return count;
}

int BlockReader::ReadIntv(int* values, int n)
{
    int count = 0;
    while (count < n && ReadInt(values[count]))
        ++count;
    return count;
}

int BlockReader::ReadFloatv(float* values, int n)
{
    int count = 0;
    while (count < n && ReadFloat(values[count]))
        ++count;
    return count;
}

} // namespace Zem
