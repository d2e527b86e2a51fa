// A complex Hermitian product beside the real products that it consists of: two stored matrices, the real and the imaginary part in full,
// each times twice as many real vectors.

#include "AgainstPeer.h"
#include "KVOSrvHermitianScrDenseMatrix.h"
#include "KVOSrvMatrix.h"

#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

namespace
{

constexpr int kOrder = 4096;

// Fills H = S + i K, and both parts in full, by pairs of columns blocks that mirror each other.
struct Model {
    explicit Model(int chunk) : hermitian(kOrder, chunk), real(kOrder, kOrder, chunk, chunk), imaginary(kOrder, kOrder, chunk, chunk)
    {
        constexpr int kPiece = 512;
        std::mt19937 random(1);
        std::uniform_real_distribution<> number(-1.0, 1.0);
        auto const entries = std::size_t{kPiece} * kPiece;
        std::vector<double> piece(2 * entries);
        KVOSrvMatrix re(kPiece, kPiece, nullptr, false, false), im = re, reMirror = re, imMirror = re;
        for (int c0 = 0; c0 < kOrder; c0 += kPiece)
            for (int r0 = c0; r0 < kOrder; r0 += kPiece) {
                for (int j = 0; j < kPiece; ++j)
                    for (int i = 0; i < kPiece; ++i) {
                        bool const mirrored = r0 == c0 && i < j;
                        int const at = i + j * kPiece, mirror = j + i * kPiece;
                        double const s = mirrored ? re.Values()[mirror] : number(random);
                        double const k = mirrored ? -im.Values()[mirror] : r0 == c0 && i == j ? 0.0 : number(random);
                        re.Values()[at] = reMirror.Values()[mirror] = piece[static_cast<std::size_t>(2 * at)] = s;
                        im.Values()[at] = piece[static_cast<std::size_t>(2 * at) + 1] = k;
                        imMirror.Values()[mirror] = -k;
                    }
                int const r1 = r0 + kPiece - 1, c1 = c0 + kPiece - 1;
                hermitian.SetValues(r0, r1, c0, c1, piece.data());
                real.SetValues(r0, r1, c0, c1, re);
                imaginary.SetValues(r0, r1, c0, c1, im);
                if (r0 != c0) {
                    real.SetValues(c0, c1, r0, r1, reMirror);
                    imaginary.SetValues(c0, c1, r0, r1, imMirror);
                }
            }
    }

    KVOSrvHermitianScrDenseMatrix hermitian;
    KVOSrvScratchDenseMatrix real, imaginary;
};

void Multiply(benchmark::State& state)
{
    Model const model(static_cast<int>(state.range(0)));
    int const k = static_cast<int>(state.range(1));
    auto const half = static_cast<std::size_t>(kOrder) * static_cast<std::size_t>(k);
    std::vector<double> X(2 * half), Y(2 * half), x(2 * half), ix(2 * half), y(2 * half);
    std::mt19937 random(2);
    std::uniform_real_distribution<> number(-1.0, 1.0);
    for (std::size_t i = 0; i < half; ++i) {
        X[2 * i] = x[i] = ix[half + i] = number(random);
        X[2 * i + 1] = x[half + i] = number(random);
        ix[i] = -x[half + i];
    }
    AgainstPeer(
        state, [&] { model.hermitian.Multiply(X.data(), k, Y.data()); },
        [&] {
            model.real.Multiply(x.data(), 2 * k, y.data());
            model.imaginary.Multiply(ix.data(), 2 * k, y.data());
        },
        [&] { std::fill(y.begin(), y.end(), 0.0); });
    for (std::size_t i = 0; i < half; ++i)
        if (std::fabs(Y[2 * i] - y[i]) > 1e-9 || std::fabs(Y[2 * i + 1] - y[half + i]) > 1e-9)
            throw std::runtime_error("the results differ");
    state.counters["GF/s"] = benchmark::Counter(8e-9 * kOrder * static_cast<double>(half), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(Multiply)->ArgsProduct({{512, 1024}, {1, 16, 64, 256}})->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
