// Any bytes as a compressed block, expanded with a capacity from the first two.

#include <Bedrock/files/BPE.h>

#include "tests/files/PlainBPE.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace
{

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

// What is understood is what the plain decoder makes of it, into a block of exactly the capacity.
void ExpandForeign(std::uint32_t capacity, const std::uint8_t* data, std::uint32_t size)
{
    const auto src = std::make_unique<std::uint8_t[]>(size);
    std::copy(data, data + size, src.get());
    const auto dst = std::make_unique<std::uint8_t[]>(capacity);
    std::uint32_t written = 99;
    if (!Zem::BPE::DecompBounded(dst.get(), capacity, src.get(), size, written))
    {
        Require(written == 0);
        return;
    }
    Require(written <= capacity);
    const auto again = std::make_unique<std::uint8_t[]>(written);
    Require(Zem::BPE::Decomp(again.get(), src.get(), size) == written);
    Require(std::equal(dst.get(), dst.get() + written, again.get()));
    // The plain decoder's stack is exhausted by no sound table: a code waits on it once at most.
    Require(Plain::Decomp(again.get(), src.get(), size) == written);
    Require(std::equal(dst.get(), dst.get() + written, again.get()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size >= 2)
        ExpandForeign((data[0] | data[1] << 8) % 20000u, data + 2, static_cast<std::uint32_t>(size - 2));
    return 0;
}
