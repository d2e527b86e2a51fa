#include "AddressSanitizer.h"
#include "ReadDrawer.h"
#include "SimClient.h"

#include <climits>
#include <fcntl.h>

#include <hdf5.h>

using namespace SimClient;
using testing::AnyOf;
using testing::HasSubstr;

namespace
{

constexpr double kDense = 1e15, kContiguous = 2e15, kSparse = 3e15; // the first values of the matrices; the others follow by 1

using Edition = std::function<void(hid_t file)>; // what it opens is closed with the file

Edition SetAttribute(char const* name, int value)
{
    return [=](hid_t file) { EXPECT_GE(H5Awrite(H5Aopen(file, name, H5P_DEFAULT), H5T_NATIVE_INT, &value), 0); };
}

Edition DeleteAttribute(char const* name)
{
    return [=](hid_t file) { EXPECT_GE(H5Adelete(file, name), 0); };
}

Edition Delete(char const* name)
{
    return [=](hid_t file) { EXPECT_GE(H5Ldelete(file, name, H5P_DEFAULT), 0); };
}

/// A dataset of the given sizes in the place of another.
Edition Replace(char const* name, hid_t type, std::vector<hsize_t> const& sizes, H5D_layout_t layout = H5D_CONTIGUOUS)
{
    return [=](hid_t file) {
        Delete(name)(file);
        hid_t const space = H5Screate_simple(static_cast<int>(sizes.size()), sizes.data(), nullptr);
        hid_t const properties = H5Pcreate(H5P_DATASET_CREATE);
        H5Pset_layout(properties, layout);
        EXPECT_GE(H5Dcreate2(file, name, type, space, H5P_DEFAULT, properties, H5P_DEFAULT), 0);
        H5Pclose(properties);
        H5Sclose(space);
    };
}

/// Other values in a dataset, of other sizes if any are given.
Edition Overwrite(char const* name, hid_t type, std::vector<int> const& values, std::vector<hsize_t> const& sizes = {})
{
    return [=](hid_t file) {
        hid_t const dataset = H5Dopen2(file, name, H5P_DEFAULT);
        EXPECT_GE(sizes.empty() ? 0 : H5Dset_extent(dataset, sizes.data()), 0) << name;
        EXPECT_GE(values.empty() ? 0 : H5Dwrite(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0) << name;
    };
}

/// Closed databases with the same dense and sparse matrices, one of today's form and one without checksums, which the tests edit through
/// HDF5 as a stranger would.
class Damage : public DatabaseTest
{
protected:
    Damage()
    {
        KVOSimContextID const context = Create();
        KVOSimCollectionID const rows = KVOSimContext(context).CreateCollection(3), columns = KVOSimContext(context).CreateCollection(2);
        WriteAll(MakeMatrix(context, {Biggest(columns), MakeSet(rows, {5, 7, 6})}, {2, 2}), Ramp(6, kDense));
        WriteAll(MakeMatrix(context, {Biggest(columns)}), Ramp(2, kContiguous));
        Rows{Ramp(2, kSparse), {258, 259}, {0, 2, 2, 2}, {}}.Store(context, Biggest(rows),
                                                                   Biggest(KVOSimContext(context).CreateCollection(300)));
        database.Close();
        summed = ReadFile(path);
        sound = Edited(summed, SetAttribute("format_version", 1));
    }

    /// A file of that content that `edit` was let loose on through HDF5, and what is in it.
    std::string Edited(std::string const& content, Edition const& edit) const
    {
        WriteFile(path, content);
        hid_t const access = H5Pcreate(H5P_FILE_ACCESS);
        H5Pset_fclose_degree(access, H5F_CLOSE_STRONG);
        hid_t const file = H5Fopen(path.c_str(), H5F_ACC_RDWR, access);
        edit(file);
        EXPECT_GE(H5Fclose(file), 0);
        H5Pclose(access);
        return ReadFile(path);
    }

    /// Opens the database and uses all that is in it; `all` is what it says. @return the text of the first failure
    std::string UseAll(bool readOnly, std::string& all) const
    {
        all.clear();
        return FailureOf([&] {
            KVOSimDatabase opened;
            opened.OpenFile(path.c_str(), readOnly);
            for (KVOSimContextID const& context : opened.QueryContexts())
                for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions()) {
                    KVOSimArray<KVOSimDrawer> const drawers = DrawersOf(id);
                    Add(all, id.Index(), KVOSimDistribution(id).Type(), drawers.Size());
                    for (KVOSimDrawer const& drawer : drawers)
                        Use(KVOSimDistribution(id), drawer, all);
                }
            opened.Close();
        });
    }

    template<class... Numbers>
    static void Add(std::string& answers, Numbers... numbers)
    {
        (answers.append(std::to_string(numbers)).append(" "), ...);
    }

    static void Use(KVOSimDistribution const& distribution, KVOSimDrawer const& drawer, std::string& answers)
    {
        Add(answers, drawer.id, drawer.kind, drawer.typeKey);
        for (int const size : drawer.chunkSizes)
            Add(answers, size);
        auto const arrays = ReadDrawer(distribution, drawer);
        for (int d = 0; !arrays.empty() && d < drawer.csets.Size(); ++d)
            for (int const number : NumbersOf(drawer.csets[d]))
                Add(answers, number);
        for (auto const& array : arrays)
            answers.append(reinterpret_cast<char const*>(array.data()), array.size());
    }

    std::string summed, sound;
};

/// Where values, row starts and column indices lie in the file: each of Damage's is there once.
std::vector<bool> ArePlacesOfValues(std::string const& content)
{
    std::vector<std::string> values{Bytes(0, 2, 2, 2), Bytes(258, 259)};
    for (double const first : {kDense, kContiguous, kSparse})
        for (int i = 0; i < 6; ++i)
            values.push_back(Bytes(first + i));
    std::vector<bool> are(content.size());
    for (std::string const& value : values)
        if (std::size_t const at = content.find(value); at != content.npos)
            std::fill_n(are.begin() + static_cast<std::ptrdiff_t>(at), value.size(), true);
    return are;
}

} // namespace

