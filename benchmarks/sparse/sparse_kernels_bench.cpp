// The Fortran-callable sparse kernels beside Eigen, CHOLMOD and the plain loop, on the stiffness matrix of a block of bricks and on as
// large a matrix of random columns. Counters, all medians of one run in turns:
//
//   ratio       time over that of the fastest peer; eigen, cholmod, plain: over that of each
//   roofline    time over that of merely reading the matrix, scaled up to all bytes that a product must move

#include "AgainstPeer.h"
#include "BrickModel.h"
#include "KVOFortran.h"

#include <Eigen/Sparse>
#include <algorithm>
#include <cholmod.h>
#include <cmath>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

constexpr int kElements = 32; // along each edge: 107811 rows
constexpr int kMostVectors = 32;

enum Matrix {
    kNatural,    // nodes numbered along the edges: runs of nine columns
    kRenumbered, // nodes of each 64 shuffled: runs of three
    kRandom      // the same rows with random columns
};

BrickRows Assemble(Matrix kind, int elements)
{
    if (kind != kRenumbered) {
        BrickRows matrix = BrickModel(elements, elements, elements).Assembled();
        std::minstd_rand random(1);
        for (int i = 0; kind == kRandom && i < matrix.rows; ++i) {
            auto const first = matrix.columns.begin() + matrix.start[static_cast<std::size_t>(i)];
            auto const end = matrix.columns.begin() + matrix.start[static_cast<std::size_t>(i) + 1];
            std::generate(first, end, [&] { return static_cast<int>(random() % static_cast<unsigned>(matrix.rows)); });
            std::sort(first, end);
        }
        return matrix;
    }
    std::vector<int> number(static_cast<std::size_t>(BrickModel(elements, elements, elements).NumberOfNodes()));
    std::iota(number.begin(), number.end(), 0);
    std::minstd_rand random(1);
    for (auto first = number.begin(); first != number.end();) {
        auto const end = number.end() - first < 64 ? number.end() : first + 64;
        std::shuffle(first, end, random);
        first = end;
    }
    return BrickModel(elements, elements, elements, number).Assembled();
}

// The plain loops for `vectors` vectors at once.
template<int vectors>
[[gnu::noinline]] void PlainTimes(std::ptrdiff_t n, double const* a, int const* ia, int const* ja, double const* x, double* y)
{
    for (std::ptrdiff_t i = 0; i < n; ++i) {
        double sum[vectors] = {};
        for (int k = ia[i]; k < ia[i + 1]; ++k)
            for (int v = 0; v < vectors; ++v)
                sum[v] += a[k] * x[ja[k] + v * n];
        for (int v = 0; v < vectors; ++v)
            y[i + v * n] = sum[v];
    }
}

template<int vectors>
[[gnu::noinline]] void PlainTransposedTimes(std::ptrdiff_t n, double const* a, int const* ia, int const* ja, double const* x, double* y)
{
    for (std::ptrdiff_t i = 0; i < n; ++i) {
        double xi[vectors];
        for (int v = 0; v < vectors; ++v)
            xi[v] = x[i + v * n];
        for (int k = ia[i]; k < ia[i + 1]; ++k) {
            double const value = a[k];
            double* const target = y + ja[k];
            for (int v = 0; v < vectors; ++v)
                target[v * n] += value * xi[v];
        }
    }
}

// Matrix and vectors, and each peer's view of them.
class Product
{
public:
    Product(Matrix kind, int elements, int vectors, bool transposed)
        : m_matrix(Assemble(kind, elements)), m_vectors(vectors), m_transposed(transposed),
          m_x(static_cast<std::size_t>(m_matrix.rows) * static_cast<std::size_t>(vectors)), m_y(m_x.size())
    {
        std::minstd_rand random(1);
        for (double& x : m_x)
            x = 1e-9 * static_cast<double>(random()) - 1.0;
        cholmod_start(&m_common);
    }
    ~Product() { cholmod_finish(&m_common); }
    Product(Product const&) = delete;
    Product& operator=(Product const&) = delete;

    double MatrixBytes() const { return 12.0 * static_cast<double>(m_matrix.values.size()); }
    double AllBytes() const
    {
        // Row starts, x once, y once; every group of eight, and every single vector left, reads the matrix.
        int const passes = m_vectors / 8 + m_vectors % 8;
        return passes * (MatrixBytes() + 4.0 * m_matrix.rows) + 16.0 * static_cast<double>(m_x.size());
    }

