// The other half of an exchange by record files: reads what a Fortran solver wrote with unformatted `write` statements, the stiffness K by
// the library's import, load f and displacements u record by record, and checks that they are in equilibrium, K u = f. Run
// solver_records.f90 first, which writes the files.
//
// usage: read_records WORK_FOLDER

#include "KVOBasException.h"
#include "KVOForRecords.h"
#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

// A record file, read from its beginning. Nothing in such a file tells types or counts: the reader has to know them.
class RecordFile
{
public:
    explicit RecordFile(std::string const& path) : m_path(path) { Check(for_open(kUnit, path.c_str()), "cannot be opened"); }
    ~RecordFile() { for_close(kUnit); }
    RecordFile(RecordFile const&) = delete;
    RecordFile& operator=(RecordFile const&) = delete;

    // The next record, of `count` items that are all of one type.
    template<class T>
    std::vector<T> Read(std::int64_t count)
    {
        std::vector<T> items(count);
        Check(for_read_seq(kUnit), "ends before it should");
        Check(for_read_seq_xmit(kUnit, items.data(), count, sizeof(T)), "has a record that is too short");
        return items;
    }

private:
    static constexpr int kUnit = 10; // any number that no other open file of this thread has

    void Check(KVOForStatus status, char const* what) const
    {
        if (status == KVOForMalformed)
            what = "is damaged: the lengths of its records contradict each other";
        if (status != KVOForOk)
            throw std::runtime_error(m_path + " " + what);
    }

    std::string m_path;
};

double Norm(std::vector<double> const& x)
{
    return std::sqrt(std::inner_product(x.begin(), x.end(), x.begin(), 0.0));
}

bool Run(std::string const& folder)
{
    // Format 0: a symmetric matrix, of which each pair is stored once. Products take it for the full one.
    KVOSrvSparseMatrix stiffness(0, 0);
    stiffness.Import((folder + "/stiffness.rec").c_str(), 0);
    int const n = stiffness.NumberOfRows();
    std::printf("stiffness: %d rows, %d entries beside the diagonal\n", n, stiffness.NumberOfNonzeros());

    RecordFile solution(folder + "/solution.rec");
    if (int const unknowns = solution.Read<std::int32_t>(1).front(); unknowns != n)
        throw std::runtime_error("the solution has " + std::to_string(unknowns) + " unknowns, the stiffness " + std::to_string(n));
    std::vector<double> const load = solution.Read<double>(n), displacement = solution.Read<double>(n);

    std::vector<double> residual(n);
    stiffness.Multiply(displacement.data(), 1, residual.data(), false);
    double const work = std::inner_product(residual.begin(), residual.end(), displacement.begin(), 0.0);
    std::transform(residual.begin(), residual.end(), load.begin(), residual.begin(), std::minus<>());
    double const relative = Norm(residual) / Norm(load);
    double const loadWork = std::inner_product(load.begin(), load.end(), displacement.begin(), 0.0);

    // The solver stopped at a residual of 1e-9 as it had updated it; 1e-7 leaves room for what rounding has added to the true one.
    bool const ok = relative < 1e-7 && std::fabs(work / loadWork - 1.0) < 1e-7;
    std::printf("equilibrium: |K u - f| is %.1e of |f|; u'Ku = %.9e, u'f = %.9e; %s\n", relative, work, loadWork,
                ok ? "holds" : "DOES NOT HOLD");
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: read_records WORK_FOLDER\n");
        return 2;
    }
    int tally = 0, status = 1;
    KVOMtxLinearAlgebra_initialize(tally);
    try {
        status = Run(argv[1]) ? 0 : 1;
    } catch (KVOBasException const& exception) {
        std::fprintf(stderr, "%s\n", exception.DeveloperReport().c_str());
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
    }
    KVOMtxLinearAlgebra_finalize(tally);
    return status;
}
