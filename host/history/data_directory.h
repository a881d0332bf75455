// The data directory: made with its parents when missing, and locked, so
// that two logohosts never write one history.
#ifndef LOGOHOST_DATA_DIRECTORY_H
#define LOGOHOST_DATA_DIRECTORY_H

#include <string>

namespace logohost {

// False with the reason: "cannot create /srv/x: Permission denied".
bool createDirectory(const std::string& directory, std::string* error);

// An advisory lock on a file in the directory, held while this lives. The
// system drops it when the process ends, however it ends, so a crash leaves
// nothing stale behind.
class DirectoryLock {
public:
    DirectoryLock() = default;
    ~DirectoryLock();
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

    // False with the reason: "DIR is in use by another logohost (pid N)".
    bool acquire(const std::string& directory, std::string* error);

private:
    int fd_ = -1;
};

}  // namespace logohost

#endif  // LOGOHOST_DATA_DIRECTORY_H
