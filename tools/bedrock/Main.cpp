// The `bedrock` command: archives, compressed streams and images from the shell.

#include "Commands.h"

#include <Bedrock/Version.h>
#include <Bedrock/host/Exception.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>

namespace
{

using namespace Tool;

const char* const footer =
    "Any file argument may be NAME:PATH, a path inside what --mount put under NAME.\n"
    "Exit codes: 0 done, 1 something is wrong with what was looked at, 2 wrong usage, 3 reading or writing failed,\n"
    "or there is no display.";

const char* const viewKeys =
    "Keys: PageDown, Space, n: next image. PageUp, Backspace, p: previous. Home, End: first, last.\n"
    "+, -, wheel: zoom. 1: original size. f: fit into the window. Arrows, drag: move a large image.\n"
    "Escape, q: end.";

// What the arguments asked for.
struct Request
{
    std::string command; // as in messages: "archive add"
    bool writes = false; // may write through a mount
    std::function<Exit(Mounts&)> run;
};

class CommandLine
{
public:
    CommandLine();
    Exit Main(int argc, char** argv);

private:
    CLI::App* Command(CLI::App* group, const char* name, const char* what, bool writes,
                      std::function<Exit(Mounts&)> run);
    void Json(CLI::App* command, bool& flag);
    void AddMounts(CLI::App* command);
    void AddArchive();
    void AddStream();
    void AddDumps();
    void AddOptions();
    void AddImage();
    void AddImageEdits(CLI::App* group);
    int WrongUsage(const CLI::ParseError& error);

