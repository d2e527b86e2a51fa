#pragma once

#include "KVOSrvModesParticipation.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

/// How the modes take part in motions along directions.
struct ParticipationReport {
    std::vector<std::string> directions; ///< their names
    KVOSrvModesParticipation values;
};

/// Two tables, of the factors and of the effective masses.
void PrintParticipation(ParticipationReport const& report);
nlohmann::ordered_json ParticipationJson(ParticipationReport const& report);
