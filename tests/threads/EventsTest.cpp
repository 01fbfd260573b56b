// Timed events against a scheduler written from the rules alone: plain lists, walked from the front.

#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/threads/Events.h>

#include "support/Support.h"

#include <algorithm>
#include <functional>
#include <list>
#include <map>
#include <set>
#include <stdexcept>

using namespace Zem;

namespace
{

// The same rules on std::list, with no thought of speed.
struct PlainEvents
{
    struct Event
    {
        std::uint32_t interval, nextTime, id = 0;
        std::function<bool()> update;
    };

    std::list<Event*> scheduled, repeat; // what is removed or done is just forgotten: the world frees it at the end

    explicit PlainEvents(bool) {}

    void Add(Event* event)
    {
        auto at = scheduled.begin();
        while (at != scheduled.end() && (*at)->nextTime < event->nextTime)
            ++at;
        scheduled.insert(at, event);
    }
    bool RemoveEventSafely(Event* event)
    {
        const auto at = std::find(scheduled.begin(), scheduled.end(), event);
        if (at == scheduled.end())
            return false;
        scheduled.erase(at);
        return true;
    }
    void Remove(Event* event)
    {
        if (!RemoveEventSafely(event))
            repeat.remove(event);
    }
    bool Remove(std::uint32_t id)
    {
        for (auto* list : {&scheduled, &repeat})
            for (auto at = list->begin(); at != list->end(); ++at)
                if ((*at)->id == id)
                {
                    list->erase(at);
                    return true;
                }
        return false;
    }
    void Update(std::uint32_t now)
    {
        while (!scheduled.empty() && scheduled.front()->nextTime <= now)
        {
            Event* event = scheduled.front();
            const bool done = event->update();
            if (!RemoveEventSafely(event))
                continue;
            if (!done)
                repeat.push_back(event);
        }
        for (; !repeat.empty(); repeat.pop_front())
            Add(repeat.front());
    }
};

// What a program needs of either scheduler. Events are known by number.
struct PlainWorld
{
    PlainEvents events;
    std::map<unsigned, PlainEvents::Event*> made;

    explicit PlainWorld(bool owns) : events(owns) {}
    ~PlainWorld()
    {
        for (const auto& [number, event] : made)
            delete event;
    }
    void Make(unsigned number, std::uint32_t interval, std::uint32_t time, std::uint32_t id,
              std::function<bool()> update)
    {
        made[number] = new PlainEvents::Event{interval, time, id, std::move(update)};
    }
    void Move(unsigned number) { made[number]->nextTime += made[number]->interval; }
    void Destroy(unsigned) {}
};

struct BedrockWorld
{
    // The function lives outside, since events are freed as plain blocks.
    struct Event final : Events::Event
    {
        std::function<bool()>* update;
        Event(std::uint32_t period, std::uint32_t time, std::function<bool()>* function)
            : Events::Event(period, time), update(function)
        {
        }
        bool Update() override { return (*update)(); }
        using Events::Event::UpdateNext;
    };

    Events events;
    std::map<unsigned, Event*> made;
    std::list<std::function<bool()>> updates;

    explicit BedrockWorld(bool owns) : events(owns) {}
    void Make(unsigned number, std::uint32_t interval, std::uint32_t time, std::uint32_t id,
              std::function<bool()> update)
    {
        made[number] = new Event(interval, time, &updates.emplace_back(std::move(update)));
        made[number]->SetId(id);
    }
    void Move(unsigned number) { made[number]->UpdateNext(); }
    void Destroy(unsigned number) { delete made[number]; }
};

// One random program: it makes events, and what each does when it fires depends on the seed and on what went before. Its
// trace is all that can be seen of the scheduler.
template <class World>
class Program
{
public:
    Program(std::uint64_t seed, bool owns, std::uint32_t times) : random(seed), owning(owns), range(times), world(owns)
    {
    }

    std::vector<std::uint32_t> Run(unsigned events, unsigned updates)
    {
        while (next < events)
            Add(Pick(range));
        for (unsigned i = 0; i < updates; ++i)
        {
            trace.push_back(0xFFFF0000 + i);
            now += Pick(range / 8 + 2);
            depth = 0;
            world.events.Update(now);
        }
        for (const unsigned number : inHand)
            world.Destroy(number);
        if (!owning) // what fired for the last time, or was removed, is the caller's
            for (const unsigned number : left)
                world.Destroy(number);
        return trace;
    }

private:
    std::uint32_t Pick(std::uint32_t below) { return static_cast<std::uint32_t>(random() % below); }

