// The module kvo._core: what the package kvo calls of the library. Its arguments were checked there; what is wrong all the same is an
// exception, too.

#include "Arrays.h"
#include "Dense.h"
#include "Errors.h"
#include "Modes.h"
#include "Products.h"
#include "Sparse.h"

#include "KVOBasLeftover.h"
#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvMatrixFile.h"
#include "KVOSrvUtilities.h"

#include <pybind11/stl.h>

namespace py = pybind11;

namespace
{

void DefineDatabase(py::module_& core)
{
    py::class_<Place>(core, "Place")
        .def(py::init([](int context, int distribution) {
            return Place{context, distribution};
        }))
        .def_readonly("context", &Place::context)
        .def_readonly("distribution", &Place::distribution);
    py::class_<Entry>(core, "Entry")
        .def_readonly("place", &Entry::place)
        .def_readonly("kind", &Entry::kind)
        .def_property_readonly("dtype", [](Entry const& entry) { return DtypeOf(entry.typeKey); })
        .def_readonly("type", &Entry::type)
        .def_property_readonly("shape", [](Entry const& entry) { return py::tuple(py::cast(entry.shape)); })
        .def_property_readonly("chunks", [](Entry const& entry) { return py::tuple(py::cast(entry.chunks)); })
        .def_readonly("values", &Entry::values)
        .def_readonly("title", &Entry::title)
        .def_readonly("unit", &Entry::unit)
        .def_readonly("description", &Entry::description);
    py::class_<About>(core, "About").def(py::init([](int type, std::string const& title, std::string const& unit, std::string const& text) {
        return About{type, title, unit, text};
    }));

    auto const alone = [](auto work) { return [work](Database& database) { return Alone({&database}, [&] { return work(database); }); }; };
    py::class_<Database, std::shared_ptr<Database>>(core, "Database")
        .def(py::init([](std::string const& path, bool create, bool readOnly) {
            py::gil_scoped_release const released;
            return std::make_shared<Database>(path, create, readOnly);
        }))
        .def_property_readonly("closed", &Database::IsClosed)
        .def_property_readonly(
            "path",
            [](Database const& database) { return py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefault(database.Path().c_str())); })
        .def("in_transaction", alone([](Database& database) { return database.IsInTransaction(); }))
        .def("close", alone([](Database& database) { database.Close(); }))
        .def("close_and_move_to",
             [](Database& database, std::string const& path) { Alone({&database}, [&] { database.CloseAndMoveTo(path); }); })
        .def("commit_and_move_to",
             [](Database& database, std::string const& path) {
                 Alone({&database}, [&] {
                     database.Commit();
                     database.CloseAndMoveTo(path);
                     database.Reopen();
                 });
             })
        .def("begin", alone([](Database& database) { database.Begin(); }))
        .def("commit", alone([](Database& database) { database.Commit(); }))
        .def("roll_back", alone([](Database& database) { database.RollBack(); }))
        .def("list", alone([](Database& database) { return database.List(); }))
        .def("describe",
             [](Database& database, Place const& place) { return Alone({&database}, [&] { return database.Describe(place); }); })
        .def("find", [](Database& database, std::string const& title) { return Alone({&database}, [&] { return database.Find(title); }); })
        .def("tell", [](Database& database, Place const& place,
                        About const& about) { Alone({&database}, [&] { about.Tell(database.IdOf(place)); }); })
        .def("create_dense",
             [](Database& database, std::vector<std::int64_t> const& shape, py::dtype const& dtype,
                std::optional<std::vector<int>> const& chunks, About const& about, bool checksums) {
                 int const key = TypeKeyOf(dtype);
                 return Alone({&database}, [&] { return database.CreateDense(shape, key, chunks, about, checksums); });
             })
        .def("check", alone([](Database& database) { return database.Check(); }));
}

