#include "Panel.h"

#include "KVOFortran.h"

#include <algorithm>

namespace
{

Panel Product(char const* transA, Panel const& a, Panel const& b, int rows, int inner)
{
    Panel result(rows, b.columns);
    double const one = 1.0, zero = 0.0;
    int const lda = std::max(1, a.rows), ldb = std::max(1, b.rows), ldc = std::max(1, rows);
    if (rows > 0 && b.columns > 0)
        BLAC_DGEMM(transA, "N", &rows, &b.columns, &inner, &one, a.values.data(), &lda, b.values.data(), &ldb, &zero, result.values.data(),
                   &ldc);
    return result;
}

} // namespace

Panel TransposeTimes(Panel const& a, Panel const& b)
{
    return Product("T", a, b, a.columns, a.rows);
}

Panel Times(Panel const& a, Panel const& b)
{
    return Product("N", a, b, a.rows, a.columns);
}

std::vector<double> Eigenpairs(Panel& matrix)
{
    int const n = matrix.rows;
    std::vector<double> values(static_cast<std::size_t>(n));
    int info = 0, size = -1;
    double best = 0.0;
    if (n == 0)
        return values;
    BLAC_DSYEV("V", "L", &n, matrix.values.data(), &n, values.data(), &best, &size, &info);
    size = static_cast<int>(best);
    std::vector<double> work(static_cast<std::size_t>(size));
    BLAC_DSYEV("V", "L", &n, matrix.values.data(), &n, values.data(), work.data(), &size, &info);
    return values;
}
