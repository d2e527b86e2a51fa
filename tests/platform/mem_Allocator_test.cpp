#include "mem_Allocator.h"

#include "ChildProcess.h"
#include "ResidentMemory.h"
#include "mem_Vector.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>

namespace
{

using Memory = std::unique_ptr<void, mem_Deleter>;

std::string FailureOfNew(std::size_t bytes)
{
    try {
        Memory const memory(mem_OperatorNewThrow(bytes));
    } catch (std::bad_alloc const& exception) {
        return exception.what();
    }
    return "none";
}

TEST(mem_Allocator, ArrayBytesRefusesWhatDoesNotFit)
{
    static_assert(mem_ArrayBytes(3, 8) == 24 && mem_ArrayBytes(INT64_MAX, 2) == SIZE_MAX - 1);
    static_assert(mem_ArrayBytes(-1, 8) == SIZE_MAX && mem_ArrayBytes(INT64_MAX, 3) == SIZE_MAX);
    static_assert(mem_ArrayBytes(std::int64_t{1} << 61, 8) == SIZE_MAX);

    for (std::size_t const bytes : {SIZE_MAX, SIZE_MAX - 1, std::size_t{PTRDIFF_MAX} + 1}) {
        EXPECT_EQ(mem_Malloc(bytes), nullptr);
        EXPECT_EQ(FailureOfNew(bytes), "Out of memory: more bytes were asked for than exist.");
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
    EXPECT_EQ(FailureOfNew(40), "Out of memory: 40 bytes were asked for.");
    EXPECT_NE(Memory(mem_Malloc(8)), nullptr); // it comes once
}

// From one kind of memory to each other: small, at a line, at a page, at a large page.
TEST(mem_Allocator, ReallocKeepsTheContentAlsoWhenItFails)
{
    auto* memory = static_cast<unsigned char*>(mem_OperatorNewThrow(100));
    std::memset(memory, 7, 100);
    EXPECT_EQ(mem_Realloc(memory, SIZE_MAX), nullptr);
    mem_FailAllocationAfter(0);
    EXPECT_EQ(mem_Realloc(memory, 200), nullptr);
    std::size_t before = 100;
    for (std::size_t const bytes : {50, 1000000, 100000, 20000000, 40000000, 9000000, 3000000, 4000000, 12000000, 300000, 70000, 20}) {
        SCOPED_TRACE(bytes);
        memory = static_cast<unsigned char*>(mem_Realloc(memory, bytes));
        ASSERT_NE(memory, nullptr);
        std::size_t const both = std::min(before, bytes);
        EXPECT_EQ(std::count(memory, memory + both, 7), both);
        std::memset(memory, 7, bytes);
        before = bytes;
#ifndef __SANITIZE_ADDRESS__
        std::size_t const alignment = bytes >= 8 << 20 ? 2 << 20 : bytes >= 64 << 10 ? 64 : 16;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % alignment, 0u);
#endif
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

// Sanitizers have memory of their own for ours, and an address sanitizer keeps nothing here.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

constexpr double kMiB = 1024.0 * 1024.0;

// Arrays whose every page is touched, and small memory of ours and of the host's, which lives on and so is what makes a heap grow.
class Arrays
{
public:
    void Add(std::size_t bytes)
    {
        m_arrays.emplace_back(mem_OperatorNewThrow(bytes), bytes);
        for (std::size_t i = 0; i < bytes; i += 4096)
            static_cast<char*>(m_arrays.back().first.get())[i] = 1;
        m_bytes += bytes;
        m_most = std::max(m_most, m_bytes);
        m_ours[m_random() % m_ours.size()].reset(mem_OperatorNewThrow(16 + m_random() % 500));
        m_hosts[m_random() % m_hosts.size()] = std::string(16 + m_random() % 300, 'x');
    }
    // Until another one has room.
    void RemoveSome(std::size_t bytes, double mostBytes)
    {
        while (!m_arrays.empty() && static_cast<double>(m_bytes + bytes) > mostBytes) {
            std::swap(m_arrays[m_random() % m_arrays.size()], m_arrays.back());
            m_bytes -= m_arrays.back().second;
            m_arrays.pop_back();
        }
    }
    double MostMiB() const { return static_cast<double>(m_most) / kMiB; }

private:
    std::minstd_rand m_random;
    std::vector<std::pair<Memory, std::size_t>> m_arrays;
    std::size_t m_bytes = 0, m_most = 0;
    std::array<Memory, 10000> m_ours;
    std::array<std::string, 10000> m_hosts;
};

// KVO_ALLOCATOR_ROUNDS=100000 is a day's work of a solver: the same three arrays again and again, and arrays of 1 KiB to 64 MiB, as many of
// each order of size.
TEST(mem_Allocator, ResidentMemoryFollowsWhatIsAliveAndAllGoesBackOnDemand)
{
    char const* const variable = std::getenv("KVO_ALLOCATOR_ROUNDS");
    int const rounds = variable != nullptr ? std::atoi(variable) : 400;
    std::minstd_rand random(1);
    std::uniform_real_distribution<> logarithm(std::log(1024), std::log(64 * kMiB));
    for (double const mostMiB : {0.0, 64.0, 128.0, 256.0, 1024.0}) {
        if (variable == nullptr && mostMiB > 128)
            break;
        double const before = Resident("VmRSS");
        ForgetResidentPeak();
        auto arrays = std::make_unique<Arrays>();
        for (int i = 0; i < rounds; ++i)
            if (mostMiB > 0) {
                auto const bytes = static_cast<std::size_t>(std::exp(logarithm(random)));
                arrays->RemoveSome(bytes, mostMiB * kMiB);
                arrays->Add(bytes);
            } else {
                for (std::size_t const bytes : {800000, 800000, 168200})
                    arrays->Add(bytes);
                arrays->RemoveSome(1, 0);
            }
        double const most = Resident("VmHWM") - before;
        std::printf("%.0f MiB alive, %.0f MiB resident at most\n", arrays->MostMiB(), most);
        EXPECT_LE(most, 1.5 * arrays->MostMiB() + 64);
        arrays.reset();
        EXPECT_LE(Resident("VmRSS") - before, 64 + 4);
        mem_ReleaseMemory();
        EXPECT_LE(Resident("VmRSS") - before, 4);
    }
}

// The host's own malloc() gets what a matrix of 9000 x 9000 had; and what is kept goes for an array that has just enough room without it:
// more than twice its size would not do with it.
TEST(mem_Allocator, KeepsNothingThatOthersNeed)
{
    auto const holdsUnderLimit = [](std::size_t bytes, auto const& run) {
        ChildProcess child([&] {
            rlimit const limit{bytes, bytes};
            setrlimit(RLIMIT_AS, &limit);
            return run() ? 0 : 1;
        });
        return child.Wait() == 0;
    };
    EXPECT_TRUE(holdsUnderLimit(std::size_t{1200} << 20, [] {
        mem_Free(mem_OperatorNewThrow(std::size_t{9000} * 9000 * 8));
        void* volatile const hosts = std::malloc(std::size_t{700} << 20);
        std::free(hosts);
        return hosts != nullptr;
    }));
    constexpr std::size_t kBytes = std::size_t{16} << 20;
    mem_Free(mem_OperatorNewThrow(kBytes));
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    EXPECT_TRUE(holdsUnderLimit(pages * 4096 + kBytes + kBytes / 2, [] { return Memory(mem_Malloc(2 * kBytes)) != nullptr; }));
}
#endif

} // namespace
