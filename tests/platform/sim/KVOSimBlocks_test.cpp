#include "ChildProcess.h"
#include "KVOSrvBlockWriter.h"
#include "SimClient.h"

#include <optional>
#include <sys/stat.h>

using namespace SimClient;

namespace
{

using Sizes = std::vector<int>; // columns and rows

/// A matrix that is being made, of (i, j) = 1000 i + j once it is written.
struct Making {
    Making(KVOSimDatabase& database, Sizes const& sizes, Sizes const& chunks, double initial = 0.0) : context(database.ContextID())
    {
        std::vector<KVOSimCSetID> sets;
        for (int const size : sizes)
            sets.push_back(Biggest(context.CreateCollection(size)));
        id = MakeMatrix(database.ContextID(), sets, chunks, initial);
    }
    KVOSimTransfer Transfer() const
    {
        KVOSimTransfer transfer{KVOSimDistribution(id)};
        transfer.SetWrite();
        return transfer;
    }
    KVOSimBlockPlaces Places() const
    {
        Transfer().AllocateBlocks();
        return Transfer().BlockPlaces();
    }

    KVOSimContext context;
    KVOSimTransaction transaction{context};
    KVOSimDistributionID id;
};

double ValueAt(int i, int j)
{
    return 1000.0 * i + j;
}

std::vector<double> Values(int rows, int columns, int lda, int firstRow = 0, int firstColumn = 0)
{
    std::vector<double> values(static_cast<std::size_t>(lda) * static_cast<std::size_t>(columns), -55.0);
    for (int j = 0; j < columns; ++j)
        for (int i = 0; i < rows; ++i)
            values[static_cast<std::size_t>(i + j * lda)] = ValueAt(firstRow + i, firstColumn + j);
    return values;
}

void WriteBlock(KVOSrvBlockWriter& writer, KVOSimBlockPlace const& block, int lda)
{
    writer.Write(block.firstRow, block.firstRow + block.rows - 1, block.firstColumn, block.firstColumn + block.columns - 1,
                 Values(block.rows, block.columns, lda, block.firstRow, block.firstColumn).data(), lda);
}

void WriteAllBlocks(std::string const& path, KVOSimBlockPlaces const& places)
{
    KVOSrvBlockWriter writer(path.c_str(), places);
    for (KVOSimBlockPlace const& block : places.blocks)
        WriteBlock(writer, block, block.rows);
    writer.Sync();
}

/// A file with a committed matrix of 7 values.
class Blocks : public DatabaseTest
{
protected:
    Blocks()
    {
        KVOSimContextID const context = Create();
        WriteAll(MakeMatrix(context, {Biggest(KVOSimContext(context).CreateCollection(7))}, {3}), Ramp(7));
        database.Close();
        KeptFile = ReadFile(path);
    }
    /// That the file holds the committed matrix and, if `isKept`, another one of these sizes with all values.
    void ExpectState(Sizes const& sizes, testing::Matcher<bool> const& isKept)
    {
        KVOSimDatabase reader;
        reader.OpenFile(path.c_str(), true);
        KVOSimContextID const id = reader.ContextID();
        bool const kept = KVOSimContext(id).QueryDistributions().Size() > 1;
        EXPECT_THAT(kept, isKept);
        EXPECT_EQ(ReadAll(KVOSimDistributionID(id, 0)), Ramp(7));
        if (kept) {
            EXPECT_EQ(ReadAll(KVOSimDistributionID(id, 1)), Values(sizes[1], sizes[0], sizes[1]));
        }
    }
    std::int64_t BytesOnDisk() const
    {
        struct stat status {
        };
        return stat(path.c_str(), &status) == 0 ? std::int64_t{status.st_blocks} * 512 : -1;
    }

    std::string KeptFile;
};

} // namespace

