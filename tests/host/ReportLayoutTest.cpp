#include <Bedrock/host/ReportLayout.h>

#include "support/Support.h"

namespace Zem
{

static void PrintTo(const Rect& r, std::ostream* out)
{
    *out << r.x << ',' << r.y << ' ' << r.width << 'x' << r.height;
}

} // namespace Zem

namespace
{

using namespace Zem;
using Layout = ReportLayout;

constexpr Layout::DialogUnits units(364, 14); // 7 by 14, what the font gives at 96 dots an inch

std::vector<Rect> Resized(Layout& layout, Layout::SizeKind kind, Size client)
{
    std::vector<Rect> strips;
    layout.OnSize(kind, client, [&](const Rect& strip) { strips.push_back(strip); });
    return strips;
}

// Pixels from dialog units: the average letter is rounded to a whole pixel, edges to the nearest with halves up.
TEST(ReportLayout, TurnsDialogUnitsIntoPixels)
{
    const struct
    {
        const char* what;
        int alphabet, height;
        Size window;
        Rect button, list;
    } rows[] = {
        {"7 by 14", 364, 14, {599, 450}, {497, 11, 89, 23}, {12, 89, 574, 348}},
        {"7 by 13", 364, 13, {599, 418}, {497, 10, 89, 21}, {12, 83, 574, 323}},
        {"6.98 letters count 7", 363, 14, {599, 450}, {497, 11, 89, 23}, {12, 89, 574, 348}},
        {"6.4 letters count 6", 333, 16, {513, 514}, {426, 12, 77, 26}, {11, 102, 492, 398}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        const Layout::DialogUnits font(row.alphabet, row.height);
        EXPECT_EQ(Layout::InitialSize(font), row.window);
        const Layout layout(font, row.window);
        EXPECT_EQ(layout.Place(Layout::ContinueButton), row.button);
        EXPECT_EQ(layout.Place(Layout::List), row.list);
    }
}

TEST(ReportLayout, InvalidatesThreeStripsOfTheOldSizeAndWhatWasAdded)
{
    const struct
    {
        const char* what;
        Layout::SizeKind kind;
        Size from, to;
        std::vector<Rect> strips;
    } rows[] = {
        {"grows both ways",
         Layout::Shown,
         {599, 450},
         {609, 470},
         {{567, 85, 42, 365}, {0, 418, 567, 52}, {459, 0, 150, 85}}},
        {"grows down",
         Layout::Shown,
         {599, 450},
         {599, 451},
         {{567, 85, 32, 365}, {0, 418, 567, 33}, {459, 0, 140, 85}}},
        {"shrinks", Layout::Shown, {700, 500}, {650, 460}, {{668, 85, 32, 415}, {0, 468, 668, 32}, {560, 0, 140, 85}}},
        {"narrower and taller",
         Layout::Shown,
         {700, 500},
         {690, 510},
         {{668, 85, 32, 415}, {0, 468, 668, 42}, {560, 0, 140, 85}}},
        {"maximised",
         Layout::Maximised,
         {599, 450},
         {609, 470},
         {{567, 85, 42, 365}, {0, 418, 567, 52}, {459, 0, 150, 85}}},
        {"the same size", Layout::Shown, {700, 500}, {700, 500}, {}},
        {"minimised", Layout::Minimised, {700, 500}, {0, 0}, {}},
        {"hidden", Layout::Hidden, {700, 500}, {0, 0}, {}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Layout layout(units, {607, 480});
        Resized(layout, Layout::Shown, row.from);
        EXPECT_EQ(Resized(layout, row.kind, row.to), row.strips);
        EXPECT_EQ(layout.SmallestSize(), (Size{607, 480})) << "what the user does leaves the limit alone";
    }
}

// Whatever the way to a size, everything keeps its distances to the edges that it hangs on.
TEST(ReportLayout, ControlsHangOnTheirEdges)
{
    auto random = ::Test::Random();
    Layout layout(units, {599, 450});
    Size client{599, 450};
    for (int i = 0; i < 1000; ++i)
    {
        const auto kind = static_cast<Layout::SizeKind>(random() % 4);
        const Size next{static_cast<int>(599 + random() % 1500), static_cast<int>(450 + random() % 1000)};
        Resized(layout, kind, next);
        if (kind == Layout::Shown || kind == Layout::Maximised)
            client = next;
        ASSERT_EQ(layout.Place(Layout::ContinueButton), Rect(client.width - 102, 11, 89, 23));
        ASSERT_EQ(layout.Place(Layout::TerminateButton), Rect(client.width - 102, 35, 89, 23));
        ASSERT_EQ(layout.Place(Layout::List), Rect(12, 89, client.width - 25, client.height - 102));
        ASSERT_EQ(layout.Place(Layout::Explanation), Rect(12, 11, 473, 51));
        ASSERT_EQ(layout.Place(Layout::Heading), Rect(12, 68, 123, 14));
        ASSERT_EQ(layout.Grip(Layout::Shown), Rect(client.width - 15, client.height - 15, 15, 15));
    }
    EXPECT_TRUE(layout.Grip(Layout::Maximised).IsEmpty());
    EXPECT_TRUE(layout.Grip(Layout::Minimised).IsEmpty());
}

TEST(ReportLayout, CommandsEndTheDialogOrDoNot)
{
    const struct
    {
        int command, result;
    } rows[] = {{1003, 0}, {1004, 1}, {2, 1}, {1, -1}, {1002, -1}, {0, -1}, {-1, -1}};
    for (const auto& row : rows)
        EXPECT_EQ(Layout::ResultOf(row.command), row.result) << row.command;
}

// Each group of lines begins a new measure; within it only a wider line counts.
TEST(ReportLayout, ExtentFollowsTheWidestLineOfTheLastGroup)
{
    const struct
    {
        const char* what;
        int border;
        std::vector<std::vector<int>> groups;
        int extent;
    } rows[] = {
        {"no line", 1, {}, 0},
        {"one line", 1, {{100}}, 103},
        {"a wider one", 1, {{100, 200, 150}}, 203},
        {"a wide border", 2, {{100}}, 106},
        {"the last group", 1, {{500}, {3, 80}}, 83},
        {"a line of no width", 1, {{500}, {0}}, 503},
        {"no border", 0, {{100, 200}}, 0},
    };
    for (const auto& row : rows)
    {
        ReportExtent extent(row.border);
        for (const auto& group : row.groups)
        {
            extent.BeginGroup();
            for (int width : group)
                extent.Add(width);
        }
        EXPECT_EQ(extent.Extent(), row.extent) << row.what;
    }
}

// Any bytes are a report; '|' stands before each line here and "||" before one that starts a group.
TEST(ReportLayout, ReaderFindsLinesAndGroupsInAnyText)
{
    const struct
    {
        const char* text;
        const char* lines;
    } rows[] = {
        {"", ""},
        {"\n\r\n\n", ""},
        {"one", "||one"},
        {"one\n", "||one"},
        {"one\n\ntwo\nthree\n\n", "||one||two|three"},
        {"one\r\ntwo\r\n\r\nthree", "||one|two||three"},
        {"\n\n\none\n\n\n\ntwo", "||one||two"},
        {"a\rb", "||a|b"},
        {" \n \n", "|| | "},
    };
    for (const auto& row : rows)
    {
        const std::string text = row.text;
        const auto block = ::Test::Exact(text);
        ReportReader reader(reinterpret_cast<const char*>(block.get()), static_cast<std::uint32_t>(text.size()));
        std::string lines;
        for (ReportReader::Line line; reader.Next(line);)
            lines += (line.startsGroup ? "||" : "|") + std::string(line.text, line.length);
        EXPECT_EQ(lines, row.lines);
    }
}

} // namespace
