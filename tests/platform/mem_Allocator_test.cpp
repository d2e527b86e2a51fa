#include "mem_Allocator.h"

#include "ChildProcess.h"
#include "mem_Vector.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>
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

TEST(mem_Allocator, ServesManyThreads)
{
    auto const work = [](unsigned seed) {
        std::minstd_rand random(seed);
        std::vector<std::pair<std::unique_ptr<unsigned char[], mem_Deleter>, std::size_t>> arrays(20);
        for (int i = 0; i < 2000; ++i) {
            auto& [array, bytes] = arrays[random() % arrays.size()];
            EXPECT_TRUE(array == nullptr || (array[0] == seed && array[bytes - 1] == seed));
            bytes = random() % (1u << (10 + random() % 15)) + 1;
            array.reset(static_cast<unsigned char*>(mem_OperatorNewThrow(bytes)));
            array[0] = array[bytes - 1] = static_cast<unsigned char>(seed);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed)
        threads.emplace_back(work, seed);
    for (std::thread& thread : threads)
        thread.join();
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

// In MiB; "VmRSS" or "VmHWM", the most since ResetMost().
double Resident(std::string const& which)
{
    std::ifstream file("/proc/self/status");
    for (std::string key, rest; file >> key && std::getline(file, rest);)
        if (key == which + ":")
            return std::stod(rest) / 1024;
    return NAN;
}

void ResetMost()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

// Arrays whose every page is touched.
class Arrays
{
public:
    void Add(std::size_t bytes)
    {
        m_arrays.emplace_back(static_cast<char*>(mem_OperatorNewThrow(bytes)), bytes);
        for (std::size_t i = 0; i < bytes; i += 4096)
            m_arrays.back().first[i] = 1;
        m_bytes += bytes;
        m_most = std::max(m_most, m_bytes);
    }
    void Remove(std::size_t index)
    {
        m_bytes -= m_arrays[index].second;
        std::swap(m_arrays[index], m_arrays.back());
        m_arrays.pop_back();
    }
    std::size_t Count() const { return m_arrays.size(); }
    std::size_t Bytes() const { return m_bytes; }
    double MostMiB() const { return static_cast<double>(m_most) / kMiB; }

private:
    std::vector<std::pair<std::unique_ptr<char[], mem_Deleter>, std::size_t>> m_arrays;
    std::size_t m_bytes = 0, m_most = 0;
};

// What lives on between the arrays is what makes a heap grow: some small memory of ours, and the host's own.
class SmallOnes
{
public:
    void Add(std::minstd_rand& random)
    {
        std::size_t const place = random() % m_ours.size();
        m_ours[place].reset(mem_OperatorNewThrow(16 + random() % 500));
        m_hosts[place].reset(std::malloc(16 + random() % 300));
    }

private:
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };
    std::array<Memory, 10000> m_ours;
    std::array<std::unique_ptr<void, Free>, 10000> m_hosts;
};

// KVO_ALLOCATOR_ROUNDS=100000 is a day's work of a solver.
TEST(mem_Allocator, ResidentMemoryFollowsWhatIsAlive)
{
    char const* const variable = std::getenv("KVO_ALLOCATOR_ROUNDS");
    int const rounds = variable != nullptr ? std::atoi(variable) : 400;
    std::minstd_rand random(1);
    auto const expectWithin = [](char const* what, Arrays const& arrays, double before) {
        double const most = Resident("VmHWM") - before;
        std::printf("%s: %.0f MiB alive, %.0f MiB resident at most\n", what, arrays.MostMiB(), most);
        EXPECT_LE(most, 1.5 * arrays.MostMiB() + 64);
    };
    { // the same three again and again
        double const before = Resident("VmRSS");
        ResetMost();
        SmallOnes small;
        Arrays arrays;
        for (int i = 0; i < rounds; ++i) {
            for (std::size_t const bytes : {800000, 800000, 168200}) {
                arrays.Add(bytes);
                small.Add(random);
            }
            while (arrays.Count() > 0)
                arrays.Remove(0);
        }
        expectWithin("three arrays", arrays, before);
    }
    for (double const mostBytes : {64 * kMiB, 128 * kMiB, 256 * kMiB, 1024 * kMiB}) { // 1 KiB to 64 MiB, as many of each order of size
        if (variable == nullptr && mostBytes > 128 * kMiB)
            break;
        double const before = Resident("VmRSS");
        ResetMost();
        SmallOnes small;
        Arrays arrays;
        std::uniform_real_distribution<> logarithm(std::log(1024), std::log(64 * kMiB));
        for (int i = 0; i < rounds; ++i) {
            auto const bytes = static_cast<std::size_t>(std::exp(logarithm(random)));
            while (arrays.Count() > 0 && static_cast<double>(arrays.Bytes() + bytes) > mostBytes)
                arrays.Remove(random() % arrays.Count());
            arrays.Add(bytes);
            small.Add(random);
        }
        expectWithin("arrays of all sizes", arrays, before);
    }
}

std::size_t LeastMemory() // MemoryLimit() where nothing but the machine and the address limit limits
{
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    auto const machine = static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return std::min(machine, static_cast<std::size_t>(limit.rlim_cur));
}

TEST(mem_Allocator, GivesBackWhatItDoesNotKeepAndAllOnDemand)
{
    double const before = Resident("VmRSS");
    {
        Arrays arrays;
        for (int i = 0; i < 40; ++i)
            arrays.Add(8 << 20);
    }
    double const kept = Resident("VmRSS") - before;
    EXPECT_LE(kept, std::min(64.0, static_cast<double>(LeastMemory()) / 32 / kMiB) + 4);
    mem_ReleaseMemory();
    EXPECT_LE(Resident("VmRSS") - before, 4);
}

// The host's own malloc(): a matrix of 9000 x 9000 is gone.
TEST(mem_Allocator, LeavesTheHostItsMemoryUnderAnAddressLimit)
{
    ChildProcess child([] {
        rlimit const limit{std::size_t{1200} << 20, std::size_t{1200} << 20};
        setrlimit(RLIMIT_AS, &limit);
        mem_Free(mem_OperatorNewThrow(std::size_t{9000} * 9000 * 8));
        void* volatile const hosts = std::malloc(std::size_t{700} << 20);
        std::free(hosts);
        return hosts != nullptr ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
}

// What is kept stands in the way of an array that has just enough room without it.
TEST(mem_Allocator, TriesAgainWithoutWhatIsKept)
{
    ChildProcess child([] {
        constexpr std::size_t kBytes = std::size_t{16} << 20;
        mem_Free(mem_OperatorNewThrow(kBytes));
        std::size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        rlim_t const room = pages * 4096 + kBytes + kBytes / 2; // more than twice the size would not do with it
        rlimit const limit{room, room};
        setrlimit(RLIMIT_AS, &limit);
        return Memory(mem_Malloc(2 * kBytes)) != nullptr ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
}
#endif

} // namespace
