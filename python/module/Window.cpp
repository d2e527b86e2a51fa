// Indices of Python as ranges. What is small is read in so few microseconds that this must not be Python's own work.

#include "Window.h"

namespace
{

// None for what is no range of step 1 and no position within.
bool Add(Window& window, PyObject* one, int extent)
{
    Py_ssize_t first = 0, count = 1;
    if (one == nullptr) {
        count = extent;
    } else if (PySlice_Check(one)) {
        Py_ssize_t end, step;
        bool const isSlice = PySlice_Unpack(one, &first, &end, &step) == 0;
        if (!isSlice)
            PyErr_Clear();
        if (!isSlice || step != 1)
            return false;
        count = PySlice_AdjustIndices(extent, &first, &end, step);
    } else if (PyLong_CheckExact(one)) {
        int overflow;
        first = PyLong_AsLongAndOverflow(one, &overflow);
        first += first < 0 ? extent : 0;
        if (overflow != 0 || first < 0 || first >= extent)
            return false;
    } else {
        return false;
    }
    window.first.push_back(static_cast<int>(first));
    window.count.push_back(static_cast<int>(count));
    if (one == nullptr || PySlice_Check(one))
        window.shape.push_back(count);
    return count > 0 && !__builtin_mul_overflow(window.values, std::int64_t{count}, &window.values);
}

} // namespace

std::optional<Window> WindowOf(pybind11::handle key, std::vector<int> const& shape, std::int64_t most)
{
    bool const isTuple = PyTuple_CheckExact(key.ptr());
    Py_ssize_t const keys = isTuple ? PyTuple_GET_SIZE(key.ptr()) : 1;
    auto const rank = static_cast<Py_ssize_t>(shape.size());
    Window window;
    auto const add = [&](PyObject* one) {
        std::size_t const axis = window.first.size();
        return axis < shape.size() && Add(window, one, shape[axis]);
    };
    bool hasGap = false;
    for (Py_ssize_t k = 0; k < keys; ++k) {
        PyObject* const one = isTuple ? PyTuple_GET_ITEM(key.ptr(), k) : key.ptr();
        bool fits = one != Py_Ellipsis ? add(one) : !hasGap;
        if (one == Py_Ellipsis)
            for (Py_ssize_t missing = rank - (keys - 1); fits && missing > 0; --missing)
                fits = add(nullptr);
        hasGap = hasGap || one == Py_Ellipsis;
        if (!fits)
            return std::nullopt;
    }
    while (window.first.size() < shape.size())
        if (!add(nullptr))
            return std::nullopt;
    return window.values <= most ? std::optional<Window>(std::move(window)) : std::nullopt;
}
