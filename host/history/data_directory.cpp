#include "host/history/data_directory.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/history/history_store.h"

namespace logohost {
namespace {

constexpr const char* kLockFile = "logohost.lock";
constexpr mode_t kLockFileMode = 0644;
constexpr size_t kPidTextSize = 32;

std::string systemError(int error)
{
    return std::strerror(error);
}

// The pid the holder wrote, 0 if it has not written it yet.
long holderPid(int fd)
{
    char text[kPidTextSize] = {};
    const ssize_t length = pread(fd, text, sizeof text - 1, 0);
    return length > 0 ? std::strtol(text, nullptr, 10) : 0;
}

bool writePid(int fd)
{
    const std::string text = std::to_string(static_cast<long>(getpid())) + "\n";
    return ftruncate(fd, 0) == 0 && pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

std::string homeDirectory()
{
    const char* home = std::getenv("HOME");
    if (home && home[0] != '\0')
        return home;
    const passwd* user = getpwuid(getuid());
    return user && user->pw_dir ? user->pw_dir : "";
}

}  // namespace

bool createDirectory(const std::string& directory, std::string* error)
{
    if (directory.empty()) {
        *error = "no data directory given";
        return false;
    }
    std::error_code failure;
    std::filesystem::create_directories(directory, failure);
    if (!failure && !std::filesystem::is_directory(directory, failure))
        failure = std::make_error_code(std::errc::not_a_directory);
    if (failure)
        *error = "cannot create " + directory + ": " + failure.message();
    return !failure;
}

DirectoryLock::~DirectoryLock()
{
    if (fd_ >= 0)
        close(fd_);
}

bool DirectoryLock::acquire(const std::string& directory, std::string* error)
{
    const std::string path = directory + "/" + kLockFile;
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kLockFileMode);
    if (fd < 0) {
        *error = "cannot write " + directory + ": " + systemError(errno);
        return false;
    }
    // flock, not fcntl: its lock belongs to this open file, so a second
    // store in the same process is kept out as well as another process.
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int reason = errno;
        const long pid = reason == EWOULDBLOCK ? holderPid(fd) : 0;
        if (reason != EWOULDBLOCK)
            *error = "cannot lock " + path + ": " + systemError(reason);
        else
            *error = directory + " is in use by another logohost" +
                     (pid > 0 ? " (pid " + std::to_string(pid) + ")" : std::string());
        close(fd);
        return false;
    }
    // Without its pid the lock still keeps the second one out; only that
    // one's message is poorer.
    static_cast<void>(writePid(fd));
    fd_ = fd;
    return true;
}

std::string defaultHistoryDirectory()
{
    // A relative XDG_STATE_HOME is to be ignored, as for every XDG variable.
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state && state[0] == '/')
        return std::string(state) + "/logohost";
    const std::string home = homeDirectory();
    return home.empty() ? std::string() : home + "/.local/state/logohost";
}

}  // namespace logohost
