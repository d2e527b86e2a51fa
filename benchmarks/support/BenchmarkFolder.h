#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

/// @throws std::runtime_error with `what` unless `held`
inline void ThrowUnless(bool held, char const* what)
{
    if (!held)
        throw std::runtime_error(what);
}

/// A folder that goes with the program.
class BenchmarkFolder
{
public:
    BenchmarkFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kvo-bench-XXXXXX").string();
        ThrowUnless(mkdtemp(pattern.data()) != nullptr, "no temporary folder");
        m_path = pattern;
    }
    ~BenchmarkFolder() { std::filesystem::remove_all(m_path); }
    BenchmarkFolder(BenchmarkFolder const&) = delete;
    BenchmarkFolder& operator=(BenchmarkFolder const&) = delete;
    std::string operator/(std::string const& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};
