// The codec on any bytes, in two ways that the first byte chooses:
//   0   compressed as they are: the bytes of the plain codec, and back again
//   1   the same after an expansion by repeats, which reaches long blocks with many passes from few bytes

#include <Bedrock/files/BPE.h>

// The plain codec is trusted: without the sanitizers it takes a tenth of the time.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("address", "undefined", "coverage"))), apply_to = function)
#endif
#include "tests/files/PlainBPE.h"
#if defined(__clang__)
#pragma clang attribute pop
#endif

#include <cstdlib>
#include <memory>
#include <vector>

namespace
{

using Bytes = std::vector<std::uint8_t>;

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

void RoundTrip(const Bytes& input)
{
    const auto n = static_cast<std::uint32_t>(input.size());
    const auto packed = std::make_unique<std::uint8_t[]>(n);
    const auto plain = std::make_unique<std::uint8_t[]>(n);
    const std::uint32_t size = Zem::BPE::Comp(packed.get(), input.data(), n);
    Require(size == Plain::Comp(plain.get(), input.data(), n));
    Require(std::equal(packed.get(), packed.get() + size, plain.get()));
    if (size == n)
        return;

    const auto expanded = std::make_unique<std::uint8_t[]>(n);
    const auto exact = std::make_unique<std::uint8_t[]>(size);
    std::copy(packed.get(), packed.get() + size, exact.get());
    Require(Zem::BPE::Decomp(expanded.get(), exact.get(), size) == n);
    Require(std::equal(input.begin(), input.end(), expanded.get()));
    std::uint32_t written = 0;
    Require(Zem::BPE::DecompBounded(expanded.get(), n, exact.get(), size, written) && written == n);
    Require(!Zem::BPE::DecompBounded(expanded.get(), n - 1, exact.get(), size, written) && written == 0);
}

// (count, length) pairs followed by `length` bytes that repeat `count` times, up to a little more than two
// blocks.
Bytes Unroll(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t longest = 4500;
    Bytes all;
    while (size > 2 && all.size() < longest)
    {
        const std::size_t count = data[0] % 64u + 1, length = std::min<std::size_t>(data[1] % 16u + 1, size - 2);
        for (std::size_t i = 0; i < count; ++i)
            all.insert(all.end(), data + 2, data + 2 + length);
        data += 2 + length;
        size -= 2 + length;
    }
    all.resize(std::min<std::size_t>(all.size(), longest));
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    if (data[0] % 2 == 0)
        RoundTrip(Bytes(data + 1, data + size));
    else
        RoundTrip(Unroll(data + 1, size - 1));
    return 0;
}
