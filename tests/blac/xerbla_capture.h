#pragma once

#include <ostream>
#include <string>
#include <vector>

/// The reports that reached the error handler. The test program has an XERBLA of its own, which takes the place of the provider's, records
/// and returns.
struct XerblaReport {
    std::string name;
    int info;
    bool operator==(XerblaReport const&) const = default;
    friend void PrintTo(XerblaReport const& report, std::ostream* out) { *out << '"' << report.name << "\" " << report.info; }
};

std::vector<XerblaReport>& XerblaReports();
