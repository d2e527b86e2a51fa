#include "BlaMatrices.h"
#include "Eigenpairs.h"

namespace
{

void ExpectBlaEigenpairs(Dense const& a, Dense const& b, std::vector<double> lambda, KVOSrvBlaMatrix const& vectors)
{
    Dense x = ValuesOf(vectors);
    ExpectEigenpairs(a, b, KVOSrvMatrix(a.rows, 1, lambda.data(), false, false),
                     KVOSrvMatrix(a.rows, a.rows, x.values.data(), false, false));
}

TEST(KVOSrvBlaMatrixEigen, SolvesBetweenViews)
{
    for (int n : {1, 2, 7, 64, 145})
        for (auto const& [propertyA, propertyB] : {std::pair(kSymmetric, kSecondSymmetric), {kSecondSymmetric, kSymmetric}}) {
            SCOPED_TRACE(testing::Message() << "order " << n << ", properties " << propertyA << propertyB);
            Dense const a(RandomSymmetric(n, 0.0)), b(RandomPositive(n));
            Dense const lowerA = Stored(a, 'L'), lowerB = Stored(b, 'L'); // what is above the diagonal is not read
            Framed const left(n, n), right(n, n), vectors(n, n);
            *left = *MakeBla(lowerA, propertyA);
            *right = *MakeBla(lowerB, propertyB);
            std::vector<double> lambda(static_cast<std::size_t>(n));

            // Two for the factor of B, one for the workspace.
            EXPECT_EQ(FailEachBlaAllocation(*vectors, [&] { left->SolveEigenproblemSymmetric(*right, lambda.data(), *vectors); }), 3);

            ExpectBlaEigenpairs(a, b, lambda, *vectors);
            ExpectValues(*left, lowerA);
            ExpectValues(*right, lowerB);
            vectors.ExpectFrameUnchanged();

            left->SolveEigenproblemSymmetric(*right, lambda.data(), *left); // the vectors may replace an operand
            ExpectBlaEigenpairs(a, b, lambda, *left);
            *left = *MakeBla(lowerA, propertyA);
            left->SolveEigenproblemSymmetric(*right, lambda.data(), *right);
            ExpectBlaEigenpairs(a, b, lambda, *right);
        }
}

} // namespace
