#include <Bedrock/host/Exception.h>
#include <Bedrock/host/ResultClass.h>

#include "support/Support.h"

#include <type_traits>

namespace
{

using Zem::Exception;
using Zem::FileEx;
using Zem::ResultClass;
using Zem::ResultTable;

static_assert(std::is_trivially_destructible_v<FileEx>);
static_assert(std::is_nothrow_copy_constructible_v<FileEx>);

struct BarrierFile
{
    enum Results
    {
        RES_OK,
        RES_UNKNOWN,
        RES_GONE
    };
    static constexpr ResultTable results[] = {
        {"RES_UNKNOWN", "Unknown"}, {"RES_GONE", "It is gone"}, {nullptr, nullptr}};
    static constexpr ResultTable texts[] = {{nullptr, "Unknown"}, {nullptr, "It is gone"}, {nullptr, nullptr}};
};
using Result = ResultClass<BarrierFile::results, BarrierFile::Results>;
using TextResult = ResultClass<BarrierFile::texts, BarrierFile::Results>;

static_assert(sizeof(Result) == 4 && std::is_trivially_copyable_v<Result>);
static_assert(std::is_convertible_v<Result, BarrierFile::Results>);
static_assert(!std::is_convertible_v<Result, bool>, "would be true on failure");

// Every setter keeps to its buffer, whatever it is given, and what follows the buffer stays.
TEST(Exception, CutsTextsAtTheirBuffers)
{
    const std::string longText(5000, 'x');
    const struct
    {
        const char* what;
        void (*act)(Exception&, const char*);
        std::string reason, description;
    } rows[] = {
        {"reason from the constructor", [](Exception& e, const char* s) { e = Exception("File", 7, s); },
         std::string(255, 'x'), "No call stack available\r\n"},
        {"set reason", [](Exception& e, const char* s) { e.SetReasonf("%d%s", 5, s); }, "5" + std::string(254, 'x'),
         "D"},
        {"add to a reason", [](Exception& e, const char* s) { e.AddReasonf("%s", s); },
         "R  -  " + std::string(249, 'x'), "D"},
        {"add where the separator just begins",
         [](Exception& e, const char* s)
         {
             e.SetReasonf("%.253s", s);
             e.AddReasonf("%s", s);
         },
         std::string(253, 'x') + "  ", "D"},
        {"add to a full reason",
         [](Exception& e, const char* s)
         {
             e.SetReasonf("%s", s);
             e.AddReasonf("y");
         },
         std::string(255, 'x'), "D"},
        {"set description", [](Exception& e, const char* s) { e.SetDescriptionf("%s%s", "a", s); }, "R",
         "a" + std::string(4094, 'x')},
        {"the reason in its own reason", [](Exception& e, const char*) { e.SetReasonf("<%s>", e.Reason()); }, "<R>",
         "D"},
        {"the reason behind itself", [](Exception& e, const char*) { e.AddReasonf("%s!", e.Reason()); }, "R  -  R!",
         "D"},
        {"the description in its own",
         [](Exception& e, const char*) { e.SetDescriptionf("%s%s", e.Description(), e.Description()); }, "R", "DD"},
        {"no reason at all", [](Exception& e, const char*) { e = Exception("File", 7, nullptr); }, "",
         "No call stack available\r\n"},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        Exception e("File", 7);
        e.SetReasonf("R");
        e.SetDescriptionf("D");
        row.act(e, longText.c_str());
        EXPECT_EQ(e.Reason(), row.reason);
        EXPECT_EQ(e.Description(), row.description);
        EXPECT_EQ(e.Line(), 7);
        EXPECT_STREQ(e.File(), "File");
        EXPECT_FALSE(e.IsHardwareException());
    }
}

TEST(Exception, StartsAsToldAndSeparatesReasons)
{
    Exception empty;
    EXPECT_STREQ(empty.Description(), "");
    empty.AddReasonf("disk %d", 3);
    EXPECT_STREQ(empty.Reason(), "  -  disk 3");
    empty.SetHardwareException(true);
    EXPECT_TRUE(empty.IsHardwareException() && empty.HardwareException());

    FileEx file("File", 42, "Read() File is not open");
    file.AddReasonf("%s", "a.txt");
    file.InitMembers();
    EXPECT_STREQ(file.Class(), "File");
    EXPECT_STREQ(file.Reason(), "");
    EXPECT_STREQ(file.Description(), "");
    EXPECT_EQ(file.File(), nullptr);
    EXPECT_EQ(file.Line(), 0);
}

// Thrown by value, caught by reference to the base: the class word is that of the thrown object, and of a copy its own.
TEST(Exception, KeepsItsClassWhenThrownAndNotWhenSliced)
{
    try
    {
        throw FileEx("File", 42, "Read() File is not open");
    }
    catch (Exception& e)
    {
        EXPECT_STREQ(e.Class(), "File");
        const Exception copy(e);
        EXPECT_STREQ(copy.Class(), "Unknown");
        EXPECT_STREQ(copy.Reason(), "Read() File is not open");
        FileEx other("Other", 1);
        static_cast<Exception&>(other) = copy;
        EXPECT_STREQ(other.Class(), "File");
        EXPECT_EQ(other.Line(), 42);
    }
}

TEST(ResultClass, FindsTheRowOfItsCodeAndNothingBehindTheTable)
{
    const struct
    {
        std::int32_t code;
        const char* symbol;
        const char* text;
    } rows[] = {{0, "", ""},  {1, "RES_UNKNOWN", "Unknown"}, {2, "RES_GONE", "It is gone"}, {3, "", ""}, {4, "", ""},
                {-1, "", ""}, {0x7FFFFFFF, "", ""}};
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.code);
        const Result result = static_cast<BarrierFile::Results>(row.code);
        EXPECT_STREQ(result.Symbol(), row.symbol);
        EXPECT_STREQ(result.Text(), row.text);
        EXPECT_EQ(static_cast<bool>(result), row.code == 0);
        EXPECT_TRUE(result == row.code);
        const TextResult text = static_cast<BarrierFile::Results>(row.code);
        EXPECT_STREQ(text.Symbol(), "");
        EXPECT_STREQ(text.Text(), row.text);
    }
    EXPECT_TRUE(Result(BarrierFile::RES_GONE) == BarrierFile::RES_GONE);
    if (Result result = BarrierFile::RES_GONE; result)
        FAIL() << "a failure is no success";
}

} // namespace
