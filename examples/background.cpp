// Work in the background and on time: images load on the worker while the main loop goes on and timed events fire; the
// worker's consoles show what it does. A parent job becomes ready when all its images are there. The consoles as they stood
// in the middle of the work are saved as background.tga.
//
//     background [FOLDER]      a folder of images, the demo's assets unless given

#include <Bedrock/Bedrock.h>

#include <cstdio>

using namespace Zem;

namespace
{

// An empty job: behind each job the worker looks at those that are pending.
struct LookAgain final : Job
{
    const char* GetName() override { return "look again"; }
};

// One image: loaded on the worker, handed over on the main thread.
class LoadImage final : public Job
{
public:
    LoadImage(Jobs& queue, Job* gallery, const char* folder, const char* file, int& total)
        : Job(gallery), jobs(queue), name(file), loaded(total)
    {
        path.Setf("%s/%s", folder, file);
    }
    const char* GetName() override { return name; }

protected:
    void Process() override
    {
        try
        {
            image.Load(PString(path), PString(), false);
        }
        catch (const FileEx& failure) // it would end the worker, and with it the wait for the gallery
        {
            std::printf("%s: %s\n", static_cast<const char*>(name), failure.Reason());
        }
        Time::Delay(20); // stands for a larger image
    }
    void Dispatch() override
    {
        const Rect size = image;
        std::printf("%-14s %d x %d\n", static_cast<const char*>(name), size.width, size.height);
        loaded += image.IsValid();
        Job::Dispatch();         // lets go of the parent,
        jobs.Add(new LookAgain); // and the worker looks at it behind its next job
    }

private:
    Jobs& jobs;
    String name, path;
    int& loaded;
    Bitmap image;
};

// Finishes behind its children.
class Gallery final : public Job
{
public:
    explicit Gallery(bool& done) : ready(done) {}
    const char* GetName() override { return "gallery"; }

protected:
    void Dispatch() override { ready = true; }

private:
    bool& ready;
};

// Fires every 10 milliseconds: here, it only counts.
struct Tick final : Events::Event
{
    int& count;
    Tick(int& ticks, std::uint32_t now) : Event(10, now + 10), count(ticks) {}
    bool Update() override
    {
        ++count;
        UpdateNext();
        return false;
    }
};

void SaveConsoles(Jobs& jobs)
{
    const PackedColor ink = 0xFFE8C070, paper = 0xFF101820;
    Bitmap picture({90 * 8 + 32, 10 * 8 + 32}, Bitmap::ARGB32, nullptr);
    picture.Clear(0xFF304058);
    int x = 8;
    for (const auto kind : {Jobs::MainConsole, Jobs::QueueConsole, Jobs::DoneConsole})
    {
        Console shown;
        if (!jobs.CopyConsole(kind, shown))
            continue;
        DrawConsole(picture, {x, 16}, shown, ink, paper);
        x += shown.Width() * Console::glyphSize + 8;
    }
    picture.Save("background.tga");
}

int Run(void* folder)
{
    Options options;
    options.Init("Background", "-JobsConsole");
    Jobs jobs;
    jobs.Init(&options);

    int loaded = 0, wanted = 0, ticks = 0;
    bool ready = false;
    auto* gallery = new Gallery(ready);
    File::Find search;
    String pattern;
    pattern.Setf("%s/*.*", static_cast<const char*>(folder));
    for (bool found = search.Open(pattern); found; found = search.Next())
    {
        if (!File::Path::IsMatch(search.name.Text(), "*.tga;*.bmp;*.pcx;*.jp*g"))
            continue;
        jobs.Add(new LoadImage(jobs, gallery, static_cast<const char*>(folder), search.name.Text(), loaded));
        ++wanted;
    }
    jobs.Add(gallery);
    if (wanted == 0)
    {
        std::printf("%s: no images there\n", static_cast<const char*>(folder));
        return 1;
    }

    Events events;
    events.Add(new Tick(ticks, Time::Ms()));
    bool saved = false;
    while (!ready) // the main loop
    {
        events.Update(Time::Ms());
        jobs.Update();
        if (!saved && loaded >= 2)
        {
            SaveConsoles(jobs);
            saved = true;
        }
    }
    jobs.Done();
    std::printf("all %d of %d images are ready, with %d ticks meanwhile\n", loaded, wanted, ticks);
    return loaded == wanted ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    char assets[] = "examples/assets";
    return ExceptionHandler::Main(Run, argc > 1 ? argv[1] : assets);
}
