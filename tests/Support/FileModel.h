/// A file held to a plain array of bytes, whatever the calls that reach it. Several handles may be open on it.
#pragma once

#include "R_Files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace rv::test {

struct FileCalls {
    R_INT (*read)(R_INT64 file, void* to, R_UINT count);
    R_INT (*write)(R_INT64 file, const void* from, R_UINT count);
    R_INT64 (*seek)(R_INT64 file, R_INT64 distance, R_INT origin);
};

class FileModel {
public:
    using Bytes = std::vector<uint8_t>;
    FileModel(const FileCalls& calls, unsigned seed, size_t mostSought = 200000)
        : random(seed), calls_(calls), mostSought_(mostSought)
    {
    }
    /// Does a random thing until it succeeds: a failure must have left the position, and lost nothing.
    void step(R_INT64 file, size_t& at)
    {
        switch (random() % 8) {
        case 0:
            if (random() % 3 == 0) break;
            again(file, at, [&] { return calls_.write(file, nullptr, 0) == 0; });
            content.resize(at);
            break;
        case 1:
        case 2:
        case 3: write(file, at, someBytes(length())); break;
        case 4:
        case 5: read(file, at, length()); break;
        default: seek(file, at);
        }
        EXPECT_EQ(calls_.seek(file, 0, FILE_FROM_CURRENT), static_cast<R_INT64>(at));
    }
    Bytes someBytes(size_t count)
    {
        const auto first = static_cast<size_t>(random());
        Bytes bytes(count);
        for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(first + i * 7 + i / 256);
        return bytes;
    }

    Bytes content;
    std::mt19937 random;
    int mostTries = 1; ///< of one thing

private:
    size_t length()
    {
        constexpr size_t kLengths[] = {1, 2, 511, 32766, 32767, 32768, 32769, 65536, 150000};
        return random() % 2 == 0 ? 1 + random() % 3000 : kLengths[random() % std::size(kLengths)];
    }
    template <class Try> void again(R_INT64 file, size_t at, Try works)
    {
        for (int tries = 0; !works();) {
            ASSERT_LT(++tries, mostTries);
            ASSERT_EQ(calls_.seek(file, 0, FILE_FROM_CURRENT), static_cast<R_INT64>(at));
        }
    }
    void write(R_INT64 file, size_t& at, const Bytes& bytes)
    {
        const auto count = static_cast<R_UINT>(bytes.size());
        again(file, at, [&] { return calls_.write(file, bytes.data(), count) == static_cast<R_INT>(count); });
        content.resize(std::max(content.size(), at + count));
        std::copy(bytes.begin(), bytes.end(), content.begin() + static_cast<R_INT64>(at));
        at += count;
    }
    void read(R_INT64 file, size_t& at, size_t count)
    {
        const size_t there = std::min(count, content.size() - std::min(at, content.size()));
        Bytes bytes(count + 1, 0xEE);
        R_INT got = -1;
        again(file, at, [&] { return (got = calls_.read(file, bytes.data(), static_cast<R_UINT>(count))) >= 0; });
        ASSERT_EQ(got, static_cast<R_INT>(there));
        ASSERT_EQ(bytes[count], 0xEE);
        ASSERT_TRUE(there == 0 || std::memcmp(bytes.data(), content.data() + at, there) == 0);
        at += there;
    }
    void seek(R_INT64 file, size_t& at)
    {
        const size_t size = content.size(), edge = 32768 * (1 + random() % 3) + random() % 5 - 2;
        const size_t targets[] = {0, edge, at + random() % 9, random() % (size + 1),
                                  std::min(size + size / 8 + random() % 5000, mostSought_)};
        const auto target = static_cast<R_INT64>(targets[random() % std::size(targets)]);
        const auto origin = static_cast<R_INT>(random() % 3);
        const auto from = static_cast<R_INT64>(origin == 0 ? 0 : origin == 1 ? at : size);
        // What a buffer has added is not below yet, so only a seek that has written it knows the end.
        again(file, at, [&] { return calls_.seek(file, target - from, origin) == target; });
        at = static_cast<size_t>(target);
        EXPECT_LT(calls_.seek(file, -target - 1, FILE_FROM_CURRENT), 0);
    }

    FileCalls calls_;
    size_t mostSought_;
};

} // namespace rv::test
