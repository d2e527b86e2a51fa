#include "Source.h"

#include "Errors.h"
#include "MatrixName.h"

#include <openssl/evp.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

namespace
{

std::string Sha256(std::string const& path)
{
    struct Free {
        void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
    };
    constexpr std::size_t kPiece = std::size_t{1} << 18;

    auto const fail = [&path](char const* why) -> void { throw ToolError(ExitCode::kUnreadable, path + ": " + why); };
    std::unique_ptr<EVP_MD_CTX, Free> const context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        fail("its SHA-256 cannot be computed: the system's libcrypto refuses");
    std::ifstream file(path, std::ios::binary);
    std::vector<char> piece(kPiece);
    do {
        file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        EVP_DigestUpdate(context.get(), piece.data(), static_cast<std::size_t>(file.gcount()));
    } while (file);
    if (!file.eof())
        fail("cannot be read again for its SHA-256");
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    EVP_DigestFinal_ex(context.get(), digest.data(), &length);
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", digest[i]);
        text += digits;
    }
    return text;
}

} // namespace

std::string DescribeSource(MatrixName const& name)
{
    std::string const file = std::filesystem::path(name.path).filename().string();
    if (name.format == MatrixFormat::kDatabase) // may be large, and changes with every commit
        return file + (name.text.size() > name.path.size() ? name.text.substr(name.path.size()) : "");
    return file + " (SHA-256 " + Sha256(name.path) + ")";
}

std::string TitleFor(MatrixName const& name)
{
    std::string const title = std::filesystem::path(name.path).stem().string();
    return title.empty() || title.starts_with("context_") || title.size() > 200 ? "matrix" : title;
}
