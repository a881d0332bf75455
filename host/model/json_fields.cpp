#include "host/model/json_fields.h"

#include <cctype>
#include <stdexcept>

namespace logohost {
namespace json_fields {
namespace {

constexpr size_t kMaxNameLength = 40;

std::string keyList(const std::set<std::string>& keys)
{
    std::string text;
    for (const std::string& key : keys)
        text += (text.empty() ? "" : ", ") + key;
    return text;
}

}  // namespace

void fail(const std::string& where, const std::string& what) { throw std::runtime_error(where + ": " + what); }

void checkKeys(const Json& object, const std::set<std::string>& allowed, const std::string& where)
{
    for (auto it = object.begin(); it != object.end(); ++it)
        if (!allowed.count(it.key()))
            fail(where, "unknown key \"" + it.key() + "\" (expected " + keyList(allowed) + ")");
}

std::string text(const Json& object, const char* key, const std::string& where, const std::string& fallback)
{
    if (!object.contains(key))
        return fallback;
    const Json& value = object.at(key);
    if (!value.is_string())
        fail(where, std::string("\"") + key + "\" must be a string");
    const std::string result = value.get<std::string>();
    if (result.size() > kMaxTextLength)
        fail(where, std::string("\"") + key + "\" is longer than " + std::to_string(kMaxTextLength) + " characters");
    return result;
}

bool flag(const Json& object, const char* key, const std::string& where)
{
    if (!object.contains(key))
        return false;
    if (!object.at(key).is_boolean())
        fail(where, std::string("\"") + key + "\" must be true or false");
    return object.at(key).get<bool>();
}

double number(const Json& object, const char* key, const std::string& where, double fallback)
{
    if (!object.contains(key))
        return fallback;
    if (!object.at(key).is_number())
        fail(where, std::string("\"") + key + "\" must be a number");
    return object.at(key).get<double>();
}

bool validName(const std::string& name)
{
    if (name.empty() || name.size() > kMaxNameLength)
        return false;
    for (const char c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_')
            return false;
    return true;
}

std::string jsonErrorText(const std::exception& e)
{
    const std::string what = e.what();
    const size_t tagEnd = what.find("] ");
    return tagEnd == std::string::npos ? what : what.substr(tagEnd + 2);
}

}  // namespace json_fields
}  // namespace logohost
