// The page's files and the built-in screens, compiled into the program by
// cmake/EmbedFiles.cmake: the panel serves itself with nothing on disk.
#ifndef LOGOHOST_EMBEDDED_FILES_H
#define LOGOHOST_EMBEDDED_FILES_H

#include <cstddef>
#include <string>

namespace logohost {

struct EmbeddedFile {
    const char* name;  // path below host/panel/, e.g. "www/panel.css"
    const char* data;  // size bytes, then a NUL
    size_t size;
};

const EmbeddedFile* findEmbeddedFile(const std::string& name);

}  // namespace logohost

#endif  // LOGOHOST_EMBEDDED_FILES_H
