#include <Bedrock/threads/Events.h>

namespace Zem
{

namespace
{

Events::Event* ToEvent(DLListNode* node) noexcept
{
    return static_cast<Events::Event*>(node);
}

} // namespace

bool Events::Event::Update()
{
    UpdateNext();
    return true;
}

std::uint32_t Events::Event::GetId()
{
    return id;
}

void Events::Event::BringAhead() noexcept
{
    owner->BringAhead(this);
}

struct Events::Firing
{
    Events& events;
    Event* event;
    Firing* outer;
    bool scheduled = true;

    Firing(Events& owner, Event* fires) noexcept : events(owner), event(fires), outer(owner.firing)
    {
        owner.firing = this;
    }
    Firing(const Firing&) = delete;
    Firing& operator=(const Firing&) = delete;
    ~Firing() { events.firing = outer; }
};

Events::~Events()
{
    FreeAll(ahead);
    while (waiting.Count() > 0)
        Free(ToEvent(waiting.TakeLast()));
    FreeAll(repeat);
    FreeAll(removed);
}

void Events::GenerateId(Event* event) noexcept
{
    lastId = (lastId + 1) & 0x7FFFFFFF;
    event->SetId(lastId);
}

void Events::Add(Event* event) noexcept
{
    Schedule(event);
}

void Events::Update(std::uint32_t now)
{
    if (removed.Head())
        FreeAll(removed);
    for (Event* event = First(); event && event->GetNextTime() <= now; event = First())
    {
        if (event->place == Event::Waiting)
        {
            event->place = Event::Front; // its time may change now, its place may not
            front = event;
        }
        bool done, scheduled;
        {
            Firing current(*this, event);
            done = event->Update();
            scheduled = current.scheduled;
        }
        if (!scheduled) // removed by its own firing: it may not even exist any more
            continue;
        if (!done && event == front && waiting.SecondTime() > now)
        {
            PutBackInPlaceOf(event);
            break;
        }
        Unschedule(event);
        if (!done)
        {
            event->owner = this;
            event->place = Event::Fired;
            repeat.AddTail(event);
        }
        else if (owning)
            Free(event);
    }
    for (std::uint32_t left = repeat.Count(); left > 0; --left)
    {
        Event* event = ToEvent(repeat.Head());
        repeat.Remove(event);
        Schedule(event);
    }
}

bool Events::Remove(std::uint32_t id)
{
    const auto matches = [id](DLListNode* node) { return ToEvent(node)->GetId() == id; };
    const auto search = [&matches](const NodeList& list)
    {
        DLListNode* node = list.Head();
        while (node && !matches(node))
            node = node->Next();
        return node;
    };
    DLListNode* found = search(ahead);
    if (!found)
        found = waiting.FirstThat(matches);
    if (!found)
        found = search(repeat);
    if (!found)
        return false;
    Remove(ToEvent(found));
    if (owning)
        removed.AddTail(found); // all of it goes at once, so its order shows nowhere
    return true;
}

void Events::Remove(Event* event) noexcept
{
    if (RemoveEventSafely(event) || event->owner != this)
        return;
    repeat.Remove(event);
    event->owner = nullptr;
    event->place = Event::Nowhere;
}

bool Events::RemoveEventSafely(Event* event) noexcept
{
    if (event->owner != this || event->place == Event::Fired)
        return false;
    Unschedule(event);
    return true;
}

Events::Event* Events::First() const noexcept
{
    if (ahead.Head())
        return ToEvent(ahead.Head());
    return waiting.Count() > 0 ? ToEvent(waiting.First()) : nullptr;
}

// In front of the first scheduled event whose time is not below.
void Events::Schedule(Event* event) noexcept
{
    if (front)
        BringAhead(front);
    DLListNode* before = ahead.Head();
    while (before && ToEvent(before)->GetNextTime() < event->GetNextTime())
        before = before->Next();
    if (before)
    {
        ahead.AddBefore(event, before);
        event->place = Event::Ahead;
    }
    else if (waiting.Insert(event, event->GetNextTime()))
        event->place = Event::Waiting;
    else
    {
        event->place = Event::Fired; // no memory: it joins those that are put in order at the end of an `Update`
        repeat.AddTail(event);
    }
    event->owner = this;
    Tell(event, event->place != Event::Fired);
}

void Events::Unschedule(Event* event) noexcept
{
    if (event->place == Event::Ahead)
        ahead.Remove(event);
    else if (waiting.First() == event)
    {
        waiting.RemoveFirst();
        front = nullptr;
    }
    else
        waiting.Remove(event);
    event->owner = nullptr;
    event->place = Event::Nowhere;
    Tell(event, false);
}

// The last firing of an `Update`, by the first in the heap, which stays: one way down the heap takes it out and puts the
// first of those that stay back. The others follow.
void Events::PutBackInPlaceOf(Event* event) noexcept
{
    front = nullptr;
    Event* first = event;
    if (repeat.Head())
    {
        first = ToEvent(repeat.Head());
        repeat.Remove(first);
        repeat.AddTail(event);
        event->place = Event::Fired;
    }
    waiting.ReplaceFirst(first, first->GetNextTime());
    first->place = Event::Waiting;
    Tell(first, true);
}

// Those who fire this event, whether it is scheduled.
void Events::Tell(const Event* event, bool scheduled) noexcept
{
    for (Firing* frame = firing; frame; frame = frame->outer)
        if (frame->event == event)
            frame->scheduled = scheduled;
}

// Moves the events up to and including this one, if it is in the heap, to the list ahead of it.
void Events::BringAhead(const Event* event) noexcept
{
    front = nullptr;
    while (event->place == Event::Waiting || event->place == Event::Front)
    {
        Event* first = ToEvent(waiting.First());
        waiting.RemoveFirst();
        ahead.AddTail(first);
        first->place = Event::Ahead;
    }
}

// As a plain block. Another event may come to lie at the same address: frames that still fire this one let go of it.
void Events::Free(Event* event) noexcept
{
    for (Firing* frame = firing; frame; frame = frame->outer)
        if (frame->event == event)
            frame->event = nullptr;
    Alloc::Delete(event);
}

void Events::FreeAll(NodeList& list) noexcept
{
    while (DLListNode* node = list.Head())
    {
        list.Remove(node);
        Free(ToEvent(node));
    }
}

} // namespace Zem
