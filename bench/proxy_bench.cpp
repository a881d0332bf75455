// The Modbus proxy of `logohost panel` against a libmodbus client talking
// straight to the simulator: requests a second and round trips, for one
// client and for ten at once, with every read going to the controller
// (--modbus-max-age 0) and with reads the scan's image answers.
//   proxy_bench [SECONDS]   (each run; default 3)
// Each client reads AI1 and AI2 (two input registers), which the built-in
// screens trend and so the scan always holds.
#include <fcntl.h>
#include <modbus.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "sim/simulator.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRegisters = 2;  // AI1, AI2
constexpr int kReplySeconds = 5;
constexpr size_t kMostTrips = 2000000;  // per client: bounds the loop whatever the clock does

struct Figures {
    double perSecond = 0, p50 = 0, p99 = 0;
    size_t failures = 0;
};

double percentileOf(std::vector<double>* micros, double fraction)
{
    if (micros->empty())
        return 0;
    const auto at = micros->begin() + static_cast<long>(fraction * static_cast<double>(micros->size() - 1));
    std::nth_element(micros->begin(), at, micros->end());
    return *at;
}

// One client's loop: round trips in microseconds until the time is up.
void client(int port, Clock::time_point end, std::vector<double>* micros, std::atomic<size_t>* failures)
{
    modbus_t* ctx = modbus_new_tcp("127.0.0.1", port);
    modbus_set_slave(ctx, 1);
    modbus_set_response_timeout(ctx, kReplySeconds, 0);
    if (modbus_connect(ctx) != 0) {
        ++*failures;
        modbus_free(ctx);
        return;
    }
    uint16_t words[kRegisters];
    while (Clock::now() < end && micros->size() < kMostTrips) {
        const Clock::time_point sent = Clock::now();
        if (modbus_read_input_registers(ctx, 0, kRegisters, words) != kRegisters)
            ++*failures;
        else
            micros->push_back(std::chrono::duration<double, std::micro>(Clock::now() - sent).count());
    }
    modbus_close(ctx);
    modbus_free(ctx);
}

Figures run(int port, int clients, double seconds)
{
    std::vector<std::vector<double>> micros(static_cast<size_t>(clients));
    std::atomic<size_t> failures{0};
    const Clock::time_point begin = Clock::now();
    const Clock::time_point end = begin + std::chrono::microseconds(static_cast<long>(seconds * 1e6));
    std::vector<std::thread> threads;
    for (auto& trips : micros)
        threads.emplace_back(client, port, end, &trips, &failures);
    for (std::thread& thread : threads)
        thread.join();
    const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
    std::vector<double> all;
    for (const auto& trips : micros)
        all.insert(all.end(), trips.begin(), trips.end());
    Figures figures;
    figures.perSecond = static_cast<double>(all.size()) / elapsed;
    figures.p50 = percentileOf(&all, 0.50);
    figures.p99 = percentileOf(&all, 0.99);
    figures.failures = failures.load();
    return figures;
}

// logohost panel with its proxy on a free port; *port is where it listens.
pid_t startPanel(int simPort, const std::string& maxAge, int* port)
{
    int out[2];
    if (pipe(out) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        const std::string plc = "127.0.0.1:" + std::to_string(simPort);
        execl(LOGOHOST_PATH, LOGOHOST_PATH, "panel", "--plc", plc.c_str(), "--driver", LOGO_DRIVER_PATH, "--listen",
              "127.0.0.1:0", "--modbus-listen", "127.0.0.1:0", "--modbus-max-age", maxAge.c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    close(out[1]);
    FILE* lines = fdopen(out[0], "r");
    char line[256];
    *port = 0;
    while (*port == 0 && fgets(line, sizeof line, lines))
        std::sscanf(line, "Modbus clients: 127.0.0.1:%d", port);
    fclose(lines);  // the panel writes nothing more we wait for
    return pid;
}

void stopPanel(pid_t pid)
{
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
}

void printRow(const char* path, int clients, const Figures& figures, const Figures& direct)
{
    std::printf("| %s | %d | %.0f | %.0f | %.0f | %+.0f | %zu |\n", path, clients, figures.perSecond, figures.p50,
                figures.p99, figures.p50 - direct.p50, figures.failures);
}

}  // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3;
    logosim::Simulator sim{logosim::SimOptions{}};
    std::string error;
    if (seconds <= 0 || !sim.start(&error)) {
        std::fprintf(stderr, "proxy_bench: %s\n", seconds <= 0 ? "usage: proxy_bench [SECONDS]" : error.c_str());
        return 2;
    }
    std::printf("reads of %d input registers (AI1, AI2), %.0f s a run, %u cores\n\n", kRegisters, seconds,
                std::thread::hardware_concurrency());
    std::printf("| path | clients | requests/s | p50 us | p99 us | p50 added us | failures |\n|---|---|---|---|---|---|---|\n");
    const struct {
        const char* path;
        const char* maxAge;  // empty: straight to the simulator
    } paths[] = {{"libmodbus straight to the simulator", ""},
                 {"proxy, --modbus-max-age 0 (every read a frame)", "0"},
                 {"proxy, --modbus-max-age 1 (the scan's image)", "1"}};
    for (const int clients : {1, 10}) {
        Figures direct;
        for (const auto& path : paths) {
            int port = sim.port();
            const pid_t panel = *path.maxAge ? startPanel(sim.port(), path.maxAge, &port) : 0;
            if (port == 0) {
                std::fprintf(stderr, "proxy_bench: the panel did not start\n");
                return 1;
            }
            const Figures figures = run(port, clients, seconds);
            if (!*path.maxAge)
                direct = figures;
            printRow(path.path, clients, figures, direct);
            if (panel > 0)
                stopPanel(panel);
        }
    }
    return 0;
}
