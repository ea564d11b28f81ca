#include "platform/quitsignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace
{
int g_pipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 1;
    [[maybe_unused]] auto n = ::write(g_pipe[0], &c, 1);
}
} // namespace

void quitOnTerminationSignals()
{
    // Called again, it takes the signals back from a library that set its own handlers.
    if (g_pipe[0] < 0 && ::socketpair(AF_UNIX, SOCK_STREAM, 0, g_pipe) != 0)
        return;
    static bool watched = false;
    if (!std::exchange(watched, true)) {
        auto* notifier = new QSocketNotifier(g_pipe[1], QSocketNotifier::Read, qApp);
        QObject::connect(notifier, &QSocketNotifier::activated, qApp, [] {
            char c;
            [[maybe_unused]] auto n = ::read(g_pipe[1], &c, 1);
            QCoreApplication::quit();
        });
    }
    struct sigaction sa {
    };
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGHUP, SIG_DFL);
}
