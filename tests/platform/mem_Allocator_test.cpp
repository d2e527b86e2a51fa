#include "mem_Allocator.h"
#include "mem_Vector.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace
{

using Memory = std::unique_ptr<void, mem_Deleter>;

TEST(mem_Allocator, ArrayBytesRefusesWhatDoesNotFit)
{
    static_assert(mem_ArrayBytes(3, 8) == 24 && mem_ArrayBytes(INT64_MAX, 2) == SIZE_MAX - 1);
    static_assert(mem_ArrayBytes(-1, 8) == SIZE_MAX && mem_ArrayBytes(INT64_MAX, 3) == SIZE_MAX);
    static_assert(mem_ArrayBytes(std::int64_t{1} << 61, 8) == SIZE_MAX);

    for (std::size_t const bytes : {SIZE_MAX, SIZE_MAX - 1, std::size_t{PTRDIFF_MAX} + 1}) {
        EXPECT_EQ(mem_Malloc(bytes), nullptr);
        try {
            mem_OperatorNewThrow(bytes);
            ADD_FAILURE() << bytes;
        } catch (std::bad_alloc const& exception) {
            EXPECT_STREQ(exception.what(), "Out of memory: more bytes were asked for than exist.");
        }
    }
    EXPECT_STREQ(mem_OutOfMemory(PTRDIFF_MAX).what(), "Out of memory: 9223372036854775807 bytes were asked for.");
}

TEST(mem_Allocator, GivesDistinctAlignedMemoryUntilTheInjectedFailure)
{
    mem_FailAllocationAfter(3);
    Memory const a(mem_OperatorNewThrow(0)), b(mem_Malloc(0)), c(mem_OperatorNewThrow(1000));
    EXPECT_NE(b.get(), nullptr);
    EXPECT_NE(a.get(), b.get());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(c.get()) % alignof(std::max_align_t), 0u);
    std::memset(c.get(), 1, 1000);
    try {
        mem_OperatorNewThrow(40);
        ADD_FAILURE() << "the fourth did not fail";
    } catch (mem_OutOfMemory const& exception) {
        EXPECT_STREQ(exception.what(), "Out of memory: 40 bytes were asked for.");
    }
    EXPECT_NE(Memory(mem_Malloc(8)), nullptr); // it comes once
}

TEST(mem_Allocator, ReallocKeepsTheContentAlsoWhenItFails)
{
    auto* memory = static_cast<unsigned char*>(mem_OperatorNewThrow(100));
    std::memset(memory, 7, 100);
    EXPECT_EQ(mem_Realloc(memory, SIZE_MAX), nullptr);
    mem_FailAllocationAfter(0);
    EXPECT_EQ(mem_Realloc(memory, 200), nullptr);
    for (std::size_t const bytes : {50, 1000000, 20}) {
        memory = static_cast<unsigned char*>(mem_Realloc(memory, bytes));
        ASSERT_NE(memory, nullptr);
        EXPECT_EQ(std::count(memory, memory + 20, 7), 20);
    }
    mem_Free(memory);
}

TEST(mem_Vector, IsAsItWasWhenMemoryRunsOut)
{
    mem_Vector<int> vector{1, 2, 3};
    vector.shrink_to_fit();
    mem_FailAllocationAfter(0);
    EXPECT_THROW(vector.push_back(4), mem_OutOfMemory);
    EXPECT_EQ(vector, (mem_Vector<int>{1, 2, 3}));
}

#ifndef __SANITIZE_ADDRESS__ // nothing is kept then
// -1: not all of it is mapped.
std::ptrdiff_t ResidentPages(void* memory, std::size_t bytes)
{
    std::vector<unsigned char> pages(bytes / static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
    return mincore(memory, bytes, pages.data()) == 0 ? std::count(pages.begin(), pages.end(), 1) : -1;
}

TEST(mem_Allocator, KeepsReleasedLargeArraysForOthersOfTheirSize)
{
    constexpr std::size_t kBytes = std::size_t{64} << 20;
    auto const filled = [](std::size_t bytes) {
        void* const memory = mem_OperatorNewThrow(bytes);
        std::memset(memory, 1, bytes);
        return memory;
    };
    mem_Free(filled(kBytes));
    std::size_t const smaller = kBytes - (std::size_t{4} << 20);
    Memory again(mem_OperatorNewThrow(smaller)), another(mem_OperatorNewThrow(smaller));
    EXPECT_EQ(ResidentPages(again.get(), smaller), smaller / static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
    EXPECT_EQ(ResidentPages(another.get(), smaller), 0);

    void* const kept = again.release();
    mem_Free(kept);
    EXPECT_GT(ResidentPages(kept, kBytes), 0);
    Memory const ofOtherSize(mem_OperatorNewThrow(kBytes / 4)); // what does not fit goes back first
    EXPECT_LE(ResidentPages(static_cast<char*>(kept) + kBytes / 2, kBytes / 2), 0);
    std::size_t const hugeBytes = static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) / 31 * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const huge = mem_OperatorNewThrow(hugeBytes);
    mem_Free(huge);
    EXPECT_EQ(ResidentPages(huge, hugeBytes), -1); // more than is kept
}
#endif

} // namespace
