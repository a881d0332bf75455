// How the terminal commands print: an aligned table, CSV or one JSON object
// per line.
#ifndef LOGOHOST_OUTPUT_FORMAT_H
#define LOGOHOST_OUTPUT_FORMAT_H

#include <string>
#include <vector>

#include "host/binding/scan_state.h"
#include "host/binding/session.h"
#include "host/commands/cli_options.h"

namespace logohost {

std::string csvField(const std::string& text);
std::string jsonString(const std::string& text);

// `read`: one element, read in this run or not, and why not.
struct Reading {
    std::string name;
    int variable = 0;
    bool read = false;
    std::string value;
    std::string error;
};
// unread: why an element no failure of its own explains was not read.
std::vector<Reading> readingsOf(const std::vector<ElementStatus>& elements, const std::string& unread);
// Table: the elements read; CSV and JSON lines: every element, with an
// error field for one that was not read.
std::string readResults(const std::vector<Reading>& readings, Format format);

// `watch` when standard output is not a terminal: one line per scan; CSV
// starts with a header naming the columns.
std::string scanHeader(const std::vector<ElementStatus>& elements, Format format);
std::string scanLine(const std::vector<ElementStatus>& elements, const LinkFigures& links, Format format);

// `watch` on a terminal: the lines of the live table.
std::vector<std::string> liveTable(const std::vector<ElementStatus>& elements, const LinkFigures& links,
                                   const std::string& title);

// `write`: one line per write, with its outcome.
std::string writeLine(const std::string& variable, const std::string& values, const std::string& outcome,
                      Format format);

}  // namespace logohost

#endif  // LOGOHOST_OUTPUT_FORMAT_H