TEST_F(Damage, IsAKVOSimExceptionWhateverIsMissingOrAbsurd)
{
    char const* const dense = "context_0/distribution_0_drawer_0";
    char const* const rowStart = "context_0/distribution_2_drawer_0/row_start";
    char const* const sparseValues = "context_0/distribution_2_drawer_0/values";
    std::vector<std::pair<char const*, Edition>> const cases{
        {"no failure", [](hid_t) {}},
        {"no simulation database", DeleteAttribute("format")},
        {"no simulation database", DeleteAttribute("format_version")},
        {"format version is 3", SetAttribute("format_version", 3)},
        {"format version is 0", SetAttribute("format_version", 0)},
        {"number of its contexts", DeleteAttribute("contexts")},
        {"number of its contexts", SetAttribute("contexts", -1)},
        {"Cannot read the catalogue", SetAttribute("contexts", INT_MAX)},
        {"Cannot read the catalogue", Delete("context_0")},
        {"a wrong row for set", Delete("context_0/collections")},
        {"a wrong row for set", Delete("context_0/set_members")},
        {"a drawer without a distribution", Delete("context_0/distributions")},
        {"a wrong row for distribution", Delete("context_0/grids")},
        {"the table sets is not of the documented form", Replace("context_0/sets", H5T_IEEE_F64LE, {3})},
        {"the table set_members is not of the documented form", Replace("context_0/set_members", H5T_STD_I32LE, {3, 1})},
        {"more rows than the file can hold", Overwrite("context_0/collections", 0, {}, {hsize_t{1} << 40})},
        {"a wrong row for collection 0", Overwrite("context_0/collections", 0, {}, {9})}, // rows of zeros
        {"a negative member number in set 1", Overwrite("context_0/set_members", H5T_NATIVE_INT, {5, -7, 6})},
        {"distribution_0_drawer_0", Delete(dense)},
        {"has a type that drawers don't have", Replace(dense, H5T_IEEE_F64BE, {2, 3})},
        {"has a type that drawers don't have", Replace(dense, H5T_STD_I16LE, {2, 3})},
        {"no dimension", Replace(dense, H5T_IEEE_F64LE, {})},
        {"neither chunked nor contiguous", Replace(dense, H5T_IEEE_F64LE, {2, 3}, H5D_COMPACT)},
        {"does not fit the catalogue", Replace(dense, H5T_IEEE_F64LE, {2, 2})},
        {"does not fit the catalogue", Replace(dense, H5T_STD_I32LE, {2, 3})},
        {"does not fit the catalogue", Replace(dense, H5T_IEEE_F64LE, {2, 3, 1})},
        {"Cannot open a sparse drawer", Delete(rowStart)},
        {"does not fit the catalogue", Replace(rowStart, H5T_STD_I32LE, {5})},
        {"does not fit the catalogue", Replace(sparseValues, H5T_IEEE_F64LE, {3})},
        {"does not fit the catalogue", Replace(sparseValues, H5T_IEEE_F32LE, {2})},
        {"row starts", Overwrite(rowStart, H5T_NATIVE_INT, {0, 9, 1, 2})},
        {"column indices", Overwrite("context_0/distribution_2_drawer_0/column_indices", H5T_NATIVE_INT, {1, 300})},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        std::string answers;
        for (bool const readOnly : {true, false}) {
            Edited(sound, cases[i].second);
            testing::internal::CaptureStderr();
            EXPECT_THAT(UseAll(readOnly, answers), HasSubstr(cases[i].first));
            EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "HDF5 speaks for itself";
        }
    }
    testing::internal::CaptureStderr();
    H5Fopen("missing", H5F_ACC_RDONLY, H5P_DEFAULT);
    EXPECT_NE(testing::internal::GetCapturedStderr(), "") << "the host's own calls are not to be silent";
}

