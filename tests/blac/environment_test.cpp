#include "Dense.h"
#include "KVOFortran.h"
#include "xerbla_capture.h"

#include <bit>
#include <cstdint>
#include <numbers>

std::vector<XerblaReport>& XerblaReports()
{
    static std::vector<XerblaReport> reports;
    return reports;
}

extern "C" void xerbla_(char const* name, int const* info, std::size_t length);

// The loader finds the program's symbol before the provider's.
extern "C" __attribute__((visibility("default"))) void xerbla_(char const* name, int const* info, std::size_t length)
{
    XerblaReports().push_back({std::string(name, length), *info});
}

TEST(Constants, BitPatterns)
{
    std::vector<std::uint64_t> expected = {
        0x7FFFFFFFFFFFFFFF, 0x7FD0000000000000, 0x7FEFFFFFFFFFFFFF, 0x0010000000000000, 0x3CB0000000000000, 0x3CA0000000000001,
        0x4000000000000000, 0x404A800000000000, 0x4086280000000000, 0xC086200000000000, 0x41DFFFFFFFC00000,
    };
    for (double const value : {std::numbers::pi, std::numbers::e, std::numbers::egamma, std::numbers::pi / 180.0, 180.0 / std::numbers::pi})
        expected.push_back(std::bit_cast<std::uint64_t>(value));
    for (int index = 1; index <= 16; ++index)
        EXPECT_EQ(std::bit_cast<std::uint64_t>(BLAC_HDMCON(&index)), expected[static_cast<std::size_t>(index - 1)]) << index;
    for (int const outside : {0, 17, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()})
        EXPECT_EQ(std::bit_cast<std::uint64_t>(BLAC_HDMCON(&outside)), expected[0]) << outside;
}

TEST(Environment, MachineParameters)
{
    int const withNaN = 1;
    float const zero = 0.0F, one = 1.0F;
    EXPECT_EQ(BLAC_DLAMCH("P"), kEpsilon);
    EXPECT_EQ(BLAC_DLAMCH("B"), 2.0);
    EXPECT_EQ(BLAC_DLAMCH("O"), std::numeric_limits<double>::max());
    EXPECT_EQ(BLAC_IEEECK(&withNaN, &zero, &one), 1);
    EXPECT_NE(BLAC_LSAME("u", "U"), 0);
    EXPECT_EQ(BLAC_LSAME("U", "L"), 0);
}

// The name is not terminated: where it ends is the length that the caller passes.
TEST(Environment, TuningValuesByNameAndLength)
{
    int const blockSize = 1, n = 1000, none = -1;
    auto const ilaenv = [&](char const* name, std::size_t length) {
        return BLAC_ILAENV(&blockSize, name, "U", &n, &n, &none, &none, length, 1);
    };
    EXPECT_GT(ilaenv("DGETRF", 6), 1);
    EXPECT_EQ(ilaenv("DGETRFX", 6), ilaenv("DGETRF", 6));
    EXPECT_EQ(ilaenv("DGETRF", 0), 1); // no routine
}

TEST(Xerbla, ReportsReachTheHandler)
{
    XerblaReports().clear();
    int const info = 42, wrong = -1, one = 1;
    double const alpha = 1.0;
    double a = 1.0, c = 1.0;
    BLAC_XERBLA("PROBE and more", &info);
    BLAC_DGEMM("N", "N", &wrong, &one, &one, &alpha, &a, &one, &a, &one, &alpha, &c, &one);
    int status = 0;
    BLAC_DPOTRF("X", &one, &a, &one, &status);

    EXPECT_EQ(status, -1);
    ASSERT_EQ(XerblaReports().size(), 3u);
    for (std::size_t const i : {1, 2}) // some providers count a terminator into the length of their own names
        XerblaReports()[i].name.resize(6);
    EXPECT_EQ(XerblaReports(), (std::vector<XerblaReport>{{"PROBE ", 42}, {"DGEMM ", 3}, {"DPOTRF", 1}}));
}
