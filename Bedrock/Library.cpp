// Every object of the library that has a dynamic initialiser stands in this file, in the order in which the library
// starts; the last one is the attach step, and its destructor the detach step. The language runs them in this order
// when the library is loaded and in reverse when it is unloaded or the process ends. All other statics are constinit:
// they are right before the first of these steps, and those that are never destroyed serve until after the last.

#include <Bedrock/Library.h>

#include <Bedrock/files/FileSubstList.h>
#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/host/Log.h>
#include <Bedrock/host/Loss.h>
#include <Bedrock/memory/Alloc.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/platform/Desktop.h>
#include <Bedrock/platform/Fault.h>
#include <Bedrock/platform/Module.h>
#include <Bedrock/platform/ReportDialog.h>
#include <Bedrock/platform/Thread.h>
#include <Bedrock/platform/Wait.h>
#include <Bedrock/threads/Time.h>
#include <Bedrock/window/WindowPlacement.h>

#include <clocale>

namespace Zem
{

constinit std::intptr_t Library::module = 0;

namespace
{

// The allocator: from here on threads keep freed blocks to themselves.
[[maybe_unused]] const Alloc alloc;

// The ends of threads: from here on a mutex notices that its owner is gone.
[[maybe_unused]] const struct Waits
{
    Waits() noexcept { Platform::OpenWaits(); }
    // A thread that still runs will want to be noticed, by an application's static that waits for it.
    ~Waits()
    {
        if (Platform::HasThreads())
            return;
        Platform::CloseThreads();
        Platform::CloseWaits();
    }
    Waits(const Waits&) = delete;
    Waits& operator=(const Waits&) = delete;
} waits;

} // namespace

// The clocks.
const std::int64_t Time::freq = Time::QueryCounterFrequency();

// The log's clock: its lines count from here. Its lock and its clients are there without an initialiser.
const double Log::startTime = Time::GetSeconds();

// The places of windows that were noted.
constinit WindowPlacement::Records WindowPlacement::records;

// The substitution list. Its lock is there without an initialiser, and outlives it.
constinit FileSubstList FileSubstList::instance;

// The protected entry writes its reports as this client.
LogClient* const ExceptionHandler::client = Log::GetClient("ExceptionHandler");

// The attach step: from here on text can be interned.
struct Attachment
{
    Attachment() noexcept
    {
        Library::module = Platform::ModuleAt(&Library::module).value;
        // Characters as the user's locale has them; numbers stay as in C, since formats print them. A locale that the
        // system lacks leaves things as they are.
        std::setlocale(LC_CTYPE, "");
        PString::Init();
        SetLossTaker(Log::TakeLoss);
        Platform::PrepareReport();
    }

    // Handles that live on see the null cache, and let their nodes be. A thread of the library that still runs goes on
    // for a while at the end of the process: what it may use is left to the system and not freed under its hands. It may
    // still write lines: the log says its last word under its lock, and they reach the debugger from then on.
    ~Attachment()
    {
        Platform::CloseFaults(); // they are the system's from here on
        if (!Platform::HasThreads())
        {
            Platform::CloseDesktop();
            PString::Done();
        }
        Log::End();
    }

    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;
};

namespace
{

const Attachment attachment;

} // namespace

} // namespace Zem
