// The two DGEMM entry points beside the provider's routine and the kernel library's own. Each case checks its product before it is timed.

#include "AgainstPeer.h"
#include "KVOFortran.h"
#include "own_dgemm.h"
#include "provider.h"

#include <cmath>
#include <limits>
#include <random>

namespace
{

double const one = 1.0, zero = 0.0;

using Product = void (*)(int n, double const* a, double const* b, double* c);

void Forward(int n, double const* a, double const* b, double* c)
{
    BLAC_DGEMM("N", "N", &n, &n, &n, &one, a, &n, b, &n, &zero, c, &n);
}

void BuiltIn(int n, double const* a, double const* b, double* c)
{
    BLAC_DGEMM2("N", "N", &n, &n, &n, &one, a, &n, b, &n, &zero, c, &n);
}

void Provider(int n, double const* a, double const* b, double* c)
{
    dgemm_("N", "N", &n, &n, &n, &one, a, &n, b, &n, &zero, c, &n, blac::kLength1, blac::kLength1);
}

struct Operands {
    explicit Operands(int order) : n(order), a(Random(1)), b(Random(2)), c(a.size()) {}

    std::vector<double> Random(unsigned seed) const
    {
        std::mt19937 generator(seed);
        std::uniform_real_distribution<double> entry(-1.0, 1.0);
        std::vector<double> x(static_cast<std::size_t>(n) * n);
        for (double& value : x)
            value = entry(generator);
        return x;
    }

    // op x for the vector of ones, or for `x`.
    std::vector<double> Times(std::vector<double> const& matrix, std::vector<double> const& x) const
    {
        std::vector<double> y(n, 0.0);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i)
                y[i] += matrix[static_cast<std::size_t>(j) * n + i] * x[j];
        return y;
    }

    // C x = A (B x), up to rounding of sums of n^2 terms.
    bool Right(Product product)
    {
        std::fill(c.begin(), c.end(), std::numeric_limits<double>::quiet_NaN());
        product(n, a.data(), b.data(), c.data());
        std::vector<double> const x(n, 1.0), expected = Times(a, Times(b, x)), actual = Times(c, x);
        for (int i = 0; i < n; ++i)
            if (!(std::fabs(actual[i] - expected[i]) <= 4.0 * n * n * std::numeric_limits<double>::epsilon()))
                return false;
        return true;
    }

    int n;
    std::vector<double> a, b, c;
};

void Compare(benchmark::State& state, Product subject, Product peer)
{
    Operands operands(static_cast<int>(state.range(0)));
    int const n = operands.n;
    if (!operands.Right(subject)) {
        state.SkipWithError("wrong product");
        return;
    }
    double const flops = 2.0 * n * n * n;
    int const times = std::max(1, static_cast<int>(2e8 / flops)); // a few milliseconds for each measurement
    auto const repeated = [&](Product product) {
        return [&operands, times, product] {
            for (int i = 0; i < times; ++i)
                product(operands.n, operands.a.data(), operands.b.data(), operands.c.data());
        };
    };
    AgainstPeer(state, repeated(subject), repeated(peer));
    state.counters["Gflop/s"] = benchmark::Counter(flops * times * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["peer_Gflop/s"] = flops * times * 1e-6 / state.counters["peer_ms"];
}

} // namespace

BENCHMARK_CAPTURE(Compare, DGEMM_against_provider, Forward, Provider)->Arg(64)->UseManualTime();
BENCHMARK_CAPTURE(Compare, DGEMM2_against_provider, BuiltIn, Provider)
    ->Arg(64)
    ->Arg(256)
    ->Arg(1024)
    ->Arg(2048)
    ->Arg(4096)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Compare, DGEMM2_against_kernel_library, BuiltIn, own_dgemm)
    ->Arg(64)
    ->Arg(256)
    ->Arg(1024)
    ->Arg(2048)
    ->Arg(4096)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
