#pragma once

// Writing to disk so that a name holds either its old contents or the whole new ones, and never anything outside the
// folder that the user named.

#include <cstdint>
#include <string>
#include <string_view>

namespace Tool
{

/// A new file beside its target that takes the target's name when it is complete, and is gone otherwise.
///
///     Replacement out(path, force);
///     WriteSomehow(out.Path());
///     out.Commit();
class Replacement
{
public:
    /// Throws a `Failure` if the target exists and `replace` is not set, or cannot be replaced by a file.
    Replacement(std::string targetPath, bool replace);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Where the contents go meanwhile: in the target's folder, with the target's extension. Nothing is there yet.
    const std::string& Path() const { return path; }
    void Commit();

private:
    std::string target;
    std::string path;
    bool force;
};

/// A descriptor that closes itself.
class Descriptor
{
public:
    explicit Descriptor(int descriptor = -1) : value(descriptor) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : value(other.value) { other.value = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept;
    int Get() const { return value; }
    explicit operator bool() const { return value >= 0; }

private:
    int value;
};

/// A folder that members of an archive are extracted into. Whatever their names say, nothing outside it is made or
/// changed: each level of a name is opened relative to the one before, and a symbolic link is never followed.
class TargetFolder
{
public:
    /// Opens the folder, making it and those above it if need be.
    explicit TargetFolder(const std::string& path);

    /// Why a member of this name is refused: empty if it is not.
    static std::string Refusal(std::string_view member);

    /// One file being extracted: `Write` its bytes, then `Commit` puts it under its name.
    class NewFile
    {
    public:
        /// Throws a `Failure` if the name is taken and `replace` is not set, or leads through a link or a file.
        NewFile(TargetFolder& target, const std::string& memberName, bool replace);
        ~NewFile();
        NewFile(const NewFile&) = delete;
        NewFile& operator=(const NewFile&) = delete;

        void Write(const void* data, std::size_t size);
        void Commit();

    private:
        std::string member;
        std::string name;
        std::string temporary;
        int folder;
        Descriptor file;
        bool force;
    };

    /// Makes the folder `member` names.
    void MakeFolder(const std::string& member);

private:
    int FolderOf(std::string_view folders, const std::string& member);

    Descriptor root;
    Descriptor last; // of the folder used last: members come in order, so most share it
    std::string lastName;
};

} // namespace Tool
