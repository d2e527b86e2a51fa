#include "KVOBasException.h"

#include "aio_ostream.h"

#include <cstdlib>
#include <exception>
#include <string>

namespace
{

std::terminate_handler s_previousHandler = nullptr;

// The runtime's own handler names only classes derived from std::exception, so ours says what an exception of this family has to say.
void ReportUnhandled()
{
    static bool s_reporting = false;
    if (!s_reporting && std::current_exception()) {
        s_reporting = true;
        try {
            throw;
        } catch (KVOBasException const& exception) {
            aio_cerr << "Unhandled exception ";
            aio_cerr.print_int(exception.ErrorNumber()) << ": " << exception.DeveloperReport().c_str();
            aio_cerr.put('\n').flush();
        } catch (...) { // not of this family: the previous handler reports it
        }
    }
    if (s_previousHandler != nullptr)
        s_previousHandler();
    std::abort();
}

struct TerminateHandler {
    TerminateHandler() : previous(std::set_terminate(ReportUnhandled)) { s_previousHandler = previous; }
    // The library may be unloaded before the process ends.
    ~TerminateHandler()
    {
        if (std::get_terminate() == ReportUnhandled)
            std::set_terminate(previous);
    }
    std::terminate_handler previous;
};

} // namespace

KVOBasException::~KVOBasException() = default;

atr_String KVOBasException::UserReport() const
{
    return AsString();
}

atr_String KVOBasException::DeveloperReport() const
{
    if (m_file == nullptr)
        return AsString();
    std::string const report = std::string(AsString().View()) + "\nFile " + m_file + ", line " + std::to_string(m_line);
    return atr_String(std::string_view(report));
}

void KVOBasException::Throw(char const* file, int line)
{
    static TerminateHandler const s_handler;
    m_file = file;
    m_line = line;
    Raise();
    std::abort(); // a Raise() that returns has broken its promise
}
