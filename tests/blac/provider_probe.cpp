// Says, one a line, which library the provider's DGEMM comes from and a hash of products by the built-in one. With the argument "xerbla" it
// reports an error first.

#include "KVOFortran.h"

#include <bit>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <random>
#include <vector>

int main(int argc, char**)
{
    Dl_info origin{};
    char path[PATH_MAX];
    void* const symbol = dlsym(RTLD_DEFAULT, "dgemm_");
    if (symbol == nullptr || dladdr(symbol, &origin) == 0 || realpath(origin.dli_fname, path) == nullptr)
        return EXIT_FAILURE;
    std::printf("%s\n", path);
    std::fflush(stdout);

    if (argc > 1) {
        int const position = 3;
        BLAC_XERBLA("PROBE ", &position);
    }

    std::uint64_t hash = 1469598103934665603u; // FNV-1a over the words
    std::mt19937_64 generator(1);
    for (int const n : {8, 65, 300}) {
        std::vector<double> a(n * n), b(n * n), c(n * n);
        for (int i = 0; i < n * n; ++i) {
            a[i] = static_cast<double>(generator()) * 0x1p-64;
            b[i] = static_cast<double>(generator()) * 0x1p-64;
        }
        double const one = 1.0, zero = 0.0;
        BLAC_DGEMM2("N", "T", &n, &n, &n, &one, a.data(), &n, b.data(), &n, &zero, c.data(), &n);
        for (double const entry : c)
            hash = (hash ^ std::bit_cast<std::uint64_t>(entry)) * 1099511628211u;
    }
    std::printf("%016llx\n", static_cast<unsigned long long>(hash));
    return EXIT_SUCCESS;
}
