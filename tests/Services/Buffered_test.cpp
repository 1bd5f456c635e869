// Buffered files against a plain array of bytes, over a file that reads short and fails on cue.
#include "Support/FailingPlatform.h"
#include "Support/MemoryDisk.h"

#include <gtest/gtest.h>

namespace rv::test {
namespace {

constexpr R_WCHAR kName[] = {'f', 0};
constexpr R_INT kModeBoth = FILE_MODE_READ_WRITE;

/// A buffered file behind a redirected handle, as programs use it, beside what it should hold.
class Model {
public:
    explicit Model(unsigned seed) : random(seed)
    {
        disk.random.seed(seed);
        disk.bytes = content = randomBytes(random() % 100000);
        REDIRECTSET under = disk.set(), buffered;
        EXPECT_EQ(R_GetRedirectFunctions(&buffered, REDIRECTSET_SIZE, REDIRECT_BUFFERED, 0), SUCCESS);
        const R_INT64 below = R_BufferedOpen(kName, kModeBoth, 0, &under);
        EXPECT_EQ(R_CreateRedirectedCallbackFileHandle(below, &buffered, &handle), SUCCESS);
        disk.shortReads = seed % 2 == 0;
        disk.faultsIn1000 = seed % 3 == 0 ? 0 : 60;
    }
    /// Does a random thing until it succeeds: a failure must have left the position, and lost nothing.
    void step()
    {
        switch (random() % 8) {
        case 0: again([&] { return R_RedirectedWrite(handle, nullptr, 0) == 0; }), content.resize(at); break;
        case 1:
        case 2: write(randomBytes(length())); break;
        case 3:
        case 4: read(length()); break;
        default: seek();
        }
        EXPECT_EQ(R_RedirectedSeek(handle, 0, FILE_FROM_CURRENT), static_cast<R_INT64>(at));
    }
    void close()
    {
        disk.faultsIn1000 = 0;
        EXPECT_EQ(R_RedirectedClose(handle), 0);
        EXPECT_EQ(disk.opened, disk.closed);
        EXPECT_TRUE(disk.bytes == content);
    }

private:
    using Bytes = std::vector<uint8_t>;
    Bytes randomBytes(size_t count)
    {
        Bytes bytes(count);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
        return bytes;
    }
    size_t length()
    {
        constexpr size_t kLengths[] = {1, 2, 511, 32766, 32767, 32768, 32769, 65536, 70000};
        return random() % 2 == 0 ? 1 + random() % 3000 : kLengths[random() % std::size(kLengths)];
    }
    template <class Try> void again(Try works)
    {
        for (int tries = 0; !works(); ++tries) {
            ASSERT_LT(tries, disk.faultsIn1000 == 0 ? 1 : 200);
            ASSERT_EQ(R_RedirectedSeek(handle, 0, FILE_FROM_CURRENT), static_cast<R_INT64>(at));
        }
    }
    void write(const Bytes& bytes)
    {
        const auto count = static_cast<R_UINT>(bytes.size());
        again([&] { return R_RedirectedWrite(handle, bytes.data(), count) == static_cast<R_INT>(count); });
        content.resize(std::max(content.size(), at + count));
        std::copy(bytes.begin(), bytes.end(), content.begin() + static_cast<long>(at));
        at += count;
    }
    void read(size_t count)
    {
        const size_t there = std::min(count, content.size() - std::min(at, content.size()));
        Bytes bytes(count);
        R_INT got = 0;
        again([&] { return (got = R_RedirectedRead(handle, bytes.data(), static_cast<R_UINT>(count))) >= 0; });
        ASSERT_EQ(got, static_cast<R_INT>(there));
        if (there > 0) {
            ASSERT_EQ(std::memcmp(bytes.data(), content.data() + at, there), 0);
        }
        at += there;
    }
    void seek()
    {
        const size_t size = content.size();
        const size_t edge = 32768 * (1 + random() % 3) + random() % 5 - 2;
        const size_t targets[] = {0, edge, at + random() % 9, random() % (size + 1),
                                  std::min(size + 100, size_t{200000})};
        const auto target = static_cast<R_INT64>(targets[random() % std::size(targets)]);
        const R_INT origin = static_cast<R_INT>(random() % 3);
        const auto from = static_cast<R_INT64>(origin == 0 ? 0 : origin == 1 ? at : size);
        // What the buffer has added is not below yet, so only a seek that has written it knows the end.
        again([&] { return R_RedirectedSeek(handle, target - from, origin) == target; });
        at = static_cast<size_t>(target);
    }

