// Runs the real logohost binary as a child process for the end-to-end tests.
#ifndef LOGOHOST_TESTS_HOST_PROCESS_H
#define LOGOHOST_TESTS_HOST_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

struct ProcessResult {
    int exitCode = -1;  // -1: killed at the time limit, or did not exit normally
    std::string out;
    std::string err;
};

// Runs the program to its end, capturing both outputs; a child still running
// at the limit is killed, so a hung host fails its test instead of the run.
ProcessResult runProcess(const std::vector<std::string>& argv, std::chrono::seconds limit);

// A child whose standard output is read line by line while it runs.
class Process {
public:
    explicit Process(const std::vector<std::string>& argv);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool readLine(std::string* line, std::chrono::milliseconds limit);
    // SIGINT, then the exit code (-1 if it did not exit by the limit).
    int interruptAndWait(std::chrono::seconds limit);

private:
    pid_t pid_ = -1;
    int out_ = -1;
    std::string buffered_;
};

#endif  // LOGOHOST_TESTS_HOST_PROCESS_H
