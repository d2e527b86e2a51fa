#include "KVOBasProcessor.h"

#include "ChildProcess.h"

#include <gtest/gtest.h>
#include <tuple>

namespace
{

struct Leaf {
    unsigned leaf, subleaf;
    std::array<unsigned, 4> answer;
};

constexpr std::array<unsigned, 4> kIntel0{0x1b, 0x756e6547, 0x6c65746e, 0x49656e69}, kAmd0{0x10, 0x68747541, 0x444d4163, 0x69746e65};

std::vector<Leaf> s_leaves;

KVOBasProcessor Described(std::vector<Leaf> leaves)
{
    s_leaves = std::move(leaves);
    return KVOBasProcessor::From([](unsigned leaf, unsigned subleaf) {
        for (Leaf const& one : s_leaves)
            if (one.leaf == leaf && one.subleaf == subleaf)
                return one.answer;
        return std::array<unsigned, 4>{};
    });
}

using Sizes = std::tuple<std::size_t, std::size_t, std::size_t, int, int, int>;

Sizes SizesOf(KVOBasProcessor const& p)
{
    return {p.l1Bytes, p.l2Bytes, p.l3Bytes, p.coresPerL3, p.pages, p.largePages};
}

TEST(KVOBasProcessor, IsReadFromCpuid)
{
    KVOBasProcessor const zen4 = Described({{0, 0, kAmd0},
                                            {1, 0, {0xa10f11, 0, 0, 0}},
                                            {0x80000000, 0, {0x80000021, 0, 0, 0}},
                                            {0x80000006, 0, {0x5c002200, 0x6c004200, 0, 0}},
                                            {0x8000001d, 0, {0x121, 0x1c0003f, 0x3f, 0}},
                                            {0x8000001d, 1, {0x122, 0x1c0003f, 0x3f, 0}},
                                            {0x8000001d, 2, {0x143, 0x1c0003f, 0x7ff, 2}},
                                            {0x8000001d, 3, {0x3c163, 0x3c0003f, 0x7fff, 1}}});
    EXPECT_STREQ(zen4.name, "zen4");
    EXPECT_EQ(std::tuple(zen4.vendor, zen4.family, zen4.model), std::tuple(KVOBasVendor::Amd, 0x19, 0x11));
    EXPECT_EQ(SizesOf(zen4), (Sizes{32 << 10, 1 << 20, 32 << 20, 16, 3072, 3072}));

    // With leaf 18H: one buffer of 1024 pages of any size, and one of 1024 of 4 KiB (and of 1 GiB).
    KVOBasProcessor const iceLake = Described({{0, 0, kIntel0},
                                               {1, 0, {0x606a6, 0, 0, 0}},
                                               {4, 0, {0x121, 0x2c0003f, 0x3f, 0}},
                                               {4, 1, {0x143, 0x4c0003f, 0x3ff, 0}},
                                               {4, 2, {0xfc163, 0x2c0003f, 0xffff, 4}},
                                               {0x18, 0, {3, 0, 0, 0}},
                                               {0x18, 1, {0, 0x100001, 0x10, 0x21}},
                                               {0x18, 2, {0, 0x80007, 0x80, 0x43}},
                                               {0x18, 3, {0, 0x80009, 0x80, 0x43}}});
    EXPECT_STREQ(iceLake.name, "ice-lake");
    EXPECT_EQ(SizesOf(iceLake), (Sizes{48 << 10, 1280 << 10, 48 << 20, 64, 2048, 1024}));
}

TEST(KVOBasProcessor, IsThatOfTheTableWhereCpuidIsSilent)
{
    KVOBasProcessor const hidden = Described({{0, 0, kIntel0}, {1, 0, {0x50657, 0, 0, 0}}, {0x18, 0, {0, 0, 0, 0}}});
    EXPECT_STREQ(hidden.name, "skylake-sp");
    EXPECT_EQ(SizesOf(hidden), SizesOf(KVOBasProcessor::Named("skylake-sp")));
    EXPECT_EQ(hidden.choices.groupPages, 1536);

    // A later model of a known vendor, and one that tells nothing at all.
    KVOBasProcessor const later = Described(
        {{0, 0, kAmd0}, {1, 0, {0xff0fff, 0, 0, 0}}, {0x80000000, 0, {0x80000006, 0, 0, 0}}, {0x80000006, 0, {0, 0x6fff4200, 0, 0}}});
    EXPECT_STREQ(later.name, "unknown");
    EXPECT_EQ(later.vendor, KVOBasVendor::Amd);
    EXPECT_EQ(later.pages, 0xfff);
    EXPECT_EQ(later.choices.groupPages, 1536);
    KVOBasProcessor const silent = Described({});
    EXPECT_STREQ(silent.name, "unknown");
    EXPECT_GT(silent.l1Bytes, 0u);
    EXPECT_EQ(silent.choices.groupPages, 1024);
}

// What was measured on one machine must not be chosen on others.
TEST(KVOBasProcessor, ChoosesByFamily)
{
    using Choices = std::tuple<char const*, bool, int, bool>; // stores past the cache, pages of a group, AVX-512 where there is any
    for (auto const& [name, pastCache, pages, wide] :
         {Choices{"unknown", false, 1024, true}, Choices{"zen4", true, 3072, false}, Choices{"skylake-sp", true, 1536, true},
          Choices{"sapphire-rapids", true, 2048, true}, Choices{"haswell", false, 1024, false}}) {
        KVOBasProcessor const processor = KVOBasProcessor::Named(name);
        EXPECT_EQ(std::tuple(processor.choices.copiesPastCache, processor.choices.storesPastCache, processor.choices.groupPages,
                             processor.vectorBytes == 64),
                  std::tuple(pastCache, pastCache, pages, wide && processor.avx512))
            << name;
    }
}

// KVO_PROCESSOR puts another one in force, if there is one of that name.
TEST(KVOBasProcessor, IsTheOneWishedFor)
{
    for (std::string const wish : {"sapphire-rapids", "unknown", "sapphire"}) {
        ChildProcess child([&] {
            setenv("KVO_PROCESSOR", wish.c_str(), 1);
            std::string const found = KVOBasProcessor::This().name;
            unsetenv("KVO_PROCESSOR");
            return found == wish ? 0 : found == KVOBasProcessor::This().name ? 1 : 2;
        });
        EXPECT_EQ(child.Wait(), wish == "sapphire" ? 1 : 0) << wish;
    }
}

} // namespace
