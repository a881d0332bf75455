// Running the real logohost binary from a test: its exit code, standard
// output and standard error, and its CSV output by column.
#ifndef LOGO_TESTS_HOST_PROCESS_H
#define LOGO_TESTS_HOST_PROCESS_H

#include <gtest/gtest.h>
#include <unistd.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

using Values = std::map<std::string, std::string>;

struct Exit {
    int code;
    std::string out, err;
};

inline std::string readLine(FILE* out)
{
    char text[256] = "";
    return fgets(text, sizeof text, out) ? std::string(text, std::strcspn(text, "\n")) : "";
}

inline std::string fromEnvironment(const char* name, const char* builtIn)
{
    const char* value = std::getenv(name);
    return value ? value : builtIn;
}

// The host and driver of this build, unless the environment names another
// build's: a cross-built host then runs under its emulator (the launcher, a
// shell-quoted command prefix) against this build's simulator.
inline const std::string kHost = fromEnvironment("LOGOHOST_PATH", LOGOHOST_PATH);
inline const std::string kDriver = fromEnvironment("LOGO_DRIVER_PATH", LOGO_DRIVER_PATH);
inline const std::string kLauncher = fromEnvironment("LOGOHOST_LAUNCHER", LOGOHOST_LAUNCHER);

// logohost with these arguments, through the shell, which first prints its
// pid, the one to signal. A run past the limit is killed, so a hung host
// fails its test and does not linger; standard error goes to a file that much
// --trace output cannot fill up.
inline FILE* startHost(const std::vector<std::string>& args, const std::string& errPath)
{
    // --foreground: a signal the test sends reaches the program once, not
    // again through its process group.
    std::string command = "echo $$; exec timeout --foreground -s KILL 40 " + kLauncher + " '" + kHost + "'";
    for (const std::string& arg : args)
        command += " '" + arg + "'";
    return popen((command + " </dev/null 2>" + errPath).c_str(), "r");
}

inline Exit runHost(const std::vector<std::string>& args)
{
    char errPath[] = "/tmp/logohost-test-XXXXXX";
    close(mkstemp(errPath));
    FILE* out = startHost(args, errPath);
    readLine(out);
    Exit result{-1, "", ""};
    char chunk[4096];
    for (size_t n; (n = fread(chunk, 1, sizeof chunk, out)) > 0;)
        result.out.append(chunk, n);
    const int status = pclose(out);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream err(errPath);
    result.err.assign(std::istreambuf_iterator<char>(err), {});
    unlink(errPath);
    return result;
}

// The rows of `--format csv` output, by column name.
inline std::vector<Values> csvRows(const Exit& run)
{
    std::istringstream lines(run.out);
    std::string header, line;
    std::getline(lines, header);
    std::vector<Values> rows;
    while (std::getline(lines, line)) {
        std::istringstream names(header), fields(line);
        rows.emplace_back();
        // A last field that is empty has no comma after it to be read by.
        for (std::string name; std::getline(names, name, ',');) {
            std::string field;
            std::getline(fields, field, ',');
            rows.back()[name] = field;
        }
    }
    return rows;
}

// A watch's exit status agrees with its last `--format csv` row: 0 when
// every value in it was current, else 1, with each variable that was not
// named on standard error. The columns are variables of one element each.
inline void expectWatchVerdict(const Exit& watch, const std::vector<std::string>& columns)
{
    const std::vector<Values> rows = csvRows(watch);
    ASSERT_FALSE(rows.empty()) << watch.out << watch.err;
    bool all = true;
    for (const std::string& column : columns) {
        const std::string& field = rows.back().at(column);
        const bool value = !field.empty() && field.find_first_not_of("-0123456789") == std::string::npos;
        all = all && value;
        const bool named = watch.err.find("logohost: " + column + ": ") != std::string::npos;
        EXPECT_EQ(named, !value) << column << ": " << field << "\n" << watch.err;
    }
    EXPECT_EQ(watch.code, all ? 0 : 1) << watch.out << watch.err;
}

// The values `read --format csv` printed; a row with an error has none.
inline Values readValues(const Exit& run)
{
    Values values;
    for (Values& row : csvRows(run))
        if (!row["value"].empty())
            values[row["variable"]] = row["value"];
    return values;
}

#endif  // LOGO_TESTS_HOST_PROCESS_H