// One byte after another, but for values and what is unused.
TEST_F(Damage, OfAnyByteIsRefusedOrHarmless)
{
    constexpr std::size_t kStep = kAddressSanitized ? 7 : 1; // it takes fifteen times as long there; 7 meets every bit in turn
    for (bool const hasChecksums : {false, true}) {
        std::string const& content = hasChecksums ? summed : sound;
        WriteFile(path, content);
        std::string right, answers;
        ASSERT_EQ(UseAll(true, right), "no failure");
        std::vector<bool> const isValue = ArePlacesOfValues(content);
        int tried = 0, refused = 0, silent = 0;
        int const descriptor = open(path.c_str(), O_RDWR);
        for (std::size_t at = 0; at < content.size(); at += kStep) {
            constexpr std::size_t kNear = 32; // an entry of what HDF5 keeps has no more zeros in a row
            std::string_view const around = std::string_view(content).substr(at - std::min(at, kNear), 2 * kNear);
            if (isValue[at] || around.find_first_not_of('\0') == around.npos)
                continue;
            char const damaged = static_cast<char>(content[at] ^ 1 << at % 8);
            ASSERT_EQ(pwrite(descriptor, &damaged, 1, static_cast<off_t>(at)), 1);
            std::string const failure = UseAll(true, answers);
            bool const isSilent = failure == "no failure" && answers != right;
            EXPECT_THAT(failure, AnyOf("no failure", HasSubstr(path))) << at;
            EXPECT_FALSE(hasChecksums && isSilent) << at;
            refused += failure != "no failure";
            silent += isSilent;
            ++tried;
            ASSERT_EQ(pwrite(descriptor, &content[at], 1, static_cast<off_t>(at)), 1);
        }
        close(descriptor);
        std::printf("%d bytes changed, %d refused, %d silent\n", tried, refused, silent);
        EXPECT_EQ(silent == 0, hasChecksums) << "what checksums are for";
        EXPECT_GT(tried, 2000 / static_cast<int>(kStep));
    }
}

// What no checksum tells, because there is none: chunks in one place or out of the file, another structure's bytes, rows that do not rise.
TEST_F(Damage, IsToldByAWalkThroughTheFile)
{
    std::uint64_t const first = sound.find(Bytes(kDense)), second = sound.find(Bytes(kDense + 2));
    std::size_t const secondInIndex = sound.find(Bytes(second));
    ASSERT_NE(secondInIndex, std::string::npos);
    auto const moved = [&](std::uint64_t address) { return std::string(sound).replace(secondInIndex, sizeof address, Bytes(address)); };
    auto const withColumns = [&](std::vector<int> const& columns) {
        return Edited(sound, Overwrite("context_0/distribution_2_drawer_0/column_indices", H5T_NATIVE_INT, columns));
    };
    for (auto const& [content, distribution, what] :
         {std::tuple{sound, 0, ""},
          {summed, 0, ""},
          {moved(first), 0, "lie in matrix 0 of context 0"},
          {moved(first + 8), 0, "lie in matrix 0 of context 0"},
          {moved(1 << 30), 0, "behind the end of the file"},
          {moved(64), 0, "in the beginning of the file"},
          {withColumns({-1, 0}), 2, "column indices"},
          {withColumns({1, 1}), 2, "do not rise"},
          {Edited(sound, Overwrite("context_0/set_members", H5T_NATIVE_INT, {5, -7, 6})), -1, "negative member number"}}) {
        SCOPED_TRACE(what);
        WriteFile(path, content);
        KVOSimDatabase reader;
        reader.OpenFile(path.c_str(), true);
        KVOSimCheckReport const report = reader.Check();
        EXPECT_EQ(report.drawers, 3);
        EXPECT_EQ(report.hasChecksums, content == summed);
        if (*what == '\0') {
            EXPECT_TRUE(report.damages.IsEmpty()) << report.damages[0].what.Utf8();
            EXPECT_EQ(report.pieces, 6);
            continue;
        }
        ASSERT_FALSE(report.damages.IsEmpty());
        EXPECT_THAT(report.damages[0].what.Utf8(), HasSubstr(what));
        EXPECT_EQ(report.damages[0].distribution, distribution);
    }
}

// A process that dies while an extension waits in a transaction, and another one commits, leaves the dataset larger than its sets.
TEST_F(Damage, ByADeathBesideAnExtensionIsRepairedOnOpening)
{
    Edited(sound, Overwrite("context_0/distribution_0_drawer_0", H5T_NATIVE_INT, {1, 2, 3, 66, 4, 5, 6, 77}, {2, 4}));

    for (bool const readOnly : {true, false}) {
        database.OpenFile(path.c_str(), readOnly);
        EXPECT_EQ(ReadAll(KVOSimDistributionID(database.ContextID(), 0)), Ramp(6));
        database.Close();
    }
    database.OpenFile(path.c_str(), false);
    KVOSimDistributionID const id(database.ContextID(), 0);
    Extend(id, 1, MakeSet(Describe(id).csets[1].CollectionID(), {9}));
    EXPECT_EQ(ReadAll(id), (std::vector<double>{1, 2, 3, 0, 4, 5, 6, 0})) << "what was never committed must not come back";
}
