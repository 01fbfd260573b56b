#include <Bedrock/memory/Alloc.h>

#include <gtest/gtest.h>

TEST(Alloc, GivesDistinctBlocks)
{
    void* a = Zem::Alloc::New(0);
    void* b = Zem::Alloc::New(0);
    EXPECT_NE(a, nullptr);
    EXPECT_NE(a, b);
    Zem::Alloc::Delete(a);
    Zem::Alloc::Delete(b);
}
