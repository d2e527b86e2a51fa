#pragma once

#include <pybind11/pybind11.h>

#include <memory>

class Sparse;

/// What KVOSrvModes finds, as a dict of eigenvalues, residuals, modes (a Dense, or None without any) and account.
/// @param wanted    the members of KVOSrvModesSettings by their names, texts empty for null
/// @param callback  called with share, doing, step, found and wanted between the steps, or None
pybind11::dict FindModes(std::shared_ptr<Sparse> const& stiffness, std::shared_ptr<Sparse> const& mass, pybind11::dict const& wanted,
                         pybind11::object const& callback);
