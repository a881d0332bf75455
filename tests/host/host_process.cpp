#include "tests/host/host_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

int remainingMs(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// Starts argv with the given pipes as standard output and error (-1: keep).
pid_t spawn(const std::vector<std::string>& argv, int outWrite, int errWrite)
{
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        const int devNull = open("/dev/null", O_RDONLY);
        dup2(devNull, STDIN_FILENO);
        dup2(outWrite, STDOUT_FILENO);
        if (errWrite >= 0)
            dup2(errWrite, STDERR_FILENO);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

int exitCodeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

// Waits for the child until the deadline, killing it then.
int reap(pid_t pid, Clock::time_point deadline)
{
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (Clock::now() >= deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return exitCodeOf(status);
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& argv, std::chrono::seconds limit)
{
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        return ProcessResult();
    const pid_t pid = spawn(argv, out[1], err[1]);
    close(out[1]);
    close(err[1]);

    ProcessResult result;
    const auto deadline = Clock::now() + limit;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open = 2;
    while (open > 0 && Clock::now() < deadline) {
        if (poll(fds, 2, remainingMs(deadline)) <= 0)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP)))
                continue;
            char chunk[4096];
            const ssize_t n = read(fds[i].fd, chunk, sizeof chunk);
            if (n > 0) {
                sinks[i]->append(chunk, static_cast<size_t>(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (const pollfd& fd : fds)
        if (fd.fd >= 0)
            close(fd.fd);
    result.exitCode = reap(pid, deadline);
    return result;
}

Process::Process(const std::vector<std::string>& argv)
{
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0)
        return;
    pid_ = spawn(argv, out[1], -1);
    close(out[1]);
    out_ = out[0];
}

Process::~Process()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0)
        close(out_);
}

bool Process::readLine(std::string* line, std::chrono::milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    for (;;) {
        const size_t newline = buffered_.find('\n');
        if (newline != std::string::npos) {
            *line = buffered_.substr(0, newline);
            buffered_.erase(0, newline + 1);
            return true;
        }
        pollfd fd{out_, POLLIN, 0};
        if (poll(&fd, 1, remainingMs(deadline)) <= 0)
            return false;
        char chunk[1024];
        const ssize_t n = read(out_, chunk, sizeof chunk);
        if (n <= 0)
            return false;
        buffered_.append(chunk, static_cast<size_t>(n));
    }
}

int Process::interruptAndWait(std::chrono::seconds limit)
{
    kill(pid_, SIGINT);
    const int code = reap(pid_, Clock::now() + limit);
    pid_ = -1;
    return code;
}
