#include "host/mqtt/mqtt_topics.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <limits>

#include "common/numbers.h"

namespace logohost {
namespace {

constexpr const char* kSetSuffix = "/set";

std::string trimmed(const std::string& text)
{
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") + 1 - first);
}

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A number as JSON writes one: strtod alone would take hex, "inf" and "nan".
bool isDecimalText(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789+-.eE") == std::string::npos;
}

}  // namespace

std::string topicName(const std::string& text)
{
    std::string name = text.empty() ? "_" : text;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_')
            c = '_';
    return name;
}

std::string defaultNode()
{
    char host[HOST_NAME_MAX + 1] = "";
    if (gethostname(host, sizeof host) != 0)
        return "logohost";
    host[HOST_NAME_MAX] = '\0';
    return topicName(host);
}

Topics::Topics(std::string node) : node_(std::move(node)), base_(std::string(kTopicRoot) + "/" + node_ + "/") {}

std::string Topics::discovery(const char* component, const std::string& var) const
{
    return std::string(kDiscoveryPrefix) + "/" + component + "/" + node_ + "/" + var + "/config";
}

std::string Topics::anyDiscovery() const { return std::string(kDiscoveryPrefix) + "/+/" + node_ + "/+/config"; }

std::string Topics::varOfSet(const std::string& topic) const
{
    const size_t suffix = std::string(kSetSuffix).size();
    if (topic.size() <= base_.size() + suffix || topic.compare(0, base_.size(), base_) != 0 ||
        topic.compare(topic.size() - suffix, suffix, kSetSuffix) != 0)
        return "";
    const std::string var = topic.substr(base_.size(), topic.size() - base_.size() - suffix);
    return var.find('/') == std::string::npos ? var : "";
}

bool parseSetValue(Kind kind, const std::string& payload, double* value, std::string* why)
{
    const std::string text = lowered(trimmed(payload));
    if (isBitKind(kind)) {
        const bool on = text == "on" || text == "true" || text == "1";
        const bool off = text == "off" || text == "false" || text == "0";
        *why = "a bit takes ON, OFF, true, false, 1 or 0";
        *value = on ? 1 : 0;
        return on || off;
    }
    *why = "a word takes a decimal number in the item's units";
    return isDecimalText(text) && common::parseDecimal(text, std::numeric_limits<double>::lowest(),
                                                         std::numeric_limits<double>::max(), value);
}

}  // namespace logohost
