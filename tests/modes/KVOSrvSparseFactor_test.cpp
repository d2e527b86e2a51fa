#include "KVOSrvSparseFactor.h"

#include "ChildProcess.h"
#include "SparsePairs.h"
#include "TemporaryFolder.h"

#include "KVOSrvMatrix.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvMtxExceptions.h"

#include <gmock/gmock.h>
#include <iterator>
#include <sys/resource.h>
#include <thread>

namespace
{

// A grid of springs, of so many nodes along each side, with a little damping of its symmetry.
Dense Grid(int side, double ground)
{
    int const n = side * side;
    Dense a(n, n);
    for (int i = 0; i < n; ++i) {
        a.At(i, i) = 4.0 + ground + 0.1 * (i % 7);
        for (int const j : {i % side < side - 1 ? i + 1 : -1, i + side < n ? i + side : -1})
            if (j >= 0)
                a.At(i, j) = a.At(j, i) = -1.0;
    }
    return a;
}

double LargestError(Dense const& a, Dense const& x, Dense const& b)
{
    double largest = 0.0;
    for (int j = 0; j < b.columns; ++j)
        for (int i = 0; i < b.rows; ++i) {
            double sum = -b.At(i, j);
            for (int k = 0; k < a.columns; ++k)
                sum += a.At(i, k) * x.At(k, j);
            largest = std::max(largest, std::fabs(sum));
        }
    return largest;
}

} // namespace

TEST(KVOSrvSparseFactor, SolvesAndCountsOfEveryShiftInMemoryAndOnDisk)
{
    int const side = 12;
    Dense const k = Grid(side, 0.0), m = DiagonalMatrix(Vector(side * side, 2.0));
    auto const stiffness = Sparse(k), mass = Sparse(m);
    TemporaryFolder const folder;
    std::string const path = folder / "";
    for (bool const onDisk : {false, true}) {
        KVOSrvFactorSettings settings;
        settings.onDisk = onDisk;
        settings.folder = path.c_str();
        {
            KVOSrvSparseFactor factor(*stiffness, mass.get(), settings);
            int last = 0;
            for (double const shift : {0.0, -0.5, -1.0, -2.0, -10.0}) {
                factor.Factorize(shift, shift == 0.0);
                Dense a = k;
                for (int i = 0; i < a.rows; ++i)
                    a.At(i, i) += 2.0 * shift;
                Dense const b = Seeded(a.rows, 3, 11);
                Dense x(a.rows, 3);
                for (int j = 0; j < 3; ++j)
                    for (int i = 0; i < a.rows; ++i)
                        x.At(i, j) = b.At(i, j);
                KVOSrvMatrix view(a.rows, 3, x.data(), false, false);
                factor.Solve(view);
                EXPECT_LT(LargestError(a, x, b), 1e-10) << shift;
                EXPECT_GE(factor.NegativePivots(), last); // eigenvalues pass 0 one after the other
                EXPECT_EQ(factor.NegativePivots() > 0, shift <= -0.5);
                last = factor.NegativePivots();
            }
            EXPECT_EQ(last, side * side); // all below 10
            EXPECT_EQ(factor.Account().onDisk, onDisk);
            EXPECT_EQ(factor.Account().factorizations, 5);
            EXPECT_EQ(std::filesystem::is_empty(path), !onDisk);
        }
        EXPECT_TRUE(std::filesystem::is_empty(path));
    }
}

TEST(KVOSrvSparseFactor, FindsZeroPivotsOfAFreeChain)
{
    int const n = 30;
    Dense k(n, n);
    for (int i = 0; i + 1 < n; ++i) {
        k.At(i, i) += 1.0;
        k.At(i + 1, i + 1) += 1.0;
        k.At(i, i + 1) = k.At(i + 1, i) = -1.0;
    }
    auto const stiffness = Sparse(k);
    KVOSrvSparseFactor factor(*stiffness, nullptr);

    factor.Factorize(0.0, false);

    EXPECT_EQ(factor.ZeroPivots(), 1);
    EXPECT_EQ(factor.NegativePivots(), 0);
}

