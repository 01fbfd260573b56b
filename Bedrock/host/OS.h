#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/HeapOperators.h>

namespace Zem
{

class DynamicLibrary;
class Options;
class Window;

/// What belongs to an application's process: its instance, command line, settings and window.
///
/// The application makes one; nothing in the library reaches for it. It owns its `Options` and nothing else: the window
/// and the command line's text are the application's.
/// Threads: an object belongs to one thread at a time.
///
///     OS os(nullptr, commandLine, nullptr);
///     os.GetOptions()->Init("Viewer", argc, argv);
///     Log::Init(os.GetOptions());
///     os.SetWindow(os.CreateNewWindow());
class ZEM_API OS
{
    ZEM_HEAP_OPERATORS
public:
    /// `commandLine` is kept by pointer. `parent` is the native handle of a window that windows open in, or null.
    OS(void* instance, const char* commandLine, void* parent) noexcept;
    /// Frees the options with all their entries.
    ~OS();
    OS(const OS&) = delete; // the options have one owner
    OS& operator=(const OS&) = delete;

    void* GetInstance() const noexcept { return instance; }
    const char* GetCmdLine() const noexcept { return commandLine; }
    /// Empty at first; null if there was no memory.
    Options* GetOptions() const noexcept { return options; }

    /// Null at first. The object does not take the window over.
    Window* GetWindow() const noexcept { return window; }
    void SetWindow(Window* shown) noexcept { window = shown; }

    void* GetParent() const noexcept { return parent; }
    void SetParent(void* handle) noexcept { parent = handle; }

    /// "Windows": the family of interfaces that the library serves, whatever system it runs on.
    static const char* GetName() noexcept { return "Windows"; }

    /// A new object that is closed; the caller deletes it. Null if there is no memory.
    static DynamicLibrary* CreateDynamicLibrary();
    /// A new window in the parent of this moment, not opened; the caller deletes it. Null if there is no memory.
    Window* CreateNewWindow();

private:
    void* instance;
    Window* window;
    const char* commandLine;
    Options* options;
    void* parent;
};

} // namespace Zem
