#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/files/File.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/PString.h>

#include <cstdint>

namespace Zem
{

/// A pull parser for text blocks: lines of a key and values, with blocks in braces.
///
///     // comment
///     panel {                     `{` behind the key ...
///         size 640 480
///         title "two words"
///         child
///         {                       ... or alone on the next line with a token
///             x 1.5
///         }
///     }
///
/// A token runs up to the next white space; a quoted value between two double quotes, without escapes. A comment starts
/// with `//` where a token could start. Braces are looked for in whole lines, quoted texts and comments included, and a
/// line with both counts as an opening; a `}` on an entry's line ends the level and hides the entry. Lines hold 510 bytes,
/// the rest of a longer one is dropped.
///
/// Only the current line is kept. A malformed file shows as values that cannot be read or as an early end; nothing is
/// thrown but what the file throws. White space and numbers are those of the "C" locale, whatever the process has. A reader, its children and its file belong to one thread. Blocks nest to any depth.
///
///     BlockReader reader(file);
///     for (PString key; reader.Next(key);)
///         if (key == PString("panel"))
///             if (BlockReader* panel = reader.Begin())
///             {
///                 while (panel->Next(key)) ...
///                 reader.End();
///             }
class ZEM_API BlockReader
{
    ZEM_HEAP_OPERATORS

public:
    /// A root without a file: `Init` gives it one.
    BlockReader();
    explicit BlockReader(File& stream);
    ~BlockReader();
    BlockReader(const BlockReader&) = delete;
    BlockReader& operator=(const BlockReader&) = delete;

    void Init(File& stream) { file = &stream; }

    /// Moves to the next entry of this level and tells its key; a block of the last one that was not entered is skipped.
    /// Returns: false at the end of the level or of the file, and while a block is entered.
    bool Next(PString& nextKey);

    /// Enters the block of the current entry. The child reads on in the same file until `End`.
    /// Returns: null when the entry has no block; the next `Next` then sees the line that follows.
    BlockReader* Begin();

    /// Leaves the block that `Begin` entered, and skips what is unread of it, nested blocks included.
    void End();

    /// The next value of the entry, quoted or not; at most `size` - 1 bytes of it, terminated. False: there is none, or
    /// its quote is not closed.
    bool ReadString(char* dst, int size);
    bool ReadString(PString& value);
    /// The next value as a number; what trails it up to the next white space is used up too ("12abc" is 12). A number too
    /// large is the largest.
    bool ReadInt(int& value);
    bool ReadFloat(float& value);
    /// Any number but 0 is true.
    bool ReadBool(bool& value);
    /// Up to `n` values; the number read.
    int ReadStringv(PString* values, int n);
    int ReadIntv(int* values, int n);
    int ReadFloatv(float* values, int n);

protected:
    static constexpr std::uint32_t lineBytes = 512;

    explicit BlockReader(BlockReader* reader);

    bool SkipBlock();
    bool ParseEntry();
    bool ParseString();
    bool IsBlockStart();

    static bool SkipWhiteSpace(const char*& p);
    static bool SkipToToken(const char*& p);
    static bool SkipNonWhiteSpace(const char*& p);
    static bool IsEol(const char* p);
    static bool IsComment(const char* p);

private:
    static constexpr unsigned recentKeys = 64;

    // A word or a value where it stands in the line.
    struct Text
    {
        const char* at;
        std::size_t length;
    };

    bool ReadLine();
    bool AtValue();
    bool FindWord(Text& word);
    bool FindValue(Text& value);
    void Deliver(const Text& word, PString& key) const;

    File* file = nullptr;
    char* line = nullptr; // one block for a whole tree of readers, as are `token` and `recent`
    char* token = nullptr;
    PString* recent = nullptr;     // keys met before: a file has few that are different
    const char* cursor = nullptr;  // in `line`; null when that is not this reader's line
    const char* lineEnd = nullptr; // its terminator
    std::uint32_t lineSize = lineBytes;
    bool lineOpens = false; // it has a `{` anywhere
    bool lineCloses = false;
    BlockReader* parent = nullptr;
    BlockReader* child = nullptr;
    bool blockEnded = false;   // this level's closing brace was seen
    bool blockPending = false; // the last entry opened a block that was not entered yet
};

} // namespace Zem