void DefineDense(py::module_& core)
{
    py::class_<Dense, std::shared_ptr<Dense>>(core, "Dense")
        .def(py::init<std::shared_ptr<Database>, Place const&>())
        .def_static("scratch", &Dense::MakeScratch)
        .def_property_readonly("shape", &Dense::Shape)
        .def_property_readonly("chunks", &Dense::Chunks)
        .def_property_readonly("dtype", &Dense::Dtype)
        .def("get", &Dense::Get)
        .def("fill", &Dense::Fill)
        .def("put", &Dense::Put)
        .def("read", &Dense::Read)
        .def("write", &Dense::Write)
        .def("extend", &Dense::Extend)
        .def("set_cache", &Dense::SetCache)
        .def("export", &Dense::Export)
        .def("__enter__",
             [](Dense& matrix) {
                 py::gil_scoped_release const released;
                 matrix.In().mutex.lock();
             })
        .def("__exit__", [](Dense& matrix, py::args const&) { matrix.In().mutex.unlock(); });
    core.def("multiply_rows", &MultiplyRows);
    core.def("multiply", &Multiply);
    core.def("multiply_rows_transposed", &MultiplyRowsTransposed);
}

// Formats by their numbers; -1 is none.
void DefineFormats(py::module_& core)
{
    core.def("format_of_word", [](std::string const& word) { return static_cast<int>(KVOSrvMatrixFile::FormatOfWord(word.c_str())); });
    core.def("format_of_name", [](std::string const& path) { return static_cast<int>(KVOSrvMatrixFile::FormatOfName(path.c_str())); });
    core.def("format_to_read", [](std::string const& path) { return static_cast<int>(KVOSrvMatrixFile::FormatToRead(path.c_str())); });
}

void DefineSparse(py::module_& core)
{
    py::class_<Sparse, std::shared_ptr<Sparse>>(core, "Sparse")
        .def_static("from_rows", &Sparse::FromRows)
        .def_static("from_database", &Sparse::FromDatabase)
        .def_static("read", &Sparse::Read)
        .def_property_readonly(
            "shape", [](Sparse const& matrix) { return py::make_tuple(matrix.Matrix().NumberOfRows(), matrix.Matrix().NumberOfColumns()); })
        .def_property_readonly("half", &Sparse::IsHalfStored)
        .def("symmetric", &Sparse::IsSymmetric)
        .def("in_full_storage", &Sparse::InFullStorage)
        .def("in_half_storage", &Sparse::InHalfStorage)
        .def("rows", &RowsOf)
        .def("write", &Sparse::Write)
        .def("store", &Sparse::Store)
        .def("multiply", &Sparse::Multiply);
    core.def("stored_rows", &StoredRows);
}

// What is not complete lies in folders with this mark.
void DefineFolderMark(py::module_& core)
{
    static constexpr KVOBasFolderMark kMark{".kvo", {'K', 'V', 'O', 'P', 'Y', 'T', 'P', 'F'}};
    core.attr("FOLDER_MARK") = kMark.name;
    core.def("mark_folder", [](int descriptor) {
        if (!kMark.Write(descriptor)) {
            PyErr_SetFromErrno(PyExc_OSError);
            throw py::error_already_set();
        }
    });
    core.def("is_left_behind", [](int descriptor) { return kMark.IsLeftBehind(descriptor); });
}

} // namespace

PYBIND11_MODULE(_core, core)
{
    core.attr("__version__") = KVO_PYTHON_VERSION;
    core.doc() = "What the package kvo calls of the library.";
    // For as long as the process lives: objects of Python may outlive the module.
    static int modules = 0;
    KVOMtxLinearAlgebra_initialize(modules);
    RegisterErrors();
    DefineDatabase(core);
    DefineDense(core);
    DefineSparse(core);
    DefineFolderMark(core);
    DefineFormats(core);
    core.def("find_modes", &FindModes);
    core.def("empty", &NewArray);
    core.def("set_scratch_folder", [](std::string const& path) { KVOSrvUtilities::SetTempDirectory(cow_String(path.c_str())); });
    core.def("scratch_folder", [] { return std::string(KVOSrvUtilities::GetTempDirectory().c_str()); });
}
