#include "host/commands/output_format.h"

#include <algorithm>
#include <cstdio>

#include "host/link/trace.h"

namespace logohost {
namespace {

constexpr size_t kMinNameWidth = 8;
constexpr size_t kMinValueWidth = 6;
constexpr size_t kChangedWidth = 12;  // "14:03:07.123"

bool isOk(const ElementStatus& element) { return element.state == ElementState::Ok && element.hasValue; }

std::string padded(const std::string& text, size_t width)
{
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

size_t nameWidth(const std::vector<ElementStatus>& elements)
{
    size_t width = kMinNameWidth;
    for (const ElementStatus& element : elements)
        width = std::max(width, element.name.size());
    return width;
}

std::string countersText(const CounterView& counters)
{
    char rate[32];
    std::snprintf(rate, sizeof rate, "%.1f", counters.framesPerSecond);
    return "frames " + std::to_string(counters.frames) + ", replies " + std::to_string(counters.replies) +
           ", refused " + std::to_string(counters.refused) + ", failures " + std::to_string(counters.failures) + ", connections " +
           std::to_string(counters.connections) + ", " + rate + " frames/s";
}

std::string jsonCounters(const CounterView& counters)
{
    char rate[32];
    std::snprintf(rate, sizeof rate, "%.1f", counters.framesPerSecond);
    return "\"frames\":" + std::to_string(counters.frames) + ",\"replies\":" + std::to_string(counters.replies) +
           ",\"refused\":" + std::to_string(counters.refused) + ",\"failures\":" + std::to_string(counters.failures) + ",\"connections\":" +
           std::to_string(counters.connections) + ",\"frames_per_s\":" + rate;
}

}  // namespace

std::string csvField(const std::string& text)
{
    if (text.find_first_of(",\"\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string jsonString(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            quoted += escape;
        } else {
            quoted += c;
        }
    }
    return quoted + "\"";
}

std::string readResults(const std::vector<ElementStatus>& elements, Format format)
{
    std::string out;
    const size_t width = nameWidth(elements);
    if (std::none_of(elements.begin(), elements.end(), isOk))
        return out;
    if (format == Format::Table)
        out += padded("VARIABLE", width) + "  VALUE\n";
    else if (format == Format::Csv)
        out += "variable,value\n";
    for (const ElementStatus& element : elements) {
        if (!isOk(element))
            continue;
        if (format == Format::Table)
            out += padded(element.name, width) + "  " + element.value + "\n";
        else if (format == Format::Csv)
            out += csvField(element.name) + "," + element.value + "\n";
        else
            out += "{\"variable\":" + jsonString(element.name) + ",\"value\":" + element.value + "}\n";
    }
    return out;
}

std::string scanHeader(const std::vector<ElementStatus>& elements, Format format)
{
    if (format != Format::Csv)
        return std::string();
    std::string header = "time";
    for (const ElementStatus& element : elements)
        header += "," + csvField(element.name);
    return header + ",frames,replies,refused,failures,connections,frames_per_s\n";
}

std::string scanLine(const std::vector<ElementStatus>& elements, const CounterView& counters, Format format)
{
    const std::string now = clockText(false);
    if (format == Format::Csv) {
        char rate[32];
        std::snprintf(rate, sizeof rate, "%.1f", counters.framesPerSecond);
        std::string line = now;
        for (const ElementStatus& element : elements)
            line += "," + csvField(isOk(element) ? element.value : stateText(element));
        return line + "," + std::to_string(counters.frames) + "," + std::to_string(counters.replies) + "," +
               std::to_string(counters.refused) + "," + std::to_string(counters.failures) + "," + std::to_string(counters.connections) + "," + rate + "\n";
    }
    if (format == Format::Jsonl) {
        std::string values;
        std::string states;
        for (const ElementStatus& element : elements) {
            if (isOk(element))
                values += (values.empty() ? "" : ",") + jsonString(element.name) + ":" + element.value;
            else
                states += (states.empty() ? "" : ",") + jsonString(element.name) + ":" + jsonString(stateText(element));
        }
        return "{\"time\":" + jsonString(now) + ",\"values\":{" + values + "},\"states\":{" + states + "}," +
               jsonCounters(counters) + "}\n";
    }
    std::string line = now;
    for (const ElementStatus& element : elements)
        line += " " + element.name + "=" + (isOk(element) ? element.value : "? (" + stateText(element) + ")");
    return line + " | " + countersText(counters) + "\n";
}

std::vector<std::string> liveTable(const std::vector<ElementStatus>& elements, const CounterView& counters,
                                   const std::string& title)
{
    const size_t width = nameWidth(elements);
    size_t valueWidth = kMinValueWidth;
    for (const ElementStatus& element : elements)
        valueWidth = std::max(valueWidth, element.value.size());
    std::vector<std::string> lines{title, padded("VARIABLE", width) + "  " + padded("VALUE", valueWidth) + "  " +
                                              padded("CHANGED", kChangedWidth) + "  STATE"};
    for (const ElementStatus& element : elements)
        lines.push_back(padded(element.name, width) + "  " + padded(element.hasValue ? element.value : "-", valueWidth) +
                        "  " + padded(element.hasValue ? element.changedAt : "-", kChangedWidth) + "  " +
                        stateText(element));
    lines.push_back(countersText(counters) + "   (Ctrl-C to stop)");
    return lines;
}

std::string writeLine(const std::string& variable, const std::string& values, const std::string& outcome,
                      Format format)
{
    if (format == Format::Csv)
        return csvField(variable) + "," + csvField(values) + "," + csvField(outcome) + "\n";
    if (format == Format::Jsonl)
        return "{\"variable\":" + jsonString(variable) + ",\"values\":" + jsonString(values) +
               ",\"result\":" + jsonString(outcome) + "}\n";
    return variable + " = " + values + "  " + outcome + "\n";
}

}  // namespace logohost
