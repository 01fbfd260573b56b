#pragma once

#include <Bedrock/Bedrock.h>

#include <string>

// What the demo shows: the images of a folder, packed into an archive, with an overlay folder above it, loaded by jobs.

namespace Demo
{

/// A textured side of the cube at several brightnesses, darkest first: 128 by 128 pixels each.
struct Texture
{
    static constexpr int size = 128, shades = 12;
    Zem::Bitmap shade[shades];
};

/// The images once they are loaded. One thread, the main one.
struct Content
{
    static constexpr int sides = 6;
    Texture side[sides];
    Zem::Bitmap planet; // with alpha
    int loaded = 0;
    int wanted = 0;
    char last[64] = ""; // name of the image that was handed over last

    bool Ready() const { return wanted > 0 && loaded == wanted; }
};

/// A temporary folder with an archive of the images and an overlay folder that replaces one of them, both mounted under
/// the name "demo". The destructor removes it all.
class Mount
{
public:
    /// Throws FileEx if the images cannot be read or the folder not written.
    explicit Mount(const char* assets);
    ~Mount();
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;

    int Packed() const { return packed; }
    std::uint32_t Bytes() const { return bytes; }

private:
    void Pack(const char* assets, const char* name);
    void Overlay();
    void Remove() noexcept;

    std::string folder; // ends in a separator
    int packed = 0;
    std::uint32_t bytes = 0;
};

/// Queues a job for each image of `content`; their `Dispatch` puts the images there. `content` outlives the jobs.
void QueueLoading(Zem::Jobs& jobs, Content& content);

} // namespace Demo
