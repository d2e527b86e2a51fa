#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

/// A fresh folder that goes with its content when the object does, and files in it.
class TemporaryFolder
{
public:
    explicit TemporaryFolder(std::filesystem::path const& parent = std::filesystem::temp_directory_path())
    {
        std::string pattern = (parent / "kvo-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        m_path = pattern;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    std::string operator/(std::string const& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

/// Where files need no disk: for tests of what the system calls leave in a file, of which most of the time would be waiting for syncs.
inline std::filesystem::path FolderWithoutDisk()
{
    char const* const memory = "/dev/shm";
    return std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
}

inline void WriteFile(std::string const& path, std::string const& bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        throw std::runtime_error("cannot write " + path);
}

inline std::string ReadFile(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The bytes of numbers, one after another, as a binary file holds them.
template<class... T>
std::string Bytes(T const&... numbers)
{
    std::string bytes;
    (bytes.append(reinterpret_cast<char const*>(&numbers), sizeof numbers), ...);
    return bytes;
}
