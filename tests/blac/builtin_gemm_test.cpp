#include "Dense.h"
#include "KVOFortran.h"
#include "gemm_kernel_choice.h"
#include "xerbla_capture.h"

#include <iterator>

namespace
{

// Around the tiles (6 x 8, 16 x 14), the limits of the variant without packing (32, 201), and the blocks (72, 240, 256).
int const kSizes[] = {1, 2, 5, 6, 7, 8, 9, 13, 14, 15, 16, 17, 31, 32, 33, 48, 71, 72, 73, 129, 200, 201, 202, 239, 241, 255, 256, 257};
double const kAlphas[] = {1.0, -1.25, 0.0}, kBetas[] = {0.0, 1.0, -0.75};

struct Case {
    char transa, transb;
    int m, n, k;
    double alpha, beta;
};

// Every combination of transpositions and factors, with sizes at random.
std::vector<Case> Cases()
{
    std::mt19937 generator(20);
    auto const size = [&] { return kSizes[std::uniform_int_distribution<std::size_t>(0, std::size(kSizes) - 1)(generator)]; };
    std::vector<Case> cases = {{'N', 'N', 18, 4100, 20, 1.0, 0.0}, {'N', 'T', 250, 3760, 9, 1.0, 1.0}};
    for (char const transa : {'N', 'n', 'T', 't', 'C', 'c'})
        for (char const transb : {'N', 'n', 'T', 't', 'C', 'c'})
            for (double const alpha : kAlphas)
                for (double const beta : kBetas)
                    cases.push_back({transa, transb, size(), size(), size(), alpha, beta});
    for (char const trans : {'N', 'T'})
        for (double const beta : kBetas)
            for (int const empty : {0, 1, 2}) // of m, n and k
                cases.push_back({trans, trans, empty == 0 ? 0 : size(), empty == 1 ? 0 : size(), empty == 2 ? 0 : size(), 1.0, beta});
    return cases;
}

} // namespace

// The entry point, and every kernel that this processor can run, also those that it would not choose.
TEST(BuiltinGemm, Products)
{
    KVOBasProcessor const& processor = KVOBasProcessor::This();
    int const entryPoint = -1;
    std::vector<int> subjects = {entryPoint, kvo_gemm_baseline};
    if (processor.avx2)
        subjects.push_back(kvo_gemm_avx2);
    if (processor.avx512)
        subjects.push_back(kvo_gemm_avx512);

    auto const transposed = [](char trans) { return trans != 'N' && trans != 'n'; };
    for (Case const& s : Cases()) {
        Dense const opA = Seeded(s.m, s.k, 1), opB = Seeded(s.k, s.n, 2), before = Seeded(s.m, s.n, 3);
        Dense const expected = Combined(s.alpha, opA * opB, s.beta, before);
        // What must not be read is NaN: C when beta is 0, A and B when alpha is 0.
        Dense const a = Op(s.transa, s.alpha == 0.0 ? Dense(s.m, s.k, kNotANumber) : opA);
        Dense const b = Op(s.transb, s.alpha == 0.0 ? Dense(s.k, s.n, kNotANumber) : opB);
        for (int const subject : subjects) {
            SCOPED_TRACE(testing::Message() << "kernel " << subject << ' ' << s.transa << s.transb << " m " << s.m << " n " << s.n << " k "
                                            << s.k << " alpha " << s.alpha << " beta " << s.beta);
            Dense c = s.beta == 0.0 ? Dense(s.m, s.n, kNotANumber) : before;
            if (subject == entryPoint)
                BLAC_DGEMM2(&s.transa, &s.transb, &s.m, &s.n, &s.k, &s.alpha, a.data(), &a.ld, b.data(), &b.ld, &s.beta, c.data(), &c.ld);
            else
                kvo_builtin_dgemm({static_cast<kvo_gemm_kernel>(subject), 1 << 18}, transposed(s.transa), transposed(s.transb), s.m, s.n,
                                  s.k, s.alpha, a.data(), a.ld, b.data(), b.ld, s.beta, c.data(), c.ld);
            ASSERT_NO_FATAL_FAILURE(ExpectSame(c, expected, ProductTolerance(s.k, 1.5)));
        }
    }
}

