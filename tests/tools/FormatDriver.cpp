// Writes and reads stored formats on command, for test_formats.py, which knows them a second time.
//
// One request a line: a verb and arguments. One answer a line, words with blanks between, bytes in hexadecimal ("-" is no
// byte). Files are made in the current folder.
//
//     krom-write STEPS            the bytes of a chunk file; see WriteSteps
//     krom-read BYTES STEPS       an answer per step; see ReadSteps
//     blocks BYTES                per entry: depth, key, number of values, the values, 1 if it has a block
//     text-write STEPS            the bytes of File's texts and chunks: tBYTES, cIDBYTES
//     buffer STEPS                the bytes of a DynamicBuffer: 1N, 2N, 4N, fBITS, bN, tBYTES
//     pack BYTES                  what the codec makes of them
//     stream-write BYTES          a compressed stream
//     stream-read BYTES SIZE      what comes out
//     archive-write {NAME BYTES 0|1} ...     an archive; 1: compressed
//     archive-read BYTES NAME ...            the members' bytes, "?" for one that is not there
//     image-write EXTENSION WIDTH HEIGHT BYTES          an image of 32-bit pixels, written
//     image-read EXTENSION BYTES 0|1                    format, width, height, pixels, palette; 1: keep indexed

#include <Bedrock/Bedrock.h>
#include <Bedrock/files/BPE.h>

#include <cstring>
#include <deque>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace Zem;
using Words = std::vector<std::string>;

constexpr std::uint32_t create = File::ModeCreate | File::ModeWrite;

std::string Hex(const void* data, std::size_t size)
{
    if (size == 0)
        return "-";
    std::string text;
    for (std::size_t i = 0; i < size; ++i)
    {
        const unsigned byte = static_cast<const unsigned char*>(data)[i];
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string Hex(const std::string& bytes)
{
    return Hex(bytes.data(), bytes.size());
}

std::string Unhex(std::string_view text)
{
    std::string bytes;
    if (text != "-")
        for (std::size_t i = 0; i + 1 < text.size(); i += 2)
            bytes += static_cast<char>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16));
    return bytes;
}

std::uint32_t Number(const std::string& text)
{
    return static_cast<std::uint32_t>(std::stoul(text));
}

