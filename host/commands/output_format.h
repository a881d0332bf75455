// How results are printed: aligned table, CSV or one JSON object per line.
#ifndef LOGOHOST_OUTPUT_FORMAT_H
#define LOGOHOST_OUTPUT_FORMAT_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/commands/cli_options.h"
#include "host/binding/scan_state.h"

namespace logohost {

struct CounterView {
    uint64_t frames = 0;
    uint64_t replies = 0;
    uint64_t refused = 0;
    uint64_t failures = 0;
    uint64_t connections = 0;
    double framesPerSecond = 0;
};

std::string csvField(const std::string& text);
std::string jsonString(const std::string& text);

// `read`: one line per element (and a header line for table and CSV).
std::string readResults(const std::vector<ElementStatus>& elements, Format format);

// `watch` when standard output is not a terminal: one line per scan; CSV
// starts with a header naming the columns.
std::string scanHeader(const std::vector<ElementStatus>& elements, Format format);
std::string scanLine(const std::vector<ElementStatus>& elements, const CounterView& counters, Format format);

// `watch` on a terminal: the lines of the live table.
std::vector<std::string> liveTable(const std::vector<ElementStatus>& elements, const CounterView& counters,
                                   const std::string& title);

// `write`: one line per write, with its outcome.
std::string writeLine(const std::string& variable, const std::string& values, const std::string& outcome,
                      Format format);

}  // namespace logohost

#endif  // LOGOHOST_OUTPUT_FORMAT_H
