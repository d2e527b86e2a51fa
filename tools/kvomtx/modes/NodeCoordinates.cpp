#include "NodeCoordinates.h"

#include "Errors.h"

#include "KVOSrvMatrix.h"
#include "KVOSrvModesParticipation.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <optional>
#include <string_view>

namespace
{

constexpr std::size_t kOfNode = 3, kOfUnknown = 4; // numbers on a line

// The finite numbers of a line; none where there is anything else, or too much.
std::optional<std::vector<double>> Numbers(std::string_view line)
{
    std::vector<double> numbers;
    char const* at = line.data();
    char const* const end = at + line.size();
    while (true) {
        at = std::find_if_not(at, end, [](char c) { return c == ' ' || c == '\t' || c == '\r'; });
        if (at == end)
            return numbers;
        if (*at == '+' && at + 1 != end && at[1] != '-')
            ++at;
        double number = 0.0;
        auto const [rest, error] = std::from_chars(at, end, number);
        bool const isWord = rest == end || *rest == ' ' || *rest == '\t' || *rest == '\r';
        if (error != std::errc() || !isWord || !std::isfinite(number) || numbers.size() == kOfUnknown)
            return {};
        numbers.push_back(number);
        at = rest;
    }
}

bool IsDof(double number)
{
    return number >= 1.0 && number <= 6.0 && number == std::floor(number);
}

std::string Shown(std::string const& line)
{
    constexpr std::size_t kLongest = 60;
    return line.size() <= kLongest ? line : line.substr(0, kLongest) + "...";
}

} // namespace

NodeCoordinates::NodeCoordinates(std::string const& path) : m_path(path)
{
    std::ifstream file(path);
    if (!file)
        throw ToolError(ExitCode::kUnreadable, path + ": cannot be read; check the name");
    std::size_t expected = 0; // numbers on a line, as on the first one
    auto const fail = [&](int number, std::string const& found) {
        char const* const form = expected == kOfNode      ? "\"x y z\""
                                 : expected == kOfUnknown ? "\"x y z dof\", the last from 1 to 6"
                                                          : "\"x y z\" or \"x y z dof\"";
        throw ToolError(ExitCode::kUnreadable, path + ": line " + std::to_string(number) + ": expected " + form + ", found " + found);
    };
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        auto const numbers = Numbers(std::string_view(line).substr(0, line.find('%')));
        if (numbers && numbers->empty())
            continue;
        bool const isForm = numbers && (numbers->size() == kOfNode || numbers->size() == kOfUnknown);
        if (isForm && expected == 0)
            expected = numbers->size();
        if (!isForm || numbers->size() != expected || (expected == kOfUnknown && !IsDof(numbers->back())))
            fail(number, '"' + Shown(line) + '"');
        m_places.insert(m_places.end(), numbers->begin(), numbers->begin() + 3);
        if (expected == kOfUnknown)
            m_dofs.push_back(static_cast<int>(numbers->back()));
    }
    if (expected == 0)
        fail(std::max(1, number), "the end of the file");
}

std::unique_ptr<KVOSrvMatrix> NodeCoordinates::RigidMotions(int order, double const* about) const
{
    std::size_t const lines = m_places.size() / 3, unknowns = static_cast<std::size_t>(order);
    if (!m_dofs.empty() && lines == unknowns)
        return KVOSrvModesParticipation::RigidMotions(order, m_places.data(), m_dofs.data(), about);
    if (!m_dofs.empty() || (3 * lines != unknowns && 6 * lines != unknowns))
        throw ToolError(ExitCode::kUnreadable,
                        m_path + ": holds " + std::to_string(lines) + (m_dofs.empty() ? " nodes" : " unknowns") + ", the model has " +
                            std::to_string(order) +
                            " unknowns; give a line \"x y z\" for each node of 3 or of 6 unknowns, or a line \"x y z "
                            "dof\" for each unknown");
    std::vector<double> places;
    std::vector<int> dofs;
    std::size_t const ofNode = unknowns / lines;
    for (std::size_t i = 0; i < unknowns; ++i) {
        auto const place = m_places.begin() + static_cast<std::ptrdiff_t>(3 * (i / ofNode));
        places.insert(places.end(), place, place + 3);
        dofs.push_back(static_cast<int>(i % ofNode) + 1);
    }
    return KVOSrvModesParticipation::RigidMotions(order, places.data(), dofs.data(), about);
}
