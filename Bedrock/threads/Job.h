#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/Nodes.h>

#include <atomic>
#include <cstdint>

namespace Zem
{

/// A piece of work for `Jobs`: `Process` runs on the worker, `Dispatch` later on the thread that calls `Jobs::Update`.
///
///     struct LoadImage final : Job
///     {
///         void Process() override { ok = image.Load(name, PString(), false); }   // worker
///         void Dispatch() override { if (ok) Show(image); }                       // owner's thread
///     };
///     jobs.Add(new LoadImage);
///
/// A job with a parent keeps it open: the parent is handed over after `Dispatch` of its last child, and may be processed
/// before. Made with `new`, a job belongs to `Jobs` from `Add` on and is deleted after its `Dispatch`.
class ZEM_API Job : public DLListNode
{
    ZEM_HEAP_OPERATORS
public:
    /// `parent`, if any, waits for this job from now on. It must be known to be open still: make its children before it is
    /// added, in its own `Process`, or while another child of it has not been dispatched.
    explicit Job(Job* parent = nullptr) noexcept;
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    virtual ~Job();

    /// For the consoles, on any thread, inside locks of `Jobs`: "Unknown" unless overridden. An override must not throw.
    virtual const char* GetName();

    /// How far it is, in a unit of the job's own; 0 at first. Any thread.
    float GetProgress() const noexcept { return progress.load(std::memory_order_relaxed); }

protected:
    /// The work, on the worker. What it throws is reported there, and ends the worker.
    virtual void Process();
    /// The hand-over, on the thread of `Jobs::Update`. An override of a job with a parent calls this one, which lets go of
    /// the parent, even if it throws then: a parent that is never let go stays pending.
    virtual void Dispatch();

    /// For `Process`.
    void SetProgress(float amount) noexcept { progress.store(amount, std::memory_order_relaxed); }

private:
    friend class Jobs;

    // Open children and other holds. The release of the last one makes what it did on its thread known to the worker.
    void Lock() noexcept { locks.fetch_add(1, std::memory_order_relaxed); }
    void Unlock() noexcept { locks.fetch_sub(1, std::memory_order_release); }
    bool IsDone() const noexcept { return locks.load(std::memory_order_acquire) == 0; }

    std::atomic<float> progress{0};
    Job* parent;
    std::atomic<std::int32_t> locks{0};
    std::uint32_t milliseconds = 0; // that `Process` took; measured for the consoles only
};

} // namespace Zem
