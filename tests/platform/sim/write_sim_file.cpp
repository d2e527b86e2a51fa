// Writes the database that read_sim_file.py reads: write_sim_file PATH PLACES COMMAND. COMMAND writes the blocks whose places are in
// PLACES.
#include "SimClient.h"

#include <cstdio>

using namespace SimClient;

namespace
{

void Write(char const* path, char const* placesPath, char const* command)
{
    KVOSimDatabase database;
    database.CreateFile(path, 0);
    KVOSimContextID const context = database.CreateContext();
    KVOSimCollectionID const rows = KVOSimContext(context).CreateCollection(4), columns = KVOSimContext(context).CreateCollection(3);
    KVOSimCSetID const rowSet = MakeSet(rows, {100, 300, 200, 400});

    KVOSimDistributionID const whole = MakeMatrix(context, {Biggest(columns), rowSet}, {2, 3}); // distribution 0
    WriteAll(whole, Ramp(12));
    KVOSimDistribution(whole).SetTitle("displacements", "\xc2\xb5m");
    KVOSimDistributionID const partial = MakeMatrix(context, {Biggest(columns), rowSet}, {1, 2}, 7.5); // 1: one chunk of six is written
    SimClient::Write(Window(partial, {{1, 1}, {2, 2}}), std::vector{-2.0});
    WriteAll(MakeMatrix(context, {rowSet}), Ramp(4)); // 2: contiguous
    Rows{{0.5, 0.25, -1.0}, {0, 1, 1}, {0, 2, 2, 3, 3}, {}}.Store(context, rowSet,
                                                                  Biggest(columns)); // 3: nothing in the last row and column
    Rows{{0.5, 0.25, -1.0}, {1, 2, 3}, {0, 2, 2, 3, 3}, {10, 20, 30, 40}}.Store(context, rowSet,
                                                                                Biggest(KVOSimCollection(rows).CreateColorVariant(1))); // 4

    // 0 grows: its drawer has a second block of rows in the table.
    KVOSimContext contextObject(context);
    KVOSimTransaction transaction(contextObject);
    transaction.Commit();
    Extend(whole, 1, MakeSet(rows, {500}));
    transaction.Commit();

    // 5: its blocks are written by another program.
    KVOSimTransaction another(contextObject);
    KVOSimTransfer transfer{KVOSimDistribution(
        MakeMatrix(context, {Biggest(contextObject.CreateCollection(7)), Biggest(contextObject.CreateCollection(5))}, {3, 2}))};
    transfer.SetWrite();
    transfer.AllocateBlocks();
    KVOSimArray<std::byte> const places = transfer.BlockPlaces().Bytes();
    WriteFile(placesPath, {reinterpret_cast<char const*>(places.begin()), static_cast<std::size_t>(places.Size())});
    if (std::system(command) == 0)
        another.Commit();
    database.Close();
}

} // namespace

int main(int count, char** arguments)
{
    try {
        if (count != 4)
            return 2;
        Write(arguments[1], arguments[2], arguments[3]);
        return 0;
    } catch (KVOSimException const& failure) {
        std::fprintf(stderr, "%s\n", failure.AsString().c_str());
        return 1;
    }
}
