// The part of a drawer that a transfer is about.

#include "KVOSimTransfer.h"

#include "Context.h"
#include "DenseView.h"
#include "Distribution.h"
#include "KVOSimTypeKey.h"
#include "Session.h"

#include <algorithm>
#include <unordered_map>

namespace
{

constexpr char const* kChecking = "Cannot execute a transfer";

// Where the members of `view` are in the drawer's set; empty when one is not there, or not at one place only.
std::vector<std::int64_t> PositionsOf(std::vector<int> const& view, std::vector<int> const& members)
{
    std::unordered_map<int, std::int64_t> positions;
    positions.reserve(members.size());
    for (std::size_t i = 0; i < members.size(); ++i)
        if (!positions.emplace(members[i], static_cast<std::int64_t>(i)).second)
            return {};
    std::vector<std::int64_t> result;
    result.reserve(view.size());
    for (int const number : view) {
        auto const found = positions.find(number);
        if (found == positions.end())
            return {};
        result.push_back(found->second);
    }
    return result;
}

} // namespace

bool KVOSimTransfer::IsExtension() const noexcept
{
    return std::any_of(m_dims.begin(), m_dims.end(), [](Dim const& dim) { return !dim.extension.IsNull(); });
}

void KVOSimTransfer::CheckView()
{
    RequireDistribution(kChecking);
    if (m_newDrawer != NewDrawer::None)
        CheckNewDrawer(kChecking);
    else if (IsExtension())
        CheckExtension(kChecking);
    else if (simdb::Drawer const& drawer = ViewedDrawer(kChecking); drawer.kind == KVOSimDenseDrawer)
        ViewOf(drawer, kChecking);
    else
        IsWholeSparseView(drawer, m_read && !m_write, kChecking);
}

void KVOSimTransfer::CheckNewDrawer(char const* doing) const
{
    RequireWritable(doing);
    bool const sparse = m_serialization.Code() != KVOSimDenseDrawer;
    if (IsExtension())
        Refuse(doing, "a drawer that does not exist yet cannot be extended");
    if (sparse && (m_dims.size() != 2 || m_newDrawer == NewDrawer::Chunked))
        Refuse(doing, "a sparse drawer has two dimensions and no chunks");
    if (m_checksums && !sparse && m_newDrawer == NewDrawer::Plain)
        Refuse(doing, "only chunks and the arrays of sparse drawers have checksums: choose chunk sizes");
    simdb::Session const& session = m_distribution->RequireOpen(doing).OpenSession(doing);
    if (m_checksums && !session.IsScratch() && !session.HasChecksums())
        Refuse(doing, "the file has format version 1, which knows no checksums of values");
    std::int64_t bytes = KVOSimTypeKeySize(m_distribution->RangeType());
    for (std::size_t d = 0; d < m_dims.size(); ++d) {
        if (!m_dims[d].isSet || m_dims[d].set.IsNull())
            Refuse(doing, "dimension " + std::to_string(d) + " of the new drawer has no set");
        std::int64_t const size = m_distribution->RequireOpen(doing).SetOf(m_dims[d].set, doing)->size;
        if (!sparse && __builtin_mul_overflow(bytes, std::max<std::int64_t>(size, 1), &bytes))
            Refuse(doing, "the drawer would have more than 2^63 bytes");
    }
}

void KVOSimTransfer::CheckExtension(char const* doing) const
{
    RequireWritable(doing);
    simdb::Context& context = m_distribution->RequireOpen(doing);
    simdb::Drawer const& drawer = m_distribution->DrawerAt(m_drawer, doing);
    if (drawer.kind != KVOSimDenseDrawer)
        Refuse(doing, "a sparse drawer cannot be extended");
    std::int64_t bytes = KVOSimTypeKeySize(m_distribution->RangeType());
    for (std::size_t d = 0; d < m_dims.size(); ++d) {
        std::int64_t size = drawer.sets[d]->size;
        if (!m_dims[d].extension.IsNull()) {
            auto const added = context.SetOf(m_dims[d].extension, doing);
            if (added->size == 0)
                Refuse(doing, "the set of new members is empty");
            size += added->size;
            std::vector<int> present = *context.NumbersOf(*drawer.sets[d]), more = *context.NumbersOf(*added);
            std::sort(present.begin(), present.end());
            std::sort(more.begin(), more.end());
            if (std::adjacent_find(more.begin(), more.end()) != more.end() ||
                std::any_of(more.begin(), more.end(), [&](int m) { return std::binary_search(present.begin(), present.end(), m); }))
                Refuse(doing, "a member would be there twice in dimension " + std::to_string(d));
        }
        if (size > INT32_MAX || __builtin_mul_overflow(bytes, std::max<std::int64_t>(size, 1), &bytes))
            Refuse(doing, "the drawer would become too large");
    }
}

