#include "Interrupt.h"

#include "Errors.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <mutex>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace
{

std::atomic<bool> g_interrupted{false};
int g_milliseconds = 0; // that an interrupted step is waited for
bool g_tells = true;    // that the process was interrupted
sigset_t g_signals;     // that are requests to end

// Blocked in every thread, for the watching one to fetch: a handler would be replaced by that of METIS, which orders the unknowns and takes
// SIGTERM for a failure of its own. What is ignored, by nohup or in a script's background job, stays so.
__attribute__((no_sanitize("address"))) void BlockSignals()
{
    sigemptyset(&g_signals);
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction inherited {
        };
        if (sigaction(signal, nullptr, &inherited) == 0 && inherited.sa_handler != SIG_IGN)
            sigaddset(&g_signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &g_signals, nullptr);
}

// Called before any library is initialised: providers of BLAS start their threads then, and these inherit what is blocked.
__attribute__((section(".preinit_array"), used)) void (*g_atLoad)() = BlockSignals;

struct Registry {
    std::mutex mutex;
    std::map<std::string, char const*> folders; // with the file in each that goes last
};

// Never destroyed: the watching thread may need it while the process ends.
Registry& TheRegistry()
{
    static auto* const s_registry = new Registry;
    return *s_registry;
}

void Watch()
{
    int signal = 0;
    sigwait(&g_signals, &signal);
    g_interrupted = true;
    timespec const patience{g_milliseconds / 1000, g_milliseconds % 1000 * 1000000L};
    while (sigtimedwait(&g_signals, nullptr, &patience) < 0 && errno == EINTR) {
    }
    Registry& registry = TheRegistry();
    std::scoped_lock const lock(registry.mutex); // kept: nothing is registered or renamed after this
    for (auto const& [path, last] : registry.folders)
        RemoveFolder(path, last);
    if (g_tells) {
        char const* const front = isatty(STDERR_FILENO) ? "\n" : ""; // there a bar may stand on the line
        for (char const* const text : std::initializer_list<char const*>{front, program_invocation_short_name, ": interrupted\n"})
            [[maybe_unused]] auto const written = write(STDERR_FILENO, text, std::strlen(text));
    }
    std::_Exit(static_cast<int>(ExitCode::kInterrupted));
}

} // namespace

void WatchSignals(int milliseconds, bool tells)
{
    g_milliseconds = milliseconds;
    g_tells = tells;
    for (int const signal : {SIGXFSZ, SIGPIPE})
        std::signal(signal, SIG_IGN);
    try {
        std::thread(Watch).detach();
    } catch (std::system_error const& error) {
        throw ToolError(ExitCode::kCannot, std::string("no thread can be had: ") + std::strerror(error.code().value()) +
                                               "; raise the limits on memory (ulimit -v) and processes (ulimit -u)");
    }
}

void CheckInterrupt()
{
    if (g_interrupted.load(std::memory_order_relaxed))
        throw Interrupted();
}

void RemoveFolder(std::string const& path, char const* last)
{
    std::error_code error;
    for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        std::error_code ignored;
        if (entry->path().filename() != last)
            std::filesystem::remove_all(entry->path(), ignored);
    }
    std::filesystem::remove_all(path, error);
}

Removable::Removable(std::string path, char const* last) : m_path(std::move(path)), m_last(last)
{
    std::scoped_lock const lock(TheRegistry().mutex);
    TheRegistry().folders.emplace(m_path, m_last);
}

Removable::~Removable()
{
    std::scoped_lock const lock(TheRegistry().mutex);
    if (m_released)
        return;
    RemoveFolder(m_path, m_last);
    TheRegistry().folders.erase(m_path);
}

bool Removable::Release(std::function<bool()> const& keep)
{
    static bool s_anyKept = false; // guarded by the mutex
    std::scoped_lock const lock(TheRegistry().mutex);
    if (!s_anyKept)
        CheckInterrupt();
    if (!keep())
        return false;
    s_anyKept = m_released = true;
    RemoveFolder(m_path, m_last);
    TheRegistry().folders.erase(m_path);
    return true;
}