    CLI::App app{"Works with the archives, compressed streams, images and other files of the Bedrock library.",
                 "bedrock"};
    Request request;
    std::vector<std::string> mountTexts;
    ArchiveOptions archive;
    FileOptions files;
    EditOptions edit;
    OptionsOptions options;
    ViewOptions view;
};

// Mounts may stand before the command and behind it.
void CommandLine::AddMounts(CLI::App* command)
{
    command
        ->add_option_function<std::vector<std::string>>(
            "--mount",
            [this](const std::vector<std::string>& texts)
            { mountTexts.insert(mountTexts.end(), texts.begin(), texts.end()); },
            "Put a folder or an archive under NAME, as often as wanted;\nthe last of one NAME is searched first")
        ->type_name("NAME=PATH[:ro]")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CLI::App* CommandLine::Command(CLI::App* group, const char* name, const char* what, bool writes,
                               std::function<Exit(Mounts&)> run)
{
    CLI::App* const command = group->add_subcommand(name, what);
    AddMounts(command);
    const std::string full = group == &app ? name : group->get_name() + ' ' + name;
    command->callback([this, full, writes, run = std::move(run)] { request = {full, writes, run}; });
    return command;
}

void CommandLine::Json(CLI::App* command, bool& flag)
{
    command->add_flag("--json", flag, "Print JSON");
}

void CommandLine::AddArchive()
{
    CLI::App* const group = app.add_subcommand("archive", "Make, look into, check and repair archives");
    group->require_subcommand(1);
    const auto packing = [&](CLI::App* command)
    {
        command->add_option("ARCHIVE", archive.archive, "The archive file")->required();
        command
            ->add_option("SOURCES", archive.names,
                         "Folders, whose files are named from there, and files, which go by their own name")
            ->required();
        command->add_flag("--compress", archive.compress, "Store the members compressed");
        command->add_option("--under", archive.under, "Put the members below this folder of the archive")
            ->type_name("FOLDER");
    };
    const auto reading = [&](CLI::App* command, const char* members)
    {
        command->add_option("ARCHIVE", archive.archive, "The archive file")->required();
        command->add_option("MEMBERS", archive.names, members);
    };
    const char* const patterns = "Names, folders or patterns with * and ?; everything if there are none";

    CLI::App* command = Command(group, "create", "Make an archive of folders and files", false,
                                [this](Mounts& mounts) { return ArchiveCreate(mounts, archive); });
    packing(command);
    command->add_flag("--force", archive.force, "Replace an archive that is there");

    command = Command(group, "add", "Append folders and files to an archive", false,
                      [this](Mounts& mounts) { return ArchiveAdd(mounts, archive); });
    packing(command);
    command->add_flag("--shadowed", archive.shadowed,
                      "Append also names that the archive has: the old member stays the one\nthat is found");

    command = Command(group, "list", "List the members", false,
                      [this](Mounts& mounts) { return ArchiveList(mounts, archive); });
    reading(command, patterns);
    Json(command, archive.json);

    command = Command(group, "extract", "Write members to a folder, and never outside it", false,
                      [this](Mounts& mounts) { return ArchiveExtract(mounts, archive); });
    reading(command, patterns);
    command->add_option("-C,--folder", archive.folder, "Extract into this folder, which is made if need be")
        ->type_name("FOLDER");
    command->add_flag("--force", archive.force, "Replace files that are there");

    command = Command(group, "test", "Read every member and compare its checksum", false,
                      [this](Mounts& mounts) { return ArchiveTest(mounts, archive); });
    reading(command, patterns);
    Json(command, archive.json);

    command = Command(group, "repair", "Cut off the torn member that a crash left at the end", false,
                      [this](Mounts& mounts) { return ArchiveRepair(mounts, archive); });
    command->add_option("ARCHIVE", archive.archive, "The archive file")->required();
    command->add_flag("--discard", archive.discard, "Keep no copy of what is cut off");
}

void CommandLine::AddStream()
{
    CLI::App* const group = app.add_subcommand("stream", "Compress and expand single files");
    group->require_subcommand(1);
    const auto converting = [&](CLI::App* command)
    {
        command->add_option("IN", files.input, "The file to read")->required();
        command->add_option("OUT", files.output, "The file to write")->required();
        command->add_flag("--force", files.force, "Replace a file that is there");
    };
    converting(Command(group, "compress", "Write a compressed copy of a file", true,
                       [this](Mounts& mounts) { return StreamCompress(mounts, files); }));
    converting(Command(group, "expand", "Write the plain copy of a compressed file", true,
                       [this](Mounts& mounts) { return StreamExpand(mounts, files); }));
    CLI::App* const info = Command(group, "info", "Show frames, sizes and ratio of compressed files", false,
                                   [this](Mounts& mounts) { return StreamInfo(mounts, files); });
    info->add_option("FILES", files.inputs, "The files to look at")->required();
    Json(info, files.json);
}

void CommandLine::AddImage()
{
    CLI::App* const group = app.add_subcommand("image", "Look at and convert images");
    group->require_subcommand(1);
    CLI::App* command = Command(group, "info", "Show format and size of images", false,
                                [this](Mounts& mounts) { return ImageInfo(mounts, files); });
    command->add_option("FILES", files.inputs, "TGA, BMP, PCX and JPEG files")->required();
    Json(command, files.json);
    command = Command(group, "convert", "Write an image as TGA (32 bits) or BMP (24 bits)", true,
                      [this](Mounts& mounts) { return ImageConvert(mounts, files); });
    command->add_option("IN", files.input, "A TGA, BMP, PCX or JPEG file")->required();
    command->add_option("OUT", files.output, "The image to write: the extension .tga or .bmp picks the format")
        ->required();
    command->add_flag("--force", files.force, "Replace a file that is there");
    AddImageEdits(group);
}

void CommandLine::AddImageEdits(CLI::App* group)
{
    const auto add = [&](const char* name, const char* what, Exit (*run)(Mounts&, const EditOptions&))
    {
        CLI::App* const command =
            Command(group, name, what, true, [this, run](Mounts& mounts) { return run(mounts, edit); });
        command->add_option("IN", edit.input, "A TGA, BMP, PCX or JPEG file")->required();
        command->add_option("OUT", edit.output, "The image to write, .tga or .bmp")->required();
        command->add_flag("--force", edit.force, "Replace a file that is there");
        return command;
    };
    add("scale", "Reduce an image; all sizes are powers of two", ImageScale)
        ->add_option("--size", edit.size, "The new width and height in pixels")
        ->type_name("W,H")
        ->delimiter(',')
        ->expected(2)
        ->required();
    add("crop", "Cut a rectangle out of an image", ImageCrop)
        ->add_option("--rect", edit.rect, "Its left column, top row, width and height in pixels")
        ->type_name("X,Y,W,H")
        ->delimiter(',')
        ->expected(4)
        ->required();
    CLI::App* const adjust =
        add("adjust", "Change brightness, contrast and saturation; 1 changes nothing", ImageAdjust);
    const auto upTo = [](int most)
    {
        return [most](const std::string& text) // refuses NaN too, which lies outside of no range
        {
            char* end;
            const double value = std::strtod(text.c_str(), &end);
            return value >= 0 && value <= most && end != text.c_str() && !*end
                       ? ""
                       : text + " is no number from 0 to " + std::to_string(most);
        };
    };
    adjust->add_option("--brightness", edit.brightness, "0 (black) to 2 (white)")->check(upTo(2));
    adjust->add_option("--contrast", edit.contrast, "0 (grey) to 2, applied before the brightness")->check(upTo(2));
    adjust->add_option("--saturation", edit.saturation, "0 (grey) to 100, applied last")->check(upTo(100));
    add("draw", "Draw a list of shapes on an image", ImageDraw)
        ->add_option("--shapes", edit.shapes, "The list: a text file, a shape a line (see docs/drawing.md)")
        ->required();
}

void CommandLine::AddDumps()
{
    CLI::App* group = app.add_subcommand("chunk", "Look into files of tagged blocks");
    group->require_subcommand(1);
    CLI::App* command = Command(group, "dump", "Show the tree of blocks with offsets, sizes and ids", false,
                                [this](Mounts& mounts) { return ChunkDumpCommand(mounts, files); });
    command->add_option("FILE", files.input, "The file to look at")->required();
    command->add_flag("--flat", files.flat, "Do not look for blocks in the bodies of blocks");
    Json(command, files.json);

    group = app.add_subcommand("block", "Look into text files of keys, values and blocks in braces");
    group->require_subcommand(1);
    command = Command(group, "dump", "Show entries and blocks as the library reads them", false,
                      [this](Mounts& mounts) { return BlockDumpCommand(mounts, files); });
    command->add_option("FILE", files.input, "The file to look at")->required();
    Json(command, files.json);
}

void CommandLine::AddOptions()
{
    CLI::App* const command =
        Command(&app, "options", "Show the options that an application finds, and where each came from", false,
                [this](Mounts& mounts) { return ShowOptions(mounts, options); });
    command->add_option("--prefix", options.prefix, "What its variable and its option files begin with")
        ->type_name("NAME");
    command->add_option("--program", options.program, "Its path: the folder is searched for an option file");
    command
        ->add_option("--source", options.sources,
                     "Instead of what an application reads: env:NAME, file:NAME or text:OPTIONS,\n"
                     "as often as wanted, each over those before it")
        ->type_name("KIND:WHAT")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_option("--key", options.keys, "Show this key alone, as often as wanted")
        ->type_name("KEY")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_option("ARGUMENTS", options.arguments, "Behind \"--\": the application's arguments");
    Json(command, options.json);
}

CommandLine::CommandLine()
{
    app.require_subcommand(1);
    app.footer(footer);
    app.set_version_flag("--version", "bedrock " ZEM_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help and exit");
    AddMounts(&app);
    AddArchive();
    AddStream();
    AddImage();
    AddDumps();
    AddOptions();

    CLI::App* command = Command(&app, "find", "List what matches a pattern, over all mounted locations of a name",
                                false, [this](Mounts& mounts) { return Find(mounts, files); });
    command
        ->add_option("PATTERN", files.input,
                     "NAME:FOLDER/WILDCARD or FOLDER/WILDCARD; only the last level may hold * and ?,\n"
                     "and ; between several: 'data:textures/*.tga;*.bmp'")
        ->required();
    command->add_flag("--names", files.namesOnly, "Print names alone");
    Json(command, files.json);
    command =
        Command(&app, "view", "Show images in a window", false, [this](Mounts& mounts) { return View(mounts, view); });
    command->add_option("IMAGES", view.images, "TGA, BMP, PCX and JPEG files")->required();
    command->add_flag("--fullscreen", view.fullscreen, "Over the whole desktop, without a frame");
    command->footer(viewKeys);
    command = Command(&app, "which", "Show which mounted location serves a name, and which others have it", false,
                      [this](Mounts& mounts) { return Which(mounts, files); });
    command->add_option("NAME", files.input, "As NAME:PATH")->required();
    Json(command, files.json);
    command = Command(&app, "info", "Show version, compiler and processor level", false,
                      [this](Mounts&) { return Info(files); });
    Json(command, files.json);
}

// Usage errors name the command that was meant, and end with 2.
int CommandLine::WrongUsage(const CLI::ParseError& error)
{
    const CLI::App* at = &app;
    std::string path;
    while (!at->get_subcommands().empty())
    {
        at = at->get_subcommands().front();
        path += at->get_name() + ' ';
    }
    std::string text = error.what();
    if (at->get_require_subcommand_min() > 0)
        text = at->remaining_size()
                   ? (at->remaining().front()[0] == '-' ? "there is no option \"" : "there is no command \"") +
                         at->remaining().front() + '"'
                   : "a command is missing";
    if (!path.empty())
        path.pop_back();
    std::fprintf(stderr, "bedrock: %s%s%s\nTry `bedrock %s%s--help`.\n", path.c_str(), path.empty() ? "" : ": ",
                 Shown(text).c_str(), path.c_str(), path.empty() ? "" : " ");
    return static_cast<int>(Exit::Usage);
}

Exit CommandLine::Main(int argc, char** argv)
{
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::Success& success) // --help, --version
    {
        app.exit(success);
        return Exit::Done;
    }
    catch (const CLI::ParseError& error)
    {
        return static_cast<Exit>(WrongUsage(error));
    }

    const auto say = [&](const char* text)
    {
        Progress::Clear();
        std::fflush(stdout);
        std::fprintf(stderr, "bedrock: %s: %s\n", request.command.c_str(), text);
    };
    try
    {
        CatchInterrupts();
        Mounts mounts;
        mounts.Register(mountTexts, request.writes);
        return request.run(mounts);
    }
    catch (const Failure& failure)
    {
        say(failure.text.c_str());
        return failure.exit;
    }
    catch (const Zem::Exception& exception)
    {
        say(exception.Reason());
        return Exit::Disk;
    }
    catch (const std::bad_alloc&)
    {
        say("out of memory");
        return Exit::Disk;
    }
    catch (const std::exception& exception)
    {
        say(exception.what());
        return Exit::Disk;
    }
}

} // namespace

int main(int argc, char** argv)
{
    Exit exit = CommandLine().Main(argc, argv);
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
    {
        std::perror("bedrock: cannot write to standard output");
        exit = std::max(exit, Exit::Disk);
    }
    return static_cast<int>(exit);
}