simdb::Drawer& KVOSimTransfer::ViewedDrawer(char const* doing) const
{
    simdb::Drawer& drawer = RequireDistribution(doing).DrawerAt(m_drawer, doing);
    if (m_newDrawer != NewDrawer::None)
        Refuse(doing, "the new drawer was not made yet");
    if (drawer.kind != m_serialization.Code())
        Refuse(doing, "the drawer is of kind " + std::to_string(drawer.kind) + ", the transfer's serialization of kind " +
                          std::to_string(m_serialization.Code()));
    return drawer;
}

simdb::DenseView KVOSimTransfer::ViewOf(simdb::Drawer const& drawer, char const* doing) const
{
    simdb::DenseView view;
    view.rank = static_cast<int>(m_dims.size());
    view.bytes = KVOSimTypeKeySize(m_distribution->RangeType());
    std::vector<simdb::Run> noRuns;
    for (std::size_t d = 0; d < m_dims.size(); ++d) {
        Dim const& dim = m_dims[d];
        simdb::MemberSet& members = *drawer.sets[d];
        simdb::Range& range = view.ranges[d];
        if (!dim.isSet)
            Refuse(doing, "dimension " + std::to_string(d) + " of the view is not set");
        if (dim.set.IsNull()) {
            range = {dim.first, dim.last};
            if (range.last >= members.size)
                Refuse(doing, "the positions " + std::to_string(range.first) + " to " + std::to_string(range.last) + " of dimension " +
                                  std::to_string(d) + " lie outside the drawer, which has " + std::to_string(members.size));
        } else {
            simdb::Context& context = m_distribution->RequireOpen(doing);
            auto const set = context.SetOf(dim.set, doing);
            range = {0, set->size - 1};
            if (set.get() != &members && set->size > 0) {
                auto const viewed = context.NumbersOf(*set), present = context.NumbersOf(members);
                if (*viewed != *present) {
                    std::vector<std::int64_t> const positions = PositionsOf(*viewed, *present);
                    if (positions.empty())
                        Refuse(doing, "the set of dimension " + std::to_string(d) + " has members that the drawer has not, or has twice");
                    view.runs.resize(m_dims.size());
                    view.runs[d] = simdb::FindRuns(positions);
                }
            }
        }
        if (__builtin_mul_overflow(view.bytes, range.Count(), &view.bytes))
            Refuse(doing, "the view is too large");
    }
    for (std::size_t d = 0; d < view.runs.size(); ++d)
        if (view.runs[d].empty())
            view.runs[d] = {{0, view.ranges[d]}};
    return view;
}

// All of the drawer, or for reading some of its rows: where those end that stand behind them would have to be written anew.
bool KVOSimTransfer::IsWholeSparseView(simdb::Drawer const& drawer, bool forReading, char const* doing) const
{
    simdb::Context& context = m_distribution->RequireOpen(doing);
    bool allWhole = true;
    for (std::size_t d = 0; d < m_dims.size(); ++d) {
        Dim const& dim = m_dims[d];
        simdb::MemberSet& members = *drawer.sets[d];
        if (!dim.isSet)
            Refuse(doing, "dimension " + std::to_string(d) + " of the view is not set");
        bool whole = dim.first == 0 && dim.last == members.size - 1;
        if (!dim.set.IsNull()) {
            auto const set = context.SetOf(dim.set, doing);
            whole = set.get() == &members || *context.NumbersOf(*set) == *context.NumbersOf(members);
        }
        bool const someRows = forReading && !m_verify && d == 0 && dim.set.IsNull() && dim.last < members.size;
        if (!whole && !someRows)
            Refuse(doing, "a sparse drawer is transferred whole, by the sets that it has; rows of it, all of their columns, can be read");
        allWhole &= whole;
    }
    return allWhole;
}

void* KVOSimTransfer::BufferOf(int slot, std::int64_t bytes, bool forReading, char const* doing) const
{
    Buffer const& buffer = m_buffers[static_cast<std::size_t>(slot)];
    if (!buffer.isSet)
        Refuse(doing, "slot " + std::to_string(slot) + " has no buffer");
    if (buffer.bytes < static_cast<std::uint64_t>(bytes))
        Refuse(doing, "the buffer of slot " + std::to_string(slot) + " has " + std::to_string(buffer.bytes) + " bytes, the view needs " +
                          std::to_string(bytes));
    if (forReading && !buffer.writable)
        Refuse(doing, "the buffer of slot " + std::to_string(slot) + " was given for writing only");
    return buffer.memory;
}