    unsigned Any(const std::set<unsigned>& numbers)
    {
        auto at = numbers.begin();
        std::advance(at, Pick(static_cast<std::uint32_t>(numbers.size())));
        return *at;
    }

    void Add(std::uint32_t in)
    {
        const unsigned number = next++;
        world.Make(number, Pick(range / 2), now + in, number, [this, number] { return Fire(number); });
        world.events.Add(world.made[number]);
        listed.insert(number);
    }

    bool Fire(unsigned number)
    {
        trace.push_back(number);
        ++depth;
        const unsigned actions = Pick(4);
        bool moved = false;
        for (unsigned i = 0; i < actions; ++i)
            switch (Pick(8))
            {
            case 0:
                Add(Pick(range));
                break;
            case 1:
            {
                const unsigned id = Pick(3) == 0 ? number : Pick(next + 3);
                const bool found = world.events.Remove(id);
                trace.push_back(0xFFFE0000 + found);
                if (found)
                    listed.erase(id);
                if (found && !owning)
                    inHand.insert(id);
                break;
            }
            case 2:
                if (!listed.empty())
                {
                    const unsigned other = Pick(3) == 0 && listed.contains(number) ? number : Any(listed);
                    world.events.Remove(world.made[other]);
                    listed.erase(other);
                    inHand.insert(other);
                }
                break;
            case 3:
                if (!listed.empty())
                {
                    const unsigned other = Any(listed);
                    const bool found = world.events.RemoveEventSafely(world.made[other]);
                    trace.push_back(0xFFFD0000 + found);
                    if (found)
                    {
                        listed.erase(other);
                        inHand.insert(other);
                    }
                }
                break;
            case 4:
                if (!inHand.empty())
                {
                    const unsigned other = Any(inHand);
                    world.events.Add(world.made[other]);
                    inHand.erase(other);
                    listed.insert(other);
                }
                break;
            case 5: // also events that do not fire now
                if (Pick(4) == 0 && !listed.empty())
                    world.Move(Any(listed));
                break;
            default:
                if (!moved && (listed.contains(number) || inHand.contains(number)))
                    world.Move(number);
                moved = true;
            }
        if (depth < 3 && Pick(50) == 0)
            world.events.Update(now);
        const bool done = Pick(5) < 2;
        --depth;
        if (done && listed.contains(number))
        {
            listed.erase(number);
            left.insert(number);
        }
        return done;
    }

    std::mt19937_64 random;
    bool owning;
    std::uint32_t range;
    World world;
    std::uint32_t now = 0;
    unsigned next = 0, depth = 0;
    std::set<unsigned> listed, inHand, left;
    std::vector<std::uint32_t> trace;
};

// An event that notes its firing, and repeats as often as it is told.
struct Note final : Events::Event
{
    std::vector<int>& fired;
    int number;
    int times;
    Note(std::vector<int>& list, int which, std::uint32_t period, std::uint32_t time, int often = 1)
        : Event(period, time), fired(list), number(which), times(often)
    {
    }
    bool Update() override
    {
        fired.push_back(number);
        UpdateNext();
        return --times == 0;
    }
};

} // namespace

TEST(Events, RandomProgramsMatchPlainLists)
{
    std::mt19937_64 random = ::Test::Random(45);
    for (int program = 0; program < 300; ++program)
    {
        const std::uint64_t seed = random();
        const bool owning = program % 3 != 0;
        const unsigned events = program % 20 == 0 ? 1200 : 1 + static_cast<unsigned>(seed % 60);
        const std::uint32_t range = program % 4 == 0 ? 6 : 500; // many of one time, or few
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", " << events << " events, owning " << owning);
        const auto expected = Program<PlainWorld>(seed, owning, range).Run(events, 40);
        ASSERT_EQ(Program<BedrockWorld>(seed, owning, range).Run(events, 40), expected);
    }
}

