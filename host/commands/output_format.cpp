#include "host/commands/output_format.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "host/notation/time_text.h"

namespace logohost {
namespace {

constexpr size_t kMinNameWidth = 8;
constexpr size_t kMinValueWidth = 6;
constexpr size_t kChangedWidth = 12;  // "14:03:07.123"

bool isOk(const ElementStatus& element) { return element.quality == Quality::Ok; }

std::string padded(const std::string& text, size_t width)
{
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

template <typename Named>
size_t nameWidth(const std::vector<Named>& rows)
{
    size_t width = kMinNameWidth;
    for (const Named& row : rows)
        width = std::max(width, row.name.size());
    return width;
}

std::string rateText(double perSecond)
{
    char rate[32];
    std::snprintf(rate, sizeof rate, "%.1f", perSecond);
    return rate;
}

// "ok", or with several controllers each by name: "tank ok, mill not
// answering since 12:03:07: connection refused".
std::string healthText(const LinkFigures& links)
{
    if (links.controllers.size() == 1)
        return healthWords(links.controllers[0].health);
    std::string text;
    for (const ControllerFigures& c : links.controllers)
        text += (text.empty() ? "" : ", ") + c.name + " " + healthWords(c.health);
    return text;
}

std::string linkText(const LinkFigures& links)
{
    const ControllerFigures link = links.total();
    return "link " + healthText(links) + " | frames " + std::to_string(link.frames) + ", replies " + std::to_string(link.replies) + ", refused " +
           std::to_string(link.refused) + ", failures " + std::to_string(link.failures) + ", connections " +
           std::to_string(link.connections) + ", " + rateText(link.framesPerSecond) + " frames/s";
}

std::string jsonLink(const LinkFigures& links)
{
    const ControllerFigures link = links.total();
    return "\"link\":" + jsonString(healthText(links)) + ",\"frames\":" + std::to_string(link.frames) + ",\"replies\":" + std::to_string(link.replies) +
           ",\"refused\":" + std::to_string(link.refused) + ",\"failures\":" + std::to_string(link.failures) +
           ",\"connections\":" + std::to_string(link.connections) + ",\"frames_per_s\":" + rateText(link.framesPerSecond);
}

std::string csvLink(const LinkFigures& links)
{
    const ControllerFigures link = links.total();
    return csvField(healthText(links)) + "," + std::to_string(link.frames) + "," + std::to_string(link.replies) + "," + std::to_string(link.refused) + "," +
           std::to_string(link.failures) + "," + std::to_string(link.connections) + "," + rateText(link.framesPerSecond);
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

std::vector<Reading> readingsOf(const std::vector<ElementStatus>& elements, const std::string& unread)
{
    std::vector<Reading> readings;
    for (const ElementStatus& element : elements) {
        Reading reading;
        reading.name = element.name;
        reading.variable = element.variable;
        reading.read = element.hasValue;
        const bool ownFailure = element.failuresInRow > 0 && element.quality != Quality::StationOff;
        if (reading.read)
            reading.value = std::to_string(element.value);
        else if (ownFailure)
            reading.error = failureText(element.failure);  // a one-off read: the driver's code too, last
        else if (!element.linkCause.empty())
            reading.error = "the controller did not answer (" + element.linkCause + ")";
        else if (element.quality == Quality::NeverRead)
            reading.error = unread;
        else
            reading.error = qualityWords(element);
        readings.push_back(reading);
    }
    return readings;
}

std::string readResults(const std::vector<Reading>& readings, Format format)
{
    const bool anyRead = std::any_of(readings.begin(), readings.end(), [](const Reading& r) { return r.read; });
    std::string out;
    if (format == Format::Table) {
        if (!anyRead)
            return out;
        const size_t width = nameWidth(readings);
        out += padded("VARIABLE", width) + "  VALUE\n";
        for (const Reading& reading : readings)
            if (reading.read)
                out += padded(reading.name, width) + "  " + reading.value + "\n";
        return out;
    }
    if (format == Format::Csv)
        out += "variable,value,error\n";
    for (const Reading& reading : readings) {
        if (format == Format::Csv)
            out += csvField(reading.name) + "," + reading.value + "," + csvField(reading.error) + "\n";
        else if (reading.read)
            out += "{\"variable\":" + jsonString(reading.name) + ",\"value\":" + reading.value + "}\n";
        else
            out += "{\"variable\":" + jsonString(reading.name) + ",\"error\":" + jsonString(reading.error) + "}\n";
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
    return header + ",link,frames,replies,refused,failures,connections,frames_per_s\n";
}

std::string scanLine(const std::vector<ElementStatus>& elements, const LinkFigures& link, Format format)
{
    const std::string now = clockText(false);
    if (format == Format::Csv) {
        std::string line = now;
        for (const ElementStatus& element : elements)
            line += "," + csvField(isOk(element) ? std::to_string(element.value) : qualityWords(element));
        return line + "," + csvLink(link) + "\n";
    }
    if (format == Format::Jsonl) {
        std::string values;
        std::string states;
        for (const ElementStatus& element : elements) {
            if (isOk(element))
                values += (values.empty() ? "" : ",") + jsonString(element.name) + ":" + std::to_string(element.value);
            else
                states += (states.empty() ? "" : ",") + jsonString(element.name) + ":" + jsonString(qualityWords(element));
        }
        return "{\"time\":" + jsonString(now) + ",\"values\":{" + values + "},\"states\":{" + states + "}," +
               jsonLink(link) + "}\n";
    }
    std::string line = now;
    for (const ElementStatus& element : elements)
        line += " " + element.name + "=" +
                (isOk(element) ? std::to_string(element.value) : "? (" + qualityWords(element) + ")");
    return line + " | " + linkText(link) + "\n";
}

std::vector<std::string> liveTable(const std::vector<ElementStatus>& elements, const LinkFigures& link,
                                   const std::string& title)
{
    const size_t width = nameWidth(elements);
    size_t valueWidth = kMinValueWidth;
    for (const ElementStatus& element : elements)
        valueWidth = std::max(valueWidth, std::to_string(element.value).size());
    std::vector<std::string> lines{title, padded("VARIABLE", width) + "  " + padded("VALUE", valueWidth) + "  " +
                                              padded("CHANGED", kChangedWidth) + "  STATE"};
    for (const ElementStatus& element : elements)
        lines.push_back(padded(element.name, width) + "  " +
                        padded(element.hasValue ? std::to_string(element.value) : "-", valueWidth) + "  " +
                        padded(element.hasValue ? clockTextOf(element.changedAtMs) : "-", kChangedWidth) + "  " +
                        qualityWords(element));
    lines.push_back(linkText(link) + "   (Ctrl-C to stop)");
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
