#include "BlaMatrices.h"

TEST(KVOSrvBlaMatrixSums, WorkOnTheStoredTriangleAndMirrorIt)
{
    for (auto const& [rows, columns] : {std::pair(1, 1), {9, 9}, {17, 17}, {11, 8}, {8, 11}, {5, 1}})
        for (Property property : {kGeneral, kSymmetric, kSkewSymmetric, kSecondSymmetric})
            for (double alpha : {0.0, 1.0, -1.0, 0.3, kNotANumber}) {
                SCOPED_TRACE(testing::Message() << rows << " x " << columns << ", property " << property << ", alpha " << alpha);
                Dense const values = RandomDense(rows, columns); // neither triangle mirrors the other
                Framed const scaled(rows, columns), sum(rows, columns), addend(rows, columns);
                *scaled = *MakeBla(values, property);
                *sum = *MakeBla(values, property);
                *addend = *MakeBla(addend.values, kSymmetric); // the property of the other plays no part

                scaled->Multiply(alpha);
                sum->Add(alpha, *addend);
                Dense const once = ValuesOf(*sum);
                sum->Add(2.0, *sum);

                double const sign = property == kSkewSymmetric ? -1.0 : 1.0, tolerance = std::isnan(alpha) ? 1.0 : 0.0;
                auto const mirrored = [&](Dense const& x) { return property == kGeneral ? x : Mirrored(x, sign); };
                ExpectSame(*scaled, alpha == 1.0 ? values : mirrored(alpha * values), tolerance);
                ExpectSame(once, alpha == 0.0 ? values : mirrored(Combined(1.0, values, alpha, addend.values)), tolerance);
                ExpectSame(*sum, mirrored(Combined(1.0, once, 2.0, once)), tolerance);
                for (Framed const* matrix : {&scaled, &sum, &addend})
                    matrix->ExpectFrameUnchanged();
            }
    KVOSrvBlaMatrix(0, 0, nullptr, kSymmetric).Multiply(2.0); // nothing to do
}
