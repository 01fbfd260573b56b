#pragma once

// The codec in its plainest form: one table of pair counts that is scanned from end to end in each pass, one stack. The
// library's codec must give the same bytes; the benchmark takes this as its peer.

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace Plain
{

struct Work
{
    std::uint8_t buffer[2048];
    std::uint8_t leftCode[256];
    std::uint8_t rightCode[256];
    std::uint8_t left[4096];
    std::uint8_t right[4096];
    std::uint8_t count[4096];
    std::int32_t size;

    unsigned Lookup(std::uint8_t a, std::uint8_t b)
    {
        unsigned i = ((b & 0x7Fu) << 5) ^ a;
        while (count[i] != 0 && !(left[i] == a && right[i] == b))
            i = (i + 1) & 4095;
        left[i] = a;
        right[i] = b;
        return i;
    }
    void Increase(std::uint8_t a, std::uint8_t b)
    {
        const unsigned i = Lookup(a, b);
        if (count[i] != 255)
            ++count[i];
    }
    void Decrease(std::uint8_t a, std::uint8_t b)
    {
        const unsigned i = Lookup(a, b);
        if (count[i] > 1)
            --count[i];
    }
};

inline void Replace(Work& w, std::uint8_t l, std::uint8_t h, std::uint8_t code)
{
    const std::int32_t old = w.size - 1;
    std::int32_t from = 0, to = 0;
    while (from < old)
    {
        if (w.buffer[from] == l && w.buffer[from + 1] == h)
        {
            if (from > 0)
            {
                w.Decrease(w.buffer[to - 1], l);
                w.Increase(w.buffer[to - 1], code);
            }
            if (from < old - 1)
            {
                w.Decrease(h, w.buffer[from + 2]);
                w.Increase(code, w.buffer[from + 2]);
            }
            w.buffer[to++] = code;
            from += 2;
            --w.size;
        }
        else
            w.buffer[to++] = w.buffer[from++];
    }
    if (from == old)
        w.buffer[to] = w.buffer[from];
}

inline std::uint32_t CompWith(Work& w, std::uint8_t* dst, const std::uint8_t* src, std::uint32_t n)
{
    std::uint32_t in = 0, out = 0;
    bool fits = true;
    const auto put = [&](unsigned byte)
    {
        if (out < n)
            dst[out] = static_cast<std::uint8_t>(byte);
        else
            fits = false;
        ++out;
    };
    while (in < n)
    {
        std::memset(w.count, 0, sizeof w.count);
        std::memset(w.rightCode, 0, sizeof w.rightCode);
        for (int i = 0; i < 256; ++i)
            w.leftCode[i] = static_cast<std::uint8_t>(i);
        w.size = 0;
        int used = 0;
        while (w.size < 2048 && used != 210 && in < n)
        {
            const std::uint8_t c = src[in++];
            if (w.size > 0)
                w.Increase(w.buffer[w.size - 1], c);
            w.buffer[w.size++] = c;
            if (w.rightCode[c] == 0)
            {
                w.rightCode[c] = 1;
                ++used;
            }
        }

        int code = 255;
        for (;;)
        {
            do
                --code;
            while (code >= 0 && !(w.leftCode[code] == code && w.rightCode[code] == 0));
            if (code < 0)
                break;
            int best = 2, slot = 0;
            for (int i = 0; i < 4096; ++i)
                if (w.count[i] > best)
                {
                    best = w.count[i];
                    slot = i;
                }
            if (best < 3)
                break;
            const std::uint8_t l = w.left[slot], h = w.right[slot];
            Replace(w, l, h, static_cast<std::uint8_t>(code));
            w.leftCode[code] = l;
            w.rightCode[code] = h;
            w.count[w.Lookup(l, h)] = 1;
        }

        const auto isPair = [&](int c) { return w.leftCode[c] != c; };
        int c = 0;
        while (c < 256)
        {
            int run = 0;
            if (!isPair(c))
            {
                do
                {
                    ++run;
                    ++c;
                } while (c < 256 && run < 127 && !isPair(c));
                put(static_cast<unsigned>(run + 127));
                continue;
            }
            const int first = c++;
            while ((run < 127 && c < 256 && isPair(c)) || (run < 125 && c < 254 && isPair(c + 1)))
            {
                ++run;
                ++c;
            }
            put(static_cast<unsigned>(run));
            for (int i = first; i <= first + run; ++i)
            {
                put(w.leftCode[i]);
                if (isPair(i))
                    put(w.rightCode[i]);
            }
        }
        put(static_cast<unsigned>(w.size) >> 8);
        put(static_cast<unsigned>(w.size) & 0xFF);
        for (std::int32_t i = 0; i < w.size; ++i)
            put(w.buffer[i]);
        if (!fits || out >= n)
        {
            std::memcpy(dst, src, n);
            return n;
        }
    }
    return out;
}

inline std::uint32_t Comp(void* dst, const void* src, std::uint32_t n)
{
    if (n == 0)
        return 0;
    auto* work = static_cast<Work*>(std::malloc(sizeof(Work)));
    const std::uint32_t result =
        CompWith(*work, static_cast<std::uint8_t*>(dst), static_cast<const std::uint8_t*>(src), n);
    std::free(work);
    return result;
}

// For what Comp wrote alone: no bound is checked.
inline std::uint32_t Decomp(void* dst, const void* src, std::uint32_t n)
{
    const auto* in = static_cast<const std::uint8_t*>(src);
    const auto* end = in + n;
    auto* out = static_cast<std::uint8_t*>(dst);
    std::uint8_t identity[256], left[256], right[256], stack[256];
    for (int i = 0; i < 256; ++i)
        identity[i] = static_cast<std::uint8_t>(i);
    while (in < end)
    {
        std::memcpy(left, identity, sizeof left);
        for (int c = 0; c < 256;)
        {
            int group = *in++;
            if (group > 127)
            {
                c += group - 127;
                continue;
            }
            for (; group >= 0; --group, ++c)
            {
                left[c] = *in++;
                if (left[c] != c)
                    right[c] = *in++;
            }
        }
        unsigned size = *in++;
        size = size << 8 | *in++;
        unsigned depth = 0;
        for (;;)
        {
            unsigned code;
            if (depth > 0)
                code = stack[--depth];
            else if (size > 0)
            {
                --size;
                code = *in++;
            }
            else
                break;
            if (left[code] == code)
                *out++ = static_cast<std::uint8_t>(code);
            else
            {
                stack[depth++] = right[code];
                stack[depth++] = left[code];
            }
        }
    }
    return static_cast<std::uint32_t>(out - static_cast<std::uint8_t*>(dst));
}

} // namespace Plain
