// What a maker says of a matrix, from when it is said to the file.

#include "Context.h"
#include "Distribution.h"
#include "DrawerName.h"
#include "KVOBasException.h"
#include "Session.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace simdb
{

namespace
{

constexpr char const* kReading = "Cannot read the title of a matrix of the database";
constexpr char const* kLabelling = "Cannot give a title to a matrix of the database";

// Dense matrices have their columns along dimension 0, so that rows vary fastest; sparse ones their rows.
DrawerFacts FactsOf(Drawer const& drawer, std::vector<std::shared_ptr<MemberSet>> const& sets) noexcept
{
    switch (drawer.kind) {
    case KVOSimSparseDrawer:
        return {sets[0]->size, sets[1]->size, false, "compressed rows"};
    case KVOSimSparseSymDrawer:
        return {sets[0]->size, sets[1]->size, true, "compressed rows of a triangle, diagonal"};
    default:
        return {sets.back()->size, sets.size() > 1 ? sets[0]->size : 1, false, "dense"};
    }
}

} // namespace

// The first that has a name in the file: that is what the title leads to. All of them have the attributes.
Drawer const* Distribution::TitledDrawer() const noexcept
{
    auto const found = std::ranges::find_if(m_drawers, [](auto const& drawer) { return drawer != nullptr && drawer->linked; });
    return found != m_drawers.end() ? found->get() : nullptr;
}

Label const& Distribution::KeptLabel()
{
    if (m_label)
        return *m_label;
    Context& context = RequireOpen(kReading);
    Drawer const* const drawer = TitledDrawer();
    if (drawer == nullptr)
        return m_label.emplace();
    Hdf5Guard const guard(context.BytesForNames());
    Hid const object(Checked(H5Oopen(context.Group(), DrawerName(m_id.Index(), drawer->number).c_str(), H5P_DEFAULT), kReading, Path()));
    Label label = ReadLabel(object, Path());
    // A title that leads elsewhere is no name of this matrix: another program has copied or moved it.
    std::optional<Titled> const titled = context.OpenSession(kReading).GetTitles().Find(label.title);
    if (!titled || titled->context != context.ID().Index() || titled->distribution != m_id.Index())
        label.title.clear();
    m_link = label.title;
    return m_label.emplace(std::move(label));
}

std::string Distribution::Target() const
{
    Drawer const* const drawer = TitledDrawer();
    return drawer == nullptr
               ? std::string()
               : "/context_" + std::to_string(m_context->ID().Index()) + "/" + DrawerName(m_id.Index(), drawer->number).c_str();
}

void Distribution::Note(Drawer& drawer, DrawerNote const& note)
{
    if (drawer.note == note)
        return;
    drawer.note.emplace(); // a failure half-way leaves what fits no note
    Hid opened;
    if (drawer.dense == nullptr && drawer.sparse == nullptr)
        opened =
            Hid(Checked(H5Oopen(m_context->Group(), DrawerName(m_id.Index(), drawer.number).c_str(), H5P_DEFAULT), kLabelling, Path()));
    hid_t const object = drawer.dense != nullptr ? drawer.dense->Dataset() : drawer.sparse != nullptr ? drawer.sparse->Group() : opened;
    simdb::WriteLabel(object, note.label, note.facts, Path());
    drawer.note = note;
}

Label const& Distribution::GetLabel()
{
    return m_labelChanges.empty() ? KeptLabel() : m_labelChanges.back().label;
}

void Distribution::SetLabel(Label label)
{
    Context& context = RequireOpen(kLabelling);
    Session& session = context.OpenSession(kLabelling);
    session.RequireWritable(kLabelling);
    RequireValid(label, Path());
    KeptLabel();
    Titles& titles = session.GetTitles();
    Titled const self{context.ID().Index(), m_id.Index()};
    if (!label.title.empty())
        label.title = titles.FreeFor(self, label.title);
    Owner const owner = session.CurrentTransaction();
    context.Touch(*this);
    m_labelChanges.reserve(m_labelChanges.size() + 1);
    NoteAhead(label);
    if (!label.title.empty())
        titles.Take(label.title, self);

    // Nothing can fail from here on.
    if (!m_labelChanges.empty() && m_labelChanges.back().owner == owner) {
        std::swap(m_labelChanges.back().label, label);
        DropTitle(label.title);
    } else {
        m_labelChanges.push_back({owner, std::move(label)});
    }
}

// Drawers without a name in the file are nobody's to see: what a commit would have to write to their objects is written as soon as it is
// said, and is wrong only where a transaction inside of another takes it back, or a dimension changes.
void Distribution::NoteAhead(Label const& label)
{
    if (IsTemporary() || m_context->OpenSession(kLabelling).IsScratch())
        return;
    for (auto const& drawer : m_drawers)
        if (drawer != nullptr && !drawer->linked) {
            Hdf5Guard const guard(Hdf5Guard::kReserve + kBytesOfLabel);
            Note(*drawer, {label, FactsOf(*drawer, drawer->sets)});
        }
}

// Unless this matrix may still come to have it.
void Distribution::DropTitle(std::string const& title) noexcept
{
    bool const isUsed = (m_label && m_label->title == title) ||
                        std::ranges::any_of(m_labelChanges, [&](LabelChange const& change) { return change.label.title == title; });
    if (!isUsed && !title.empty() && m_context != nullptr)
        m_context->OpenSession(kLabelling).GetTitles().Drop(title);
}

void Distribution::DropTitles() noexcept
{
    while (!m_labelChanges.empty()) {
        LabelChange const change = std::move(m_labelChanges.back());
        m_labelChanges.pop_back();
        DropTitle(change.label.title);
    }
}

std::size_t Distribution::LabelChangesFor(Owner owner) const noexcept
{
    auto const last = std::find_if(m_labelChanges.rbegin(), m_labelChanges.rend(),
                                   [&](LabelChange const& change) { return change.owner == owner || change.owner == kNoOwner; });
    return static_cast<std::size_t>(m_labelChanges.rend() - last);
}

bool Distribution::HasLabelToWrite(std::size_t kept, bool changesDrawers)
{
    auto const hasNote = [](auto const& drawer) { return drawer != nullptr && drawer->note; };
    return kept > 0 || m_isRelabelled || (changesDrawers && (std::ranges::any_of(m_drawers, hasNote) || !KeptLabel().IsEmpty()));
}

void Distribution::WriteLabel(std::size_t kept, std::function<std::size_t(Drawer const&)> const& changesKept)
{
    Context& context = RequireOpen(kLabelling);
    Label const label = kept > 0 ? m_labelChanges[kept - 1].label : KeptLabel();
    m_isRelabelled = true;
    Hdf5Guard const guard;
    for (auto const& drawer : m_drawers)
        if (drawer != nullptr && drawer->linked)
            Note(*drawer, {label, FactsOf(*drawer, drawer->SetsAfter(changesKept(*drawer)))});
    Titles& titles = context.OpenSession(kLabelling).GetTitles();
    titles.Relink(m_link, "", "");
    m_link = label.title; // before it is there: a failure half-way has to find it
    titles.Relink("", m_link, Target());
}

void Distribution::AcceptLabel(std::size_t kept) noexcept
{
    m_isRelabelled = false;
    if (kept == 0)
        return;
    Label const former = std::move(*m_label);
    m_label = std::move(m_labelChanges[kept - 1].label);
    std::vector<LabelChange> const past(std::make_move_iterator(m_labelChanges.begin()),
                                        std::make_move_iterator(m_labelChanges.begin() + static_cast<std::ptrdiff_t>(kept - 1)));
    m_labelChanges.erase(m_labelChanges.begin(), m_labelChanges.begin() + static_cast<std::ptrdiff_t>(kept));
    DropTitle(former.title);
    for (LabelChange const& change : past)
        DropTitle(change.label.title);
}

void Distribution::WithdrawLabel() noexcept
{
    if (!m_isRelabelled)
        return;
    try {
        m_context->OpenSession(kLabelling).GetTitles().Relink(m_link, m_label->title, Target());
        m_link = m_label->title;
    } catch (KVOBasException const&) { // the next commit tries again
    } catch (std::bad_alloc const&) {
    }
}

void Distribution::PassLabelOn(Owner owner) noexcept
{
    for (LabelChange& change : m_labelChanges)
        if (change.owner == owner)
            change.owner = kNoOwner;
}

void Distribution::RollBackLabel(Owner owner) noexcept
{
    for (std::size_t i = m_labelChanges.size(); i-- > 0;)
        if (m_labelChanges[i].owner == owner) {
            std::string const title = std::move(m_labelChanges[i].label.title);
            m_labelChanges.erase(m_labelChanges.begin() + static_cast<std::ptrdiff_t>(i));
            DropTitle(title);
        }
}

} // namespace simdb
