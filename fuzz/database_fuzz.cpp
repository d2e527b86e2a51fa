// Databases that were damaged: each is opened, and everything in it read, for reading and then for writing with a commit at its end.
//
// An input says what is done to a sound database that the fuzzer makes at its start. Its first byte chooses the database: closed in order,
// or left by a process that was killed in a commit, with the journal still to be applied. Then come changes of four bytes each: where
// (16 bits; the 16th chooses file or journal), what is done there, and with what. The harness checks that the database is used or refused,
// and that refusals are KVOSimException with a text.

#include "ChildProcess.h"
#include "FileCalls.h"
#include "FuzzSupport.h"
#include "ReadDrawer.h"

#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimDistribution.h"
#include "KVOSimException.h"
#include "KVOSimTransaction.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvUtilities.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace
{

/// A database and its journal as bytes; no journal: empty.
struct Files {
    std::string database;
    std::string journal;
};

std::string Bytes(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void SetBytes(std::string const& path, std::string const& bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

class Folder
{
public:
    Folder()
        : m_path((std::filesystem::exists("/dev/shm") ? std::string("/dev/shm") : std::filesystem::temp_directory_path().string()) +
                 "/database_fuzz" + std::to_string(getpid()))
    {
        std::filesystem::create_directories(m_path);
    }
    ~Folder() { std::filesystem::remove_all(m_path); }
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;
    std::string File() const { return m_path + "/a.sim"; }
    std::string Journal() const { return File() + ".journal"; }

private:
    std::string m_path;
};

Folder const& TheFolder()
{
    static Folder const folder;
    return folder;
}

KVOSimCSetID Members(KVOSimContext& context, int count)
{
    return KVOSimCollection(context.CreateCollection(count)).BiggestCSetID();
}

void SetValues(KVOSrvDenseMatrix& matrix)
{
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    std::vector<double> values(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns), 1.5);
    matrix.SetValues(0, rows - 1, 0, columns - 1, KVOSrvMatrix(rows, columns, values.data(), false, false));
}

void MakeSound(std::string const& path)
{
    KVOSimDatabase database;
    database.CreateFile(path.c_str(), 0);
    KVOSimContext context(database.CreateContext());
    KVOSimCSetID const rows = Members(context, 7), columns = Members(context, 5);
    for (auto const& [r, c] : {std::pair{3, 2}, {-1, -1}}) {
        KVOSrvDenseMatrix matrix(KVOSrvUtilities::Create2DDistribution(rows, columns, r, c));
        SetValues(matrix);
    }
    KVOSrvSparseMatrix sparse(7, 7);
    for (unsigned i = 0; i < 7; ++i)
        sparse.AddData(i, i, 2.0 + i);
    sparse.EndAssembly();
    sparse.Export(rows, rows, KVOSrvUtilities::CreateSparseDistribution(rows, rows));
    database.Close();
}

void Change(std::string const& path)
{
    KVOSimDatabase database;
    database.OpenFile(path.c_str(), false);
    KVOSimContext context(database.ContextID());
    KVOSimTransaction transaction(context);
    KVOSimCSetID const rows = Members(context, 4);
    KVOSrvDenseMatrix matrix(KVOSrvUtilities::Create2DDistribution(rows, rows, 2, 2));
    SetValues(matrix);
    transaction.Commit();
    database.Close();
}

// A process that is killed in its commit, at the first call at which the journal is complete.
Files MakeLeft(Files const& sound)
{
    std::string const path = TheFolder().File(), journal = TheFolder().Journal();
    for (int call = 1; call < 1000; ++call) {
        SetBytes(path, sound.database);
        std::filesystem::remove(journal);
        ChildProcess child([&] {
            KillAtChange(call);
            Change(path);
            return 0;
        });
        Check(child.Wait() == -SIGKILL, "a commit leaves a journal for a moment");
        std::string const left = std::filesystem::exists(journal) ? Bytes(journal) : std::string();
        if (left.starts_with("KVOSIMJ"))
            return {Bytes(path), left};
    }
    Check(false, "a commit ends");
    return {};
}

Files const& TheFiles(bool left)
{
    static Files const sound = [] {
        MakeSound(TheFolder().File());
        return Files{Bytes(TheFolder().File()), {}};
    }();
    static Files const withJournal = MakeLeft(sound);
    return left ? withJournal : sound;
}

void Damage(Files& files, std::uint8_t const* change)
{
    std::size_t const where = change[0] + 256U * (change[1] & 0x7FU);
    std::string& bytes = (change[1] & 0x80) != 0 && !files.journal.empty() ? files.journal : files.database;
    std::size_t const at = where % bytes.size();
    auto const operand = static_cast<char>(change[3]);
    switch (change[2] % 8) {
    case 0:
        bytes[at] = operand;
        break;
    case 1:
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << (change[3] % 8)));
        break;
    case 2:
        bytes[at] = static_cast<char>(bytes[at] + operand);
        break;
    case 3:
        std::memset(bytes.data() + at, operand, std::min<std::size_t>(8, bytes.size() - at));
        break;
    case 4: // a sector of another place
        std::memmove(bytes.data() + at, bytes.data() + change[3] * 64U % bytes.size(),
                     std::min<std::size_t>(64, bytes.size() - std::max(at, std::size_t{change[3] * 64U % bytes.size()})));
        break;
    case 5:
        std::memset(bytes.data() + at / 512 * 512, 0, std::min<std::size_t>(512, bytes.size() - at / 512 * 512));
        break;
    case 6:
        bytes.resize(std::max<std::size_t>(1, at));
        break;
    default:
        bytes.append(static_cast<std::size_t>(change[3]), '\x5a');
    }
}