TEST(EventHeap, KeepsTheOrderWhenTicketsRunOut)
{
    std::mt19937_64 random = ::Test::Random(46);
    for (std::uint32_t tickets = 0; tickets < 60; ++tickets)
    {
        EventHeap heap(tickets);
        std::list<std::pair<std::uint32_t, int>> list;
        DLListNode nodes[100];
        for (int i = 0; i < 100; ++i)
        {
            const auto time = static_cast<std::uint32_t>(random() % 8);
            ASSERT_TRUE(heap.Insert(&nodes[i], time));
            list.insert(std::find_if(list.begin(), list.end(), [time](auto& entry) { return entry.first >= time; }),
                        {time, i});
            if (random() % 4 == 0)
            {
                heap.Remove(&nodes[list.back().second]);
                list.pop_back();
            }
        }
        for (; !list.empty(); list.pop_front(), heap.RemoveFirst())
        {
            ASSERT_EQ(heap.First(), &nodes[list.front().second]);
            ASSERT_EQ(heap.FirstTime(), list.front().first);
        }
        EXPECT_EQ(heap.Count(), 0u);
    }
}

TEST(Events, FireInOrderAndWhenDue)
{
    std::vector<int> fired;
    const auto take = [&fired] { return std::exchange(fired, {}); };
    using Numbers = std::vector<int>;

    Events events;
    events.Add(new Note(fired, 1, 10, 100));
    events.Add(new Note(fired, 2, 10, 100));
    events.Add(new Note(fired, 3, 10, 0xFFFFFFFF));
    events.Update(99);
    EXPECT_EQ(take(), Numbers{});
    events.Update(100);
    EXPECT_EQ(take(), (Numbers{2, 1})); // of one time the last added first
    events.Update(0xFFFFFFFF);
    EXPECT_EQ(take(), Numbers{3});

    events.Add(new Note(fired, 4, 0, 5, 3)); // due again at once, and still once in a pass
    for (int pass = 0; pass < 4; ++pass)
        events.Update(1000);
    EXPECT_EQ(take(), (Numbers{4, 4, 4}));
}

TEST(Events, OfEqualIdsTheFirstInOrderGoes)
{
    Events events;
    std::vector<int> fired;
    Note event(fired, 0, 0, 0);
    events.GenerateId(&event);
    EXPECT_EQ(event.GetId(), 1u);

    auto* early = new Note(fired, 1, 0, 10);
    auto* late = new Note(fired, 2, 0, 20);
    early->SetId(7);
    late->SetId(7);
    events.Add(late);
    events.Add(early);
    EXPECT_TRUE(events.Remove(7));
    EXPECT_FALSE(events.Remove(8));
    events.Update(100);
    EXPECT_EQ(fired, std::vector<int>{2});
    EXPECT_FALSE(events.Remove(7));
}

TEST(Events, AnEventThatThrowsStaysAndFiresAgain)
{
    struct Thrower final : Events::Event
    {
        int& left;
        Thrower(int& throws, std::uint32_t time) : Event(1, time), left(throws) {}
        bool Update() override
        {
            if (left-- > 0)
                throw std::runtime_error("not yet");
            return true;
        }
    };
    std::vector<int> fired;
    int left = 2;
    Events events;
    events.Add(new Note(fired, 1, 0, 3));
    events.Add(new Thrower(left, 2));
    EXPECT_THROW(events.Update(5), std::runtime_error);
    EXPECT_THROW(events.Update(5), std::runtime_error);
    EXPECT_TRUE(fired.empty());
    events.Update(5);
    EXPECT_EQ(fired, std::vector<int>{1});
    EXPECT_EQ(left, -1);
}

TEST(Events, AnExhaustedHeapDelaysEventsAndLosesNone)
{
    for (const std::uint32_t served : {0u, 1u}) // no memory at all; none for more than a few
    {
        std::vector<int> fired, expected;
        Events events;
        std::vector<Note*> notes;
        for (int i = 0; i < 40; ++i)
            notes.push_back(new Note(fired, 140 - i, 1, static_cast<std::uint32_t>(140 - i), 2));
        {
            const AllocFailureForTest failure(served);
            for (Note* note : notes)
                events.Add(note);
            EXPECT_TRUE(AllocFailureForTest::HasFailed());
            events.Update(0);
        }
        for (const int i : {0, 17, 39})
        {
            events.Remove(notes[i]);
            delete notes[i];
        }
        events.Update(0);
        for (const int pass : {1, 2})
        {
            events.Update(1000);
            for (int number = 101; number <= 140; ++number)
                if (number != 140 && number != 123 && number != 101)
                    expected.push_back(number);
            EXPECT_EQ(fired, expected) << pass;
        }
        events.Update(2000);
        EXPECT_EQ(fired, expected);
    }
}
