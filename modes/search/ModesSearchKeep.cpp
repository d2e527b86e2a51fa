// What is kept of a search, and how it goes on from there.

#include "ModesSearch.h"

#include "BlockLanczos.h"
#include "Fingerprint.h"
#include "SearchFile.h"
#include "StateWords.h"

#include "KVOSrvModesFailure.h"
#include "KVOSrvSparseFactor.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <utility>

namespace
{

[[noreturn]] void Refuse(std::string const& path, std::string const& why, int line = __builtin_LINE())
{
    KVOSrvModesFailure(KVOSrvModesFailure::Kept, path + ": " + why).Throw("modes/ModesSearchKeep", line);
}

std::string Text(double value)
{
    if (std::isnan(value))
        return "none";
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

double OrNone(std::optional<double> const& value)
{
    return value.value_or(std::numeric_limits<double>::quiet_NaN());
}

} // namespace

void ModesSearch::OpenKept()
{
    m_pairFingerprint = Fingerprint(m_mass, Fingerprint(m_stiffness));
    m_file = std::make_unique<SearchFile>(m_settings.keep, m_order, m_settings.resume);
    auto words = std::make_unique<StateWords>(m_file->TakeState());
    if (words->Words().empty()) {
        Keep(nullptr, nullptr);
        return;
    }
    Exchange(*words);
    bool hasBasis = false;
    words->Exchange(hasBasis);
    if (hasBasis)
        m_kept = std::move(words);
    ReadKeptModes();
}

void ModesSearch::ReadKeptModes()
{
    m_found.modes = Panel(m_order, 0);
    int const end = m_keptModes + static_cast<int>(m_found.lambda.size());
    int number = 0;
    m_file->ReadModes([&](KVOSrvMatrix const& columns) {
        for (int j = 0; j < columns.NumberOfColumns(); ++j, ++number)
            if (double const* const column = columns.Values() + std::ptrdiff_t{j} * m_order; number >= m_keptModes && number < end) {
                m_found.modes.values.insert(m_found.modes.values.end(), column, column + m_order);
                ++m_found.modes.columns;
            }
    });
}

void ModesSearch::ExchangeSettings(StateWords& words)
{
    std::uint64_t pair = m_pairFingerprint;
    words.Exchange(pair);
    if (pair != m_pairFingerprint)
        Refuse(m_file->Path(), "was kept of another stiffness and mass; give those, or begin anew");
    auto const require = [&](char const* what, double value) {
        double kept = value;
        words.Exchange(kept);
        if (kept != value && !(std::isnan(kept) && std::isnan(value)))
            Refuse(m_file->Path(), std::string("was kept with another ") + what + ", " + Text(kept) + " instead of " + Text(value) +
                                       "; give the settings of that search, or begin anew");
    };
    require("begin of the range", OrNone(m_settings.from));
    require("end of the range", OrNone(m_settings.to));
    require("number of modes", m_settings.from || m_settings.to ? 0 : m_settings.count);
    require("shift", OrNone(m_settings.shift));
    require("tolerance", m_settings.tolerance);
    require("choice whether to count (1) or not (0)", m_settings.certify ? 1.0 : 0.0);
}

void ModesSearch::Exchange(StateWords& words)
{
    ExchangeSettings(words);
    int phase = m_phase;
    words.Exchange(phase);
    m_phase = static_cast<Phase>(phase);
    words.Exchange(m_sigma);
    words.Exchange(m_definite);
    for (int* const number : {&m_restarts, &m_below, &m_slices, &m_place, &m_keptModes, &m_account.shifts, &m_account.steps,
                              &m_account.restarts, &m_account.block, &m_account.basis})
        words.Exchange(*number);
    words.Exchange(m_account.certified);
    words.Exchange(m_isComplete);
    words.Exchange(m_isAround);
    for (double* const value : {&m_next, &m_bound, &m_foundShift})
        words.Exchange(*value);
    words.Exchange(m_bounds);
    words.ExchangeAll(m_belowBounds);
    words.Exchange(m_found.lambda);
    words.Exchange(m_found.residuals);
}

// Changes whenever the columns that a basis has are others.
std::uint64_t ModesSearch::Generation() const
{
    return static_cast<std::uint64_t>(m_bases) + static_cast<std::uint64_t>(m_account.restarts);
}

// The basis that was kept, with its factor; null where there was none.
std::unique_ptr<BlockLanczos> ModesSearch::TakeKept()
{
    if (!m_kept)
        return nullptr;
    Tell("factoring", 0, m_settings.count, 0.0);
    m_factor->Factorize(m_sigma == 0.0 ? 0.0 : -m_sigma, m_definite);
    auto lanczos = std::make_unique<BlockLanczos>(*m_factor, m_mass, m_pair.massDiagonal, *m_kept);
    m_kept.reset();
    ++m_bases;
    m_file->ReadBasis(Generation(), [&](KVOSrvMatrix const& columns) { lanczos->AppendKept(columns); });
    return lanczos;
}

void ModesSearch::KeepIfDue(BlockLanczos& lanczos)
{
    if (m_file && m_file->IsDue())
        Keep(&lanczos, nullptr);
}

// Commits where the search stands. @param lanczos  null: between two bases @param modes  found since the last time; null: none
void ModesSearch::Keep(BlockLanczos* lanczos, Panel* modes)
{
    if (!m_file)
        return;
    StateWords words;
    Exchange(words);
    bool hasBasis = lanczos != nullptr;
    words.Exchange(hasBasis);
    SearchFile::Basis basis{};
    if (hasBasis) {
        lanczos->Exchange(words);
        basis = {lanczos->Columns(), Generation(), [&](int first, KVOSrvMatrix& columns) { lanczos->ReadBasis(first, columns); }};
    }
    if (modes == nullptr) {
        m_file->Keep(words.Words(), hasBasis ? &basis : nullptr, nullptr);
    } else {
        KVOSrvMatrix const view = modes->View();
        m_file->Keep(words.Words(), hasBasis ? &basis : nullptr, &view);
    }
}