std::string Stored(const char* name)
{
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void Store(const char* name, const std::string& bytes)
{
    std::ofstream(name, std::ios::binary) << bytes;
}

void Require(bool holds, const char* what)
{
    if (!holds)
        throw std::runtime_error(what);
}

// hTYPE and bID begin a header or a block, e ends the innermost; wID:BYTES writes a block; dBYTES are data; pBYTES and
// qBYTES padded texts of String and PString, where "null" is no text.
std::string WriteSteps(const Words& steps)
{
    {
        KROMFile file;
        Require(bool(file.Open("x.krom", create)), "cannot create");
        std::deque<std::unique_ptr<KROMWriteSize>> open; // ended innermost first
        for (const std::string& step : steps)
        {
            const std::string rest = step.substr(1);
            const std::string bytes = rest == "null" ? "" : Unhex(rest.substr(rest.find(':') + 1));
            const auto n = static_cast<std::uint32_t>(bytes.size());
            switch (step[0])
            {
            case 'h':
                open.push_back(std::make_unique<KROMWriteHeader>(file, Number(rest)));
                break;
            case 'b':
                open.push_back(std::make_unique<KROMWriteBlock>(file, Number(rest)));
                break;
            case 'e':
                open.pop_back();
                break;
            case 'w':
                file.WriteBlock(Number(rest), n, bytes.data());
                break;
            case 'd':
                file.SafeWrite(bytes.data(), n, 1);
                break;
            case 'p':
                file.WritePadded(rest == "null" ? String() : String(bytes.data(), n));
                break;
            default:
                file.WritePadded(rest == "null" ? PString() : PString(bytes.data(), n));
            }
        }
        while (!open.empty())
            open.pop_back();
    }
    return Hex(Stored("x.krom"));
}

template <class Text>
std::string PaddedText(KROMFile& file)
{
    Text text("old");
    static_cast<void>(file.ReadPadded(text));
    const char* const bytes = text;
    return bytes ? Hex(bytes, text.Length()) : "null";
}

// hTYPE: code and size; i: id and size of a block's header; bID:CAPACITY: code, size and data of a block; dN: data; p, q:
// padded texts; t: the position; sN moves to it.
std::string ReadSteps(const std::string& bytes, const Words& steps)
{
    Store("x.krom", bytes);
    KROMFile file;
    Require(bool(file.Open("x.krom", File::ModeRead)), "cannot open");
    std::ostringstream out;
    for (const std::string& step : steps)
    {
        const std::string rest = step.substr(1);
        std::uint32_t size = 0;
        std::uint32_t id = 0;
        std::string data;
        switch (step[0])
        {
        case 'h':
        {
            const int code = file.ReadHeader(Number(rest), size).Code();
            out << code << ' ' << size << ' ';
            break;
        }
        case 'i':
            static_cast<void>(file.ReadBlockHeader(id, size));
            out << id << ' ' << size << ' ';
            break;
        case 'b':
        {
            data.resize(size = Number(rest.substr(rest.find(':') + 1)));
            const int code = file.ReadBlock(Number(rest), size, data.empty() ? nullptr : data.data()).Code();
            data.resize(code ? 0 : std::min<std::size_t>(size, data.size()));
            out << code << ' ' << size << ' ' << Hex(data) << ' ';
            break;
        }
        case 'd':
            data.resize(Number(rest));
            data.resize(file.Read(data.data(), data.size(), 1));
            out << Hex(data) << ' ';
            break;
        case 'p':
            out << PaddedText<String>(file) << ' ';
            break;
        case 'q':
            out << PaddedText<PString>(file) << ' ';
            break;
        case 's':
            file.SeekSet(static_cast<std::int32_t>(Number(rest)));
            break;
        default:
            out << file.Tell() << ' ';
        }
    }
    return out.str();
}

std::string Blocks(const std::string& text)
{
    Store("x.txt", text);
    File file;
    Require(bool(file.Open("x.txt", File::ModeReadPlain)), "cannot open");
    BlockReader root(file);
    BlockReader* reader = &root;
    std::vector<BlockReader*> around;
    std::ostringstream out;
    for (PString key;;)
    {
        if (reader->Next(key))
        {
            Words values;
            for (PString value; reader->ReadString(value);)
                values.push_back(Hex(value, value.Length()));
            BlockReader* const block = reader->Begin();
            out << around.size() << ' ' << Hex(key, key.Length()) << ' ' << values.size() << ' ';
            for (const std::string& value : values)
                out << value << ' ';
            out << (block != nullptr) << ' ';
            if (block)
            {
                around.push_back(reader);
                reader = block;
            }
            continue;
        }
        if (around.empty())
            return out.str();
        reader = around.back();
        around.pop_back();
        reader->End();
    }
}

std::string TextSteps(const Words& steps)
{
    {
        File file;
        Require(bool(file.Open("x.bin", create)), "cannot create");
        for (const std::string& step : steps)
        {
            const std::string bytes = Unhex(step.substr(1));
            if (step[0] == 't')
                file.Write(String(bytes.data(), static_cast<unsigned>(bytes.size())));
            else
                file.File::WriteBlock(bytes.data(), bytes.data() + 4, static_cast<std::uint32_t>(bytes.size() - 4));
        }
    }
    return Hex(Stored("x.bin"));
}

std::string BufferSteps(const Words& steps)
{
    DynamicBuffer buffer(0, 7);
    for (const std::string& step : steps)
    {
        const std::string rest = step.substr(1);
        const std::uint32_t value = step[0] == 't' ? 0 : Number(rest);
        float real;
        std::memcpy(&real, &value, sizeof real);
        switch (step[0])
        {
        case '1':
            buffer.Write(static_cast<unsigned char>(value));
            break;
        case '2':
            buffer.Write(static_cast<std::uint16_t>(value));
            break;
        case '4':
            buffer.Write(value);
            break;
        case 'f':
            buffer.Write(real);
            break;
        case 'b':
            buffer.Write(value != 0);
            break;
        default:
        {
            const std::string bytes = Unhex(rest);
            buffer.Write(PString(bytes.data(), static_cast<unsigned>(bytes.size())));
        }
        }
    }
    return Hex(buffer.GetData(), buffer.GetSize());
}

std::string Pack(const std::string& bytes)
{
    std::string packed(bytes.size(), '\0');
    packed.resize(BPE::Comp(packed.data(), bytes.data(), static_cast<std::uint32_t>(bytes.size())));
    return Hex(packed);
}

std::string WriteStream(const std::string& bytes)
{
    {
        File file;
        Require(bool(file.Open("x.cf", File::ModeCreate | File::ModeWriteCompressed)), "cannot create");
        if (!bytes.empty())
            file.SafeWrite(bytes.data(), bytes.size(), 1);
    }
    return Hex(Stored("x.cf"));
}

std::string ReadStream(const std::string& bytes, std::uint32_t size)
{
    Store("x.cf", bytes);
    File file;
    Require(bool(file.Open("x.cf", File::ModeReadCompressed)), "cannot open");
    std::string out(size, '\0');
    if (size > 0)
        file.SafeRead(out.data(), size, 1);
    return Hex(out);
}

std::string WriteArchive(const Words& words)
{
    Store("x.arc", "");
    File::Subst("arc", "x.arc", true);
    for (std::size_t i = 0; i + 2 < words.size(); i += 3)
    {
        const std::string bytes = Unhex(words[i + 1]);
        File file;
        Require(bool(file.Open(("arc:" + words[i]).c_str(),
                               File::ModeCreate | (words[i + 2] == "1" ? File::ModeWriteCompressed : File::ModeWrite))),
                "cannot create");
        if (!bytes.empty())
            file.SafeWrite(bytes.data(), bytes.size(), 1);
        file.Close();
    }
    File::Subst("arc", nullptr, false);
    return Hex(Stored("x.arc"));
}

std::string ReadArchive(const std::string& bytes, const Words& names)
{
    Store("x.arc", bytes);
    File::Subst("arc", "x.arc", false);
    std::string out;
    for (const std::string& name : names)
    {
        File file;
        if (!file.Open(("arc:" + name).c_str(), File::ModeRead))
        {
            out += "? ";
            continue;
        }
        std::string member(file.Size(), '\0');
        if (!member.empty())
            member.resize(file.Read(member.data(), member.size(), 1));
        out += Hex(member) + ' ';
    }
    File::Subst("arc", nullptr, false);
    return out;
}

std::string WriteImage(const std::string& extension, std::int32_t width, std::int32_t height, std::string pixels)
{
    const Bitmap image(Size{width, height}, Bitmap::ARGB32, reinterpret_cast<unsigned char*>(pixels.data()));
    const std::string name = "x." + extension;
    Require(image.Save(name.c_str()), "cannot save");
    return Hex(Stored(name.c_str()));
}

std::string ReadImage(const std::string& extension, const std::string& bytes, bool keepIndexed)
{
    const std::string name = "x." + extension;
    Store(name.c_str(), bytes);
    Bitmap image;
    if (!image.Load(PString(name.c_str()), PString(), keepIndexed))
        return "refused";
    const Rect area = image;
    const bool indexed = image.GetFormat() == Bitmap::Indexed8;
    std::string pixels;
    for (std::int32_t y = 0; y < area.height; ++y)
        pixels.append(reinterpret_cast<const char*>(image.GetPtr(Point{0, y})),
                      static_cast<std::size_t>(area.width) * (indexed ? 1 : 4));
    std::ostringstream out;
    out << static_cast<int>(image.GetFormat()) << ' ' << area.width << ' ' << area.height << ' ' << Hex(pixels) << ' '
        << (indexed ? Hex(image.GetPalette(), 1024) : "-");
    return out.str();
}

std::string Answer(Words words)
{
    const std::string verb = words.at(0);
    words.erase(words.begin());
    const auto behind = [&](std::ptrdiff_t n) { return Words(words.begin() + n, words.end()); };
    if (verb == "krom-write")
        return WriteSteps(words);
    if (verb == "krom-read")
        return ReadSteps(Unhex(words.at(0)), behind(1));
    if (verb == "blocks")
        return Blocks(Unhex(words.at(0)));
    if (verb == "text-write")
        return TextSteps(words);
    if (verb == "buffer")
        return BufferSteps(words);
    if (verb == "pack")
        return Pack(Unhex(words.at(0)));
    if (verb == "stream-write")
        return WriteStream(Unhex(words.at(0)));
    if (verb == "stream-read")
        return ReadStream(Unhex(words.at(0)), Number(words.at(1)));
    if (verb == "archive-write")
        return WriteArchive(words);
    if (verb == "archive-read")
        return ReadArchive(Unhex(words.at(0)), behind(1));
    if (verb == "image-write")
        return WriteImage(words.at(0), std::stoi(words.at(1)), std::stoi(words.at(2)), Unhex(words.at(3)));
    if (verb == "image-read")
        return ReadImage(words.at(0), Unhex(words.at(1)), words.at(2) == "1");
    throw std::runtime_error("no such verb");
}

} // namespace

int main()
{
    for (std::string line; std::getline(std::cin, line);)
    {
        std::istringstream words(line);
        std::string answer;
        try
        {
            answer = Answer({std::istream_iterator<std::string>(words), {}});
        }
        catch (const Exception& exception)
        {
            answer = std::string("failed ") + exception.Reason();
        }
        catch (const std::exception& exception)
        {
            answer = std::string("failed ") + exception.what();
        }
        std::cout << answer << std::endl;
    }
}
