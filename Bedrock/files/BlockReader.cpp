// The reader of text blocks.

#include <Bedrock/files/BlockReader.h>

#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace Zem
{

BlockReader::BlockReader()
    : line(static_cast<char*>(Alloc::New(lineBytes))), token(static_cast<char*>(Alloc::New(lineBytes)))
{
}

BlockReader::BlockReader(File& stream) : BlockReader()
{
    file = &stream;
}

BlockReader::BlockReader(BlockReader* reader)
    : file(reader->file), line(reader->line), token(reader->token), lineSize(reader->lineSize), parent(reader)
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
    if (!line || !token || file->ReadLine(line, lineSize) == 0)
        return false;
    cursor = line;
    return true;
}

// One word into `token`; the cursor moves by its length.
bool BlockReader::ParseEntry()
{
    const char* p = cursor;
    while (std::isspace(static_cast<unsigned char>(*p)))
        ++p;
    std::size_t length = 0;
    while (p[length] && !std::isspace(static_cast<unsigned char>(p[length])))
        ++length;
    if (length == 0)
        return false;
    std::memcpy(token, p, length);
    token[length] = '\0';
    cursor = p + length;
    return true;
}

bool BlockReader::ParseString()
{
    if (*cursor != '"')
        return ParseEntry();
    const char* end = std::strchr(cursor + 1, '"');
    if (!end)
        return false;
    const auto length = static_cast<std::size_t>(end - cursor - 1);
    std::memcpy(token, cursor + 1, length);
    token[length] = '\0';
    cursor = end + 1;
    return true;
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
    for (;;)
    {
        if (!ReadLine())
            return false;
        if (!SkipToToken(cursor) || !ParseEntry())
            continue;
        if (token[0] != '{')
            break;
        // A block without a key, or one that was not entered.
        blockPending = true;
        Begin();
        End();
    }
    if (std::strchr(line, '}'))
    {
        blockEnded = true;
        return false;
    }
    if (std::strchr(line, '{'))
        blockPending = true;
    key = token;
    nextKey = key;
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
        if (std::strchr(line, '{'))
            ++depth;
        else if (std::strchr(line, '}') && --depth == 0)
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
    if (!dst || size < 1 || !AtValue() || !ParseString())
        return false;
    std::size_t length = std::strlen(token);
    if (length > static_cast<std::size_t>(size) - 1)
        length = static_cast<std::size_t>(size) - 1;
    std::memcpy(dst, token, length);
    dst[length] = '\0';
    return true;
}

bool BlockReader::ReadString(PString& value)
{
    if (!AtValue() || !ParseString())
        return false;
    value = token;
    return true;
}

bool BlockReader::ReadInt(int& value)
{
    if (!AtValue())
        return false;
    char* end;
    const long number = std::strtol(cursor, &end, 10);
    if (end == cursor)
        return false;
    value = number < INT_MIN ? INT_MIN : number > INT_MAX ? INT_MAX : static_cast<int>(number);
    SkipNonWhiteSpace(cursor);
    return true;
}

bool BlockReader::ReadFloat(float& value)
{
    if (!AtValue())
        return false;
    char* end;
    const float number = std::strtof(cursor, &end);
    if (end == cursor)
        return false;
    value = number;
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
