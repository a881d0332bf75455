// The fields of a panel builder's JSON file, each read with a message that
// says where in the file a mistake is and what was expected. A mistake
// throws std::runtime_error with "WHERE: WHAT"; the file's parser turns it
// into its error.
#ifndef LOGOHOST_JSON_FIELDS_H
#define LOGOHOST_JSON_FIELDS_H

#include <set>
#include <string>

#include <nlohmann/json.hpp>

namespace logohost {
namespace json_fields {

using Json = nlohmann::json;

constexpr size_t kMaxTextLength = 80;

[[noreturn]] void fail(const std::string& where, const std::string& what);
void checkKeys(const Json& object, const std::set<std::string>& allowed, const std::string& where);
// A string of at most kMaxTextLength characters, or the fallback when absent.
std::string text(const Json& object, const char* key, const std::string& where, const std::string& fallback);
bool flag(const Json& object, const char* key, const std::string& where);
double number(const Json& object, const char* key, const std::string& where, double fallback);
// 1 to 40 letters, digits, '-' or '_': fit for a page's address or a topic.
bool validName(const std::string& name);
// "[json.exception.parse_error.101] parse error at ..." without its tag.
std::string jsonErrorText(const std::exception& e);

}  // namespace json_fields
}  // namespace logohost

#endif  // LOGOHOST_JSON_FIELDS_H