    MemoryDisk disk;
    Bytes content;
    size_t at = 0;
    R_INT64 handle = R_INVALID_FILE;
    std::mt19937 random;
};

TEST(Buffered, HoldsWhatAPlainArrayHolds)
{
    const LiveBlocks live;
    for (unsigned seed = 1; seed <= 60 && !::testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Model model(seed);
        for (int i = 0; i < 400 && !::testing::Test::HasFailure(); ++i) model.step();
        model.close();
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Buffered, MovingWithinTheBufferAsksNothingBelow)
{
    MemoryDisk disk;
    disk.bytes.resize(100000, 7);
    REDIRECTSET under = disk.set();
    const R_INT64 file = R_BufferedOpen(kName, FILE_MODE_READ, 0, &under);
    uint8_t bytes[64];
    EXPECT_EQ(R_BufferedRead(file, bytes, 64, nullptr), 64);
    const int calls = disk.calls;
    for (const R_INT64 target : {0, 5, 32767, 32768, 64}) EXPECT_EQ(R_BufferedSeek(file, target, 0, nullptr), target);
    EXPECT_EQ(R_BufferedRead(file, bytes, 64, nullptr), 64);
    EXPECT_EQ(disk.calls, calls);
    for (const R_UINT count : {0u, 1u, 40000u})
        EXPECT_EQ(R_BufferedWrite(file, bytes, count, nullptr), -1) << "read-only";
    EXPECT_EQ(disk.calls, calls);
    EXPECT_EQ(R_BufferedSeek(file, INT64_MAX, 0, nullptr), -1);
    EXPECT_EQ(R_BufferedSeek(file, INT64_MAX, 1, nullptr), -1);
    EXPECT_EQ(R_BufferedSeek(file, -129, 1, nullptr), -1);
    EXPECT_EQ(R_BufferedSeek(file, 0, 1, nullptr), 128);
    EXPECT_EQ(R_BufferedClose(file, nullptr), 0);
}

TEST(Buffered, FailuresOfTheFileBelowAreToldAndNothingLeaks)
{
    const LiveBlocks live;
    MemoryDisk disk;
    REDIRECTSET under = disk.set();
    {
        const NoMemory none;
        EXPECT_EQ(R_BufferedOpen(kName, kModeBoth, 0, &under), R_INVALID_FILE);
    }
    EXPECT_EQ(disk.closed, 1);
    const R_INT64 file = R_BufferedOpen(kName, kModeBoth, 0, &under);
    char byte = 1;
    disk.answersTooMuch = true;
    EXPECT_EQ(R_BufferedRead(file, &byte, 1, nullptr), -1);
    disk.answersTooMuch = false;
    EXPECT_EQ(R_BufferedWrite(file, &byte, 1, nullptr), 1);
    disk.faultsIn1000 = 1000;
    // After a read that failed, nobody knows where the file is: it must be sought, and cannot be.
    EXPECT_EQ(R_BufferedSeek(file, 5, 0, nullptr), ERROR_FILE_LSEEK);
    EXPECT_EQ(R_BufferedClose(file, nullptr), ERROR_FILE_LSEEK);
    const R_INT64 other = R_BufferedOpen(kName, kModeBoth, 0, &under);
    EXPECT_EQ(R_BufferedWrite(other, &byte, 1, nullptr), 1);
    EXPECT_EQ(R_BufferedClose(other, nullptr), ERROR_FILE_WRITE);
    EXPECT_EQ(disk.closed, 3);
    under.pfnSeek = nullptr;
    EXPECT_EQ(R_BufferedOpen(kName, kModeBoth, 0, &under), R_INVALID_FILE);
    under = disk.set();
    under.uStructSize = 119;
    EXPECT_EQ(R_BufferedOpen(kName, kModeBoth, 0, &under), R_INVALID_FILE);
    for (const R_INT64 handle : {-1, -2, 0, 65535, 65537, -65536}) {
        EXPECT_EQ(R_BufferedRead(handle, &byte, 1, nullptr), -1);
        EXPECT_EQ(R_BufferedClose(handle, nullptr), -1);
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

} // namespace
} // namespace rv::test