TEST(BuiltinGemm, PlanByProcessor)
{
    KVOBasProcessor old{}, avx2{}, halves{};
    old.vectorBytes = 16;
    avx2.avx2 = halves.avx2 = halves.avx512 = true;
    avx2.vectorBytes = halves.vectorBytes = 32;
    KVOBasProcessor wide = halves;
    wide.vectorBytes = 64;
    wide.l2Bytes = 3 << 18;

    auto const kernel = [](KVOBasProcessor const& processor, int m, int n, int k) { return blac::PlanGemm(processor, m, n, k).kernel; };
    for (int const n : {4, 1024})
        EXPECT_EQ(std::pair(kernel(old, n, n, n), kernel(avx2, n, n, n)), std::pair(kvo_gemm_baseline, kvo_gemm_avx2));
    EXPECT_EQ(kernel(wide, 64, 64, 64), kvo_gemm_avx2);
    EXPECT_EQ(kernel(wide, 128, 128, 128), kvo_gemm_avx512);
    EXPECT_EQ(kernel(wide, 4, 1000, 1000), kvo_gemm_avx2);
    EXPECT_EQ(kernel(wide, 50000, 50000, 50000), kvo_gemm_avx512); // the volume needs 64 bits
    EXPECT_EQ(kernel(halves, 4096, 4096, 200), kvo_gemm_avx2);
    EXPECT_EQ(kernel(halves, 201, 201, 201), kvo_gemm_avx512);
    EXPECT_EQ(blac::PlanGemm(wide, 256, 256, 256).packedBytes, 1 << 19);
    EXPECT_EQ(blac::PlanGemm(wide, 4, 1000, 1000).packedBytes, 0); // nothing is packed
}

// How rows are cut leaves the bits as they are; so does, for alpha 1 and -1 and beta 0 and 1, which the kernels apply with different
// roundings otherwise, the choice between the two that pack.
TEST(BuiltinGemm, BitsDependOnNoBlockSize)
{
    KVOBasProcessor const& processor = KVOBasProcessor::This();
    if (!processor.avx2)
        GTEST_SKIP() << "no AVX2";
    Dense const a = Seeded(701, 530, 1), b = Seeded(530, 203, 2), before = Seeded(701, 203, 3);
    auto const product = [&](kvo_gemm_kernel kernel, int packedBytes) {
        Dense c = before;
        kvo_builtin_dgemm({kernel, packedBytes}, 0, 0, c.rows, c.columns, a.columns, -1.0, a.data(), a.ld, b.data(), b.ld, 1.0, c.data(),
                          c.ld);
        return c.values;
    };
    Vector const expected = product(kvo_gemm_avx2, 1 << 17);
    for (int const packedBytes : {1, 1 << 17, 1 << 21}) {
        EXPECT_EQ(product(kvo_gemm_avx2, packedBytes), expected);
        EXPECT_EQ(product(processor.avx512 && packedBytes > 1 ? kvo_gemm_avx512 : kvo_gemm_avx2, packedBytes), expected);
    }
}

TEST(BuiltinGemm, WrongArgumentsReachXerblaInOrderAndChangeNothing)
{
    // Each row is wrong in its position, the last number, and in later ones.
    struct {
        char transa, transb;
        int m, n, k, lda, ldb, ldc, position;
    } const rows[] = {
        {'X', 'X', -1, -1, -1, 0, 0, 0, 1}, {'N', 'X', -1, -1, -1, 0, 0, 0, 2}, {'N', 'N', -1, -1, -1, 0, 0, 0, 3},
        {'N', 'N', 4, -1, -1, 0, 0, 0, 4},  {'N', 'N', 4, 5, -1, 0, 0, 0, 5},   {'N', 'N', 4, 5, 3, 3, 2, 3, 8},
        {'T', 'N', 4, 5, 3, 2, 2, 3, 8},    {'N', 'N', 4, 5, 3, 4, 2, 3, 10},   {'c', 't', 4, 5, 3, 3, 4, 3, 10},
        {'t', 'c', 4, 5, 3, 3, 5, 3, 13},   {'N', 'N', 0, 0, 0, 1, 1, 0, 13},   {'N', 'N', 0, 0, 0, 0, 1, 1, 8},
    };
    double const alpha = 1.0, beta = 0.0;
    Vector const operand(100, 1.0);
    for (auto const& w : rows) {
        SCOPED_TRACE(w.position);
        XerblaReports().clear();
        Vector c(100, 1.0);

        BLAC_DGEMM2(&w.transa, &w.transb, &w.m, &w.n, &w.k, &alpha, operand.data(), &w.lda, operand.data(), &w.ldb, &beta, c.data(),
                    &w.ldc);

        EXPECT_EQ(XerblaReports(), (std::vector<XerblaReport>{{"DGEMM ", w.position}}));
        EXPECT_EQ(c, operand);
    }
}
