#include "AgainstPeer.h"
#include "BrickModel.h"
#include "CoordinatePeer.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvSparsePlaces.h"
#include "KVOSrvUtilities.h"

#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

// The second assembly of a pattern: beside the first one (AddData() of all entries and EndAssembly()), beside the loop over valuePtr() that
// users of Eigen write, its places found beforehand, and beside PETSc's assembly by coordinates where that is installed.

namespace
{

using EigenMatrix = Eigen::SparseMatrix<double, Eigen::RowMajor, int>;

// 21 952 elements, 73 167 rows: 12.6 million entries, 5.6 million places.
struct Model {
    explicit Model(bool shuffled)
    {
        BrickModel const brick(28, 28, 28);
        order = brick.NumberOfRows();
        std::vector<BrickTriplet> entries = brick.Triplets();
        if (shuffled)
            std::shuffle(entries.begin(), entries.end(), std::mt19937(1));
        for (BrickTriplet const& entry : entries) {
            rows.push_back(entry.row);
            columns.push_back(entry.column);
            values.push_back(entry.value);
        }
    }

    std::unique_ptr<KVOSrvSparseMatrix> Assembled() const
    {
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(order, order);
        for (std::size_t k = 0; k < rows.size(); ++k)
            matrix->AddData(static_cast<unsigned>(rows[k]), static_cast<unsigned>(columns[k]), values[k]);
        matrix->EndAssembly();
        return matrix;
    }

    EigenMatrix Eigen() const
    {
        std::vector<Eigen::Triplet<double>> list;
        for (std::size_t k = 0; k < rows.size(); ++k)
            list.emplace_back(rows[k], columns[k], values[k]);
        EigenMatrix matrix(order, order);
        matrix.setFromTriplets(list.begin(), list.end());
        return matrix;
    }

    std::int64_t Entries() const { return static_cast<std::int64_t>(rows.size()); }
    KVOSrvSparsePlaces PlacesIn(KVOSrvSparseMatrix const& matrix) const { return {matrix, rows.data(), columns.data(), Entries()}; }
    std::unique_ptr<CoordinatePeer> Petsc() const { return PetscByCoordinates(order, rows, columns); }

    int order;
    std::vector<int> rows, columns;
    std::vector<double> values;
};

Model const& ModelOf(bool shuffled)
{
    static std::map<bool, Model> models;
    return models.try_emplace(shuffled, shuffled).first->second;
}

// &matrix.coeffRef(row, column) - matrix.valuePtr() for each entry.
std::vector<int> PlacesInEigen(EigenMatrix const& matrix, Model const& model)
{
    std::vector<int> places(model.rows.size());
    for (std::size_t k = 0; k < places.size(); ++k) {
        int const* const begin = matrix.innerIndexPtr() + matrix.outerIndexPtr()[model.rows[k]];
        int const* const end = matrix.innerIndexPtr() + matrix.outerIndexPtr()[model.rows[k] + 1];
        places[k] = static_cast<int>(std::lower_bound(begin, end, model.columns[k]) - matrix.innerIndexPtr());
    }
    return places;
}

void RequireEqual(KVOSrvSparseMatrix const& matrix, double const* expected, std::size_t count)
{
    KVOSrvSparseRows const rows = matrix.Rows();
    if (static_cast<std::size_t>(rows.entries) != count ||
        !std::equal(expected, expected + count, rows.values, [](double a, double b) { return std::abs(a - b) < 1e-12; }))
        throw std::runtime_error("the results differ");
}

void SecondAssembly(benchmark::State& state, bool shuffled)
{
    Model const& model = ModelOf(shuffled);
    double const* const values = model.values.data();
    auto const matrix = model.Assembled();
    KVOSrvSparsePlaces const places = model.PlacesIn(*matrix);
    EigenMatrix eigen = model.Eigen();
    std::vector<int> const placesInEigen = PlacesInEigen(eigen, model);
    auto const petsc = model.Petsc();
    std::unique_ptr<KVOSrvSparseMatrix> first;
    std::vector<Peer> peers{{"first_assembly", [&] { first = model.Assembled(); }},
                            {"eigen", [&] {
                                 std::fill_n(eigen.valuePtr(), eigen.nonZeros(), 0.0);
                                 for (std::size_t k = 0; k < placesInEigen.size(); ++k)
                                     eigen.valuePtr()[placesInEigen[k]] += values[k];
                             }}};
    if (petsc != nullptr)
        peers.push_back({"petsc", [&] { petsc->Sum(values); }});
    AgainstBest(
        state,
        [&] {
            matrix->ClearValues();
            matrix->AddValues(places, values);
        },
        peers,
        [&] {
            first.reset();
            KVOSrvUtilities::ReleaseMemory();
        });
    RequireEqual(*matrix, eigen.valuePtr(), static_cast<std::size_t>(eigen.nonZeros()));
    if (petsc != nullptr)
        RequireEqual(*matrix, petsc->Sums().data(), petsc->Sums().size());
}

void FindPlaces(benchmark::State& state, bool shuffled)
{
    Model const& model = ModelOf(shuffled);
    auto const matrix = model.Assembled();
    auto const petsc = model.Petsc();
    std::unique_ptr<KVOSrvSparseMatrix> first;
    std::unique_ptr<KVOSrvSparsePlaces> places;
    std::vector<Peer> peers{{"first_assembly", [&] { first = model.Assembled(); }}};
    if (petsc != nullptr)
        peers.push_back({"petsc", [&] { petsc->Locate(); }});
    AgainstBest(
        state, [&] { places = std::make_unique<KVOSrvSparsePlaces>(*matrix, model.rows.data(), model.columns.data(), model.Entries()); },
        peers,
        [&] {
            first.reset();
            places.reset();
            KVOSrvUtilities::ReleaseMemory();
        });
}

#define KVO_ORDERS(Case)                                                                                                                   \
    BENCHMARK_CAPTURE(Case, element_order, false)->UseManualTime()->Unit(benchmark::kMillisecond);                                         \
    BENCHMARK_CAPTURE(Case, shuffled, true)->UseManualTime()->Unit(benchmark::kMillisecond)

KVO_ORDERS(SecondAssembly);
KVO_ORDERS(FindPlaces);

} // namespace

BENCHMARK_MAIN();
