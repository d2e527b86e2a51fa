#include "ParticipationReport.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace
{

template<class Value>
void PrintRow(char const* name, int count, Value const& value)
{
    std::printf("%6s", name);
    for (int d = 0; d < count; ++d)
        std::printf(" %13.6g", value(d));
    std::printf("\n");
}

void PrintHead(char const* title, std::vector<std::string> const& directions)
{
    std::printf("\n%s\n  mode", title);
    for (std::string const& name : directions)
        std::printf(" %13s", name.c_str());
    std::printf("\n");
}

// A row for each mode, a column for each direction.
template<class Value>
nlohmann::ordered_json Rows(KVOSrvModesParticipation const& values, Value const& value)
{
    auto rows = nlohmann::ordered_json::array();
    for (int mode = 0; mode < values.NumberOfModes(); ++mode) {
        auto row = nlohmann::ordered_json::array();
        for (int d = 0; d < values.NumberOfDirections(); ++d)
            row.push_back(value(mode, d));
        rows.push_back(std::move(row));
    }
    return rows;
}

double Factor(KVOSrvModesParticipation const& values, int mode, int direction)
{
    return values.Factors().Values()[mode + direction * values.NumberOfModes()];
}

} // namespace

void PrintParticipation(ParticipationReport const& report)
{
    KVOSrvModesParticipation const& values = report.values;
    int const count = values.NumberOfDirections(), modes = values.NumberOfModes();
    PrintHead("participation factors", report.directions);
    for (int mode = 0; mode < modes; ++mode)
        PrintRow(std::to_string(mode + 1).c_str(), count, [&](int d) { return Factor(values, mode, d); });
    PrintHead("effective masses", report.directions);
    for (int mode = 0; mode < modes; ++mode)
        PrintRow(std::to_string(mode + 1).c_str(), count, [&](int d) { return values.EffectiveMass(mode, d); });
    PrintRow("held", count, [&](int d) { return values.HeldMass(d); });
    PrintRow("total", count, [&](int d) { return values.TotalMass(d); });
    PrintRow("share", count, [&](int d) { return values.Share(d); });
}

nlohmann::ordered_json ParticipationJson(ParticipationReport const& report)
{
    KVOSrvModesParticipation const& values = report.values;
    nlohmann::ordered_json object;
    object["directions"] = report.directions;
    object["factors"] = Rows(values, [&](int mode, int d) { return Factor(values, mode, d); });
    object["effective_masses"] = Rows(values, [&](int mode, int d) { return values.EffectiveMass(mode, d); });
    std::vector<double> totals, shares;
    for (int d = 0; d < values.NumberOfDirections(); ++d) {
        totals.push_back(values.TotalMass(d));
        shares.push_back(values.Share(d));
    }
    object["total_masses"] = totals;
    object["shares"] = shares;
    return object;
}