TEST_F(Blocks, AreWrittenBySeveralProcessesAndCommittedByOne)
{
    struct Case {
        Sizes sizes, chunks;
        double initial;
    };
    int distribution = 0;
    for (auto const& [sizes, chunks, initial] :
         {Case{{70, 100}, {32, 16}, 0.0}, Case{{70, 101}, {70, 16}, 7.5}, Case{{300, 500}, {128, 512}, 0.0}, Case{{3, 5}, {10, 10}, -1.0},
          Case{{6, 5}, {}, 0.0}, Case{{37}, {10}, 0.0}}) {
        SCOPED_TRACE(testing::PrintToString(sizes) + testing::PrintToString(chunks));
        database.OpenFile(path.c_str(), false);
        std::int64_t const before = BytesOnDisk();
        std::optional<Making> making(std::in_place, database, sizes, chunks, initial);
        KVOSimArray<std::byte> const sent = making->Places().Bytes();
        if (initial == 0.0) {
            EXPECT_LT(BytesOnDisk() - before, 20'000) << "space for values is taken before there are any";
        }
        KVOSimBlockPlaces const places = KVOSimBlockPlaces::FromBytes(sent.begin(), static_cast<std::size_t>(sent.Size()));
        std::vector<double> expected(static_cast<std::size_t>(places.rows) * static_cast<std::size_t>(places.columns), initial);
        {
            std::vector<std::unique_ptr<ChildProcess>> writers;
            for (int process = 0; process < 3; ++process)
                writers.push_back(std::make_unique<ChildProcess>([&, process] {
                    KVOSrvBlockWriter writer(path.c_str(), places);
                    for (int b = process; b < places.blocks.Size(); b += 4) // each fourth block is left as it is
                        WriteBlock(writer, places.blocks[b], places.blocks[b].rows + 3 * (b % 2));
                    writer.Sync();
                    return 0;
                }));
            for (auto const& writer : writers)
                EXPECT_EQ(writer->Wait(), 0);
        }
        for (int b = 0; b < places.blocks.Size(); ++b) {
            KVOSimBlockPlace const& block = places.blocks[b];
            for (int j = block.firstColumn; b % 4 != 3 && j < block.firstColumn + block.columns; ++j)
                for (int i = block.firstRow; i < block.firstRow + block.rows; ++i)
                    expected[static_cast<std::size_t>(i + j * places.rows)] = ValueAt(i, j);
        }
        // A range of all rows of some columns, which lies in several blocks.
        int const last = std::min(places.columns - 1, 40);
        KVOSrvBlockWriter(path.c_str(), places)
            .Write(0, places.rows - 1, last / 2, last, expected.data() + last / 2 * places.rows, places.rows);
        EXPECT_EQ(ReadAll(making->id), expected);
        making->transaction.Commit();
        making.reset();
        Reopen(true);
        EXPECT_EQ(ReadAll(KVOSimDistributionID(database.ContextID(), ++distribution)), expected);
        EXPECT_EQ(database.Check().damages.Size(), 0);
        database.Close();
    }
}

// The process that commits is killed at each call that changes the file, while another writes; then a writer is, while the first goes on.
TEST_F(Blocks, LeaveWhatWasCommittedWhateverProcessDies)
{
    Sizes const sizes{5, 7}, chunks{2, 4};
    for (bool const dies : {true, false})
        for (int call = 0, code = -1; code != 0; ++call) {
            SCOPED_TRACE((dies ? "of the committer " : "of the writer ") + std::to_string(call));
            WriteFile(path, KeptFile);
            std::filesystem::remove(path + ".journal");
            std::string const sent = folder / "places";
            Reports told, written;
            ChildProcess committer([&] {
                database.OpenFile(path.c_str(), false);
                Making making(database, sizes, chunks);
                if (dies)
                    KillAtChange(call);
                KVOSimArray<std::byte> const bytes = making.Places().Bytes();
                WriteFile(sent, {reinterpret_cast<char const*>(bytes.begin()), static_cast<std::size_t>(bytes.Size())});
                told.Send(1);
                if (written.Next() == 1)
                    making.transaction.Commit();
                database.Close();
                return 0;
            });
            std::optional<KVOSrvBlockWriter> orphan;
            int writerCode = 0;
            bool const begun = told.Next() == 1;
            if (begun) {
                std::string const bytes = ReadFile(sent);
                KVOSimBlockPlaces const places = KVOSimBlockPlaces::FromBytes(bytes.data(), bytes.size());
                orphan.emplace(path.c_str(), places);
                ChildProcess writer([&] {
                    if (!dies)
                        KillAtChange(call, call % 2 != 0);
                    WriteAllBlocks(path, places);
                    return 0;
                });
                writerCode = writer.Wait();
                written.Send(writerCode == 0 ? 1 : 2);
            }
            int const committerCode = committer.Wait();
            code = dies ? committerCode : writerCode;
            EXPECT_THAT(code, testing::AnyOf(0, -SIGKILL));
            ExpectState(sizes, code == 0 ? testing::Matcher<bool>(true) : dies ? testing::Matcher<bool>(testing::_) : false);
            if (!orphan)
                continue;
            // Another session may use the space; the writer that is left must not.
            database.OpenFile(path.c_str(), false);
            Making next(database, {5, 7}, {2, 4}, 3.0);
            next.Transfer().AllocateBlocks();
            ExpectFailure("another state of the file", [&] { orphan->Write(0, 6, 0, 4, Values(7, 5, 7).data(), 7); });
            EXPECT_EQ(ReadAll(next.id), std::vector<double>(35, 3.0));
            database.Close();
            if (HasFailure())
                return;
        }
}

TEST_F(Blocks, AreRefusedWhereTheyWouldHarmOrGetLost)
{
    database.OpenFile(path.c_str(), false);
    std::optional<Making> making(std::in_place, database, Sizes{5, 7}, Sizes{2, 4});
    KVOSimTransfer transfer = making->Transfer();
    auto const tell = [&] { transfer.BlockPlaces(); };
    ExpectFailure("allocate the blocks first", tell);
    KVOSimBlockPlaces const places = making->Places();

    auto const open = [&](KVOSimBlockPlaces const& ofPlaces, std::string const& file) {
        return [&, file] { KVOSrvBlockWriter(file.c_str(), ofPlaces); };
    };

    // The bytes on their way.
    KVOSimArray<std::byte> sent = places.Bytes();
    for (std::size_t const count : {0, 71, 72, static_cast<int>(sent.Size()) - 1})
        ExpectFailure("Cannot use places", [&] { KVOSimBlockPlaces::FromBytes(sent.begin(), count); });
    for (int const at : {24 + 32 + 11, 72 + 7, 72 + 8, 72 + 12, 72 + 20}) { // a size of the matrix, members of the first block
        KVOSimArray<std::byte> changed = sent;
        changed[at] ^= std::byte{0x81};
        ExpectFailure("Cannot use places",
                      [&] { KVOSimBlockPlaces::FromBytes(changed.begin(), static_cast<std::size_t>(changed.Size())); });
    }

    // Ranges.
    KVOSimBlockPlaces some = places;
    some.blocks = KVOSimArray<KVOSimBlockPlace>(places.blocks.begin() + 1, 1);
    KVOSrvBlockWriter writer(path.c_str(), some); // rows 4 to 6, columns 0 and 1
    std::vector<double> const values = Values(7, 5, 7);
    for (auto const& [r0, r1, c0, c1] : {std::array{3, 6, 0, 1}, std::array{4, 6, 1, 2}})
        ExpectFailure("was given no place of",
                      [&, r = std::array{r0, r1, c0, c1}] { writer.Write(r[0], r[1], r[2], r[3], values.data(), 7); });
    for (auto const& range : {std::array{4, 7, 0, 1}, std::array{-1, 6, 0, 1}, std::array{5, 4, 0, 1}, std::array{4, 6, 0, 5}})
        ExpectFailure("outside of the matrix", [&] { writer.Write(range[0], range[1], range[2], range[3], values.data(), 7); });
    ExpectFailure("overlap", [&] { writer.Write(4, 6, 0, 1, values.data(), 2); });
    EXPECT_EQ(ReadAll(making->id), std::vector<double>(35, 0.0));

    // The disk, and the locks of the file system.
    SetCallFault({SystemCall::Write, 1, ENOSPC});
    try {
        writer.Write(4, 6, 0, 1, values.data(), 7);
        ADD_FAILURE() << "a full disk went unseen";
    } catch (KVOSimException const& failure) {
        EXPECT_EQ(failure.FailureKind(), KVOSimException::Kind::NoSpace);
    }
    SetCallFault({SystemCall::Sync, 0, EIO});
    ExpectFailure("Input/output error", [&] { writer.Sync(); });
    SetCallFault({SystemCall::Lock, 0, ENOLCK});
    ExpectFailure("by a shared lock", open(places, path));
    SetCallFault({});

    // Other files: one of another origin, a copy, the file itself when something else has its name.
    {
        KVOSimDatabase other;
        other.CreateFile((folder / "other.sim").c_str(), 0);
        ExpectFailure("another file", open(places, folder / "other.sim"));
    }
    std::filesystem::copy_file(path, folder / "copy.sim");
    ExpectFailure("no process has it open for writing", open(places, folder / "copy.sim"));
    std::filesystem::rename(path, folder / "moved.sim");
    ExpectFailure("No such file", open(places, path));
    ExpectFailure("removed or replaced", [&] { writer.Sync(); });
    std::filesystem::rename(folder / "copy.sim", path);
    ExpectFailure("removed or replaced", [&] { writer.Sync(); });
    std::filesystem::rename(folder / "moved.sim", path);
    writer.Sync();
    ExpectFailure("no regular file", open(places, "/dev/null"));

    // Matrices whose blocks nobody else may write.
    making->transaction.Commit();
    ExpectFailure("a commit has kept", tell);
    ExpectFailure("another state of the file", [&] { writer.Write(4, 6, 0, 1, values.data(), 7); });
    making.emplace(database, Sizes{5, 7}, Sizes{2, 4});
    KVOSimBlockPlaces const later = making->Places();
    auto const bytes = std::filesystem::file_size(path);
    std::filesystem::resize_file(path, later.blocks[5].offset);
    ExpectFailure("cut short", open(later, path));
    std::filesystem::resize_file(path, bytes);
    making.reset();
    open(later, path)();
    database.Close();
    ExpectFailure("another state of the file", open(later, path));

    KVOSimDatabase scratch;
    scratch.SetScratch();
    scratch.CreateFile((folder / "scratch.sim").c_str(), 0);
    scratch.CreateContext();
    making.emplace(scratch, Sizes{5, 7}, Sizes{2, 4});
    ExpectFailure("goes with this process", [&] { making->Places(); });
}
