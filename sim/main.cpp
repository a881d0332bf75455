// The `sim` subcommand: command line, start-up line, commands on standard
// input, and a clean exit on SIGINT or SIGTERM.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>

#include "common/endpoint.h"
#include "sim/simulator.h"

namespace logosim {

namespace {

constexpr const char* kDefaultHost = "127.0.0.1";
constexpr int kDefaultPort = 5020;
constexpr int kExitOk = 0;
constexpr int kExitCannotListen = 1;
constexpr int kExitUsage = 2;

const char kUsage[] =
    "usage: sim [--listen HOST[:PORT]] [--animate] [--fault RULE]... [--seed N] [--log-requests]\n"
    "  --listen HOST[:PORT]  address to serve on (default 127.0.0.1:5020; port 0 = any free port)\n"
    "  --animate             make I1..I8 and AI1..AI8 change over time\n"
    "  --fault RULE          KIND[:every=N][:prob=P][:delay=MS][:station=N][:code=C], repeatable;\n"
    "                        KIND: drop, drop-mid, late, short, long, exception, silent\n"
    "  --seed N              seed for prob= faults (default 1)\n"
    "  --log-requests        print each request on standard output: unit, function, address, quantity\n"
    "While running, lines on standard input: 'fault RULE...' (or 'fault none'), 'pause', 'resume'.\n";

int signalPipe[2] = {-1, -1};

extern "C" void onStopSignal(int)
{
    const int saved = errno;
    const char byte = 1;
    if (::write(signalPipe[1], &byte, 1) < 0) {
        // Already signalled; the main loop will see the first byte.
    }
    errno = saved;
}

bool parseListen(const std::string& text, SimOptions* options, std::string* error)
{
    common::Endpoint endpoint;
    if (!common::parseEndpoint(text, kDefaultPort, 0, &endpoint, error)) {
        *error = "--listen '" + text + "': " + *error + " (expected HOST[:PORT], or [IPV6]:PORT)";
        return false;
    }
    options->host = endpoint.host;
    options->port = endpoint.port;
    return true;
}

bool parseSeed(const std::string& text, unsigned* seed, std::string* error)
{
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || text[0] == '-' || *end != '\0' || errno != 0 || value > 0xFFFFFFFFul) {
        *error = "--seed '" + text + "' is not a whole number from 0 to 4294967295";
        return false;
    }
    *seed = static_cast<unsigned>(value);
    return true;
}

// Accepts "--opt value" and "--opt=value". Returns false with *error set for
// anything it cannot use; *help is set for --help.
bool parseArguments(int argc, char** argv, SimOptions* options, bool* help, std::string* error)
{
    options->host = kDefaultHost;
    options->port = kDefaultPort;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        std::string value;
        const size_t eq = arg.find('=');
        const bool inlineValue = arg.compare(0, 2, "--") == 0 && eq != std::string::npos;
        if (inlineValue) {
            value = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
        }
        const bool takesValue = arg == "--listen" || arg == "--fault" || arg == "--seed";
        if (takesValue && !inlineValue) {
            if (i + 1 >= argc) {
                *error = arg + " needs a value";
                return false;
            }
            value = argv[++i];
        } else if (!takesValue && inlineValue) {
            *error = arg + " takes no value";
            return false;
        }
        FaultSpec fault;
        if (arg == "--help" || arg == "-h") {
            *help = true;
        } else if (arg == "--animate") {
            options->animate = true;
        } else if (arg == "--log-requests") {
            // One write per line, flushed, so that a reader on a pipe sees
            // each request as it comes.
            options->requestLog = [](const std::string& line) {
                const std::string text = "request " + line + "\n";
                std::fwrite(text.data(), 1, text.size(), stdout);
                std::fflush(stdout);
            };
        } else if (arg == "--listen") {
            if (!parseListen(value, options, error))
                return false;
        } else if (arg == "--seed") {
            if (!parseSeed(value, &options->seed, error))
                return false;
        } else if (arg == "--fault") {
            if (!parseFaultSpec(value, &fault, error)) {
                *error = "--fault: " + *error;
                return false;
            }
            options->faults.push_back(fault);
        } else {
            *error = "unknown argument '" + std::string(argv[i]) + "'";
            return false;
        }
    }
    return true;
}

void runCommand(Simulator& sim, const std::string& line)
{
    std::istringstream words(line);
    std::string verb;
    words >> verb;
    std::string error;
    if (verb.empty()) {
        return;
    } else if (verb == "pause") {
        sim.pause();
    } else if (verb == "resume") {
        if (!sim.resume(&error))
            std::cerr << "resume: " << error << std::endl;
    } else if (verb == "fault") {
        std::vector<FaultSpec> faults;
        for (std::string text; words >> text;) {
            FaultSpec rule;
            if (text == "none")
                continue;
            if (!parseFaultSpec(text, &rule, &error)) {
                std::cerr << error << "; fault rules unchanged" << std::endl;
                return;
            }
            faults.push_back(rule);
        }
        sim.setFaults(faults);
    } else {
        std::cerr << "unknown command '" << verb << "' (expected fault, pause or resume)" << std::endl;
        return;
    }
    std::cout << "ok " << verb << std::endl;
}

// Waits for SIGINT/SIGTERM while carrying out commands from standard input.
void serveUntilSignalled(Simulator& sim)
{
    std::string pending;
    bool stdinOpen = true;
    for (;;) {
        pollfd fds[2] = {{signalPipe[0], POLLIN, 0}, {stdinOpen ? STDIN_FILENO : -1, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[0].revents & POLLIN)
            return;
        if (fds[1].revents & (POLLNVAL | POLLERR)) {
            stdinOpen = false;
            continue;
        }
        if (!(fds[1].revents & (POLLIN | POLLHUP)))
            continue;
        char chunk[512];
        const ssize_t got = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (got <= 0) {
            stdinOpen = false;  // no more commands; keep serving
            continue;
        }
        pending.append(chunk, static_cast<size_t>(got));
        for (size_t nl; (nl = pending.find('\n')) != std::string::npos;) {
            runCommand(sim, pending.substr(0, nl));
            pending.erase(0, nl + 1);
        }
    }
}

}  // namespace

int runSimulatorMain(int argc, char** argv)
{
    SimOptions options;
    bool help = false;
    std::string error;
    if (!parseArguments(argc, argv, &options, &help, &error)) {
        std::cerr << "sim: " << error << "\n" << kUsage;
        return kExitUsage;
    }
    if (help) {
        std::cout << kUsage;
        return kExitOk;
    }
    // Handlers go in before the start-up line, so a signal sent as soon as
    // that line is read still ends the simulator cleanly.
    if (pipe(signalPipe) != 0) {
        std::cerr << "sim: cannot create the signal pipe: " << std::strerror(errno) << std::endl;
        return kExitCannotListen;
    }
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    Simulator sim(options);
    const bool started = sim.start(&error);
    if (started) {
        std::cout << "LOGO! simulator listening on " << common::endpointText(options.host, sim.port()) << std::endl;
        serveUntilSignalled(sim);
        sim.stop();
    } else {
        std::cerr << "sim: " << error << std::endl;
    }
    // The handlers stay until the process ends: a stop signal often comes
    // twice (to the process and to its group), and a second one during the
    // shutdown must not kill it half-way. Once the pipe is closed the
    // handler's write simply fails.
    for (int& fd : signalPipe) {
        ::close(fd);
        fd = -1;
    }
    return started ? kExitOk : kExitCannotListen;
}

}  // namespace logosim
