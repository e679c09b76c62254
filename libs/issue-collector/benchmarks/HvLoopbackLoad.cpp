// A bounded loopback load for the report benchmark:
//   hv-loopback-load HOLDERS CONNECTIONS IDLE
// starts HOLDERS processes that each listen on 127.0.0.1 and hold CONNECTIONS connections to
// themselves (both ends), and IDLE processes that only sleep. Prints "ready" once all are in
// place and keeps them until it gets SIGTERM or SIGINT; the children die with it
// (PR_SET_PDEATHSIG), also if it is killed.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

std::vector<pid_t> g_children;

void stopChildren()
{
    for (const pid_t child : g_children)
        kill(child, SIGKILL);
    for (const pid_t child : g_children)
        waitpid(child, nullptr, 0);
    g_children.clear();
}

[[noreturn]] void holdConnections(int connections, int ready)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (listener < 0 || bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0
        || listen(listener, connections + 16) != 0
        || getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        _exit(1);
    for (int i = 0; i < connections; ++i) {
        const int client = socket(AF_INET, SOCK_STREAM, 0);
        if (client < 0 || connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            _exit(1);
        if (accept(listener, nullptr, nullptr) < 0)
            _exit(1);
    }
    const char done = 'y';
    if (write(ready, &done, 1) != 1)
        _exit(1);
    for (;;)
        pause();
}

bool start(int connections, int ready)
{
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        return false;
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(0);
        if (connections > 0)
            holdConnections(connections, ready);
        for (;;)
            pause();
    }
    g_children.push_back(child);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: hv-loopback-load HOLDERS CONNECTIONS IDLE\n");
        return 2;
    }
    const int holders = std::atoi(argv[1]);
    const int connections = std::atoi(argv[2]);
    const int idle = std::atoi(argv[3]);
    if (holders < 0 || holders > 1000 || connections < 0 || connections > 1000 || idle < 0 || idle > 10000) {
        std::fprintf(stderr, "hv-loopback-load: at most 1000 holders of 1000 connections and 10000 idle processes\n");
        return 2;
    }

    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    sigprocmask(SIG_BLOCK, &stopSignals, nullptr);

    int ready[2];
    if (pipe(ready) != 0)
        return 1;
    for (int i = 0; i < holders; ++i) {
        if (!start(connections, ready[1])) {
            std::perror("hv-loopback-load: fork");
            stopChildren();
            return 1;
        }
    }
    for (int i = 0; i < holders; ++i) {
        char done = 0;
        if (read(ready[0], &done, 1) != 1) {
            std::fprintf(stderr, "hv-loopback-load: a holder failed\n");
            stopChildren();
            return 1;
        }
    }
    for (int i = 0; i < idle; ++i) {
        if (!start(0, -1)) {
            std::perror("hv-loopback-load: fork");
            stopChildren();
            return 1;
        }
    }
    std::printf("ready\n");
    std::fflush(stdout);

    int signal = 0;
    sigwait(&stopSignals, &signal);
    stopChildren();
    return 0;
}
