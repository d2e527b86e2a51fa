#include "Interrupt.h"

#include "Errors.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <semaphore.h>
#include <set>
#include <thread>
#include <unistd.h>
#include <utility>

namespace
{

std::atomic<bool> g_interrupted{false};
sem_t g_signals;

struct Registry {
    std::mutex mutex;
    std::multiset<std::string> paths;
};

// Never destroyed: the watching thread may need it while the process ends.
Registry& TheRegistry()
{
    static auto* const s_registry = new Registry;
    return *s_registry;
}

void Remove(std::string const& path)
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
    std::filesystem::remove(path + ".journal", ignored);
}

// May run in any thread, those of the BLAS provider too.
void OnSignal(int)
{
    g_interrupted = true;
    sem_post(&g_signals);
}

void Watch()
{
    while (sem_wait(&g_signals) != 0) {
    }
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    constexpr int kPatienceSeconds = 2;
    deadline.tv_sec += kPatienceSeconds;
    while (sem_timedwait(&g_signals, &deadline) != 0 && errno == EINTR) {
    }
    Registry& registry = TheRegistry();
    std::scoped_lock const lock(registry.mutex); // kept: nothing is registered or renamed after this
    for (std::string const& path : registry.paths)
        Remove(path);
    constexpr char kText[] = "\nkvomtx: interrupted\n";
    [[maybe_unused]] auto const written = write(STDERR_FILENO, kText, sizeof kText - 1);
    std::_Exit(static_cast<int>(ExitCode::kInterrupted));
}

} // namespace

void WatchSignals()
{
    sem_init(&g_signals, 0, 0);
    struct sigaction action {
    };
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    for (int const signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
    std::signal(SIGXFSZ, SIG_IGN);
    std::thread(Watch).detach();
}

void CheckInterrupt()
{
    if (g_interrupted.load(std::memory_order_relaxed))
        throw Interrupted();
}

Removable::Removable(std::string path) : m_path(std::move(path))
{
    std::scoped_lock const lock(TheRegistry().mutex);
    TheRegistry().paths.insert(m_path);
}

Removable::~Removable()
{
    std::scoped_lock const lock(TheRegistry().mutex);
    if (m_released)
        return;
    Remove(m_path);
    TheRegistry().paths.erase(TheRegistry().paths.find(m_path));
}

bool Removable::Release(std::function<bool()> const& keep)
{
    std::scoped_lock const lock(TheRegistry().mutex);
    if (!keep())
        return false;
    m_released = true;
    TheRegistry().paths.erase(TheRegistry().paths.find(m_path));
    return true;
}
