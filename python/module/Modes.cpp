// Natural modes by the library, with the interpreter's signals and callbacks between its steps.

#include "Modes.h"

#include "Dense.h"
#include "Interrupt.h"
#include "Sparse.h"

#include "KVOSrvModes.h"

#include <optional>

namespace py = pybind11;

namespace
{

struct Watch {
    py::object callback; // or None
    std::optional<py::error_already_set> error;

    void operator()(KVOSrvModesProgress const& progress)
    {
        py::gil_scoped_acquire const acquired;
        try {
            if (PyErr_CheckSignals() != 0)
                throw py::error_already_set();
            if (!callback.is_none())
                callback(progress.share, progress.doing, progress.step, progress.found, progress.wanted);
            return;
        } catch (py::error_already_set& raised) {
            error.emplace(raised);
        }
        throw Stopped();
    }
};

py::array Numbers(double const* values, int count)
{
    return py::array_t<double>(count, values);
}

py::dict Described(KVOSrvFactorAccount const& factor)
{
    return py::dict(py::arg("unknowns") = factor.unknowns, py::arg("entries") = factor.entries,
                    py::arg("factor_entries") = factor.factorEntries, py::arg("flops") = factor.flops, py::arg("memory") = factor.memory,
                    py::arg("on_disk") = factor.onDisk, py::arg("orderings") = factor.orderings,
                    py::arg("factorizations") = factor.factorizations, py::arg("solved_columns") = factor.solvedColumns,
                    py::arg("ordering_seconds") = factor.orderingSeconds, py::arg("factor_seconds") = factor.factorSeconds,
                    py::arg("solve_seconds") = factor.solveSeconds);
}

py::dict Described(KVOSrvModesAccount const& account)
{
    return py::dict(py::arg("shift") = account.shift, py::arg("shifts") = account.shifts, py::arg("steps") = account.steps,
                    py::arg("restarts") = account.restarts, py::arg("block") = account.block, py::arg("basis") = account.basis,
                    py::arg("certified") = account.certified, py::arg("search_seconds") = account.searchSeconds,
                    py::arg("factor") = Described(account.factor));
}

} // namespace

py::dict FindModes(std::shared_ptr<Sparse> const& stiffness, std::shared_ptr<Sparse> const& mass, py::dict const& wanted,
                   py::object const& callback)
{
    KVOSrvModesSettings settings;
    std::string const folder = wanted["folder"].cast<std::string>();
    std::string const keep = wanted["keep"].cast<std::string>();
    settings.count = wanted["count"].cast<int>();
    settings.from = wanted["from"].cast<std::optional<double>>();
    settings.to = wanted["to"].cast<std::optional<double>>();
    settings.shift = wanted["shift"].cast<std::optional<double>>();
    settings.tolerance = wanted["tolerance"].cast<double>();
    settings.certify = wanted["certify"].cast<bool>();
    settings.memory = wanted["memory"].cast<std::int64_t>();
    settings.resume = wanted["resume"].cast<bool>();
    settings.folder = folder.empty() ? nullptr : folder.c_str();
    settings.keep = keep.empty() ? nullptr : keep.c_str();

    Watch watch{callback, {}};
    auto const report = [](void* context, KVOSrvModesProgress const& progress) { (*static_cast<Watch*>(context))(progress); };
    std::shared_ptr<KVOSrvModes> found;
    try {
        found = Alone({stiffness.get(), mass.get()},
                      [&] { return std::make_shared<KVOSrvModes>(stiffness->Matrix(), mass->Matrix(), settings, report, &watch); });
    } catch (Stopped const&) {
        throw std::move(*watch.error);
    }
    py::dict result;
    result["eigenvalues"] = Numbers(found->Eigenvalues(), found->Count());
    result["residuals"] = Numbers(found->Residuals(), found->Count());
    result["account"] = Described(found->Account());
    result["modes"] = found->Count() > 0 ? py::cast(std::make_shared<Dense>(found, found->Modes())) : py::none();
    return result;
}