// As the library's users read it: a part by the mapping, a sparse one as a matrix.
void ReadMatrix(KVOSimDistributionID const& id, KVOSimDrawer const& drawer)
{
    if (drawer.csets.Size() != 2)
        return;
    if (drawer.kind != KVOSimDenseDrawer) {
        KVOSrvSparseMatrix matrix(0, 0);
        matrix.Import(id);
        ContentOf(matrix);
        return;
    }
    KVOSrvDenseMatrix matrix(id);
    if (matrix.NumberOfRows() < 2 || matrix.NumberOfColumns() < 2 || matrix.NumberOfColumns() > 10000)
        return;
    KVOSrvMatrix values(1, matrix.NumberOfColumns(), nullptr, false, false);
    matrix.GetValues(1, 1, 0, matrix.NumberOfColumns() - 1, values);
}

void UseAll(std::string const& path, bool readOnly)
{
    try {
        KVOSimDatabase database;
        database.OpenFile(path.c_str(), readOnly);
        for (KVOSimContextID const& context : database.QueryContexts())
            for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions()) {
                KVOSimArray<KVOSimDrawer> drawers;
                KVOSimDistribution(id).QueryDrawers(drawers);
                for (KVOSimDrawer const& drawer : drawers)
                    try {
                        ReadDrawer(KVOSimDistribution(id), drawer);
                        ReadMatrix(id, drawer);
                    } catch (KVOBasException const& refusal) { // one matrix that is damaged does not hide the others
                        Check(refusal.AsString().c_str()[0] != '\0', "a refusal has a text");
                    }
            }
        if (!readOnly) {
            KVOSimContext context(database.CreateContext());
            Members(context, 3);
        }
        database.Close();
    } catch (KVOSimException const& refusal) {
        Check(std::strstr(refusal.AsString().c_str(), path.c_str()) != nullptr, "a refusal names the file");
    } catch (std::bad_alloc const&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size < 1)
        return 0;
    Files files = TheFiles(data[0] % 2 != 0);
    for (std::size_t at = 1; at + 4 <= size; at += 4)
        Damage(files, data + at);
    std::string const path = TheFolder().File();
    SetBytes(path, files.database);
    std::filesystem::remove(TheFolder().Journal());
    if (!files.journal.empty())
        SetBytes(TheFolder().Journal(), files.journal);
    UseAll(path, true);
    UseAll(path, false);
    UseAll(path, true);
    return 0;
}
