#pragma once

#include <Bedrock/Export.h>
#include <Bedrock/memory/HeapOperators.h>
#include <Bedrock/memory/Nodes.h>
#include <Bedrock/threads/EventHeap.h>

#include <cstdint>

namespace Zem
{

/// Timed callbacks for one thread. It has no clock: the owner calls `Update` with the present time, in a unit of its
/// own, and every event that has come due runs.
///
///     struct Blink final : Events::Event
///     {
///         using Event::Event;
///         bool Update() override { lamp = !lamp; UpdateNext(); return false; } // again after the interval
///     };
///     Events events;
///     events.Add(new Blink(500, Time::Ms() + 500));
///     while (frame) events.Update(Time::Ms());
///
/// Events fire in the order of their times; of two with the same time, the one added last fires first. An event may add
/// events, and remove itself or any other, while it fires. Times are plain unsigned numbers: a clock that wraps to 0 is
/// the caller's to deal with. `Add` costs the logarithm of the events that are there.
///
/// An `Events` and its events belong to one thread at a time.
class ZEM_API Events
{
public:
    /// A callback with a time. Events are freed as plain blocks through `Alloc::Delete`, without a destructor: make them
    /// with `new`, and let a derived class hold nothing that must be destroyed.
    class ZEM_API Event : public DLListNode
    {
        ZEM_HEAP_OPERATORS
    public:
        /// `period` lies between two firings, `first` is the time of the first; both in the unit of `Events::Update`.
        Event(std::uint32_t period, std::uint32_t first) noexcept : interval(period), nextTime(first) {}
        Event(const Event&) = delete;
        Event& operator=(const Event&) = delete;

        /// The firing. True: done, the event leaves; false: it stays, and fires again in a later `Events::Update` at its
        /// next time. This one moves the next time by the interval and answers true.
        virtual bool Update();
        virtual std::uint32_t GetId();

        void SetId(std::uint32_t newId) noexcept { id = newId; }
        std::uint32_t GetNextTime() const noexcept { return nextTime; }
        /// 1 if this event's next time is before the other's, else 0.
        int operator<(const Event& other) const noexcept { return nextTime < other.nextTime; }

    protected:
        ~Event() = default;
        /// Moves the next time by the interval. The place of a scheduled event in the order stays as it is.
        void UpdateNext() noexcept
        {
            if (place == Waiting)
                BringAhead();
            nextTime += interval;
        }

    private:
        void BringAhead() noexcept;

        std::uint32_t interval;
        std::uint32_t id = 0;
        std::uint32_t nextTime;

    public: // for `Events` alone
        enum Place : std::uint8_t
        {
            Nowhere, // or on the removed list
            Waiting, // scheduled, in the heap
            Front,   // scheduled, first in the heap and firing from there
            Ahead,   // scheduled, ahead of the heap
            Fired    // on the repeat list
        };
        Place place = Nowhere;
        Events* owner = nullptr; // null if nowhere
    };

    /// With `owns`, finished events and those removed by id are freed by `Update`; otherwise they are only taken out.
    explicit Events(bool owns = true) noexcept : owning(owns) {}
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;
    /// Frees every event that is still here, owning or not.
    ~Events();

    /// Gives the event the next id: 1, 2, ... 0x7FFFFFFF, 0, 1 ... The uppermost bit is free for the caller's own ids.
    void GenerateId(Event* event) noexcept;

    /// Schedules `event`, which is on no list: before the first event whose time is not below its own. On an exhausted heap
    /// it waits for the end of the next `Update`, which puts it in order.
    void Add(Event* event) noexcept;

    /// Fires what is due, that is, every event whose time is not above `now`, each once at most, in order. What an event
    /// throws passes through; that event then stays where it is, and fires again in the next `Update`.
    void Update(std::uint32_t now);

    /// Takes out the first event that has this id, also one that has fired in the `Update` under way; owned, it stays
    /// valid to the start of the next `Update`. False if there is none. Looks at one event after the other.
    bool Remove(std::uint32_t id);
    /// Takes out a living event and gives it back to the caller, owning or not. An event that is not here is ignored.
    void Remove(Event* event) noexcept;
    /// Takes out `event` if it is scheduled, and says so; an event that has fired in the `Update` under way is not.
    bool RemoveEventSafely(Event* event) noexcept;

private:
    // An event whose `Update` runs, and whether it is still scheduled: kept here, as the event itself may be gone.
    struct Firing;

    Event* First() const noexcept;
    void Schedule(Event* event) noexcept;
    void Unschedule(Event* event) noexcept;
    void PutBackInPlaceOf(Event* event) noexcept;
    void Tell(const Event* event, bool scheduled) noexcept;
    void BringAhead(const Event* event) noexcept;
    void Free(Event* event) noexcept;
    void FreeAll(NodeList& list) noexcept;

    bool owning;
    std::uint32_t lastId = 0;
    NodeList removed;
    // The scheduled list is `ahead`, in its order, and then the heap. An event can stand where its time does not belong:
    // one that fires and has moved its own time, and what is added in front of it. Such events are ahead, in a plain list;
    // the one that fires comes there only when another is added, and is `front` till then, with nothing ahead of it.
    NodeList ahead;
    Event* front = nullptr;
    EventHeap waiting;
    NodeList repeat;
    Firing* firing = nullptr; // the innermost one
};

} // namespace Zem
