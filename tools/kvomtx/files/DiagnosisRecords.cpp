#include "Diagnosis.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace
{

/// Fortran records with the bytes they stand at. A record may be cut into parts; see docs/sparse-files.md.
class Records
{
public:
    explicit Records(std::string const& path)
        : m_file(path, std::ios::binary), m_size(static_cast<std::int64_t>(std::filesystem::file_size(path)))
    {
    }

    /// Goes to the next record. False at the end of the file and when Fault() is set.
    bool Next()
    {
        m_begin = m_end;
        m_content.clear();
        if (m_begin == m_size)
            return false;
        for (bool more = true; more;) {
            std::int32_t leading = 0, trailing = 0;
            if (!Read(m_end, leading, "the length of a record"))
                return false;
            more = leading < 0;
            std::int64_t const length = std::llabs(std::int64_t{leading});
            if (length > m_size - m_end - 8)
                return Refuse(m_end, "expected the length of a record, found " + std::to_string(leading) +
                                         ", which leads beyond the end of the file");
            m_content.resize(m_content.size() + static_cast<std::size_t>(length));
            m_file.seekg(m_end + 4);
            m_file.read(m_content.data() + m_content.size() - length, length);
            Read(m_end + 4 + length, trailing, "the length of a record");
            if (std::llabs(std::int64_t{trailing}) != length)
                return Refuse(m_end + 4 + length, "expected " + std::to_string(length) +
                                                      ", the length of the record that ends here, found " + std::to_string(trailing));
            m_end += length + 8;
        }
        return true;
    }

    std::int64_t Begin() const noexcept { return m_begin; }
    std::int64_t Bytes() const noexcept { return static_cast<std::int64_t>(m_content.size()); }
    std::string const& Fault() const noexcept { return m_fault; }

    /// The 32-bit number at a byte of the content, which has that many bytes.
    std::int32_t Integer(std::int64_t byte) const
    {
        std::int32_t number = 0;
        std::copy_n(m_content.data() + byte, sizeof number, reinterpret_cast<char*>(&number));
        return number;
    }

private:
    bool Refuse(std::int64_t byte, std::string const& text)
    {
        m_fault = "byte " + std::to_string(byte) + ": " + text;
        return false;
    }

    bool Read(std::int64_t byte, std::int32_t& number, char const* what)
    {
        if (byte + 4 > m_size)
            return Refuse(m_size, std::string("the file ends here, expected ") + what);
        m_file.seekg(byte);
        m_file.read(reinterpret_cast<char*>(&number), sizeof number);
        return true;
    }

    std::ifstream m_file;
    std::int64_t m_size;
    std::int64_t m_begin = 0;
    std::int64_t m_end = 0;
    std::vector<char> m_content;
    std::string m_fault;
};

std::string DiagnoseRow(Records const& record, std::int64_t row, std::int32_t n)
{
    std::string const place = "byte " + std::to_string(record.Begin()) + ": the record of row " + std::to_string(row);
    if (record.Bytes() < 4 || record.Integer(0) < 1)
        return place + " should begin with the number of its entries, from 1";
    std::int32_t const count = record.Integer(0);
    if (record.Bytes() < 4 + 12 * std::int64_t{count})
        return place + " has " + std::to_string(record.Bytes()) + " bytes; its " + std::to_string(count) + " entries take " +
               std::to_string(4 + 12 * std::int64_t{count});
    if (record.Integer(4) != row)
        return place + " should have the diagonal first, column " + std::to_string(row) + ", found " + std::to_string(record.Integer(4));
    for (std::int64_t k = 1; k < count; ++k)
        if (std::int32_t const column = record.Integer(4 + 4 * k); column < 1 || column > n)
            return place + " should have columns from 1 to " + std::to_string(n) + ", found " + std::to_string(column);
    return {};
}

} // namespace

std::string DiagnoseRecords(std::string const& path)
{
    Records records(path);
    if (!records.Next())
        return records.Fault().empty() ? "byte 0: expected a record with the number of rows, found the end of the file" : records.Fault();
    if (records.Bytes() < 4 || records.Integer(0) < 0)
        return "byte 0: expected a record with the number of rows; is this a record file?";
    std::int32_t const n = records.Integer(0);
    for (std::int64_t row = 1; row <= n; ++row) {
        if (!records.Next())
            return records.Fault().empty()
                       ? "byte " + std::to_string(records.Begin()) + ": the file ends here, expected the record of row " +
                             std::to_string(row) + " of " + std::to_string(n)
                       : records.Fault();
        if (std::string const fault = DiagnoseRow(records, row, n); !fault.empty())
            return fault;
    }
    return {};
}
