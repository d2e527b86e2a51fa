#include "BlaMatrices.h"
#include "Eigenpairs.h"

TEST(KVOSrvBlaMatrixEigen, SolvesBetweenViews)
{
    for (int n : {1, 2, 7, 64, 145})
        for (auto const& [propertyA, propertyB] : {std::pair(kSymmetric, kSecondSymmetric), {kSecondSymmetric, kSymmetric}}) {
            SCOPED_TRACE(testing::Message() << "order " << n << ", properties " << propertyA << propertyB);
            Dense const a(RandomSymmetric(n, 0.0)), b(RandomPositive(n));
            auto const lower = [n](Dense const& x) { return Filled(n, n, [&](int i, int j) { return i < j ? kNotANumber : x.At(i, j); }); };
            Dense const lowerA = lower(a), lowerB = lower(b); // what is above the diagonal is not read
            Framed const left(n, n), right(n, n), vectors(n, n);
            *left = *MakeBla(lowerA, propertyA);
            *right = *MakeBla(lowerB, propertyB);
            std::vector<double> lambda(static_cast<std::size_t>(n));

            // Two for the factor of B, one for the workspace.
            EXPECT_EQ(FailEachBlaAllocation(*vectors, [&] { left->SolveEigenproblemSymmetric(*right, lambda.data(), *vectors); }), 3);

            ExpectEigenpairs(a, b, lambda, *vectors);
            ExpectSame(*left, lowerA);
            ExpectSame(*right, lowerB);
            vectors.ExpectFrameUnchanged();

            left->SolveEigenproblemSymmetric(*right, lambda.data(), *left); // the vectors may replace an operand
            ExpectEigenpairs(a, b, lambda, *left);
            *left = *MakeBla(lowerA, propertyA);
            left->SolveEigenproblemSymmetric(*right, lambda.data(), *right);
            ExpectEigenpairs(a, b, lambda, *right);
        }
}