TEST(KVOSrvSparseFactor, RefusesWhatDoesNotFit)
{
    auto const square = Sparse(Grid(3, 1.0)), wide = Sparse(Dense(3, 4, 1.0));
    EXPECT_THROW(KVOSrvSparseFactor(*wide, nullptr), KVOSrvMtxIllegalInput);
    EXPECT_THROW(KVOSrvSparseFactor(*square, wide.get()), KVOSrvMtxIllegalInput);
    KVOSrvSparseFactor factor(*square, nullptr);
    KVOSrvMatrix block(9, 1, nullptr, false, false), shorter(8, 1, nullptr, false, false);
    EXPECT_THROW(factor.Solve(block), KVOSrvMtxIllegalInput); // nothing is factored
    factor.Factorize(0.0, true);
    EXPECT_THROW(factor.Solve(shorter), KVOSrvMtxIllegalInput);
}

TEST(KVOSrvSparseFactor, NamesTheLeastMemoryAndADiskThatCannotBeWritten)
{
    auto const stiffness = Sparse(Grid(60, 1.0));
    KVOSrvFactorSettings settings;
    settings.memory = 1;
    try {
        KVOSrvSparseFactor(*stiffness, nullptr, settings).Factorize(0.0, true);
        FAIL();
    } catch (KVOSrvModesFailure const& failure) {
        EXPECT_EQ(failure.WhatFailed(), KVOSrvModesFailure::Memory);
        EXPECT_THAT(std::string(failure.UserReport().c_str()), testing::HasSubstr("at least 2M"));
    }
    settings.memory = 0;
    settings.onDisk = true;
    settings.folder = "/nowhere/at/all";
    try {
        KVOSrvSparseFactor(*stiffness, nullptr, settings).Factorize(0.0, true);
        FAIL();
    } catch (KVOSrvModesFailure const& failure) {
        EXPECT_EQ(failure.WhatFailed(), KVOSrvModesFailure::Disk);
    }
}

// On a disk that is full, and after a kill: whatever MUMPS wrote goes, with the object or with the next one.
TEST(KVOSrvSparseFactor, LeavesNoFilesOfAFullDiskOrAKilledProcess)
{
    auto const stiffness = Sparse(Grid(40, 1.0));
    TemporaryFolder const folder;
    std::string const path = folder / "";
    std::filesystem::create_directory(folder / "KVOSrvSparseFactor-12-1"); // not marked
    KVOSrvFactorSettings settings;
    settings.onDisk = true;
    settings.folder = path.c_str();
    auto const folders = [&] { return std::distance(std::filesystem::directory_iterator(path), {}); };

    ChildProcess full([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit const limit{1 << 14, 1 << 14};
        setrlimit(RLIMIT_FSIZE, &limit);
        try {
            KVOSrvSparseFactor(*stiffness, nullptr, settings).Factorize(0.0, true);
        } catch (KVOSrvModesFailure const& failure) {
            return failure.WhatFailed() == KVOSrvModesFailure::Disk ? 7 : 8;
        }
        return 9;
    });
    EXPECT_EQ(full.Wait(), 7);
    EXPECT_EQ(folders(), 1);

    Reports reports;
    ChildProcess killed([&] {
        KVOSrvSparseFactor factor(*stiffness, nullptr, settings);
        factor.Factorize(0.0, true);
        reports.Send(1);
        pause();
        return 0;
    });
    ASSERT_EQ(reports.Next(), 1);
    killed.Kill();
    EXPECT_EQ(folders(), 2);
    KVOSrvSparseFactor(*stiffness, nullptr, settings).Factorize(0.0, true);
    EXPECT_EQ(folders(), 1);
}

TEST(KVOSrvSparseFactor, ObjectsOfSeveralThreadsTakeTurns)
{
    auto const work = [](unsigned seed) {
        Dense const a = Grid(10, 0.1 * seed);
        auto const stiffness = Sparse(a);
        for (int round = 0; round < 5; ++round) {
            KVOSrvSparseFactor factor(*stiffness, nullptr);
            factor.Factorize(0.0, round % 2 == 0);
            Dense const b = Seeded(a.rows, 1, seed);
            KVOSrvMatrix x(a.rows, 1, nullptr, false, false);
            std::copy_n(b.data(), a.rows, x.Values());
            factor.Solve(x);
            Dense solution(a.rows, 1);
            std::copy_n(x.Values(), a.rows, solution.data());
            EXPECT_LT(LargestError(a, solution, b), 1e-10);
        }
    };
    std::thread first(work, 1), second(work, 2);
    first.join();
    second.join();
}
