#include <Bedrock/maths/OptimalRects.h>
#include <Bedrock/memory/AllocReport.h>

#include "support/Support.h"

#include <algorithm>
#include <deque>
#include <ostream>
#include <vector>

namespace Zem
{

void PrintTo(const Rect& r, std::ostream* out)
{
    *out << '(' << r.x << ' ' << r.y << ' ' << r.width << ' ' << r.height << ')';
}

namespace
{

// The rules long-hand: every step walks the whole list, and the side code is built bit by bit.
class Model
{
public:
    std::vector<Rect> rects;
    std::deque<Rect> pending;

    void Invalidate(const Rect& r)
    {
        if (r.x < 0 || r.y < 0 || r.width < 1 || r.height < 1)
            return;
        if (rects.empty())
            return rects.push_back(r);
        pending.push_back(r);
        Process();
    }
    void Process()
    {
        while (!pending.empty())
        {
            const Rect r = pending.front();
            pending.pop_front();
            const auto c = std::find_if(rects.begin(), rects.end(), [&](const Rect& old) { return Code(r, old) < 16; });
            if (c == rects.end())
                rects.push_back(r);
            else if (!Cut(r, *c))
                rects.erase(c);
        }
    }

private:
    static int Code(const Rect& r, const Rect& c)
    {
        const std::int64_t right = std::int64_t{r.x} + r.width - 1, bottom = std::int64_t{r.y} + r.height - 1;
        const std::int64_t cright = std::int64_t{c.x} + c.width - 1, cbottom = std::int64_t{c.y} + c.height - 1;
        int code = 0;
        if (r.x < c.x)
            code += right < c.x ? 16 : 1;
        if (right > cright)
            code += r.x > cright ? 32 : 2;
        if (r.y < c.y)
            code += bottom < c.y ? 64 : 4;
        if (bottom > cbottom)
            code += r.y > cbottom ? 128 : 8;
        return code;
    }
    void Push(std::int32_t left, std::int32_t top, std::int32_t width, std::int32_t height)
    {
        pending.emplace_back(left, top, width, height);
    }
    // False: `c` is used up.
    bool Cut(Rect r, Rect& c)
    {
        const std::int32_t right = r.x + r.width - 1, bottom = r.y + r.height - 1;
        const std::int32_t cright = c.x + c.width - 1, cbottom = c.y + c.height - 1;
        bool keep = true;
        switch (Code(r, c))
        {
        case 0:
            return true;
        case 1:
            r.width = c.x - r.x;
            break;
        case 2:
            r.width = right - cright;
            r.x = c.x + c.width;
            break;
        case 3:
            Push(cright, r.y, right - cright + 1, r.height);
            r.width = c.x - r.x;
            break;
        case 4:
            r.height = c.y - r.y;
            break;
        case 5:
            Push(r.x, c.y, c.x - r.x, bottom - c.y + 1);
            r.height = c.y - r.y;
            break;
        case 6:
            Push(cright, c.y, right - cright + 1, bottom - c.y + 1);
            r.height = c.y - r.y;
            break;
        case 7:
        {
            const std::int32_t d = r.y + r.height - c.y;
            c.y += d;
            c.height -= d;
            keep = c.height >= 1;
            break;
        }
        case 8:
            r.height = bottom - cbottom;
            r.y = c.y + c.height;
            break;
        case 9:
            Push(r.x, r.y, c.x - r.x, cbottom - r.y + 1);
            r.height = bottom - cbottom;
            r.y = c.y + c.height;
            break;
        case 10:
            Push(cright, r.y, right - cright + 1, cbottom - r.y + 1);
            r.height = bottom - cbottom;
            r.y = c.y + c.height;
            break;
        case 11:
            c.height = r.y - c.y;
            keep = c.height >= 1;
            break;
        case 12:
            Push(r.x, cbottom, r.width, bottom - cbottom + 1);
            r.height = c.y - r.y;
            break;
        case 13:
        {
            const std::int32_t d = r.x + r.width - c.x;
            c.x += d;
            c.width -= d;
            keep = c.width >= 1;
            break;
        }
        case 14:
            c.width = r.x - c.x;
            keep = c.width >= 1;
            break;
        default:
            keep = false;
            break;
        }
        pending.push_back(r);
        return keep;
    }
};

std::vector<Rect> List(const OptimalRects& set)
{
    return {set.begin(), set.end()};
}

class Queued : public OptimalRects
{
public:
    using OptimalRects::Queue;
};

// A screen that counts how often each pixel is covered.
class Screen
{
public:
    Screen(int columns, int rows)
        : width(columns), counts(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows))
    {
    }
    void Add(const Rect& r)
    {
        for (int y = r.y; y < r.y + r.height; ++y)
            for (int x = r.x; x < r.x + r.width; ++x)
                ++counts[static_cast<std::size_t>(y * width + x)];
    }
    std::vector<int> Union() const
    {
        std::vector<int> result(counts.size());
        std::transform(counts.begin(), counts.end(), result.begin(), [](int n) { return n != 0; });
        return result;
    }
    int width;
    std::vector<int> counts;
};

// What a newcomer does to one old rectangle, (10, 10, 10, 10), and to a crowd.
TEST(OptimalRects, CutsTheNewcomerOrTheOld)
{
    const struct
    {
        const char* what;
        std::vector<Rect> in, out;
    } rows[] = {
        {"invalid ones", {{-1, 0, 5, 5}, {0, -1, 5, 5}, {0, 0, 0, 5}, {0, 0, 5, 0}, {3, 3, -2, 9}}, {}},
        {"inside, and again", {{10, 10, 10, 10}, {12, 12, 3, 3}, {10, 10, 10, 10}}, {{10, 10, 10, 10}}},
        {"across", {{10, 10, 10, 10}, {5, 12, 20, 2}}, {{10, 10, 10, 10}, {5, 12, 5, 2}, {20, 12, 5, 2}}},
        {"down", {{10, 10, 10, 10}, {12, 5, 2, 20}}, {{10, 10, 10, 10}, {12, 5, 2, 5}, {12, 20, 2, 5}}},
        {"over the top", {{10, 10, 10, 10}, {5, 5, 20, 8}}, {{10, 13, 10, 7}, {5, 5, 20, 8}}},
        {"all but nothing of it", {{10, 10, 10, 10}, {5, 5, 20, 15}}, {{5, 5, 20, 15}}},
        {"only touching",
         {{10, 10, 10, 10}, {20, 10, 5, 10}, {0, 20, 30, 1}},
         {{10, 10, 10, 10}, {20, 10, 5, 10}, {0, 20, 30, 1}}},
        {"covers several", {{1, 1, 2, 2}, {8, 1, 2, 2}, {1, 8, 2, 2}, {0, 0, 20, 20}}, {{0, 0, 20, 20}}},
        {"past the last coordinate",
         {{INT32_MAX - 1, 5, 10, 1}, {INT32_MAX, 0, INT32_MAX, 9}, {5, INT32_MAX, 1, 3}},
         {{INT32_MAX - 1, 5, 2, 1}, {INT32_MAX, 0, 1, 5}, {INT32_MAX, 6, 1, 3}, {5, INT32_MAX, 1, 1}}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        OptimalRects set;
        for (const Rect& r : row.in)
            set.Invalidate(r);
        set.Process();
        set.Validate(Rect(0, 0, 100, 100));
        EXPECT_EQ(List(set), row.out);
        EXPECT_EQ(set.Count(), row.out.size());
        set.Clear();
        EXPECT_EQ(set.begin(), set.end());
    }
}

// Random sequences against the model, to the order of the list; where there is a screen, also by counting pixels.
TEST(OptimalRects, KeepsTheListOfTheRulesAndEachPixelOnce)
{
    const struct
    {
        const char* what;
        int width, height, most, calls, rounds;
        bool pixels;
    } rows[] = {
        {"crowded", 64, 48, 20, 60, 60, true},
        {"small on a screen", 1280, 720, 24, 1500, 2, true},
        {"dense", 400, 400, 40, 800, 3, true},
        {"pixels", 60, 60, 2, 1500, 3, true},
        {"lines", 300, 300, 300, 400, 3, true},
        {"to the last coordinate", INT32_MAX, INT32_MAX, 1 << 28, 500, 3, false},
        {"far apart", INT32_MAX, INT32_MAX, 40, 500, 1, false},
    };
    auto random = ::Test::Random(0x0471);
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        OptimalRects set; // one for all rounds, as for the frames of an application
        for (int round = 0; round < row.rounds; ++round)
        {
            set.Clear();
            Model model;
            Screen asked(row.pixels ? row.width : 0, row.pixels ? row.height : 0), painted = asked;
            for (int i = 0; i < row.calls; ++i)
            {
                // Mostly up to `most` long; lines in one direction; now and then a huge one, which swallows many.
                const bool huge = random() % 200 == 0;
                const auto extent = [&](int most)
                { return 1 + static_cast<int>(random() % static_cast<unsigned>(most)); };
                int width = extent(huge ? row.width / 2 : row.most);
                int height = extent(huge ? row.height / 2 : row.most);
                if (row.most == row.width)
                    (i % 2 ? width : height) = 1;
                const Rect r(static_cast<int>(random() % (static_cast<unsigned>(row.width - width) + 1)),
                             static_cast<int>(random() % (static_cast<unsigned>(row.height - height) + 1)), width,
                             height);
                set.Invalidate(r);
                model.Invalidate(r);
                if (row.pixels)
                    asked.Add(r);
                if (i % 64 == 0)
                {
                    ASSERT_EQ(List(set), model.rects) << "after call " << i;
                }
            }
            ASSERT_EQ(List(set), model.rects);
            EXPECT_EQ(set.Count(), model.rects.size());
            if (row.pixels)
            {
                for (const Rect& r : set)
                    painted.Add(r);
                EXPECT_EQ(painted.counts, asked.Union());
            }
        }
    }
}

// Pieces of many newcomers wait together here, so each of them looks through the whole list.
TEST(OptimalRects, ProcessCutsWhatWaits)
{
    auto random = ::Test::Random(0x0472);
    Queued set;
    Model model;
    const auto draw = [&]
    {
        return Rect(static_cast<int>(random() % 100), static_cast<int>(random() % 100),
                    1 + static_cast<int>(random() % 30), 1 + static_cast<int>(random() % 30));
    };
    for (int round = 0; round < 40; ++round)
    {
        for (int i = 0; i < 10; ++i)
        {
            const Rect r = draw();
            set.Queue(r);
            model.pending.push_back(r);
        }
        set.Queue(Rect(0, 0, 0, 7));
        if (round % 2)
        {
            set.Process();
            model.Process();
        }
        else
        {
            const Rect r = draw();
            set.Invalidate(r);
            model.Invalidate(r);
        }
        ASSERT_EQ(List(set), model.rects) << round;
    }
    set.Queue(draw()); // freed with the set
}

// Memory runs out at any point of a call, while the list is short, long, and just long enough to be looked up by place.
TEST(OptimalRects, StaysSoundWithoutMemory)
{
    auto random = ::Test::Random(0x0473);
    const auto draw = [&](int most)
    {
        return Rect(static_cast<int>(random() % 80), static_cast<int>(random() % 80),
                    1 + static_cast<int>(random() % static_cast<unsigned>(most)),
                    1 + static_cast<int>(random() % static_cast<unsigned>(most)));
    };
    int whole = 0, cut = 0;
    for (const std::size_t held : {3u, 23u, 24u, 47u, 300u})
        for (std::uint32_t turn = 0; turn < 60; ++turn)
        {
            SCOPED_TRACE(testing::Message() << held << " rectangles, turn " << turn);
            OptimalRects set;
            Model model;
            while (model.rects.size() < held)
            {
                const Rect r = draw(10);
                set.Invalidate(r);
                model.Invalidate(r);
            }
            Screen most(160, 160), painted(160, 160);
            const Rect r = draw(40);
            most.Add(r);
            for (const Rect& old : set)
                most.Add(old);
            {
                const AllocFailureForTest failure(turn % 6);
                set.Invalidate(r);
            }
            model.Invalidate(r);
            const bool equal = List(set) == model.rects;
            ++(equal ? whole : cut);
            for (const Rect& c : set)
                painted.Add(c);
            for (std::size_t i = 0; i < painted.counts.size(); ++i)
            {
                ASSERT_LE(painted.counts[i], most.counts[i] ? 1 : 0);
                ASSERT_TRUE(!equal || painted.counts[i] == (most.counts[i] ? 1 : 0));
            }
            model.rects = List(set);
            for (int i = 0; i < 40; ++i) // and all is well again
            {
                const Rect next = draw(20);
                set.Invalidate(next);
                model.Invalidate(next);
            }
            ASSERT_EQ(List(set), model.rects);
        }
    EXPECT_GT(whole, 10);
    EXPECT_GT(cut, 10);
}

} // namespace
} // namespace Zem