    void Ours()
    {
        auto const kernel = m_transposed ? BLAC_SPARSE_UMTV : BLAC_SPARSE_UMV;
        kernel(m_matrix.values.data(), m_x.data(), m_matrix.start.data(), m_matrix.columns.data(), m_y.data(), &m_matrix.rows,
               &m_matrix.rows, &m_vectors);
    }
    void Eigen()
    {
        Eigen::Map<Eigen::SparseMatrix<double, Eigen::RowMajor> const> const a(
            m_matrix.rows, m_matrix.rows, static_cast<Eigen::Index>(m_matrix.values.size()), m_matrix.start.data(), m_matrix.columns.data(),
            m_matrix.values.data());
        if (m_vectors == 1) { // its own, faster path
            Eigen::Map<Eigen::VectorXd const> const x(m_x.data(), m_matrix.rows);
            Eigen::Map<Eigen::VectorXd> y(m_y.data(), m_matrix.rows);
            m_transposed ? y.noalias() = a.transpose() * x : y.noalias() = a * x;
            return;
        }
        Eigen::Map<Eigen::MatrixXd const> const x(m_x.data(), m_matrix.rows, m_vectors);
        Eigen::Map<Eigen::MatrixXd> y(m_y.data(), m_matrix.rows, m_vectors);
        m_transposed ? y.noalias() = a.transpose() * x : y.noalias() = a * x;
    }
    // Compressed rows of A are compressed columns of its transpose.
    void Cholmod()
    {
        auto const rows = static_cast<std::size_t>(m_matrix.rows);
        cholmod_sparse a{};
        a.nrow = a.ncol = rows;
        a.nzmax = m_matrix.values.size();
        a.p = m_matrix.start.data();
        a.i = m_matrix.columns.data();
        a.x = m_matrix.values.data();
        a.xtype = CHOLMOD_REAL;
        a.sorted = a.packed = 1;
        cholmod_dense x{}, y{};
        x.nrow = x.d = y.nrow = y.d = rows;
        x.ncol = y.ncol = static_cast<std::size_t>(m_vectors);
        x.nzmax = y.nzmax = m_x.size();
        x.x = m_x.data();
        y.x = m_y.data();
        x.xtype = y.xtype = CHOLMOD_REAL;
        double one[2] = {1, 0}, zero[2] = {0, 0};
        cholmod_sdmult(&a, m_transposed ? 0 : 1, one, zero, &x, &y, &m_common);
    }
    // Eight running sums, or eight updates an entry, then one by one.
    void Plain()
    {
        if (m_transposed)
            std::fill(m_y.begin(), m_y.end(), 0.0);
        auto const pass = [&](auto const& loop, std::ptrdiff_t j) {
            std::ptrdiff_t const n = m_matrix.rows;
            loop(n, m_matrix.values.data(), m_matrix.start.data(), m_matrix.columns.data(), m_x.data() + j * n, m_y.data() + j * n);
        };
        int j = 0;
        for (; j + 8 <= m_vectors; j += 8)
            pass(m_transposed ? PlainTransposedTimes<8> : PlainTimes<8>, j);
        for (; j < m_vectors; ++j)
            pass(m_transposed ? PlainTransposedTimes<1> : PlainTimes<1>, j);
    }
    void Read() const
    {
        double sums[16] = {};
        std::size_t k = 0;
        for (; k + 16 <= m_matrix.values.size(); k += 16)
            for (std::size_t c = 0; c < 16; ++c)
                sums[c] += m_matrix.values[k + c];
        int columns[16] = {};
        for (k = 0; k + 16 <= m_matrix.columns.size(); k += 16)
            for (std::size_t c = 0; c < 16; ++c)
                columns[c] ^= m_matrix.columns[k + c];
        benchmark::DoNotOptimize(sums);
        benchmark::DoNotOptimize(columns);
    }

    // The kernels must give the plain loops' bits, the peers their values.
    void Check()
    {
        Plain();
        std::vector<double> const expected = m_y;
        auto const worst = [&](auto const& run) {
            std::fill(m_y.begin(), m_y.end(), NAN);
            run();
            double difference = 0;
            for (std::size_t k = 0; k < m_y.size(); ++k)
                difference = std::max(difference, std::isnan(m_y[k]) ? HUGE_VAL : std::abs(m_y[k] - expected[k]));
            return difference;
        };
        if (worst([&] { Ours(); }) != 0 || worst([&] { Eigen(); }) > 1e-12 || worst([&] { Cholmod(); }) > 1e-12)
            throw std::runtime_error("wrong result");
    }

private:
    BrickRows m_matrix;
    int m_vectors;
    bool m_transposed;
    std::vector<double> m_x, m_y;
    cholmod_common m_common{};
};

void Compare(benchmark::State& state, Matrix kind, bool transposed, int elements)
{
    Product product(kind, elements, static_cast<int>(state.range(0)), transposed);
    product.Check();
    std::vector<Peer> peers{{"eigen", [&] { product.Eigen(); }},
                            {"cholmod", [&] { product.Cholmod(); }},
                            {"plain", [&] { product.Plain(); }},
                            {"read", [&] { product.Read(); }}};
    TakeTurns(
        state, [&] { product.Ours(); }, peers);
    double const overReading = peers.back().ratio;
    peers.pop_back();
    ReportBest(state, peers);
    if (kind != kRandom) // whose accesses to x, not the bytes that are moved at least, set the limit
        state.counters["roofline"] = overReading * product.MatrixBytes() / product.AllBytes();
}

void Register(char const* name, Matrix kind, bool transposed, std::vector<int> const& vectors, int elements = kElements)
{
    auto* const family = benchmark::RegisterBenchmark(name, [=](benchmark::State& state) { Compare(state, kind, transposed, elements); });
    for (int const count : vectors)
        family->Arg(count);
    family->UseManualTime()->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv)
{
    Register("Times/natural", kNatural, false, {1, 8, 9, kMostVectors});
    Register("TransposedTimes/natural", kNatural, true, {1, 8, 9, kMostVectors});
    Register("Times/renumbered", kRenumbered, false, {1, 8});
    Register("TransposedTimes/renumbered", kRenumbered, true, {1, 8});
    Register("Times/random", kRandom, false, {1, 8});
    Register("TransposedTimes/random", kRandom, true, {1, 8});
    Register("Times/random_206763_rows", kRandom, false, {8}, 40);
    Register("TransposedTimes/random_206763_rows", kRandom, true, {8}, 40);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
