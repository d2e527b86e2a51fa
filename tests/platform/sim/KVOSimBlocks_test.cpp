#include "ChildProcess.h"
#include "KVOSrvBlockWriter.h"
#include "SimClient.h"

#include <optional>

using namespace SimClient;

namespace
{

using Sizes = std::vector<int>; // of columns and rows

/// A matrix that is being made.
struct Making {
    Making(KVOSimDatabase& database, Sizes const& sizes, Sizes const& chunks, double initial = 0.0) : context(database.ContextID())
    {
        std::vector<KVOSimCSetID> sets;
        for (int const size : sizes)
            sets.push_back(Biggest(context.CreateCollection(size)));
        transfer.emplace(KVOSimDistribution(id = MakeMatrix(database.ContextID(), sets, chunks, initial)));
        transfer->SetWrite();
    }
    std::string Places()
    {
        transfer->AllocateBlocks();
        KVOSimArray<std::byte> const bytes = transfer->BlockPlaces().Bytes();
        return {reinterpret_cast<char const*>(bytes.begin()), static_cast<std::size_t>(bytes.Size())};
    }

    KVOSimContext context;
    KVOSimTransaction transaction{context};
    KVOSimDistributionID id;
    std::optional<KVOSimTransfer> transfer;
};

/// What is written: (i, j) = 1000 i + j.
std::vector<double> Values(KVOSimBlockPlace const& block, int lda)
{
    std::vector<double> values(static_cast<std::size_t>(lda) * static_cast<std::size_t>(block.columns), -55.0);
    for (int j = 0; j < block.columns; ++j)
        for (int i = 0; i < block.rows; ++i)
            values[static_cast<std::size_t>(i + j * lda)] = 1000.0 * (block.firstRow + i) + block.firstColumn + j;
    return values;
}

/// Blocks `process`, `process` + `step`, ... below `count`.
int WriteBlocks(std::string const& path, KVOSimBlockPlaces const& places, int process, int step, int count)
{
    KVOSrvBlockWriter writer(path.c_str(), places);
    for (int b = process; b < count; b += step) {
        KVOSimBlockPlace const& block = places.blocks[b];
        int const lda = b % 2 != 0 ? places.rowsPerBlock : block.rows + b % 3;
        writer.Write(block.firstRow, block.firstRow + block.rows - 1, block.firstColumn, block.firstColumn + block.columns - 1,
                     Values(block, lda).data(), lda);
    }
    writer.Sync();
    return 0;
}

} // namespace

using Blocks = DatabaseTest;

TEST_F(Blocks, AreWrittenBySeveralProcessesAndCommittedByOne)
{
    Create();
    int distribution = 0;
    for (auto const& [sizes, chunks, initial] : {std::tuple<Sizes, Sizes, double>{{70, 100}, {32, 16}, 0.0},
                                                 {{70, 101}, {70, 16}, 7.5},
                                                 {{300, 500}, {128, 512}, 0.0},
                                                 {{3, 5}, {10, 10}, -1.0},
                                                 {{6, 5}, {}, 0.0},
                                                 {{37}, {10}, 0.0}}) {
        SCOPED_TRACE(testing::PrintToString(sizes) + testing::PrintToString(chunks));
        Reopen();
        std::optional<Making> making(std::in_place, database, sizes, chunks, initial);
        std::string const sent = making->Places();
        KVOSimBlockPlaces const places = KVOSimBlockPlaces::FromBytes(sent.data(), sent.size());
        int const written = std::max(places.blocks.Size() - 1, 1);
        std::vector<double> expected = Values({0, 0, 0, 0, places.rows, places.columns}, places.rows);
        for (int b = written; b < places.blocks.Size(); ++b)
            for (int j = places.blocks[b].firstColumn; j < places.columns; ++j)
                std::fill_n(expected.begin() + places.blocks[b].firstRow + j * places.rows, places.blocks[b].rows, initial);
        ChildProcess first([&] { return WriteBlocks(path, places, 0, 3, written); });
        ChildProcess second([&] { return WriteBlocks(path, places, 1, 3, written); });
        EXPECT_EQ(WriteBlocks(path, places, 2, 3, written) + first.Wait() + second.Wait(), 0);
        std::fill_n(expected.begin(), places.rows, 0.25); // a range in several blocks
        KVOSrvBlockWriter(path.c_str(), places).Write(0, places.rows - 1, 0, 0, expected.data(), places.rows);
        EXPECT_EQ(ReadAll(making->id), expected);
        making->transaction.Commit();
        making.reset();
        Reopen(true);
        EXPECT_EQ(ReadAll(KVOSimDistributionID(database.ContextID(), distribution++)), expected);
        EXPECT_EQ(database.Check().damages.Size(), 0);
    }
}

