// How far does a net of ropes sag? A square net hangs from a rigid frame and carries its own weight; the ropes are pulled tight when it is
// hung up. The forces depend on where the knots have gone, so Newton's method asks for a new tangent stiffness in each step: the same
// entries with other values. The pattern is assembled once, KVOSrvSparsePlaces finds once where each element's entries land, and a step
// then sums values only. Each step is solved with the factor of the library KVOMtxModes.
//
// Checked: the tangent of every step equals, to the bit, one that is assembled from the beginning; the frame carries the weight of the net;
// and the last steps converge as Newton's method does, each with the square of the error before.
//
// usage: newton_net [CELLS]

#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvSparseFactor.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvSparsePlaces.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace
{

constexpr double kSide = 20.0;       // m
constexpr double kStiffness = 5.0e5; // N by m of the net's width: force of the ropes by their strain
constexpr double kTension = 2.0e3;   // N by m, when hung up
constexpr double kWeight = 60.0;     // N by m^2

using Vector3 = std::array<double, 3>;

struct Net {
    explicit Net(int cellsAlongSide) : cells(cellsAlongSide), length(kSide / cells)
    {
        for (int j = 0; j <= cells; ++j)
            for (int i = 0; i <= cells; ++i) {
                bool const onFrame = i == 0 || j == 0 || i == cells || j == cells;
                unknown.push_back(onFrame ? -1 : 3 * free++);
                if (i < cells && j > 0 && j < cells)
                    ropes.push_back({Knot(i, j), Knot(i + 1, j)});
                if (j < cells && i > 0 && i < cells)
                    ropes.push_back({Knot(i, j), Knot(i, j + 1)});
            }
        displacement.resize(unknown.size());
        force.resize(unknown.size());
    }

    int Knot(int i, int j) const { return j * (cells + 1) + i; }
    int Unknowns() const { return 3 * free; }
    double KnotWeight() const { return kWeight * length * length; }

    int cells;
    double length;            // of a rope between two knots
    int free = 0;             // knots
    std::vector<int> unknown; // the first of the three of each knot; -1 on the frame
    std::vector<std::array<int, 2>> ropes;
    std::vector<Vector3> displacement, force; // of each knot
};

// Where the entries of the tangent are: 3 x 3 blocks, for each rope one for each two of its knots that can move.
void ListEntries(Net const& net, std::vector<int>& rows, std::vector<int>& columns)
{
    for (auto const& rope : net.ropes)
        for (int const a : rope)
            for (int const b : rope)
                if (net.unknown[a] >= 0 && net.unknown[b] >= 0)
                    for (int i = 0; i < 3; ++i)
                        for (int j = 0; j < 3; ++j) {
                            rows.push_back(net.unknown[a] + i);
                            columns.push_back(net.unknown[b] + j);
                        }
}

// The element loop of a step: forces of the ropes on the knots, and the values of the entries in the order of ListEntries().
// A rope of direction e, length l and tension T = T0 + S (l - l0) / l0 has the tangent (S / l0) e e^T + (T / l) (1 - e e^T).
void EvaluateRopes(Net& net, std::vector<double>& values)
{
    std::fill(net.force.begin(), net.force.end(), Vector3{0.0, 0.0, -net.KnotWeight()});
    values.clear();
    for (auto const& rope : net.ropes) {
        Vector3 e{};
        int const step = rope[1] - rope[0];
        e[step == 1 ? 0 : 1] = net.length;
        for (int i = 0; i < 3; ++i)
            e[i] += net.displacement[rope[1]][i] - net.displacement[rope[0]][i];
        double const l = std::sqrt(e[0] * e[0] + e[1] * e[1] + e[2] * e[2]);
        double const tension = kTension * net.length + kStiffness * (l - net.length); // one rope for each l0 of width
        for (double& component : e)
            component /= l;
        for (int i = 0; i < 3; ++i) {
            net.force[rope[0]][i] += tension * e[i];
            net.force[rope[1]][i] -= tension * e[i];
        }
        for (int const a : rope)
            for (int const b : rope)
                if (net.unknown[a] >= 0 && net.unknown[b] >= 0)
                    for (int i = 0; i < 3; ++i)
                        for (int j = 0; j < 3; ++j) {
                            double const along = e[i] * e[j], across = (i == j ? 1.0 : 0.0) - along;
                            double const k = kStiffness * along + tension / l * across;
                            values.push_back(a == b ? k : -k);
                        }
    }
}

KVOSrvMatrix OutOfBalance(Net const& net)
{
    KVOSrvMatrix forces(net.Unknowns(), 1, nullptr, false, false);
    for (std::size_t knot = 0; knot < net.unknown.size(); ++knot)
        if (net.unknown[knot] >= 0)
            std::copy_n(net.force[knot].data(), 3, forces.Values() + net.unknown[knot]);
    return forces;
}

double Largest(KVOSrvMatrix const& vector, int count)
{
    double largest = 0.0;
    for (int i = 0; i < count; ++i)
        largest = std::max(largest, std::fabs(vector.Values()[i]));
    return largest;
}

void Assemble(KVOSrvSparseMatrix& tangent, std::vector<int> const& rows, std::vector<int> const& columns, std::vector<double> const& values)
{
    tangent.BeginAssembly();
    for (std::size_t k = 0; k < values.size(); ++k)
        tangent.AddData(static_cast<unsigned>(rows[k]), static_cast<unsigned>(columns[k]), values[k]);
    tangent.EndAssembly();
}

double Seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool Run(int cells)
{
    Net net(cells);
    int const n = net.Unknowns();
    std::vector<int> rows, columns;
    std::vector<double> values;
    ListEntries(net, rows, columns);
    EvaluateRopes(net, values);

    KVOSrvSparseMatrix tangent(n, n), anew(n, n);
    double const begin = Seconds();
    Assemble(tangent, rows, columns, values);
    double const assembled = Seconds();
    KVOSrvSparsePlaces const places(tangent, rows.data(), columns.data(), static_cast<std::int64_t>(rows.size()));
    double const found = Seconds();
    std::printf("%d knots, %d unknowns, %zu entries; assembled in %.2f ms, places found in %.2f ms\n", net.free, n, rows.size(),
                1e3 * (assembled - begin), 1e3 * (found - assembled));

    std::vector<double> errors;
    bool equal = true;
    std::printf("step   largest force out of balance N   sums ms\n");
    for (int step = 0; step < 30; ++step) {
        EvaluateRopes(net, values);
        KVOSrvMatrix move = OutOfBalance(net); // forces now, the move that they ask for after the solution
        errors.push_back(Largest(move, n));
        double const start = Seconds();
        tangent.ClearValues();
        tangent.AddValues(places, values.data());
        std::printf("%4d %28.3e %12.2f\n", step, errors.back(), 1e3 * (Seconds() - start));
        if (errors.back() < 1e-9 * net.KnotWeight())
            break;

        Assemble(anew, rows, columns, values);
        KVOSrvSparseRows const sums = tangent.Rows(), expected = anew.Rows();
        equal = equal && std::equal(sums.values, sums.values + sums.entries, expected.values, expected.values + expected.entries);

        KVOSrvSparseFactor factor(tangent, nullptr);
        factor.Factorize(0.0, true);
        factor.Solve(move);
        for (std::size_t knot = 0; knot < net.unknown.size(); ++knot)
            for (int i = 0; i < 3 && net.unknown[knot] >= 0; ++i)
                net.displacement[knot][i] += move.Values()[net.unknown[knot] + i];
    }

    bool const converged = errors.back() < 1e-9 * net.KnotWeight() && errors.size() < 20;
    double carried = 0.0;
    for (std::size_t knot = 0; knot < net.unknown.size(); ++knot)
        if (net.unknown[knot] < 0)
            carried -= net.force[knot][2] + net.KnotWeight(); // what its ropes pull
    double const weight = net.free * net.KnotWeight();
    std::printf("the net sags %.4f m; it weighs %.3f N, and the frame carries %.3f N\n",
                -net.displacement[static_cast<std::size_t>(net.Knot(cells / 2, cells / 2))][2], weight, carried);
    bool const isRight = equal && converged && std::fabs(carried / weight - 1.0) < 1e-9;
    std::printf("tangents %s to those assembled anew, %zu steps: %s\n", equal ? "equal" : "NOT EQUAL", errors.size() - 1,
                isRight ? "agrees" : "DIFFERS");
    return isRight;
}

} // namespace

int main(int count, char** arguments)
{
    int const cells = count > 1 ? std::atoi(arguments[1]) : 24;
    if (cells < 2) {
        std::fprintf(stderr, "usage: newton_net [CELLS], at least 2 of them along a side\n");
        return 2;
    }
    int tally = 0;
    KVOMtxLinearAlgebra_initialize(tally);
    int status = 1;
    try {
        status = Run(cells) ? 0 : 1;
    } catch (KVOBasException const& exception) {
        std::fprintf(stderr, "%s\n", exception.DeveloperReport().c_str());
    }
    KVOMtxLinearAlgebra_finalize(tally);
    return status;
}
