// The files compiled into logohost by cmake/EmbedFiles.cmake: the panel's
// page and the built-in screens, so that it needs nothing beside it on disk.
#ifndef LOGOHOST_EMBEDDED_FILE_H
#define LOGOHOST_EMBEDDED_FILE_H

#include <cstddef>
#include <string>

namespace logohost {

struct EmbeddedFile {
    const char* name;  // path below the folder it was taken from, e.g. "www/panel.css"
    const char* data;  // size bytes, then a NUL
    size_t size;
};

// Below host/panel/: the page.
const EmbeddedFile* findPanelFile(const std::string& name);
// Below host/model/: the built-in screens.
const EmbeddedFile* findModelFile(const std::string& name);

}  // namespace logohost

#endif  // LOGOHOST_EMBEDDED_FILE_H