// The process that commits is killed at each call that changes the file, while another writes; then a writer is, while the first goes on.
TEST_F(Blocks, LeaveWhatWasCommittedWhateverProcessDies)
{
    KVOSimContextID const context = Create();
    WriteAll(MakeMatrix(context, {Biggest(KVOSimContext(context).CreateCollection(7))}, {3}), Ramp(7));
    database.Close();
    std::string const before = ReadFile(path);
    for (bool const dies : {true, false})
        for (int call = 0, code = -1; code != 0; ++call) {
            SCOPED_TRACE((dies ? "of the committer " : "of the writer ") + std::to_string(call));
            WriteFile(path, before);
            std::filesystem::remove(path + ".journal");
            Reports told, written;
            ChildProcess committer([&] {
                database.OpenFile(path.c_str(), false);
                Making making(database, {5, 7}, {2, 4});
                if (dies)
                    KillAtChange(call);
                WriteFile(folder / "places", making.Places());
                told.Send(1);
                if (written.Next() == 1)
                    making.transaction.Commit();
                database.Close();
                return 0;
            });
            std::optional<KVOSrvBlockWriter> left;
            int writerCode = 0;
            if (told.Next() == 1) {
                std::string const sent = ReadFile(folder / "places");
                KVOSimBlockPlaces const places = KVOSimBlockPlaces::FromBytes(sent.data(), sent.size());
                left.emplace(path.c_str(), places);
                ChildProcess writer([&] {
                    if (!dies)
                        KillAtChange(call, call % 2 != 0);
                    return WriteBlocks(path, places, 0, 1, places.blocks.Size());
                });
                writerCode = writer.Wait();
                written.Send(writerCode == 0 ? 1 : 2);
            }
            code = dies ? committer.Wait() : (committer.Wait(), writerCode);
            EXPECT_THAT(code, testing::AnyOf(0, -SIGKILL));
            database.OpenFile(path.c_str(), false);
            KVOSimContextID const id = database.ContextID();
            bool const isKept = KVOSimContext(id).QueryDistributions().Size() > 1;
            EXPECT_EQ(ReadAll(KVOSimDistributionID(id, 0)), Ramp(7));
            EXPECT_TRUE(!isKept || ReadAll(KVOSimDistributionID(id, 1)) == Values({0, 0, 0, 0, 7, 5}, 7));
            EXPECT_THAT(isKept, testing::AnyOf(code == 0, dies));
            // Another session takes the same space: the writer that is left must not write there.
            Making next(database, {5, 7}, {2, 4}, 3.0);
            next.transfer->AllocateBlocks();
            if (left)
                ExpectFailure("another state of the file", [&] { left->Write(0, 6, 0, 4, Ramp(35).data(), 7); });
            EXPECT_EQ(ReadAll(next.id), std::vector<double>(35, 3.0));
            database.Close();
            ASSERT_FALSE(HasFailure());
        }
}

TEST_F(Blocks, AreRefusedWhereTheyWouldHarmOrGetLost)
{
    Create();
    std::optional<Making> making(std::in_place, database, Sizes{500, 700}, Sizes{200, 400});
    auto const tell = [&] { making->transfer->BlockPlaces(); };
    ExpectFailure("allocate the blocks first", tell);
    std::string const sent = making->Places();
    KVOSimBlockPlaces places = KVOSimBlockPlaces::FromBytes(sent.data(), sent.size());
    EXPECT_EQ(std::system(("test $(du -k '" + path + "' | cut -f1) -lt 500").c_str()), 0) << "zeros were written";

    // The bytes on their way: cut, and changed in a size of the matrix and in members of the first block.
    for (std::size_t const count : {std::size_t{0}, std::size_t{71}, std::size_t{72}, sent.size() - 1})
        ExpectFailure("Cannot use places", [&] { KVOSimBlockPlaces::FromBytes(sent.data(), count); });
    for (std::size_t const at : {67, 79, 80, 84, 92}) {
        std::string changed = sent;
        changed[at] = static_cast<char>(changed[at] ^ 0x81);
        ExpectFailure("Cannot use places", [&] { KVOSimBlockPlaces::FromBytes(changed.data(), changed.size()); });
    }

    // Ranges; the disk and the locks of the file system; other files.
    std::string const other = folder / "other.sim", copy = folder / "copy.sim";
    KVOSimDatabase().CreateFile(other.c_str(), 0);
    std::filesystem::copy_file(path, copy);
    places.blocks = KVOSimArray<KVOSimBlockPlace>(places.blocks.begin() + 1, 1); // rows 400 to 699, columns 0 to 199
    KVOSrvBlockWriter writer(path.c_str(), places);
    std::vector<double> const values = Ramp(350000);
    auto const write = [&](int r0, int r1, int c0, int c1, int lda = 700) {
        return [&, r0, r1, c0, c1, lda] { writer.Write(r0, r1, c0, c1, values.data(), lda); };
    };
    auto const open = [&](std::string const& file) { return [&, file] { KVOSrvBlockWriter(file.c_str(), places); }; };
    auto const sync = [&] { writer.Sync(); };
    for (auto const& [why, run, fault] :
         {std::tuple<char const*, std::function<void()>, CallFault>{"was given no place of", write(399, 699, 0, 1), {}},
          {"was given no place of", write(400, 699, 199, 200), {}},
          {"outside of the matrix", write(400, 700, 0, 1), {}},
          {"outside of the matrix", write(400, 600, 0, 500), {}},
          {"outside of the matrix", write(500, 400, 0, 1), {}},
          {"overlap", write(400, 699, 0, 1, 299), {}},
          {"No space left", write(400, 699, 0, 1), {SystemCall::Write, 1, ENOSPC}},
          {"Input/output error", sync, {SystemCall::Sync, 0, EIO}},
          {"by a shared lock", open(path), {SystemCall::Lock, 0, ENOLCK}},
          {"another file", open(other), {}},
          {"no process has it open for writing", open(copy), {}}}) {
        SetCallFault(fault);
        ExpectFailure(why, run);
        SetCallFault({});
    }
    sync();
    std::filesystem::rename(copy, path);
    ExpectFailure("removed or replaced", sync);

    making->transaction.Commit();
    ExpectFailure("a commit has kept", tell);
    ExpectFailure("another state of the file", write(400, 699, 0, 1));
    making.reset();
    KVOSimDatabase scratch;
    scratch.SetScratch();
    scratch.CreateFile((folder / "scratch.sim").c_str(), 0);
    scratch.CreateContext();
    making.emplace(scratch, Sizes{5, 7}, Sizes{2, 4});
    ExpectFailure("goes with this process", [&] { making->Places(); });
}
