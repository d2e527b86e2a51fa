#include "Titles.h"

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
    int drawer = 0, end = 0;
    if (info.type != H5L_TYPE_SOFT || info.u.val_size >= target.size() ||
        H5Lget_val(group, name, target.data(), target.size(), H5P_DEFAULT) < 0 ||
        std::sscanf(target.data(), "/context_%d/distribution_%d_drawer_%d%n", &matrix.context, &matrix.distribution, &drawer, &end) != 3 ||
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

void Titles::Relink(std::string const& former, std::string const& title, std::string const& target)
{
    Hdf5Guard const guard;
    hid_t const root = m_file.Hdf5();
    if (!former.empty() && H5Lexists(root, former.c_str(), H5P_DEFAULT) > 0)
        Checked(H5Ldelete(root, former.c_str(), H5P_DEFAULT), kNaming, m_file.Path());
    if (title.empty())
        return;
    if (!m_properties.IsValid()) {
        Hid properties(Checked(H5Pcreate(H5P_LINK_CREATE), kNaming, m_file.Path()));
        Checked(H5Pset_char_encoding(properties, H5T_CSET_UTF8), kNaming, m_file.Path());
        m_properties = std::move(properties);
    }
    auto const link = [&] { return H5Lcreate_soft(target.c_str(), root, title.c_str(), m_properties, H5P_DEFAULT) >= 0; };
    if (link())
        return;
    H5Ldelete(root, title.c_str(), H5P_DEFAULT); // it is hardly ever there already, so that is not asked before
    if (!link())
        ThrowHdf5(kNaming, m_file.Path());
}

} // namespace simdb
