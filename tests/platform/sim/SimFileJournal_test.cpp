#include "SimWorkload.h"

namespace
{

using simdb::File;
using simdb::Hid;
using testing::HasSubstr;
using workload::CommitsIn;

constexpr std::size_t kMarkAt = 64, kNumberAt = 88, kNumberBytes = 8;

/// A journal that is beside a file in another state than the one it was written for.
class SimFileJournal : public workload::FileTest
{
protected:
    int refusals = 0;

    /// The bytes of a closed database of two commits, made by us or by HDF5 alone: its mark is then behind what was there.
    std::string ClosedDatabase(bool madeByUs) const
    {
        std::filesystem::remove(path);
        std::filesystem::remove(journal);
        if (!madeByUs) {
            Hid const creation(H5Pcreate(H5P_FILE_CREATE)), access(H5Pcreate(H5P_FILE_ACCESS));
            H5Pset_libver_bounds(access, H5F_LIBVER_V18, H5F_LIBVER_V110);
            H5Pset_file_space_strategy(creation, H5F_FSPACE_STRATEGY_NONE, false, 1);
            Hid const made(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, creation, access));
        }
        auto const file = madeByUs ? File::Create(path, File::Kind::Persistent) : File::Open(path, false);
        workload::Commit(file, 1, 2);
        file->Close();
        return ReadFile(path);
    }

    void PutJournal(std::string const& bytes) const
    {
        std::filesystem::remove(journal);
        if (!bytes.empty())
            WriteFile(journal, bytes);
    }
    void Put(std::string const& bytes, std::string const& journalBytes) const
    {
        WriteFile(path, bytes);
        PutJournal(journalBytes);
    }
    void Commit(int number) const
    {
        auto const file = File::Open(path, false);
        workload::Commit(file, number, number);
        file->Close();
    }

    /// A reader sees these commits; a writer too, or it is told why and changes nothing. Without the journal the work goes on.
    void ExpectCommits(int commits)
    {
        std::string const before = ReadFile(path);
        EXPECT_EQ(CommitsIn(path), commits);
        std::string const failure = FailureOf([&] { EXPECT_EQ(CommitsIn(path, false), commits); });
        if (failure != "no failure") {
            ++refusals;
            EXPECT_THAT(failure, HasSubstr("of another state of this"));
            EXPECT_TRUE(ReadFile(path) == before);
            std::filesystem::remove(journal);
        }
        Commit(commits + 1);
        EXPECT_EQ(CommitsIn(path), commits + 1);
    }
};

// After a kill at each call of a session of two commits, its journal is put beside other states of its file.
TEST_F(SimFileJournal, LeavesOtherStatesOfItsFileAlone)
{
    int kills = 0;
    for (bool const madeByUs : {true, false})
        for (bool const torn : {false, true}) {
            std::string const base = ClosedDatabase(madeByUs);
            for (int call = 0; !HasFailure(); ++call) {
                SCOPED_TRACE("call " + std::to_string(call) + (torn ? ", torn" : "") + (madeByUs ? "" : ", file of HDF5"));
                Put(base, "");
                ChildProcess child([&] {
                    auto const file = File::Open(path, false);
                    KillAtChange(call, torn);
                    workload::Commit(file, 3, 4);
                    file->Close();
                    return 0;
                });
                if (child.Wait() == 0)
                    break;
                ++kills;
                std::string const killed = ReadFile(path), left = std::filesystem::exists(journal) ? ReadFile(journal) : "";

                Put(base, left); // an older copy, and one that went on by itself, by as many commits
                ExpectCommits(2);
                Put(base, "");
                Commit(3);
                PutJournal(left);
                ExpectCommits(3);

                Put(killed, left); // the file once it has gone on
                int const commits = CommitsIn(path, false);
                PutJournal(left);
                EXPECT_EQ(CommitsIn(path), commits);
                EXPECT_EQ(CommitsIn(path, false), commits) << "it was applied already";
                Commit(commits + 1);
                PutJournal(left);
                ExpectCommits(commits + 1);
            }
        }
    std::printf("%d kills, %d journals refused\n", kills, refusals);
    EXPECT_GT(kills, 150);
    EXPECT_GT(refusals, kills * 2 / 3);
}

TEST_F(SimFileJournal, LeavesAFileAloneThatIsShorter)
{
    workload::MakeUnapplied(path, 2);
    std::string const whole = ReadFile(path), left = ReadFile(journal);
    Put(whole.substr(0, whole.size() - 1), left);
    EXPECT_EQ(CommitsIn(path), 1);
    EXPECT_THAT(FailureOf([&] { CommitsIn(path, false); }), HasSubstr("bytes, of which " + std::to_string(whole.size() - 1) + " are left"));
    Put(whole, left);
    EXPECT_EQ(CommitsIn(path, false), 2);
}

std::uint64_t Crc64(std::string const& bytes)
{
    std::uint64_t crc = UINT64_MAX;
    for (char const byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ (crc % 2 != 0 ? 0xC96C5795D7870F42U : 0);
    }
    return ~crc;
}

/// The journal as it was before commits were counted, for a file with this mark.
std::string InFirstForm(std::string const& image, std::string const& mark)
{
    constexpr std::size_t kPiecesAt = 16, kBeforeAt = 32, kAfterAt = 64, kPlacesAt = 104, kChecksumBytes = 8;
    std::uint64_t total; // a longer one may have left its end behind
    std::memcpy(&total, image.data() + 8, sizeof total);
    std::string const rest = image.substr(kPlacesAt, total - kPlacesAt - kChecksumBytes);
    std::string const first =
        "KVOSIMJ1" + Bytes(total - (kPlacesAt - kAfterAt)) + image.substr(kPiecesAt, kBeforeAt - kPiecesAt) + mark + rest;
    return first + Bytes(Crc64(first));
}

// Files and journals of programs that did not count commits.
TEST_F(SimFileJournal, InItsFirstFormFitsFilesOfThatTimeOnly)
{
    workload::MakeUnapplied(path, 2);
    std::string const counted = ReadFile(path);
    std::string uncounted = counted;
    uncounted.replace(kNumberAt, kNumberBytes, kNumberBytes, '\0');
    std::string const image = ReadFile(journal), left = InFirstForm(image, uncounted.substr(kMarkAt, 32));

    Put(uncounted, left);
    EXPECT_EQ(CommitsIn(path), 2);
    EXPECT_EQ(CommitsIn(path, false), 2);
    EXPECT_EQ(ReadFile(path).substr(kNumberAt, kNumberBytes), std::string(kNumberBytes, '\0'));
    Commit(3);
    PutJournal(left);
    ExpectCommits(3);
    EXPECT_EQ(refusals, 1);

    // By such a program, after the file was in the hands of one that counts.
    Put(counted, InFirstForm(image, counted.substr(kMarkAt, 32)));
    EXPECT_EQ(CommitsIn(path), 1);
    EXPECT_THAT(FailureOf([&] { CommitsIn(path, false); }), HasSubstr("was left by an older program"));
}

} // namespace
