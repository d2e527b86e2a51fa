#include "Titles.h"

#include "Hdf5.h"

#include <array>
#include <cstdio>
#include <exception>
#include <utility>

namespace simdb
{

namespace
{

constexpr char const* kFinding = "Cannot find the titles in the database";
constexpr char const* kNaming = "Cannot commit to the database";

using Names = std::map<std::string, std::optional<Titled>>;

// Of a link that a title has made.
std::optional<Titled> MatrixOf(hid_t group, char const* name, H5L_info_t const& info) noexcept
{
    std::array<char, 80> target{};
    Titled matrix{};
    int end = 0;
    if (info.type != H5L_TYPE_SOFT || info.u.val_size >= target.size() ||
        H5Lget_val(group, name, target.data(), target.size(), H5P_DEFAULT) < 0 ||
        std::sscanf(target.data(), "/context_%d/distribution_%d_drawer_0%n", &matrix.context, &matrix.distribution, &end) != 2 ||
        end == 0 || target[static_cast<std::size_t>(end)] != '\0')
        return std::nullopt;
    return matrix;
}

// Called by HDF5, through which no exception passes.
herr_t TakeLink(hid_t group, char const* name, H5L_info_t const* info, void* names) noexcept
{
    try {
        static_cast<Names*>(names)->emplace(name, MatrixOf(group, name, *info));
        return 0;
    } catch (std::exception const&) {
        return -1;
    }
}

} // namespace

void Titles::Load()
{
    if (m_isLoaded)
        return;
    Hdf5Guard const guard;
    Names names;
    Checked(H5Literate(m_file.Hdf5(), H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, &TakeLink, &names), kFinding, m_file.Path());
    m_taken = std::move(names);
    m_isLoaded = true;
}

std::optional<Titled> Titles::Find(std::string const& title)
{
    Load();
    auto const found = m_taken.find(title);
    return found != m_taken.end() ? found->second : std::nullopt;
}

std::string Titles::FreeFor(Titled const& matrix, std::string const& title)
{
    Load();
    std::string result = title;
    for (int number = 2;; ++number) {
        auto const found = m_taken.find(result);
        if (found == m_taken.end() || found->second == matrix)
            return result;
        result = title + " (" + std::to_string(number) + ")";
    }
}

void Titles::Take(std::string const& title, Titled const& matrix)
{
    Load();
    m_taken.insert_or_assign(title, matrix);
}

void Titles::Relink(std::string const& former, std::string const& title, std::string const& target) const
{
    Hdf5Guard const guard;
    hid_t const root = m_file.Hdf5();
    for (std::string const* const name : {&former, &title})
        if (!name->empty() && H5Lexists(root, name->c_str(), H5P_DEFAULT) > 0)
            Checked(H5Ldelete(root, name->c_str(), H5P_DEFAULT), kNaming, m_file.Path());
    if (title.empty())
        return;
    Hid const properties(Checked(H5Pcreate(H5P_LINK_CREATE), kNaming, m_file.Path()));
    if (H5Pset_char_encoding(properties, H5T_CSET_UTF8) < 0 ||
        H5Lcreate_soft(target.c_str(), root, title.c_str(), properties, H5P_DEFAULT) < 0)
        ThrowHdf5(kNaming, m_file.Path());
}

} // namespace simdb
